#include "gui/app/brimvale_appdelegate.h"

#include <QApplication>
#include <QMessageBox>
#include <QUrl>

#include "app/trackingcontroller.h"
#include "base/stringhelpers.h"
#include "gui/app/activitytextview.h"
#include "gui/app/applogging.h"
#include "gui/app/bvmainwindowstatusbarview.h"
#include "gui/app/bvstatusbaritem.h"
#include "gui/app/editactivitystarttimewindowcontroller.h"
#include "gui/app/mainmenubar.h"
#include "gui/app/mainwindow.h"
#include "gui/app/recentactivitiesmenu.h"
#include "gui/app/statusbarmenu.h"
#include "gui/sync/bvsyncstatuswindowcontroller.h"
#include "model/activitymanager.h"
#include "model/storecontext.h"
#include "platform/globalhotkey.h"
#include "platform/notifier.h"
#include "settings/bvsettings.h"
#include "settings/notificationsettings.h"
#include "sync/bvsyncmanager.h"
#include "sync/bvsyncoption.h"
#include "sync/dropboxconnector.h"

namespace {

constexpr int AppearanceWindowOnly = 1;
constexpr int AppearanceTrayOnly = 3;
constexpr int NotificationsEnabled = 2;

} // namespace

Brimvale_AppDelegate::Brimvale_AppDelegate(const Parts &parts, QObject *parent)
    : QObject(parent)
    , m_tracking(parts.tracking)
    , m_settings(parts.settings)
    , m_globalHotKey(parts.globalHotKey)
    , m_notifier(parts.notifier)
    , m_trayAvailable(parts.trayAvailable)
    , m_dropboxConnector(parts.dropboxConnector)
    , m_syncManager(parts.syncManager)
    , m_window(std::make_unique<MainWindow>(parts.tracking))
{ }

Brimvale_AppDelegate::~Brimvale_AppDelegate()
{
    // A child of the main window: it goes before its parent does.
    m_syncStatusWindow.reset();
    removeStatusBarItem();
}

QString Brimvale_AppDelegate::trayUnavailableMessage()
{
    return tr("This desktop shows no tray icons, so Brimvale stays in the taskbar.");
}

QString Brimvale_AppDelegate::quitAlertText()
{
    return tr("Could not save changes while quitting.  Quit anyway?");
}

QString Brimvale_AppDelegate::quitAlertInformativeText()
{
    return tr("Quitting now will lose any changes you have made since the last successful save");
}

void Brimvale_AppDelegate::applicationDidFinishLaunching(bool launchFromHelper)
{
    wireWindow();

    // The settings first: an older settings file is upgraded, and the start at login is registered again
    // so that an entry written by an earlier version runs this one.
    if (m_settings.needsUpgrade())
        m_settings.upgrade();
    if (m_settings.startAtLogin())
        m_settings.setStartAtLogin(true);

    observeSettings();

    const int appearance = m_settings.appAppearance();
    setKeepsTaskbarEntry(appearance != AppearanceTrayOnly);

    registerGlobalHotKey();

    updateSyncMethodTitle();
    m_window->statusbarView()->setEditStartTimeButtonVisible(false);
    setStatusBar();

    // The first automatic run waits until the app has settled.
    connect(&m_syncManager, &BVSyncManager::syncOperationChanged, this,
        &Brimvale_AppDelegate::syncManagerSyncOperationChanged);
    m_syncManager.enqueueNextSyncWithDelay(30);

    m_tracking.setActivityText(m_settings.lastActivityText());
    m_window->textView()->setFocus(Qt::OtherFocusReason);

    // One stop brings every display into the not-tracking state (a running activity is never resumed).
    m_tracking.stopTrack();
    m_launched = true;
    if (!m_statusBarItem && m_settings.appAppearance() != AppearanceWindowOnly)
        explainMissingTray();

    // Without a tray, "tray only" would leave no way back to the app, so the window shows as with a taskbar.
    const bool trayOnly = appearance == AppearanceTrayOnly && m_statusBarItem;
    if (!launchFromHelper && !trayOnly)
        showAndBringMainWindowToFront();

    m_window->textView()->setDefaultFont();
}

