// The report window on the journal of 100,000 activities: opening on "all", a keystroke in the search
// field, a ticked sidebar project, the half-minute touch of the running activity (its commit and the window
// refreshing that one row), and the resident memory once the whole list has been scrolled through.
// Run under a display (Xvfb) or with QT_QPA_PLATFORM=offscreen.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QFile>
#include <QLineEdit>
#include <QScrollBar>
#include <QTest>

#include "gui/report/bvtableview.h"
#include "gui/report/reportwindowcontroller.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "report/reportquery.h"
#include "report/reportsidebaritemsmanager.h"
#include "report/reporttablemodel.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

struct Journal
{
    IsolatedHome home;
    std::unique_ptr<Store> store;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BvSettings> settings;
    std::unique_ptr<ActivityManager> manager;
};

Journal &journal()
{
    static Journal *j = [] {
        auto *made = new Journal;
        made->store = BenchmarkJournal::openStore(made->home.applicationFilesDirectory());
        BenchmarkJournal::fill(*made->store);
        made->defaults = std::make_unique<UserDefaults>(made->home.configHome() + QStringLiteral("/Brimvale.conf"));
        made->defaults->registerDefaultsFromResource();
        made->settings = std::make_unique<BvSettings>(made->defaults.get());
        made->manager = std::make_unique<ActivityManager>(*made->store);
        return made;
    }();
    return *j;
}

std::unique_ptr<ReportWindowController> openOnAll()
{
    Journal &j = journal();
    auto window = std::make_unique<ReportWindowController>(*j.store, *j.manager, *j.settings);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    window->onSegmentClicked(ReportQuery::AllSegment);
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get()))
        return nullptr;
    return window;
}

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

void BM_OpenShowingAll(benchmark::State &state)
{
    journal();
    for (auto _ : state) {
        std::unique_ptr<ReportWindowController> window = openOnAll();
        if (!window || window->model().rowCount() != BenchmarkJournal::Activities) {
            state.SkipWithError("the window did not list the journal");
            break;
        }
        state.PauseTiming();
        window.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_OpenShowingAll)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SearchKeystroke(benchmark::State &state)
{
    std::unique_ptr<ReportWindowController> window = openOnAll();
    auto *search = window->findChild<QLineEdit *>(QStringLiteral("searchField"));
    const QList<QString> texts { QStringLiteral("d"), QStringLiteral("de"), QStringLiteral("des"), QStringLiteral("de"),
        QStringLiteral("d"), QString() };
    qsizetype step = 0;
    for (auto _ : state) {
        search->setText(texts[step++ % texts.size()]);
        benchmark::DoNotOptimize(window->totalSeconds());
    }
}
BENCHMARK(BM_SearchKeystroke)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SidebarTick(benchmark::State &state)
{
    std::unique_ptr<ReportWindowController> window = openOnAll();
    ReportSidebarItemsManager *sidebar = window->sidebarItemsManager();
    const qint64 project = sidebar->projects().value(0).managedObjectID;
    for (auto _ : state) {
        sidebar->toggleItem(ReportSidebarItemsManager::Group::Projects, project);
        window->performQuery();
    }
}
BENCHMARK(BM_SidebarTick)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RunningTouchRefresh(benchmark::State &state)
{
    Journal &j = journal();
    if (!j.manager->isTracking() && !j.manager->startTrack(QStringLiteral("running benchmark")).isEmpty()) {
        state.SkipWithError("could not start tracking");
        return;
    }
    std::unique_ptr<ReportWindowController> window = openOnAll();
    // The start's own change (a new row) reaches the window first.
    QTest::qWait(50);
    const double before = *window->totalSeconds();
    for (auto _ : state) {
        j.manager->touchCurrentActivity();
        // The window reads the store's change on the next turn of the event loop.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    }
    if (window->model().rowCount() != BenchmarkJournal::Activities + 1)
        state.SkipWithError("the touch changed the list");
    benchmark::DoNotOptimize(before);
}
BENCHMARK(BM_RunningTouchRefresh)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ResidentAfterScrollingAll(benchmark::State &state)
{
    std::unique_ptr<ReportWindowController> window = openOnAll();
    QScrollBar *bar = window->tableView().verticalScrollBar();
    for (auto _ : state) {
        for (int value = 0; value <= bar->maximum(); value += bar->pageStep()) {
            bar->setValue(value);
            window->tableView().viewport()->repaint();
        }
    }
    state.counters["resident_MiB"] = double(residentKiB()) / 1024.0;
}
BENCHMARK(BM_ResidentAfterScrollingAll)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
