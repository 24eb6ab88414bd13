#pragma once

#include <functional>

#include <QKeySequence>
#include <QList>
#include <QPair>

#include <QUrl>
#include <QWidget>

class AttentionPreferencesPage;
class BVDropboxSyncBackend;
class BVSyncManager;
class BvSettings;
class BvUserNotificationService;
class ExportLayoutsPage;
class GeneralPreferencesPage;
class GlobalHotKey;
class IdleSource;
class QMenuBar;
class QKeyEvent;
class QPushButton;
class QTabWidget;
class Store;
class SyncPreferencesPage;

// The preferences window: the General (with the global shortcut), Attention, Export and Sync tabs. Every control writes
// its setting at once (no Apply); Close and Esc close the window, which keeps only the tab it showed for the next
// opening. One window per app: the app makes it once and raises it on every request. Main thread.
//
// Tabs have fixed numbers (PreferencesTab in platform/brimvaledbus.h), whatever order they show in:
// 0 general, 1 export, 2 sync, 3 attention.
class PreferencesWindowController : public QWidget
{
    Q_OBJECT
public:
    // What the pages edit and call; none is owned, all outlive the window.
    struct Parts
    {
        BvSettings &settings;
        Store &store;
        IdleSource &idleSource;
        BvUserNotificationService &notifications;
        BVDropboxSyncBackend &dropboxAccount;
        BVSyncManager &syncManager;
        GlobalHotKey &globalHotKey;
        // Whether the session shows tray icons now.
        std::function<bool()> trayAvailable;
        // Shows a page in the user's browser; QDesktopServices when unset.
        std::function<bool(const QUrl &)> openUrl;
        // The app's own menu shortcuts with their items' titles, which the global shortcut may not take.
        std::function<QList<QPair<QKeySequence, QString>>()> reservedShortcuts;
    };

    // The shortcuts of every item of `menuBar`'s menus, with the items' titles as shown (no "&").
    static QList<QPair<QKeySequence, QString>> menuShortcuts(const QMenuBar &menuBar);

    explicit PreferencesWindowController(const Parts &parts, QWidget *parent = nullptr);
    ~PreferencesWindowController() override;

    // Selects the tab numbered `tabIdx` (any other number keeps the current tab), shows the settings as
    // they are now, and shows the window and brings it to the front.
    void showPreferencesWithTabIdx(int tabIdx);
    // The number of the tab shown; -1 when none is.
    int currentTabIdx() const;

    QTabWidget *tabs() const { return m_tabs; }
    GeneralPreferencesPage *generalPage() const { return m_general; }
    AttentionPreferencesPage *attentionPage() const { return m_attention; }
    ExportLayoutsPage *exportPage() const { return m_export; }
    SyncPreferencesPage *syncPage() const { return m_sync; }

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void addTab(QWidget *page, int tabIdx, const QString &title);
    void reload();

    QTabWidget *m_tabs = nullptr;
    GeneralPreferencesPage *m_general = nullptr;
    AttentionPreferencesPage *m_attention = nullptr;
    ExportLayoutsPage *m_export = nullptr;
    SyncPreferencesPage *m_sync = nullptr;
    QPushButton *m_closeButton = nullptr;
};