void Brimvale_AppDelegate::wireWindow()
{
    MainWindow *window = m_window.get();
    connect(&m_tracking, &TrackingController::activityTextChanged, window->textView(), &ActivityTextView::setText);
    connect(window, &MainWindow::textEdited, &m_tracking, &TrackingController::setActivityTextFromUser);
    connect(&m_tracking, &TrackingController::messageChanged, window,
        [this] { m_window->showMessage(m_tracking.messageKind(), m_tracking.messageText()); });
    connect(&m_tracking, &TrackingController::statusChanged, this, &Brimvale_AppDelegate::onStatusChanged);
    connect(&m_tracking, &TrackingController::trackingChanged, this, &Brimvale_AppDelegate::onTrackingChanged);
    connect(&m_tracking, &TrackingController::mainWindowFrontRequested, this, &Brimvale_AppDelegate::showMainWindow);
    connect(&m_tracking.activityManager(), &ActivityManager::saveFailed, this, &Brimvale_AppDelegate::onSaveFailed);

    connect(window, &MainWindow::returnPressed, this, [this] { startTrack(true); });
    connect(window, &MainWindow::becameMain, this, [this] {
        m_window->mainMenuBar()->setMainWindowItemEnabled(true);
        m_tracking.mainWindowDidBecomeMain();
    });
    connect(
        window, &MainWindow::resignedMain, this, [this] { m_window->mainMenuBar()->setMainWindowItemEnabled(false); });
    connect(window, &MainWindow::closed, this, &Brimvale_AppDelegate::onMainWindowClosed);
    connect(window->earlierActivitiesMenu(), &RecentActivitiesMenu::activityChosen, &m_tracking,
        &TrackingController::setPreviousActivity);
    connect(window->statusbarView(), &BVMainWindowStatusbarView::onEditStartTimeButton, this,
        &Brimvale_AppDelegate::onEditStartTimeButton);
    connect(window->statusbarView(), &BVMainWindowStatusbarView::onSyncStatusButton, this,
        &Brimvale_AppDelegate::showSyncStatusWindow);
    connect(&m_syncIndicator, &BVSyncStatusIndicator::changed, this, &Brimvale_AppDelegate::showSyncIndicator);

    MainMenuBar *menuBar = window->mainMenuBar();
    connect(menuBar, &MainMenuBar::startTrackRequested, this, &Brimvale_AppDelegate::startTrack);
    connect(menuBar, &MainMenuBar::updateTrackRequested, this, &Brimvale_AppDelegate::updateTrack);
    connect(menuBar, &MainMenuBar::stopTrackRequested, this, &Brimvale_AppDelegate::stopTrack);
    connect(menuBar, &MainMenuBar::minimizeRequested, window, &QWidget::showMinimized);
    connect(menuBar, &MainMenuBar::zoomRequested, window,
        [window] { window->isMaximized() ? window->showNormal() : window->showMaximized(); });
    connect(menuBar, &MainMenuBar::mainWindowRequested, this, &Brimvale_AppDelegate::showAndBringMainWindowToFront);
    connect(menuBar, &MainMenuBar::quitRequested, this, &Brimvale_AppDelegate::quitRequested);
    connect(menuBar, &MainMenuBar::reportRequested, this, &Brimvale_AppDelegate::reportRequested);
    connect(menuBar, &MainMenuBar::importRequested, this, &Brimvale_AppDelegate::importRequested);
    connect(menuBar, &MainMenuBar::preferencesRequested, this, &Brimvale_AppDelegate::preferencesRequested);
    connect(menuBar->recentActivitiesMenu(), &RecentActivitiesMenu::activityChosen, &m_tracking,
        &TrackingController::setPreviousActivityAndStart);

    // The controller's state was set before anything listened: show it once now.
    onStatusChanged();
    onTrackingChanged();
}

void Brimvale_AppDelegate::observeSettings()
{
    connect(&m_settings, &BvSettings::appAppearanceChanged, this, &Brimvale_AppDelegate::onAppAppearanceChanged);
    connect(&m_settings, &BvSettings::appStatusbarTypeChanged, this, &Brimvale_AppDelegate::setStatusBar);
    connect(&m_settings, &BvSettings::globalHotKeyChanged, this, &Brimvale_AppDelegate::registerGlobalHotKey);
    connect(&m_settings, &BvSettings::syncMethodChanged, this, [this] {
        updateSyncMethodTitle();
        rescheduleSync();
    });
    connect(&m_settings, &BvSettings::dropboxSyncIntervalChanged, this, &Brimvale_AppDelegate::rescheduleSync);
    // Whether Start ends the running activity decides whether Start is offered while tracking.
    connect(&m_settings, &BvSettings::endCurrentActivityOnTrackChanged, this, &Brimvale_AppDelegate::onTrackingChanged);
    // A new interval matters only to the timer that runs in the current state: the nag while idle, the
    // reminder while tracking.
    connect(m_settings.notTrackingNotification(), &NotificationSettings::intervalChanged, this, [this] {
        if (!m_tracking.isTracking())
            Q_EMIT m_tracking.attentionTimerRearmRequested();
    });
    connect(m_settings.reminderNotification(), &NotificationSettings::intervalChanged, this, [this] {
        if (m_tracking.isTracking())
            Q_EMIT m_tracking.attentionTimerRearmRequested();
    });
}

