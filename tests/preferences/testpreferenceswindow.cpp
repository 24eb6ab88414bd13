#include <QtTest>

#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QUrlQuery>

#include "app/brimvaleapplication.h"
#include "app/trackingcontroller.h"
#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "fakes/fakeidlesource.h"
#include "fakes/fakekeychain.h"
#include "fakes/fakesyncbackend.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/mainwindow.h"
#include "gui/app/statusbarmenu.h"
#include "gui/preferences/generalpreferencespage.h"
#include "gui/preferences/preferencescombobox.h"
#include "gui/preferences/preferenceswindowcontroller.h"
#include "platform/autostartxdg.h"
#include "platform/brimvaledbus.h"
#include "platform/globalhotkeynull.h"
#include "platform/idlesourcenull.h"
#include "platform/notifier.h"
#include "platform/sessioneventsnull.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvsynctimezonefile.h"

using namespace Qt::StringLiterals;

namespace {

// The desktop's notification server: always there, remembers what was posted.
class FakeNotifier : public Notifier
{
public:
    bool isAvailable() const override { return true; }
    bool supportsActions() const override { return true; }
    void post(const UserNotification &notification) override { posted.append(notification); }
    void withdraw(const QString &) override { }
    QList<UserNotification> posted;
};

// A session where the autostart folder cannot be written.
class RefusingLoginItems : public LoginItemService
{
public:
    std::expected<void, QString> setEnabled(bool) override { return std::unexpected(u"read-only folder"_s); }
};

void apply(QWidget *control, const QVariant &input)
{
    if (auto *box = qobject_cast<QCheckBox *>(control))
        box->setChecked(input.toBool());
    else if (auto *combo = qobject_cast<PreferencesComboBox *>(control))
        combo->setCurrentIndex(combo->findData(input.toInt()));
    else if (auto *spin = qobject_cast<QSpinBox *>(control))
        spin->setValue(input.toInt());
    else
        QFAIL(qPrintable(u"no way to set %1"_s.arg(control->objectName())));
}

QVariant shown(QWidget *control)
{
    if (auto *box = qobject_cast<QCheckBox *>(control))
        return box->isChecked();
    if (auto *combo = qobject_cast<PreferencesComboBox *>(control))
        return combo->value();
    if (auto *spin = qobject_cast<QSpinBox *>(control))
        return spin->value();
    return {};
}

} // namespace

// The preferences window of the real app, built offscreen with fakes for the desktop, Dropbox and sync: each
// control writes its key at once and a new app over the same files shows it again; stored values out of
// range show clamped; the tabs open by number, the menus, the tray and Ctrl+, open the one window; the app
// follows the new settings at once.
class TestPreferencesWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void controlsWriteTheirKeyAndSurviveARestart_data();
    void controlsWriteTheirKeyAndSurviveARestart();
    void storedValuesOutOfRangeShowClamped_data();
    void storedValuesOutOfRangeShowClamped();
    void opensAtTheTabOfItsNumber_data();
    void opensAtTheTabOfItsNumber();
    void menusTrayAndShortcutOpenTheOneWindow();
    void appFollowsTheChangesAtOnce();
    void startAtLoginWritesTheAutostartEntryOrSaysWhyNot_data();
    void startAtLoginWritesTheAutostartEntryOrSaysWhyNot();
    void withoutTrayTheAppearanceSaysSo();
    void attentionShowsIdleSourceAndPreviews_data();
    void attentionShowsIdleSourceAndPreviews();
    void folderSyncAsksForItsFolderAndSyncsNow();
    void dropboxConnectsThroughTheBrowserAndDisconnects();
    void everyTabFitsAtTheDefaultSize();

private:
    struct Options
    {
        bool refuseLoginItems = false;
        bool trayAvailable = true;
        std::unique_ptr<IdleSource> idleSource;
    };
    BrimvaleApplication &launch();
    BrimvaleApplication &launch(Options options);
    PreferencesWindowController &open(int tab);
    template<typename T> T *control(const QString &name) const;
    static QString stored(const QString &key);
    static void store(const QString &key, const QVariant &value);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<QTemporaryDir> m_remote;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    FakeDropboxService m_dropbox;
    FakeKeychain *m_keychain = nullptr;
    FakeNotifier *m_notifier = nullptr;
    QList<QUrl> m_opened;
    std::unique_ptr<BrimvaleApplication> m_app;
};

