#pragma once

#include <QString>

// One app per user session, through the app's name on the session bus: the first `brimvale` holds the
// name, a later one hands its request to it and exits. Main thread, once the application object exists.
class SingleInstance
{
public:
    // Takes the name com.brimvaleapp.Brimvale for this process. False when another process owns it (an app
    // runs already). True without a session bus too: nothing can then tell two instances apart, and the
    // app must still start.
    static bool claim();

    // Asks the running app to show its main window (an empty `urlOrEmpty`) or to open the URL (a
    // brimvaleapp: redirect). An app that holds the name but has not published its object yet is asked
    // again for a few seconds. True when the app answered.
    static bool forwardToRunning(const QString &urlOrEmpty);
};