void Brimvale_AppDelegate::startTrack(bool byKeyboard)
{
    if (m_tracking.doStartTrackAndShowWindow(true))
        hideMainWindowOnTrack(byKeyboard);
}

void Brimvale_AppDelegate::updateTrack(bool byKeyboard)
{
    if (m_tracking.doUpdateTrack())
        hideMainWindowOnTrack(byKeyboard);
}

void Brimvale_AppDelegate::stopTrack()
{
    m_tracking.stopTrack();
}

void Brimvale_AppDelegate::hideMainWindowOnTrack(bool byKeyboard)
{
    if (!m_tracking.shouldHideMainWindowOnTrack(byKeyboard, m_statusBarItem != nullptr))
        return;
    // Without a tray icon a hidden window could only come back by starting the app again: the taskbar
    // entry stays instead.
    if (m_statusBarItem)
        m_window->hide();
    else
        m_window->showMinimized();
}

void Brimvale_AppDelegate::setStatusBar()
{
    if (m_settings.appAppearance() == AppearanceWindowOnly) {
        removeStatusBarItem();
        return;
    }
    if (!m_statusBarItem) {
        auto item = std::make_unique<BvStatusBarItem>(m_trayAvailable);
        if (!item->isAvailable()) {
            qCInfo(lcApp) << "No tray host in this session; the main window keeps its taskbar entry";
            setKeepsTaskbarEntry(true);
            explainMissingTray();
            return;
        }
        m_statusBarMenu = std::make_unique<StatusBarMenu>(m_tracking);
        connect(m_statusBarMenu.get(), &StatusBarMenu::openRequested, this,
            &Brimvale_AppDelegate::showAndBringMainWindowToFront);
        connect(m_statusBarMenu.get(), &StatusBarMenu::stopTrackRequested, this, &Brimvale_AppDelegate::stopTrack);
        connect(m_statusBarMenu.get(), &StatusBarMenu::quitRequested, this, &Brimvale_AppDelegate::quitRequested);
        connect(m_statusBarMenu.get(), &StatusBarMenu::preferencesRequested, this,
            &Brimvale_AppDelegate::preferencesRequested);
        connect(m_statusBarMenu.get(), &StatusBarMenu::syncRequested, this, &Brimvale_AppDelegate::onSyncAction);
        connect(m_statusBarMenu.get(), &StatusBarMenu::reportRequested, this, &Brimvale_AppDelegate::reportRequested);
        connect(m_statusBarMenu.get(), &StatusBarMenu::importRequested, this, &Brimvale_AppDelegate::importRequested);
        m_statusBarMenu->setSyncMenuTitle(m_syncMenuTitle);
        connect(m_statusBarMenu->recentActivitiesMenu(), &RecentActivitiesMenu::activityChosen, &m_tracking,
            &TrackingController::setPreviousActivityAndStart);
        item->setMenu(m_statusBarMenu.get());
        // A click on a tray icon brings its app's window up on every Linux desktop; the menu is on the
        // other button.
        connect(item.get(), &BvStatusBarItem::activated, this, [this] {
            m_tracking.updateTrackStatus();
            showAndBringMainWindowToFront();
        });
        m_statusBarItem = std::move(item);
        m_statusBarItem->setVisible(true);
    }
    m_statusBarItem->setStatusBarType(m_settings.appStatusbarType());
    m_statusBarItem->setStatusBarTitle(m_tracking.statusItemTitle());
    m_statusBarItem->setTrackingText(runningText());
}

QString Brimvale_AppDelegate::runningText() const
{
    const ActivityPtr running = m_tracking.activityManager().currentActivity();
    return running ? running->text() : QString();
}

void Brimvale_AppDelegate::explainMissingTray()
{
    // Said once per run, and only once launching is done: the launch's stop clears the message line.
    if (m_trayUnavailableShown || !m_launched)
        return;
    m_trayUnavailableShown = true;
    m_tracking.showInfo(trayUnavailableMessage());
}