void TestPreferencesWindow::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_remote = std::make_unique<QTemporaryDir>();
    m_opened.clear();
}

void TestPreferencesWindow::cleanup()
{
    m_app.reset();
    m_remote.reset();
    m_home.reset();
}

BrimvaleApplication &TestPreferencesWindow::launch()
{
    return launch(Options {});
}

BrimvaleApplication &TestPreferencesWindow::launch(Options options)
{
    m_app.reset();
    PlatformServices services;
    auto notifier = std::make_unique<FakeNotifier>();
    m_notifier = notifier.get();
    services.notifier = std::move(notifier);
    services.idleSource
        = options.idleSource ? std::move(options.idleSource) : std::make_unique<IdleSourceNull>(u"none in tests"_s);
    services.sessionEvents = std::make_unique<SessionEventsNull>();
    services.globalHotKey = std::make_unique<GlobalHotKeyNull>();
    auto keychain = std::make_unique<FakeKeychain>();
    m_keychain = keychain.get();
    services.keychain = std::move(keychain);
    if (options.refuseLoginItems)
        services.loginItems = std::make_unique<RefusingLoginItems>();
    else
        services.loginItems = std::make_unique<AutostartXdg>();

    AppEnvironment environment;
    environment.clock = &m_clock;
    const bool tray = options.trayAvailable;
    environment.trayAvailable = [tray] { return tray; };
    environment.dropboxService = &m_dropbox;
    environment.syncBackends = [this](int syncMethod) -> std::unique_ptr<BVSyncServiceBackend> {
        return std::make_unique<FakeSyncBackend>(m_remote->path(), syncMethod);
    };
    environment.openUrl = [this](const QUrl &url) {
        m_opened.append(url);
        return true;
    };
    m_app = std::make_unique<BrimvaleApplication>(std::move(services), environment);
    const auto launched = m_app->launch({});
    if (!launched)
        qFatal("launch failed: %s", qPrintable(launched.error().message()));
    return *m_app;
}

PreferencesWindowController &TestPreferencesWindow::open(int tab)
{
    m_app->showPreferences(tab);
    return *m_app->preferencesWindow();
}

template<typename T> T *TestPreferencesWindow::control(const QString &name) const
{
    T *found = m_app->preferencesWindow()->findChild<T *>(name);
    if (!found)
        qFatal("no control %s", qPrintable(name));
    return found;
}

QString TestPreferencesWindow::stored(const QString &key)
{
    return UserDefaults(UserDefaults::standardFilePath()).stringForKey(key);
}

void TestPreferencesWindow::store(const QString &key, const QVariant &value)
{
    UserDefaults defaults(UserDefaults::standardFilePath());
    defaults.setObject(value, key);
    QVERIFY(defaults.synchronize());
}

