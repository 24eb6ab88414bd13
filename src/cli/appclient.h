#pragma once

#include <chrono>
#include <expected>
#include <functional>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantList>

#include "cli/clienvironment.h"

class QDBusServiceWatcher;

// The running app as the command line reaches it: its interface on the session bus. Each call waits for
// the app's answer in an event loop of its own. A failed call gives the line to print: "Brimvale is not
// running." when no app holds the name, the bus's error text otherwise. Main thread.
class AppClient : public QObject
{
    Q_OBJECT
public:
    // The tracking state as the app reports it; startSecs is seconds since the Unix epoch, 0 when idle.
    struct Status
    {
        bool tracking = false;
        QString text;
        qint64 startSecs = 0;
        bool operator==(const Status &) const = default;
    };

    static constexpr auto LaunchTimeout = std::chrono::seconds(5);

    // `bus` is the user's session bus; tests hand in a connection of their own.
    explicit AppClient(const QDBusConnection &bus, QObject *parent = nullptr);

    // The environment's bus for the app, else the user's session bus.
    static QDBusConnection busFor(const CliEnvironment &environment);
    // The environment's way to launch the app, else launchAppInBackground.
    static std::function<bool()> launcherFor(const CliEnvironment &environment);

    // Starts this executable in the background as at login ("launchFromHelper": the window stays
    // closed), its output going nowhere. True when the process started.
    static bool launchAppInBackground();

    // Whether an app holds the name now.
    bool isAppRunning() const;
    // Runs `launch` unless an app runs already, then waits until one holds the name, for LaunchTimeout at
    // most. The error says the app did not come up.
    std::expected<void, QString> ensureAppRunning(const std::function<bool()> &launch);

    // The app's answer: "" when done, else the message its main window would show.
    std::expected<QString, QString> startTrack(const QString &text);
    std::expected<QString, QString> updateTrack(const QString &text);
    std::expected<void, QString> stopTrack();
    // Opens the report window (or brings it to the front).
    std::expected<void, QString> showReport();
    std::expected<Status, QString> status();
    // A sync run in the app; answers when the run ends: "Sync operation completed!", or "Error occurred"
    // and the details on the next line.
    std::expected<QString, QString> sync();

    // From now on reports every change of tracking and the app's coming and going.
    void watch();

Q_SIGNALS:
    void trackingChanged(const AppClient::Status &status);
    void appStarted();
    void appQuit();

private Q_SLOTS:
    // QtDBus hands bus signals only to slots named by their signature.
    void onTrackingChanged(bool tracking, const QString &text, qlonglong startSecs);

private:
    std::expected<QDBusMessage, QString> call(
        const QString &method, const QVariantList &arguments = {}, int timeoutMsecs = -1);

    QDBusConnection m_bus;
    QDBusServiceWatcher *m_watcher = nullptr;
};
