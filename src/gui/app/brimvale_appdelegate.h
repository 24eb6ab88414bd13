#pragma once

#include <functional>
#include <memory>

#include <QObject>
#include <QPointer>

#include "base/bverror.h"
#include "sync/bvsyncstatusindicator.h"

class BVSyncManager;
class BVSyncService;
class BVSyncStatusWindowController;
class BvSettings;
class BvStatusBarItem;
class DropboxConnector;
class EditActivityStartTimeWindowController;
class GlobalHotKey;
class MainWindow;
class Notifier;
class QMessageBox;
class StatusBarMenu;
class TrackingController;

// The app's controller: owns the main window, the tray icon and its menu, and wires them to the tracking
// controller, which holds every rule. It turns menu commands, key presses, URL events and settings changes
// into calls on the parts, runs the launch steps in their order and the quit flow. Later parts attach
// through the tracking controller's seam signals and the ones below. Main thread.
class Brimvale_AppDelegate : public QObject
{
    Q_OBJECT
public:
    // The collaborators the composition root hands down; none is owned, all outlive this object.
    struct Parts
    {
        TrackingController &tracking;
        BvSettings &settings;
        GlobalHotKey &globalHotKey;
        Notifier &notifier;
        // Whether the session has a tray host right now.
        std::function<bool()> trayAvailable;
        // Connects the Dropbox account that a browser's redirect names.
        DropboxConnector &dropboxConnector;
        BVSyncManager &syncManager;
    };

    explicit Brimvale_AppDelegate(const Parts &parts, QObject *parent = nullptr);
    ~Brimvale_AppDelegate() override;

    // applicationDidFinishLaunching: the launch steps in order. `launchFromHelper` (the start at login)
    // leaves the main window closed.
    void applicationDidFinishLaunching(bool launchFromHelper);

    // Tracking commands from the window and the menus. `byKeyboard`: a key press (Return in the field,
    // Ctrl+Return) gave the command, which may close the main window afterwards.
    void startTrack(bool byKeyboard);
    void updateTrack(bool byKeyboard);
    void stopTrack();
    // Closes (or, without a tray, minimises) the main window after a start, as the settings ask.
    void hideMainWindowOnTrack(bool byKeyboard);

    // Appearance 1 removes the tray icon; 2 and 3 make it (when the session has a tray) and apply the
    // icon/timer type. Without a tray the main window keeps its taskbar entry and the info line says why,
    // once per run.
    void setStatusBar();
    void showMainWindow();
    // showMainWindow, also bringing the window up over other applications' windows.
    void showAndBringMainWindowToFront();
    void registerGlobalHotKey();
    // The global shortcut: puts the main window away when it is the active window, else brings it up.
    void toggleMainWindowFromHotKey();
    // brimvaleapp://dropbox#... from the browser: connects the account it names. False when the URL is not
    // a Dropbox redirect with a bearer token (it is then ignored).
    bool handleGetURLEvent(const QString &url);

    // The sync manager's status of a run of `syncMethod`: the status bar's sync button follows it, and an
    // open status window follows a run that starts.
    void syncManagerSyncOperationChanged(int status, int syncMethod);
    // Names the status menu's sync command after the sync method ("Sync with Dropbox"); no command while
    // sync is turned off.
    void updateSyncMethodTitle();
    QString syncMenuTitle() const { return m_syncMenuTitle; }
    // The status menu's sync command.
    void onSyncAction();
    // The status bar's sync button: the window of the run under way, or of the one that ended last.
    void showSyncStatusWindow();
    // Null until the first run started or the sync button was pressed.
    BVSyncStatusWindowController *syncStatusWindow() const;
    // enableWindowMenuItemReport: the Window menu's report item is enabled while the report window is open.
    void enableWindowMenuItemReport(bool enabled);
    // The start-time button: opens the start-time sheet over the main window while tracking.
    void onEditStartTimeButton();

    // applicationShouldTerminate: stores the field's text, removes the tray icon, stops tracking and saves.
    // Emits terminationAllowed when the app may quit: at once, or after the failed save's alert is closed.
    void applicationShouldTerminate();

    MainWindow &mainWindow() const { return *m_window; }
    // Null while there is no tray icon.
    BvStatusBarItem *statusBarItem() const { return m_statusBarItem.get(); }
    StatusBarMenu *statusBarMenu() const { return m_statusBarMenu.get(); }
    // Null unless the sheet is open.
    EditActivityStartTimeWindowController *startTimeSheet() const;
    // Whether the main window shows in the taskbar: not with appearance 3 and a working tray.
    bool keepsTaskbarEntry() const { return m_keepsTaskbarEntry; }

    static QString trayUnavailableMessage();
    static QString quitAlertText();
    static QString quitAlertInformativeText();

Q_SIGNALS:
    // The user asked to quit (a Quit command, or closing the main window while there is no tray icon).
    void quitRequested();
    // The quit flow is done; the app may end.
    void terminationAllowed();
    // The menus or the tray asked for the report window, or for an import window.
    void reportRequested();
    void importRequested();
    // The menu bar's or the tray's Preferences command.
    void preferencesRequested();

private:
    void wireWindow();
    void observeSettings();
    void removeStatusBarItem();
    void explainMissingTray();
    QString runningText() const;
    void setKeepsTaskbarEntry(bool keep);
    void onStatusChanged();
    void onTrackingChanged();
    void onMainWindowClosed();
    void onAppAppearanceChanged();
    void onSaveFailed(const BvError &error);
    void showSyncIndicator();
    BVSyncStatusWindowController &syncStatusWindowFor(BVSyncService *service);
    // A new sync method or interval moves the automatic run.
    void rescheduleSync();

    TrackingController &m_tracking;
    BvSettings &m_settings;
    GlobalHotKey &m_globalHotKey;
    Notifier &m_notifier;
    std::function<bool()> m_trayAvailable;
    DropboxConnector &m_dropboxConnector;
    BVSyncManager &m_syncManager;
    BVSyncStatusIndicator m_syncIndicator;
    QString m_syncMenuTitle;
    std::unique_ptr<BVSyncStatusWindowController> m_syncStatusWindow;

    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<StatusBarMenu> m_statusBarMenu;
    std::unique_ptr<BvStatusBarItem> m_statusBarItem;
    QPointer<EditActivityStartTimeWindowController> m_startTimeSheet;
    QPointer<QMessageBox> m_quitAlert;
    bool m_keepsTaskbarEntry = true;
    bool m_trayUnavailableShown = false;
    bool m_launched = false;
};