void TestPreferencesWindow::controlsWriteTheirKeyAndSurviveARestart_data()
{
    QTest::addColumn<QStringList>("controls"); // set in this order to the same input
    QTest::addColumn<QVariant>("input");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("texts"); // what the settings file holds afterwards

    const auto row = [](const char *name, QStringList controls, QVariant input, QStringList keys, QStringList texts) {
        QTest::newRow(name) << controls << input << keys << texts;
    };
    // General. The shipped defaults are taskbar and tray, icon and timer, end the running activity, ten
    // recent items by date: each row moves away from them.
    row("tray only", { u"appearance"_s }, 3, { u"appearance"_s }, { u"3"_s });
    row("taskbar only", { u"appearance"_s }, 1, { u"appearance"_s }, { u"1"_s });
    row("tray shows the timer", { u"statusbarType"_s }, 1, { u"statusbarType"_s }, { u"1"_s });
    row("hide the window always", { u"hideOnStart"_s }, 1,
        { u"hideMainWindowOnStartTracking"_s, u"dontHideMainWindowOnStartTracking"_s }, { u"1"_s, u"0"_s });
    row("never hide the window", { u"hideOnStart"_s }, 2,
        { u"hideMainWindowOnStartTracking"_s, u"dontHideMainWindowOnStartTracking"_s }, { u"0"_s, u"1"_s });
    row("keep the running activity", { u"endCurrentActivityOnTrack"_s }, false, { u"endCurrentActivityOnTrack"_s },
        { u"0"_s });
    row("25 recent items", { u"recentItemsCount"_s }, 25, { u"recentItemsCount"_s }, { u"25"_s });
    row("recent items by text", { u"recentItemsOrder"_s }, 0, { u"recentItemsOrderedBy"_s }, { u"text"_s });
    row("recent items without invoiced", { u"recentItemsExcludeInvoiced"_s }, true, { u"recentItemsExcludeInvoiced"_s },
        { u"1"_s });
    row("start at login", { u"startAtLogin"_s }, true, { u"startAtLogin"_s }, { u"1"_s });
    // Attention.
    row("reminder every 45 minutes", { u"reminderNotificationInterval"_s }, 45, { u"reminderNotificationInterval"_s },
        { u"45"_s });
    row("nag every 120 minutes", { u"notTrackingNotificationInterval"_s }, 120,
        { u"notTrackingNotificationInterval"_s }, { u"120"_s });
    row("nag by notification", { u"notTrackingNotificationDisplayNotification"_s }, true,
        { u"notTrackingNotificationDisplayNotification"_s }, { u"1"_s });
    row("reminder flashes once", { u"reminderNotificationBounceDock"_s }, true,
        { u"reminderNotificationBounceDock"_s, u"reminderNotificationBounceDockRepeat"_s }, { u"1"_s, QString() });
    row("nag flashes until active",
        { u"notTrackingNotificationBounceDock"_s, u"notTrackingNotificationBounceDockRepeat"_s }, 1,
        { u"notTrackingNotificationBounceDock"_s, u"notTrackingNotificationBounceDockRepeat"_s }, { u"1"_s, u"1"_s });
    row("no system notifications", { u"notificationType"_s }, 0, { u"notificationType"_s }, { u"0"_s });
    row("idle detection off", { u"idleDetectionEnabled"_s }, false, { u"idleDetectionEnabled"_s }, { u"0"_s });
    row("idle after 30 minutes", { u"idleDetectionTimeout"_s }, 30, { u"idleDetectionTimeout"_s }, { u"30"_s });
    row("idle subtracts and continues", { u"defaultIdleAction"_s }, 2, { u"defaultIdleAction"_s }, { u"2"_s });
    row("screensaver stops and resumes", { u"eventStopTracking3"_s, u"eventResumeTracking3"_s }, true,
        { u"eventScreensaverStopTracking"_s, u"eventScreensaverResumeTracking"_s }, { u"1"_s, u"1"_s });
    row("lock stops", { u"eventStopTracking4"_s }, true,
        { u"eventScreenLockedStopTracking"_s, u"eventScreenLockedResumeTracking"_s }, { u"1"_s, u"0"_s });
    row("sleep no longer stops", { u"eventStopTracking1"_s }, false, { u"eventSleepStopTracking"_s }, { u"0"_s });
    // Sync.
    row("sync with Dropbox", { u"syncMethod"_s }, 1, { u"syncMethod"_s }, { u"1"_s });
    row("sync every hour", { u"dropboxSyncInterval"_s }, 3, { u"dropboxSyncInterval"_s }, { u"3"_s });
    row("sync manually", { u"dropboxSyncInterval"_s }, 0, { u"dropboxSyncInterval"_s }, { u"0"_s });
}

void TestPreferencesWindow::controlsWriteTheirKeyAndSurviveARestart()
{
    QFETCH(QStringList, controls);
    QFETCH(QVariant, input);
    QFETCH(QStringList, keys);
    QFETCH(QStringList, texts);

    launch();
    open(-1);
    for (const QString &name : controls)
        apply(control<QWidget>(name), input);
    for (int i = 0; i < keys.size(); ++i)
        QCOMPARE(stored(keys.at(i)), texts.at(i));

    // A new app over the same files: the window shows what was chosen.
    launch();
    open(-1);
    for (const QString &name : controls)
        QCOMPARE(shown(control<QWidget>(name)).toInt(), input.toInt());
}