void Brimvale_AppDelegate::removeStatusBarItem()
{
    if (m_statusBarItem)
        m_statusBarItem->setVisible(false);
    m_statusBarItem.reset();
    m_statusBarMenu.reset();
}

void Brimvale_AppDelegate::setKeepsTaskbarEntry(bool keep)
{
    m_keepsTaskbarEntry = keep;
    // A utility window has no taskbar entry on X11 desktops and Wayland compositors alike.
    const bool wasVisible = m_window->isVisible();
    const Qt::WindowFlags flags = (m_window->windowFlags() & ~Qt::WindowType_Mask) | (keep ? Qt::Window : Qt::Tool);
    if (flags == m_window->windowFlags())
        return;
    m_window->setWindowFlags(flags);
    if (wasVisible)
        m_window->show();
}

void Brimvale_AppDelegate::onAppAppearanceChanged()
{
    setStatusBar();
    // Only a change to a taskbar appearance gives the window its entry back at once; leaving it takes effect
    // at the next launch, so the user is not left without the window they are looking at.
    const int appearance = m_settings.appAppearance();
    if (appearance == 1 || appearance == 2) {
        // The entry only: the user is choosing this in the preferences, which the main window must not cover.
        // A hidden window without a tray icon is brought up, since nothing else would lead back to it.
        setKeepsTaskbarEntry(true);
        if (!m_window->isVisible() && !m_statusBarItem)
            showAndBringMainWindowToFront();
    }
}

void Brimvale_AppDelegate::showMainWindow()
{
    if (m_window->isMinimized())
        m_window->showNormal();
    else
        m_window->show();
    m_window->raise();
}

void Brimvale_AppDelegate::showAndBringMainWindowToFront()
{
    showMainWindow();
    m_window->activateWindow();
    // A window manager may refuse focus to a request without a recent user event (a D-Bus call from a second
    // `brimvale`); the taskbar entry then asks for the user's attention instead.
    if (!m_window->isActiveWindow())
        QApplication::alert(m_window.get(), 3000);
}

void Brimvale_AppDelegate::registerGlobalHotKey()
{
    const auto registered = m_globalHotKey.registerHotKey(m_settings.globalHotKey());
    if (!registered)
        qCWarning(lcApp).noquote() << "Could not register the global hot key:" << registered.error();
    static_cast<void>(connect(&m_globalHotKey, &GlobalHotKey::activated, this,
        &Brimvale_AppDelegate::toggleMainWindowFromHotKey, Qt::UniqueConnection));
}

void Brimvale_AppDelegate::toggleMainWindowFromHotKey()
{
    if (!m_window->isVisible() || m_window->isMinimized() || !m_window->isActiveWindow()) {
        showAndBringMainWindowToFront();
        return;
    }
    // As after a keyboard start: without a tray icon the taskbar entry is the way back.
    if (m_statusBarItem)
        m_window->hide();
    else
        m_window->showMinimized();
}

bool Brimvale_AppDelegate::handleGetURLEvent(const QString &url)
{
    const QUrl parsed(url);
    if (parsed.scheme() != QLatin1String("brimvaleapp") || parsed.host() != QLatin1String("dropbox"))
        return false;
    const QHash<QString, QString> parameters = StringHelpers::queryItems(parsed.fragment(QUrl::FullyEncoded));
    if (parameters.isEmpty() || parameters.value(QStringLiteral("token_type")) != QLatin1String("bearer"))
        return false;
    m_dropboxConnector.connectDropboxAccount(
        QString(), parameters.value(QStringLiteral("account_id")), parameters.value(QStringLiteral("access_token")));
    if (m_settings.appNotificationType() == NotificationsEnabled)
        m_notifier.post({ QStringLiteral("dropbox"), tr("Dropbox"), tr("Connected with Dropbox"), {} });
    return true;
}

