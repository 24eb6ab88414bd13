#pragma once

#include <QString>
#include <QStringList>

// What end-to-end tests need to drive the real executables: run a command to its end, ask the running
// app over the session bus, find its window with xdotool.
namespace AppProcess {

struct Run
{
    int status = -1; // -1 when it did not end normally in time
    QString out;
    QString err;
};
Run run(const QString &program, const QStringList &arguments, int timeoutMsecs = 20000);

// Status() of the running app: tracking, text, start in Unix seconds; `answered` false when none answered.
struct Status
{
    bool answered = false;
    bool tracking = false;
    QString text;
    qint64 startSecs = 0;
};
Status appStatus();

// Whether a process owns `name` on the session bus (by default the app's name).
bool registered(const QString &name = QStringLiteral("com.brimvaleapp.Brimvale"));
// Ends the process that owns `name` with SIGTERM and waits until the name is gone; false if it stays.
bool terminateOwner(const QString &name = QStringLiteral("com.brimvaleapp.Brimvale"));

bool xdotool(const QStringList &arguments);
// A visible window titled exactly "Brimvale".
bool mainWindowShown();

} // namespace AppProcess