void TestPreferencesWindow::storedValuesOutOfRangeShowClamped_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("control");
    QTest::addColumn<int>("shown");

    QTest::newRow("51 recent items") << u"recentItemsCount"_s << QVariant(u"51"_s) << u"recentItemsCount"_s << 50;
    QTest::newRow("-3 recent items") << u"recentItemsCount"_s << QVariant(u"-3"_s) << u"recentItemsCount"_s << 0;
    QTest::newRow("idle after 61 minutes")
        << u"idleDetectionTimeout"_s << QVariant(u"61"_s) << u"idleDetectionTimeout"_s << 15;
    QTest::newRow("idle after 0 minutes")
        << u"idleDetectionTimeout"_s << QVariant(u"0"_s) << u"idleDetectionTimeout"_s << 15;
    QTest::newRow("reminder every 0 minutes")
        << u"reminderNotificationInterval"_s << QVariant(u"0"_s) << u"reminderNotificationInterval"_s << 1;
    QTest::newRow("nag every 500 minutes")
        << u"notTrackingNotificationInterval"_s << QVariant(u"500"_s) << u"notTrackingNotificationInterval"_s << 120;
    QTest::newRow("appearance 7") << u"appearance"_s << QVariant(u"7"_s) << u"appearance"_s << 1;
    QTest::newRow("tray type 9") << u"statusbarType"_s << QVariant(u"9"_s) << u"statusbarType"_s << 0;
    QTest::newRow("sync interval 5") << u"dropboxSyncInterval"_s << QVariant(u"5"_s) << u"dropboxSyncInterval"_s << 0;
    QTest::newRow("sync method 9") << u"syncMethod"_s << QVariant(u"9"_s) << u"syncMethod"_s << 0;
    QTest::newRow("idle action 0") << u"defaultIdleAction"_s << QVariant(u"0"_s) << u"defaultIdleAction"_s << 1;
}

void TestPreferencesWindow::storedValuesOutOfRangeShowClamped()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(QString, control);
    QFETCH(int, shown);

    store(key, value);
    launch();
    open(-1);
    QCOMPARE(::shown(this->control<QWidget>(control)).toInt(), shown);
}

void TestPreferencesWindow::opensAtTheTabOfItsNumber_data()
{
    QTest::addColumn<QList<int>>("requests");
    QTest::addColumn<QString>("page");

    QTest::newRow("first opening") << QList<int> { -1 } << u"generalPage"_s;
    QTest::newRow("general") << QList<int> { PreferencesTab::Sync, PreferencesTab::General } << u"generalPage"_s;
    QTest::newRow("sync is 2") << QList<int> { 2 } << u"syncPage"_s;
    QTest::newRow("attention") << QList<int> { PreferencesTab::Attention } << u"attentionPage"_s;
    QTest::newRow("export") << QList<int> { PreferencesTab::Export } << u"exportLayoutsPage"_s;
    QTest::newRow("unknown keeps the last") << QList<int> { 2, 9 } << u"syncPage"_s;
    QTest::newRow("none keeps the last") << QList<int> { 3, -1 } << u"attentionPage"_s;
}

void TestPreferencesWindow::opensAtTheTabOfItsNumber()
{
    QFETCH(QList<int>, requests);
    QFETCH(QString, page);

    launch();
    PreferencesWindowController *window = nullptr;
    for (int tab : requests) {
        PreferencesWindowController &opened = open(tab);
        QVERIFY(!window || window == &opened);
        window = &opened;
        // Closed in between, as the user would: the window keeps its tab.
        window->close();
    }
    window = &open(-1);
    QVERIFY(window->isVisible());
    QCOMPARE(window->tabs()->currentWidget()->objectName(), page);
    // Esc closes it.
    QTest::keyClick(window, Qt::Key_Escape);
    QVERIFY(!window->isVisible());
}

