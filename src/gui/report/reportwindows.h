#pragma once

#include <QList>
#include <QObject>
#include <QPointer>

class ActivityManager;
class BvSettings;
class ReportWindowController;
class Store;

// The app's report windows: one report window (opened again, it is brought to the front) and any number
// of import windows, each deleting itself when closed. Main thread.
class ReportWindows : public QObject
{
    Q_OBJECT
public:
    // None is owned; all outlive this object.
    ReportWindows(Store &store, ActivityManager &activityManager, BvSettings &settings, QObject *parent = nullptr);
    ~ReportWindows() override;

    // Shows the report window, making it on first use, and brings it to the front.
    void showReport();
    // Opens a window in import mode, which asks for the file once it shows.
    void showImport();

    // Null while closed.
    ReportWindowController *reportWindow() const;
    QList<ReportWindowController *> importWindows() const;

Q_SIGNALS:
    // The report window was shown (true) or closed (false). Not its activation: on Linux every window has
    // its own menu bar, so the main window's item for the report would never be clickable.
    void reportOpenChanged(bool open);
    // A report window's Window menu asked for the main window.
    void mainWindowRequested();

private:
    void wire(ReportWindowController *window);

    Store &m_store;
    ActivityManager &m_activityManager;
    BvSettings &m_settings;
    QPointer<ReportWindowController> m_report;
    QList<QPointer<ReportWindowController>> m_imports;
};