void Brimvale_AppDelegate::onEditStartTimeButton()
{
    if (!m_tracking.isTracking() || m_startTimeSheet)
        return;
    auto *sheet = new EditActivityStartTimeWindowController(m_tracking, m_window.get());
    sheet->setObjectName(QStringLiteral("startTimeSheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    m_startTimeSheet = sheet;
    showMainWindow();
    sheet->open();
}

EditActivityStartTimeWindowController *Brimvale_AppDelegate::startTimeSheet() const
{
    return m_startTimeSheet;
}

void Brimvale_AppDelegate::applicationShouldTerminate()
{
    if (m_quitAlert)
        return;
    m_settings.setLastActivityText(m_tracking.activityText());
    removeStatusBarItem();
    m_tracking.stopTrack();

    StoreContext &context = m_tracking.activityManager().context();
    if (!context.hasChanges()) {
        Q_EMIT terminationAllowed();
        return;
    }
    const auto saved = context.save();
    if (saved) {
        Q_EMIT terminationAllowed();
        return;
    }
    qCCritical(lcApp).noquote() << "Could not save changes while quitting:" << saved.error().message();
    // The alert informs; either button quits.
    auto *alert = new QMessageBox(QMessageBox::Warning, QStringLiteral("Brimvale"), quitAlertText(),
        QMessageBox::NoButton, m_window->isVisible() ? m_window.get() : nullptr);
    alert->setObjectName(QStringLiteral("quitAlert"));
    alert->setInformativeText(quitAlertInformativeText());
    alert->setDetailedText(saved.error().message());
    alert->addButton(tr("Quit anyway"), QMessageBox::AcceptRole);
    alert->addButton(tr("Cancel"), QMessageBox::RejectRole);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    connect(alert, &QMessageBox::finished, this, &Brimvale_AppDelegate::terminationAllowed);
    m_quitAlert = alert;
    alert->open();
}

void Brimvale_AppDelegate::onStatusChanged()
{
    m_window->statusbarView()->setStatusString(m_tracking.statusText());
    m_window->statusbarView()->setEditStartTimeButtonVisible(m_tracking.isTracking());
    if (m_statusBarItem)
        m_statusBarItem->setStatusBarTitle(m_tracking.statusItemTitle());
}

void Brimvale_AppDelegate::onTrackingChanged()
{
    m_window->mainMenuBar()->setActivityMenuState(m_tracking.activityMenuState());
    if (m_statusBarMenu)
        m_statusBarMenu->updateItems();
    if (m_statusBarItem)
        m_statusBarItem->setTrackingText(runningText());
    onStatusChanged();
}

void Brimvale_AppDelegate::onMainWindowClosed()
{
    // With a tray icon the app goes on in the tray; without one, closing the last window is quitting.
    if (!m_statusBarItem)
        Q_EMIT quitRequested();
}

void Brimvale_AppDelegate::onSaveFailed(const BvError &error)
{
    m_tracking.showError(error.description());
}

void Brimvale_AppDelegate::syncManagerSyncOperationChanged(int status, int syncMethod)
{
    m_syncIndicator.syncOperationChanged(status, syncMethod);
    // The window follows every run from its start, shown or not, so that the button can show how the last
    // one ended, its error and log included.
    if (status == BVSyncManager::Started)
        syncStatusWindowFor(m_syncManager.currentSyncService());
}

BVSyncStatusWindowController &Brimvale_AppDelegate::syncStatusWindowFor(BVSyncService *service)
{
    if (!m_syncStatusWindow)
        m_syncStatusWindow = std::make_unique<BVSyncStatusWindowController>(m_window.get());
    m_syncStatusWindow->setSyncService(service);
    return *m_syncStatusWindow;
}

void Brimvale_AppDelegate::showSyncIndicator()
{
    m_window->statusbarView()->setSyncButton(
        m_syncIndicator.isVisible(), m_syncIndicator.imageName(), m_syncIndicator.toolTip());
}

void Brimvale_AppDelegate::updateSyncMethodTitle()
{
    m_syncMenuTitle = BVSyncOption::syncMenuTitle(m_settings.syncMethod());
    if (m_statusBarMenu)
        m_statusBarMenu->setSyncMenuTitle(m_syncMenuTitle);
}

void Brimvale_AppDelegate::rescheduleSync()
{
    // With sync turned off no timer is left to fire for nothing.
    if (m_settings.syncMethod() == 0)
        m_syncManager.cancelScheduledSync();
    else
        m_syncManager.enqueueNextSyncWithDelay(0);
}

void Brimvale_AppDelegate::onSyncAction()
{
    m_syncManager.startSync();
}

void Brimvale_AppDelegate::showSyncStatusWindow()
{
    BVSyncStatusWindowController &window
        = m_syncStatusWindow ? *m_syncStatusWindow : syncStatusWindowFor(m_syncManager.currentSyncService());
    window.show();
    window.raise();
    window.activateWindow();
}

BVSyncStatusWindowController *Brimvale_AppDelegate::syncStatusWindow() const
{
    return m_syncStatusWindow.get();
}

void Brimvale_AppDelegate::enableWindowMenuItemReport(bool enabled)
{
    m_window->mainMenuBar()->setReportItemEnabled(enabled);
}