void TestPreferencesWindow::menusTrayAndShortcutOpenTheOneWindow()
{
    launch();
    MainWindow &main = m_app->delegate().mainWindow();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    QVERIFY(!m_app->preferencesWindow());
    QTest::keyClick(&main, Qt::Key_Comma, Qt::ControlModifier);
    PreferencesWindowController *window = m_app->preferencesWindow();
    QVERIFY(window);
    QTRY_VERIFY(window->isVisible());

    window->showPreferencesWithTabIdx(PreferencesTab::Sync);
    window->close();
    QAction *tray = m_app->delegate().statusBarMenu()->findChild<QAction *>(u"statusPreferencesAction"_s);
    QVERIFY(tray);
    tray->trigger();
    QCOMPARE(m_app->preferencesWindow(), window);
    QVERIFY(window->isVisible());
    QCOMPARE(window->currentTabIdx(), int(PreferencesTab::Sync));

    // The global shortcut may not take a shortcut of the app's own menus.
    window->showPreferencesWithTabIdx(PreferencesTab::General);
    auto *field = control<QPushButton>(u"shortcutField"_s);
    QTest::mouseClick(field, Qt::LeftButton);
    QTest::keyClick(field, Qt::Key_Comma, Qt::ControlModifier);
    QVERIFY2(control<QLabel>(u"shortcutMessage"_s)->text().contains(u"“Preferences…”"_s),
        qPrintable(control<QLabel>(u"shortcutMessage"_s)->text()));
    QVERIFY(!m_app->settings().globalHotKey());
}

void TestPreferencesWindow::appFollowsTheChangesAtOnce()
{
    launch();
    TrackingController &tracking = m_app->tracking();
    for (const QString &text : { u"@Acme one"_s, u"@Acme two"_s, u"@Acme three"_s }) {
        tracking.setActivityText(text);
        QVERIFY(tracking.doStartTrackAndShowWindow(false));
        m_clock.advance(60 * 1000);
    }
    QCOMPARE(tracking.recentMenuEntries(false).size(), 3);

    open(PreferencesTab::General);
    control<QSpinBox>(u"recentItemsCount"_s)->setValue(2);
    QCOMPARE(tracking.recentMenuEntries(false).size(), 2);
    QCOMPARE(tracking.recentMenuEntries(false).constFirst().title, u"@Acme three"_s);
    apply(control<QWidget>(u"recentItemsOrder"_s), 0);
    QCOMPARE(tracking.recentMenuEntries(false).constFirst().title, u"@Acme two"_s);

    // Without ending the running activity, a new start is refused and Start is not offered while tracking.
    control<QCheckBox>(u"endCurrentActivityOnTrack"_s)->setChecked(false);
    QVERIFY(!tracking.activityMenuState().start);
    tracking.setActivityText(u"@Acme four"_s);
    QVERIFY(!tracking.doStartTrackAndShowWindow(false));
    QCOMPARE(tracking.messageText(), u"Stop previous activity before tracking new!"_s);
}

void TestPreferencesWindow::startAtLoginWritesTheAutostartEntryOrSaysWhyNot_data()
{
    QTest::addColumn<bool>("refused");
    QTest::newRow("written") << false;
    QTest::newRow("refused") << true;
}

void TestPreferencesWindow::startAtLoginWritesTheAutostartEntryOrSaysWhyNot()
{
    QFETCH(bool, refused);

    launch({ .refuseLoginItems = refused });
    open(PreferencesTab::General);
    auto *box = control<QCheckBox>(u"startAtLogin"_s);
    auto *note = control<QLabel>(u"startAtLoginNote"_s);
    const AutostartXdg autostart;
    box->setChecked(true);
    QCOMPARE(autostart.isEnabled(), !refused);
    QCOMPARE(box->isChecked(), !refused);
    QCOMPARE(m_app->settings().startAtLogin(), !refused);
    QCOMPARE(note->isVisibleTo(m_app->preferencesWindow()), refused);
    if (refused) {
        QCOMPARE(note->text(), GeneralPreferencesPage::startAtLoginFailedMessage());
        return;
    }
    box->setChecked(false);
    QVERIFY(!autostart.isEnabled());
    QCOMPARE(stored(u"startAtLogin"_s), u"0"_s);
}

void TestPreferencesWindow::withoutTrayTheAppearanceSaysSo()
{
    launch({ .trayAvailable = false });
    open(PreferencesTab::General);
    auto *note = control<QLabel>(u"appearanceNote"_s);
    QVERIFY(note->isVisibleTo(m_app->preferencesWindow()));
    QCOMPARE(note->text(), Brimvale_AppDelegate::trayUnavailableMessage());
    QVERIFY(!control<QWidget>(u"statusbarType"_s)->isEnabled());
    // Taskbar only needs no tray: nothing to explain.
    apply(control<QWidget>(u"appearance"_s), 1);
    QVERIFY(!note->isVisibleTo(m_app->preferencesWindow()));
}

