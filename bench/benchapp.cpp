// The desktop app on a journal of 100,000 activities: from nothing to the main window shown and ready for
// typing (in this process: the composition, the store, the launch steps; as a whole process: from exec to
// the window shown and the app answering on the session bus), and from Return in the field to the activity
// committed. Run it with a display and a session bus (scripts/dev.sh bench does; or under xvfb-run and
// dbus-run-session).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTest>
#include <QThread>

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
BENCHMARK(BM_LaunchToWindowShown)->Unit(benchmark::kMillisecond)->UseRealTime();

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
BENCHMARK(BM_ReturnToCommitted)->Unit(benchmark::kMillisecond)->UseRealTime();

// VmRSS of a running process, in megabytes; 0 when it cannot be read.
double residentMegabytes(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return 0;
}

// exec of `brimvale` until the app answers Status() on the bus, which it does once its window is shown.
void BM_ProcessStartToReady(benchmark::State &state)
{
    filledHome();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        state.SkipWithError("no session bus");
        return;
    }
    const QDBusMessage status = QDBusMessage::createMethodCall(QStringLiteral("com.brimvaleapp.Brimvale"),
        QStringLiteral("/com/brimvaleapp/Brimvale"), QStringLiteral("com.brimvaleapp.Brimvale1"),
        QStringLiteral("Status"));
    for (auto _ : state) {
        QProcess app;
        app.setStandardOutputFile(QProcess::nullDevice());
        app.setStandardErrorFile(QProcess::nullDevice());
        app.start(QStringLiteral(BRIMVALE_EXECUTABLE), {});
        QElapsedTimer waited;
        waited.start();
        while (bus.call(status, QDBus::Block, 1000).type() != QDBusMessage::ReplyMessage) {
            if (waited.elapsed() > 10000 || app.state() == QProcess::NotRunning) {
                state.SkipWithError("the app did not come up");
                break;
            }
            QThread::msleep(2);
        }
        state.PauseTiming();
        state.counters["resident_mb"] = residentMegabytes(app.processId());
        app.terminate();
        app.waitForFinished(10000);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ProcessStartToReady)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
