#include "gui/report/reportwindows.h"

#include "gui/report/reportwindowcontroller.h"

ReportWindows::ReportWindows(Store &store, ActivityManager &activityManager, BvSettings &settings, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_activityManager(activityManager)
    , m_settings(settings)
{ }

ReportWindows::~ReportWindows()
{
    delete m_report;
    for (const QPointer<ReportWindowController> &window : std::as_const(m_imports))
        delete window;
}

void ReportWindows::showReport()
{
    if (!m_report) {
        m_report = new ReportWindowController(m_store, m_activityManager, m_settings);
        wire(m_report);
        connect(m_report, &ReportWindowController::closed, this, [this] { Q_EMIT reportOpenChanged(false); });
    }
    if (m_report->isMinimized())
        m_report->showNormal();
    m_report->show();
    m_report->raise();
    m_report->activateWindow();
    Q_EMIT reportOpenChanged(true);
}

void ReportWindows::showImport()
{
    ReportWindowController *window = ReportWindowController::initAsImport(m_store, m_activityManager, m_settings);
    wire(window);
    m_imports.append(window);
    window->show();
    window->raise();
    window->activateWindow();
}

ReportWindowController *ReportWindows::reportWindow() const
{
    return m_report;
}

QList<ReportWindowController *> ReportWindows::importWindows() const
{
    QList<ReportWindowController *> windows;
    for (const QPointer<ReportWindowController> &window : m_imports) {
        if (window)
            windows.append(window);
    }
    return windows;
}

void ReportWindows::wire(ReportWindowController *window)
{
    connect(window, &ReportWindowController::mainWindowRequested, this, &ReportWindows::mainWindowRequested);
    connect(window, &ReportWindowController::importRequested, this, &ReportWindows::showImport);
    // While `destroyed` is being sent the pointer is not yet cleared: drop it once it is.
    connect(window, &QObject::destroyed, this, [this] {
        QMetaObject::invokeMethod(
            this, [this] { m_imports.removeAll(nullptr); }, Qt::QueuedConnection);
    });
}