void TestPreferencesWindow::attentionShowsIdleSourceAndPreviews_data()
{
    QTest::addColumn<bool>("idleAvailable");
    QTest::addColumn<int>("notificationType");
    QTest::addColumn<QString>("idleText");
    QTest::addColumn<int>("previews");

    QTest::newRow("source, notifications on") << true << 2 << u"Idle time from: fake"_s << 1;
    QTest::newRow("no source, notifications off")
        << false << 0 << u"Idle detection does not work here: none in tests"_s << 0;
}

void TestPreferencesWindow::attentionShowsIdleSourceAndPreviews()
{
    QFETCH(bool, idleAvailable);
    QFETCH(int, notificationType);
    QFETCH(QString, idleText);
    QFETCH(int, previews);

    Options options;
    if (idleAvailable)
        options.idleSource = std::make_unique<FakeIdleSource>();
    launch(std::move(options));
    open(PreferencesTab::Attention);
    QCOMPARE(control<QLabel>(u"idleSource"_s)->text(), idleText);
    apply(control<QWidget>(u"notificationType"_s), notificationType);
    auto *preview = control<QPushButton>(u"previewNotification"_s);
    QCOMPARE(preview->isEnabled(), previews > 0);
    const qsizetype before = m_notifier->posted.size();
    preview->click();
    QCOMPARE(m_notifier->posted.size() - before, previews);
    if (previews)
        QCOMPARE(m_notifier->posted.constLast().body, u"Notification preview"_s);

    // Resuming follows a stop only.
    auto *stop = control<QCheckBox>(u"eventStopTracking2"_s);
    auto *resume = control<QCheckBox>(u"eventResumeTracking2"_s);
    stop->setChecked(false);
    QVERIFY(!resume->isEnabled());
    stop->setChecked(true);
    QVERIFY(resume->isEnabled());
}

void TestPreferencesWindow::folderSyncAsksForItsFolderAndSyncsNow()
{
    // Runs only when asked: the method's change starts none.
    store(u"dropboxSyncInterval"_s, u"0"_s);
    launch();
    open(PreferencesTab::Sync);
    auto *syncNow = control<QPushButton>(u"syncNow"_s);
    apply(control<QWidget>(u"syncMethod"_s), 2);
    QCOMPARE(stored(u"syncMethod"_s), u"2"_s);
    // No folder yet: the chooser opens at once, and "Sync now" waits for a folder.
    QFileDialog *dialog = m_app->preferencesWindow()->findChild<QFileDialog *>(u"syncFolderDialog"_s);
    QVERIFY(dialog);
    QTRY_VERIFY(dialog->isVisible());
    QVERIFY(!syncNow->isEnabled());
    QTemporaryDir folder;
    Q_EMIT dialog->fileSelected(folder.path());
    QCOMPARE(m_app->settings().syncFolderPath(), folder.path());
    QCOMPARE(control<QLineEdit>(u"syncFolderPath"_s)->text(), folder.path());

    QVERIFY(syncNow->isEnabled());
    QCOMPARE(control<QLabel>(u"lastSync"_s)->text(), u"Last sync: never"_s);
    // Another machine recorded its zone in the folder first; this one adopts it and the tab shows it.
    auto *zone = control<QLabel>(u"syncTimeZone"_s);
    QCOMPARE(zone->text(), u"known after the next sync"_s);
    QFile zoneFile(QDir(m_remote->path()).filePath(QString::fromLatin1(BVSyncTimeZoneFile::FileName)));
    QVERIFY(zoneFile.open(QIODevice::WriteOnly));
    zoneFile.write(BVSyncTimeZoneFile::json("Pacific/Chatham"));
    zoneFile.close();
    syncNow->click();
    QVERIFY(!syncNow->isEnabled());
    QTRY_VERIFY(!m_app->syncManager().currentSyncService());
    QTRY_COMPARE(control<QLabel>(u"lastSync"_s)->text(),
        u"Last sync: %1"_s.arg(QLocale().toString(m_clock.now().toLocalTime(), QLocale::ShortFormat)));
    QVERIFY(syncNow->isEnabled());
    QCOMPARE(zone->text(), u"Pacific/Chatham"_s);
    QVERIFY(zone->isVisibleTo(m_app->preferencesWindow()));
}

