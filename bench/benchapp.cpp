// The desktop app on a journal of 100,000 activities: from nothing to the main window shown and ready for
// typing (the composition, the store, the launch steps), and from Return in the field to the activity
// committed.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QTest>

#include "app/brimvaleapplication.h"
#include "app/trackingcontroller.h"
#include "gui/app/activitytextview.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/mainwindow.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "platform/platformservices.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

IsolatedHome &filledHome()
{
    static IsolatedHome *home = [] {
        auto *h = new IsolatedHome;
        std::unique_ptr<Store> store = BenchmarkJournal::openStore(h->applicationFilesDirectory());
        BenchmarkJournal::fill(*store);
        return h;
    }();
    return *home;
}

std::unique_ptr<BrimvaleApplication> launchedApp()
{
    AppEnvironment environment;
    environment.applicationFilesDirectory = filledHome().applicationFilesDirectory();
    environment.trayAvailable = [] { return false; };
    auto app = std::make_unique<BrimvaleApplication>(PlatformServices::forSession(), environment);
    if (!app->launch({}))
        return nullptr;
    return app;
}

void BM_LaunchToWindowShown(benchmark::State &state)
{
    filledHome();
    for (auto _ : state) {
        std::unique_ptr<BrimvaleApplication> app = launchedApp();
        if (!app) {
            state.SkipWithError("launch failed");
            break;
        }
        MainWindow &window = app->delegate().mainWindow();
        if (!QTest::qWaitForWindowExposed(&window) || !window.textView()->hasFocus())
            state.SkipWithError("the window did not come up ready for typing");
        state.PauseTiming();
        app.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_LaunchToWindowShown)->Unit(benchmark::kMillisecond);

void BM_ReturnToCommitted(benchmark::State &state)
{
    std::unique_ptr<BrimvaleApplication> app = launchedApp();
    if (!app) {
        state.SkipWithError("launch failed");
        return;
    }
    ActivityTextView *field = app->delegate().mainWindow().textView();
    field->setText(QStringLiteral("@Project07 #task12 #task99 benchmarking"));
    app->tracking().setActivityTextFromUser(field->text());
    for (auto _ : state) {
        QTest::keyClick(field, Qt::Key_Return);
        if (!app->tracking().isTracking())
            state.SkipWithError("Return did not start tracking");
        state.PauseTiming();
        app->tracking().stopTrack();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ReturnToCommitted)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
