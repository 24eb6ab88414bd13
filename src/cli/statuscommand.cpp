#include "cli/statuscommand.h"

#include <optional>

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include "app/trackingcontroller.h"
#include "base/clock.h"
#include "cli/appclient.h"
#include "cli/cliinterrupt.h"
#include "cli/clitime.h"

namespace {

const QString NotRunning = QStringLiteral("Brimvale is not running.");
constexpr qint64 MsecsPerMinute = 60 * 1000;

// None while no app runs (only --follow shows that state).
using AppState = std::optional<AppClient::Status>;

qint64 trackedMsecs(const AppClient::Status &status, const Clock &clock)
{
    return status.tracking ? std::max<qint64>(0, clock.now().toMSecsSinceEpoch() - status.startSecs * 1000) : 0;
}

QString plainText(const AppState &state, const Clock &clock, bool oneLine)
{
    if (!state)
        return NotRunning;
    const QString line = TrackingController::statusTextFor(trackedMsecs(*state, clock) / 1000, state->tracking);
    if (!state->tracking)
        return line;
    return line + (oneLine ? QStringLiteral(" ") : QStringLiteral("\n")) + state->text;
}

// One object a status bar module reads as it is: "text" for the bar, "tooltip", "class" to style by, and
// the raw fields for scripts.
QJsonObject json(const AppState &state, const Clock &clock)
{
    const bool tracking = state && state->tracking;
    const qint64 secs = state ? trackedMsecs(*state, clock) / 1000 : 0;
    QJsonObject object;
    object.insert(QStringLiteral("text"),
        tracking ? TrackingController::statusItemTitleFor(secs) + QLatin1Char(' ') + state->text : QString());
    object.insert(QStringLiteral("tooltip"), plainText(state, clock, false));
    object.insert(QStringLiteral("class"),
        !state ? QStringLiteral("stopped") : (tracking ? QStringLiteral("tracking") : QStringLiteral("idle")));
    object.insert(QStringLiteral("tracking"), tracking);
    object.insert(QStringLiteral("activity"), tracking ? state->text : QString());
    object.insert(QStringLiteral("start"),
        tracking ? QJsonValue(CliTime::rfc3339(state->startSecs * 1000)) : QJsonValue(QJsonValue::Null));
    object.insert(QStringLiteral("startSecs"), tracking ? state->startSecs : 0);
    return object;
}

// Until the next whole minute of tracked time, so a bar's "01:02" turns when the app's own timer does.
int msecsToNextMinute(const AppState &state, const Clock &clock)
{
    if (!state || !state->tracking)
        return MsecsPerMinute;
    return int(MsecsPerMinute - trackedMsecs(*state, clock) % MsecsPerMinute);
}

} // namespace

int StatusCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows what the running Brimvale app tracks: \"Status: tracking 01:02:05\" and the activity's text, or "
        "\"Status: not tracking\". Exits with status 1 when the app does not run."));
    const QCommandLineOption jsonOption(QStringLiteral("json"),
        QStringLiteral("Print one JSON object (text, tooltip, class, tracking, activity, start, startSecs), as a "
                       "waybar or polybar custom module reads it."));
    const QCommandLineOption followOption(QStringLiteral("follow"),
        QStringLiteral("Print again at every change and every minute until interrupted; while the app does not "
                       "run, say so (class \"stopped\") and wait for it."));
    parser.addOption(jsonOption);
    parser.addOption(followOption);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("status takes no arguments (see brimvale status --help)."));

    const Clock &clock = environment.storeOptions.clock ? *environment.storeOptions.clock : *Clock::system();
    const bool asJson = parser.isSet(jsonOption);
    const bool follow = parser.isSet(followOption);
    auto print = [&](const AppState &state) {
        if (asJson)
            environment.out << QJsonDocument(json(state, clock)).toJson(QJsonDocument::Compact) << Qt::endl;
        else
            environment.out << plainText(state, clock, follow) << Qt::endl;
    };

    AppClient app(AppClient::busFor(environment));
    if (!follow) {
        const auto status = app.status();
        if (!status)
            return fail(environment, status.error());
        print(*status);
        return CliExit::Success;
    }

    // Listening first, then asking: a change in between is not lost.
    app.watch();
    const auto asked = [&app]() -> AppState {
        const auto status = app.status();
        return status ? AppState(*status) : std::nullopt;
    };
    AppState state = asked();
    QTimer minute;
    minute.setSingleShot(true);
    auto show = [&] {
        print(state);
        minute.start(msecsToNextMinute(state, clock));
    };
    QObject::connect(&minute, &QTimer::timeout, &app, show);
    QObject::connect(&app, &AppClient::trackingChanged, &app, [&](const AppClient::Status &status) {
        state = status;
        show();
    });
    QObject::connect(&app, &AppClient::appStarted, &app, [&] {
        state = asked();
        show();
    });
    QObject::connect(&app, &AppClient::appQuit, &app, [&] {
        state.reset();
        show();
    });
    QEventLoop loop;
    CliInterrupt interrupt;
    QObject::connect(&interrupt, &CliInterrupt::interrupted, &loop, &QEventLoop::quit);
    show();
    loop.exec();
    return CliExit::Success;
}
