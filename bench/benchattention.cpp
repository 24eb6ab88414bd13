// What watching costs while an activity runs with idle detection on and no window: wake-ups of the whole
// process and CPU time, with the session's real idle source and session events, and the tracking
// controller's own timers. And how long a sleep takes from logind's signal to the stop in the store, on a
// journal of 100,000 activities.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include "app/trackingcontroller.h"
#include "attention/attentioncontroller.h"
#include "attention/bvusernotificationservice.h"
#include "base/clock.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "platform/idlesource.h"
#include "platform/notificationcentrenotifier.h"
#include "platform/platformservices.h"
#include "platform/sessionevents.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/userdefaults.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

// Context switches of every thread of this process: each is a wake-up or a preemption.
qint64 contextSwitches()
{
    qint64 total = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(task) + QStringLiteral("/status"));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches:") || line.startsWith("nonvoluntary_ctxt_switches:"))
                total += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
        }
    }
    return total;
}

double cpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct App
{
    IsolatedHome home;
    PlatformServices services = PlatformServices::forSession();
    std::unique_ptr<Store> store;
    std::unique_ptr<ActivityManager> manager;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BvSettings> settings;
    std::unique_ptr<TrackingController> tracking;
    std::unique_ptr<NotificationCentreNotifier> centre;
    std::unique_ptr<BvUserNotificationService> notifications;
    std::unique_ptr<AttentionController> attention;

    explicit App(bool filledJournal)
    {
        store = BenchmarkJournal::openStore(home.applicationFilesDirectory());
        if (filledJournal)
            BenchmarkJournal::fill(*store);
        manager = std::make_unique<ActivityManager>(*store);
        defaults = std::make_unique<UserDefaults>(home.configHome() + QStringLiteral("/Brimvale.conf"));
        settings = std::make_unique<BvSettings>(defaults.get());
        settings->setIdleTimeoutDetection(true);
        settings->setIdleTimeoutInterval(1);
        settings->eventSleepSettings()->setStopTracking(true);
        settings->eventSleepSettings()->setResumeTracking(true);
        tracking = std::make_unique<TrackingController>(*manager, *settings, *Clock::system());
        centre = std::make_unique<NotificationCentreNotifier>(*services.notifier);
        notifications = std::make_unique<BvUserNotificationService>(*centre);
        attention = std::make_unique<AttentionController>(
            *manager, *settings, *Clock::system(), *services.idleSource, *notifications);
        QObject::connect(tracking.get(), &TrackingController::attentionTimerRearmRequested, attention.get(),
            &AttentionController::setReminderTimer);
        QObject::connect(tracking.get(), &TrackingController::idleTimerUpdateRequested, attention.get(),
            &AttentionController::enableDisableIdleTimer);
        SessionEvents *events = services.sessionEvents.get();
        QObject::connect(tracking.get(), &TrackingController::trackingChanged, events,
            [events](bool on) { events->setTracking(on); });
        QObject::connect(events, &SessionEvents::computerEventDidStart, attention.get(),
            &AttentionController::computerEventDidStart);
        QObject::connect(events, &SessionEvents::computerEventDidStop, attention.get(),
            &AttentionController::computerEventDidStop);
        events->start();
        tracking->setActivityText(QStringLiteral("@Acme #design watching the idle time"));
        tracking->doStartTrackAndShowWindow(false);
    }
};

void BM_TrackingWithIdleDetection(benchmark::State &state)
{
    App app(false);
    // The user keeps working: the idle check finds them active and schedules the next one.
    const int seconds = int(state.range(0));
    for (auto _ : state) {
        const qint64 switchesBefore = contextSwitches();
        const double cpuBefore = cpuSeconds();
        QEventLoop loop;
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        state.counters["wakeups_per_s"] = double(contextSwitches() - switchesBefore) / seconds;
        state.counters["cpu_percent"] = (cpuSeconds() - cpuBefore) * 100.0 / seconds;
    }
    state.SetLabel(app.services.idleSource->isAvailable()
            ? app.services.idleSource->name().toStdString()
            : "no idle source: " + app.services.idleSource->unavailableReason().toStdString());
}
BENCHMARK(BM_TrackingWithIdleDetection)->Arg(20)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_SleepCommitted(benchmark::State &state)
{
    App app(true);
    for (auto _ : state) {
        // As logind's PrepareForSleep(true) arrives: the stop is saved when the handler returns.
        Q_EMIT app.services.sessionEvents->computerEventDidStart(1);
        if (app.manager->isTracking())
            state.SkipWithError("still tracking after the sleep");
        state.PauseTiming();
        Q_EMIT app.services.sessionEvents->computerEventDidStop(1);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_SleepCommitted)->Unit(benchmark::kMillisecond);

} // namespace