void TestPreferencesWindow::dropboxConnectsThroughTheBrowserAndDisconnects()
{
    store(u"dropboxSyncInterval"_s, u"0"_s);
    launch();
    open(PreferencesTab::Sync);
    apply(control<QWidget>(u"syncMethod"_s), 1);
    auto *account = control<QLabel>(u"dropboxAccount"_s);
    auto *connectButton = control<QPushButton>(u"connectDropbox"_s);
    QCOMPARE(account->text(), u"Not connected"_s);
    QVERIFY(!control<QPushButton>(u"syncNow"_s)->isEnabled());

    connectButton->click();
    QCOMPARE(m_opened.size(), 1);
    const QUrlQuery page(m_opened.constFirst());
    const QUrl redirect(page.queryItemValue(u"redirect_uri"_s, QUrl::FullyDecoded));
    QCOMPARE(redirect.host(), u"127.0.0.1"_s);
    QCOMPARE(connectButton->text(), u"Cancel"_s);

    // The browser comes back with Dropbox's code.
    QUrl back = redirect;
    back.setQuery(u"code=%1&state=%2"_s.arg(m_dropbox.expectedCode, page.queryItemValue(u"state"_s)));
    QNetworkAccessManager network;
    QNetworkReply *reply = network.get(QNetworkRequest(back));
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    delete reply;
    QTRY_COMPARE(account->text(), u"Connected as Ada Lovelace"_s);
    QCOMPARE(m_keychain->value(u"oauth2_token"_s), m_dropbox.issuedToken);
    QVERIFY(!connectButton->isVisibleTo(m_app->preferencesWindow()));
    QVERIFY(control<QPushButton>(u"syncNow"_s)->isEnabled());

    control<QPushButton>(u"disconnectDropbox"_s)->click();
    QCOMPARE(account->text(), u"Not connected"_s);
    QVERIFY(m_keychain->value(u"oauth2_token"_s).isEmpty());
    QVERIFY(connectButton->isVisibleTo(m_app->preferencesWindow()));
}

void TestPreferencesWindow::everyTabFitsAtTheDefaultSize()
{
    // Every explanation shown, so that the fullest state of each tab is measured.
    launch({ .refuseLoginItems = true, .trayAvailable = false });
    PreferencesWindowController &window = open(PreferencesTab::General);
    control<QCheckBox>(u"startAtLogin"_s)->setChecked(true);
    m_app->settings().setSyncMethod(1);
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const QString shots = qEnvironmentVariable("BRIMVALE_SCREENSHOT_DIR");
    for (int i = 0; i < window.tabs()->count(); ++i) {
        window.tabs()->setCurrentIndex(i);
        QWidget *page = window.tabs()->currentWidget();
        QCoreApplication::processEvents();
        // Nothing is cut off: every label and button of the page gets at least the width its text needs.
        const QList<QWidget *> children = page->findChildren<QWidget *>();
        for (QWidget *child : children) {
            if (!child->isVisibleTo(page)
                || !(qobject_cast<QLabel *>(child) || qobject_cast<QAbstractButton *>(child)
                    || qobject_cast<QComboBox *>(child)))
                continue;
            // A wrapped text gets the height its lines need.
            const auto *label = qobject_cast<QLabel *>(child);
            if (label && label->wordWrap()) {
                QTRY_VERIFY2(label->height() >= label->heightForWidth(label->width()),
                    qPrintable(u"%1 on %2: %3 < %4"_s.arg(child->objectName(), page->objectName())
                                   .arg(label->height())
                                   .arg(label->heightForWidth(label->width()))));
                continue;
            }
            // A text set while the page was hidden is laid out once the page shows.
            QTRY_VERIFY2(child->width() >= child->minimumSizeHint().width(),
                qPrintable(u"%1 on %2: %3 < %4"_s.arg(child->objectName(), page->objectName())
                               .arg(child->width())
                               .arg(child->minimumSizeHint().width())));
            QVERIFY2(page->rect().contains(QRect(child->mapTo(page, QPoint(0, 0)), child->size())),
                qPrintable(u"%1 leaves %2"_s.arg(child->objectName(), page->objectName())));
        }
        if (!shots.isEmpty())
            QVERIFY(window.grab().save(u"%1/preferences-%2.png"_s.arg(shots, page->objectName())));
    }
}

QTEST_MAIN(TestPreferencesWindow)
#include "testpreferenceswindow.moc"
