#include <functional>
#include <memory>

#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include "settings/bvsettings.h"
#include "settings/bvsettingsupgradehelper.h"
#include "settings/computereventsettings.h"
#include "settings/loginitemservice.h"
#include "settings/notificationsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

// A settings file in a fresh folder, seeded and inspected with a plain QSettings so that the tests see
// what is really in the file.
class SettingsFile
{
public:
    QString path() const { return m_dir.filePath(QStringLiteral("Brimvale.conf")); }

    void seed(const QVariantMap &values) const
    {
        QSettings file(path(), QSettings::IniFormat);
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            file.setValue(it.key(), it.value());
        file.sync();
    }
    // The text stored under the key; an invalid QVariant when the key is not in the file.
    QVariant stored(const QString &key) const
    {
        const QSettings file(path(), QSettings::IniFormat);
        return file.contains(key) ? QVariant(file.value(key).toString()) : QVariant();
    }
    QStringList keys() const { return QSettings(path(), QSettings::IniFormat).allKeys(); }

    // A store over the file as it is now, with the given registered defaults.
    std::unique_ptr<UserDefaults> open(const QVariantMap &registered = {}) const
    {
        auto defaults = std::make_unique<UserDefaults>(path());
        defaults->registerDefaults(registered);
        return defaults;
    }

private:
    QTemporaryDir m_dir;
};

class FakeLoginItemService : public LoginItemService
{
public:
    std::expected<void, QString> setEnabled(bool enabled) override
    {
        requests.append(enabled);
        if (fail)
            return std::unexpected(QStringLiteral("refused"));
        return {};
    }
    bool fail = false;
    QList<bool> requests;
};

class FakeUpgradeHelper : public BVSettingsUpgradeHelper
{
public:
    bool isDropboxConnected() const override
    {
        ++questions;
        return connected;
    }
    bool connected = false;
    mutable int questions = 0;
};

using Getter = std::function<int(const BvSettings &)>;

// Every clamped or defaulted value, as an integer (booleans as 0/1), by property name.
const QHash<QString, Getter> &getters()
{
    static const QHash<QString, Getter> table {
        { QStringLiteral("recentItemsCount"), &BvSettings::recentItemsCount },
        { QStringLiteral("appAppearance"), &BvSettings::appAppearance },
        { QStringLiteral("appStatusbarType"), &BvSettings::appStatusbarType },
        { QStringLiteral("appNotificationType"), &BvSettings::appNotificationType },
        { QStringLiteral("idleTimeoutInterval"), &BvSettings::idleTimeoutInterval },
        { QStringLiteral("defaultIdleAction"), &BvSettings::defaultIdleAction },
        { QStringLiteral("syncMethod"), &BvSettings::syncMethod },
        { QStringLiteral("dropboxSyncInterval"), &BvSettings::dropboxSyncInterval },
        { QStringLiteral("reportDurationFormat"), &BvSettings::reportDurationFormat },
        { QStringLiteral("defaultActivityExportFormat"), &BvSettings::defaultActivityExportFormat },
        { QStringLiteral("recentItemsOrderedByDate"), &BvSettings::recentItemsOrderedByDate },
        { QStringLiteral("endCurrentActivityOnTrack"), &BvSettings::endCurrentActivityOnTrack },
        { QStringLiteral("reportFilterToolbarVisible"), &BvSettings::reportFilterToolbarVisible },
        { QStringLiteral("reportSidebarProjectsVisible"), &BvSettings::reportSidebarProjectsVisible },
        { QStringLiteral("reportChartVisible"), &BvSettings::reportChartVisible },
        { QStringLiteral("idleTimeoutDetection"), &BvSettings::idleTimeoutDetection },
        { QStringLiteral("reminderInterval"),
            [](const BvSettings &s) { return s.reminderNotification()->interval(); } },
        { QStringLiteral("notTrackingInterval"),
            [](const BvSettings &s) { return s.notTrackingNotification()->interval(); } },
    };
    return table;
}

QVariantMap one(const QString &key, const QVariant &value)
{
    return value.isValid() ? QVariantMap { { key, value } } : QVariantMap {};
}

const QVariant absent;

} // namespace

Q_DECLARE_METATYPE(BvSettings::HideMainWindowOnStart)

class TestBvSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void storedValuesReadWithinTheirRanges_data();
    void storedValuesReadWithinTheirRanges();
    void creationWritesBackOnlyReplacedPopUpValues_data();
    void creationWritesBackOnlyReplacedPopUpValues();
    void registeredDefaultsStandInForMissingKeys_data();
    void registeredDefaultsStandInForMissingKeys();
    void bundledDefaultsAreValidAsStored();
    void notificationTypeFollowsAvailability_data();
    void notificationTypeFollowsAvailability();
    void idleThresholdAnnouncesOnlyRealChanges_data();
    void idleThresholdAnnouncesOnlyRealChanges();
    void idleSwitchAnnouncesOnlyRealChanges_data();
    void idleSwitchAnnouncesOnlyRealChanges();
    void boolValuesAreCachedUntilWritten();
    void defaultIdleActionIgnoresValuesOutsideOneToTwo_data();
    void defaultIdleActionIgnoresValuesOutsideOneToTwo();
    void sidebarTextIsScannedLeniently_data();
    void sidebarTextIsScannedLeniently();
    void sidebarIsWrittenInTheFixedFormat();
    void oldStatusBarTypeSplitsIntoAppearanceAndType_data();
    void oldStatusBarTypeSplitsIntoAppearanceAndType();
    void oldNotificationKeysMoveWithTheReminderIntervalSlip();
    void syncMethodUpgradeAsksAboutDropboxOnlyWhenMissing_data();
    void syncMethodUpgradeAsksAboutDropboxOnlyWhenMissing();
    void startAtLoginKeepsItsAsymmetryOnFailure_data();
    void startAtLoginKeepsItsAsymmetryOnFailure();
    void recordEditsAreWrittenThrough_data();
    void recordEditsAreWrittenThrough();
    void hideMainWindowOnStartIsOneChoiceOfTwoKeys_data();
    void hideMainWindowOnStartIsOneChoiceOfTwoKeys();
    void hotKeyNeedsBothKeys_data();
    void hotKeyNeedsBothKeys();
    void notificationRecordClampsIntervalAndDerivesEnabled_data();
    void notificationRecordClampsIntervalAndDerivesEnabled();
    void rfc3339TextMustMatchExactly_data();
    void rfc3339TextMustMatchExactly();
    void lastDropboxSyncTimeRoundTripsInUtcToTheSecond();
    void syncFolderPathAnnouncesOnlyRealChanges();
    void defaultSettingsUseTheStandardFileAndBundledDefaults();
};

void TestBvSettings::cleanup()
{
    BvSettings::setNotificationsAvailable({});
}

void TestBvSettings::storedValuesReadWithinTheirRanges_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("getter");
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const char *key, const QVariant &stored, const char *getter, int expected) {
        QTest::newRow(name) << QString::fromLatin1(key) << stored << QString::fromLatin1(getter) << expected;
    };
    row("recent count 51 is 50", "recentItemsCount", 51, "recentItemsCount", 50);
    row("recent count -3 is 0", "recentItemsCount", -3, "recentItemsCount", 0);
    row("recent count absent is 10", "recentItemsCount", absent, "recentItemsCount", 10);
    row("recent count 0 stays", "recentItemsCount", 0, "recentItemsCount", 0);
    row("recent order text", "recentItemsOrderedBy", QStringLiteral("text"), "recentItemsOrderedByDate", 0);
    row("recent order Text is by date", "recentItemsOrderedBy", QStringLiteral("Text"), "recentItemsOrderedByDate", 1);
    row("appearance 0 is 1", "appearance", 0, "appAppearance", 1);
    row("appearance 4 is 1", "appearance", 4, "appAppearance", 1);
    row("appearance 3 stays", "appearance", 3, "appAppearance", 3);
    row("appearance beyond int is 1", "appearance", QStringLiteral("4294967298"), "appAppearance", 1);
    row("statusbar 3 is 0", "statusbarType", 3, "appStatusbarType", 0);
    row("statusbar -1 is 0", "statusbarType", -1, "appStatusbarType", 0);
    row("statusbar 2 stays", "statusbarType", 2, "appStatusbarType", 2);
    row("idle timeout 0 is 15", "idleDetectionTimeout", QStringLiteral("0"), "idleTimeoutInterval", 15);
    row("idle timeout 61 is 15", "idleDetectionTimeout", QStringLiteral("61"), "idleTimeoutInterval", 15);
    row("idle timeout absent is 15", "idleDetectionTimeout", absent, "idleTimeoutInterval", 15);
    row("idle timeout 1 stays", "idleDetectionTimeout", QStringLiteral("1"), "idleTimeoutInterval", 1);
    row("idle timeout 60 stays", "idleDetectionTimeout", QStringLiteral("60"), "idleTimeoutInterval", 60);
    row("idle action 0 is 1", "defaultIdleAction", 0, "defaultIdleAction", 1);
    row("idle action 3 is 1", "defaultIdleAction", 3, "defaultIdleAction", 1);
    row("idle action 2 stays", "defaultIdleAction", 2, "defaultIdleAction", 2);
    row("sync method 3 is 0", "syncMethod", 3, "syncMethod", 0);
    row("sync method 2 stays", "syncMethod", 2, "syncMethod", 2);
    row("sync method -1 is 0", "syncMethod", -1, "syncMethod", 0);
    row("sync method 1 stays", "syncMethod", 1, "syncMethod", 1);
    row("sync interval 4 is 0", "dropboxSyncInterval", 4, "dropboxSyncInterval", 0);
    row("sync interval -2 is 0", "dropboxSyncInterval", -2, "dropboxSyncInterval", 0);
    row("sync interval 3 stays", "dropboxSyncInterval", 3, "dropboxSyncInterval", 3);
    row("duration format 3 is 0", "report_duration_format", QStringLiteral("3"), "reportDurationFormat", 0);
    row("duration format 2 stays", "report_duration_format", QStringLiteral("2"), "reportDurationFormat", 2);
    row("duration format absent is 0", "report_duration_format", absent, "reportDurationFormat", 0);
    row("export format 2 is 0", "default_activity_export_format", 2, "defaultActivityExportFormat", 0);
    row("reminder interval 0 is 1", "reminderNotificationInterval", 0, "reminderInterval", 1);
    row("reminder interval 500 is 120", "reminderNotificationInterval", 500, "reminderInterval", 120);
    row("filter toolbar absent shows", "reportFilterToolbarVisible", absent, "reportFilterToolbarVisible", 1);
    row("filter toolbar stored off", "reportFilterToolbarVisible", false, "reportFilterToolbarVisible", 0);
    row("sidebar projects absent shows", "report_sidebar_projects_visible", absent, "reportSidebarProjectsVisible", 1);
    row("sidebar projects YES is not 1", "report_sidebar_projects_visible", QStringLiteral("YES"),
        "reportSidebarProjectsVisible", 0);
    row("chart absent hides", "reportChartVisible", absent, "reportChartVisible", 0);
    row("chart stored 1 shows", "reportChartVisible", QStringLiteral("1"), "reportChartVisible", 1);
}

void TestBvSettings::storedValuesReadWithinTheirRanges()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, getter);
    QFETCH(int, expected);

    SettingsFile file;
    file.seed(one(key, stored));
    auto defaults = file.open();
    const BvSettings settings(defaults.get());
    QCOMPARE(getters().value(getter)(settings), expected);
}

void TestBvSettings::creationWritesBackOnlyReplacedPopUpValues_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("notificationsAvailable");
    QTest::addColumn<QVariant>("afterCreation");

    QTest::newRow("appearance 7") << QStringLiteral("appearance") << QVariant(7) << false << QVariant(u"1"_s);
    QTest::newRow("appearance missing") << QStringLiteral("appearance") << absent << false << QVariant(u"1"_s);
    QTest::newRow("appearance 2 kept") << QStringLiteral("appearance") << QVariant(2) << false << QVariant(u"2"_s);
    QTest::newRow("statusbar 5") << QStringLiteral("statusbarType") << QVariant(5) << false << QVariant(u"0"_s);
    QTest::newRow("statusbar missing stays missing") << QStringLiteral("statusbarType") << absent << false << absent;
    QTest::newRow("notification 1") << QStringLiteral("notificationType") << QVariant(1) << false << QVariant(u"2"_s);
    QTest::newRow("notification 2 unavailable")
        << QStringLiteral("notificationType") << QVariant(2) << false << QVariant(u"0"_s);
    QTest::newRow("notification 2 available")
        << QStringLiteral("notificationType") << QVariant(2) << true << QVariant(u"2"_s);
    QTest::newRow("recent count is clamped, not rewritten")
        << QStringLiteral("recentItemsCount") << QVariant(51) << false << QVariant(u"51"_s);
    QTest::newRow("idle timeout is read live, not rewritten")
        << QStringLiteral("idleDetectionTimeout") << QVariant(u"61"_s) << false << QVariant(u"61"_s);
}

void TestBvSettings::creationWritesBackOnlyReplacedPopUpValues()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(bool, notificationsAvailable);
    QFETCH(QVariant, afterCreation);

    BvSettings::setNotificationsAvailable([notificationsAvailable] { return notificationsAvailable; });
    SettingsFile file;
    file.seed(one(key, stored));
    auto defaults = file.open();
    const BvSettings settings(defaults.get());
    QCOMPARE(file.stored(key), afterCreation);
}

void TestBvSettings::registeredDefaultsStandInForMissingKeys_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("registered");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("getter");
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const char *key, const QVariant &registered, const QVariant &stored,
                         const char *getter, int expected) {
        QTest::newRow(name) << QString::fromLatin1(key) << registered << stored << QString::fromLatin1(getter)
                            << expected;
    };
    row("recent count registered", "recentItemsCount", 25, absent, "recentItemsCount", 25);
    row("registered recent count is clamped too", "recentItemsCount", 80, absent, "recentItemsCount", 50);
    row("stored beats registered", "recentItemsCount", 25, 5, "recentItemsCount", 5);
    row("end on track registered", "endCurrentActivityOnTrack", true, absent, "endCurrentActivityOnTrack", 1);
    row("idle timeout registered as text", "idleDetectionTimeout", u"30"_s, absent, "idleTimeoutInterval", 30);
    row("idle timeout registered as number", "idleDetectionTimeout", 30.0, absent, "idleTimeoutInterval", 30);
    row("toolbar registered off", "reportFilterToolbarVisible", false, absent, "reportFilterToolbarVisible", 0);
    row("one/zero key registered off", "report_sidebar_projects_visible", u"0"_s, absent,
        "reportSidebarProjectsVisible", 0);
    row("idle switch registered on", "idleDetectionEnabled", u"1"_s, absent, "idleTimeoutDetection", 1);
    row("reminder interval registered", "reminderNotificationInterval", 30, absent, "reminderInterval", 30);
}

void TestBvSettings::registeredDefaultsStandInForMissingKeys()
{
    QFETCH(QString, key);
    QFETCH(QVariant, registered);
    QFETCH(QVariant, stored);
    QFETCH(QString, getter);
    QFETCH(int, expected);

    SettingsFile file;
    file.seed(one(key, stored));
    auto defaults = file.open({ { key, registered } });
    const BvSettings settings(defaults.get());
    QCOMPARE(getters().value(getter)(settings), expected);
}

void TestBvSettings::bundledDefaultsAreValidAsStored()
{
    BvSettings::setNotificationsAvailable([] { return true; });
    SettingsFile file;
    auto defaults = file.open();
    QVERIFY(defaults->registerDefaultsFromResource());
    const QVariantMap bundled = defaults->registeredDefaults();
    QVERIFY(!bundled.isEmpty());
    QVERIFY2(!bundled.contains(u"syncMethod"_s), "a registered sync method would hide the upgrade");

    BvSettings settings(defaults.get());
    // Anything the settings object had to replace would have been written to the file.
    QCOMPARE(file.keys(), QStringList());
    QCOMPARE(settings.appAppearance(), bundled.value(u"appearance"_s).toInt());
    QCOMPARE(settings.appStatusbarType(), bundled.value(u"statusbarType"_s).toInt());
    QCOMPARE(settings.appNotificationType(), bundled.value(u"notificationType"_s).toInt());
    QCOMPARE(settings.recentItemsCount(), bundled.value(u"recentItemsCount"_s).toInt());
    QCOMPARE(settings.idleTimeoutInterval(), bundled.value(u"idleDetectionTimeout"_s).toInt());
    QCOMPARE(settings.dropboxSyncInterval(), bundled.value(u"dropboxSyncInterval"_s).toInt());
    QCOMPARE(settings.reminderNotification()->interval(), bundled.value(u"reminderNotificationInterval"_s).toInt());
    QVERIFY(settings.needsUpgrade());
}

void TestBvSettings::notificationTypeFollowsAvailability_data()
{
    QTest::addColumn<int>("requested");
    QTest::addColumn<bool>("available");
    QTest::addColumn<int>("expected");

    QTest::newRow("1 becomes 2") << 1 << true << 2;
    QTest::newRow("1 becomes 2 even without notifications") << 1 << false << 2;
    QTest::newRow("2 with notifications") << 2 << true << 2;
    QTest::newRow("2 without notifications is 0") << 2 << false << 0;
    QTest::newRow("0 stays") << 0 << true << 0;
    QTest::newRow("7 becomes 2") << 7 << false << 2;
    QTest::newRow("-1 becomes 2") << -1 << true << 2;
}

void TestBvSettings::notificationTypeFollowsAvailability()
{
    QFETCH(int, requested);
    QFETCH(bool, available);
    QFETCH(int, expected);

    BvSettings::setNotificationsAvailable([available] { return available; });
    SettingsFile file;
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QCOMPARE(settings.appNotificationType(), 0);
    QSignalSpy changed(&settings, &BvSettings::appNotificationTypeChanged);

    settings.setAppNotificationType(requested);
    QCOMPARE(settings.appNotificationType(), expected);
    QCOMPARE(changed.count(), expected != 0 ? 1 : 0);
    QCOMPARE(file.stored(u"notificationType"_s), expected != 0 ? QVariant(QString::number(expected)) : absent);

    const QList<EnumDescription> offered = BvSettings::notificationTypeValues();
    QCOMPARE(offered.contains(EnumDescription(2, {})), available);
}

void TestBvSettings::idleThresholdAnnouncesOnlyRealChanges_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<int>("minutes");
    QTest::addColumn<int>("announcements");
    QTest::addColumn<QVariant>("afterwards");

    QTest::newRow("15 over 15") << QVariant(u"15"_s) << 15 << 0 << QVariant(u"15"_s);
    QTest::newRow("15 over 0, which reads as 15") << QVariant(u"0"_s) << 15 << 0 << QVariant(u"0"_s);
    QTest::newRow("15 over nothing") << absent << 15 << 0 << absent;
    QTest::newRow("61 means 15") << QVariant(u"15"_s) << 61 << 0 << QVariant(u"15"_s);
    QTest::newRow("20 over 15") << QVariant(u"15"_s) << 20 << 1 << QVariant(u"20"_s);
    QTest::newRow("0 over 20 means 15") << QVariant(u"20"_s) << 0 << 1 << QVariant(u"15"_s);
    QTest::newRow("60 over 61") << QVariant(u"61"_s) << 60 << 1 << QVariant(u"60"_s);
}

void TestBvSettings::idleThresholdAnnouncesOnlyRealChanges()
{
    QFETCH(QVariant, stored);
    QFETCH(int, minutes);
    QFETCH(int, announcements);
    QFETCH(QVariant, afterwards);

    SettingsFile file;
    file.seed(one(u"idleDetectionTimeout"_s, stored));
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QSignalSpy changed(&settings, &BvSettings::BvIdleDetectionChanged);

    settings.setIdleTimeoutInterval(minutes);
    QCOMPARE(changed.count(), announcements);
    QCOMPARE(file.stored(u"idleDetectionTimeout"_s), afterwards);
}

void TestBvSettings::idleSwitchAnnouncesOnlyRealChanges_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<int>("announcements");

    QTest::newRow("on over nothing") << absent << true << 1;
    QTest::newRow("off over nothing") << absent << false << 0;
    QTest::newRow("on over 1") << QVariant(u"1"_s) << true << 0;
    QTest::newRow("off over 1") << QVariant(u"1"_s) << false << 1;
    QTest::newRow("on over YES, which is off") << QVariant(u"YES"_s) << true << 1;
}

void TestBvSettings::idleSwitchAnnouncesOnlyRealChanges()
{
    QFETCH(QVariant, stored);
    QFETCH(bool, enabled);
    QFETCH(int, announcements);

    SettingsFile file;
    file.seed(one(u"idleDetectionEnabled"_s, stored));
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QSignalSpy changed(&settings, &BvSettings::BvIdleDetectionChanged);

    settings.setIdleTimeoutDetection(enabled);
    QCOMPARE(changed.count(), announcements);
    QCOMPARE(settings.idleTimeoutDetection(), enabled);
    QCOMPARE(file.stored(u"idleDetectionEnabled"_s), QVariant(enabled ? u"1"_s : u"0"_s));
}

void TestBvSettings::boolValuesAreCachedUntilWritten()
{
    SettingsFile file;
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    const QString key = u"reportSidebarDynamicItems"_s;

    QCOMPARE(settings.boolForKey(key, false), false);
    // A write behind the object's back is not seen: the first answer was cached.
    defaults->setObject(u"1"_s, key);
    QCOMPARE(settings.boolForKey(key, false), false);
    // Its own write drops the cached answer.
    settings.setBoolValue(true, key);
    QCOMPARE(settings.reportSidebarDynamicItems(), true);
    settings.setBoolValue(false, key);
    QCOMPARE(settings.boolForKey(key, true), false);
    QCOMPARE(file.stored(key), QVariant(u"0"_s));
}

void TestBvSettings::defaultIdleActionIgnoresValuesOutsideOneToTwo_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QVariant>("afterwards");

    QTest::newRow("0 ignored") << 0 << QVariant(u"2"_s);
    QTest::newRow("3 ignored") << 3 << QVariant(u"2"_s);
    QTest::newRow("1 written") << 1 << QVariant(u"1"_s);
}

void TestBvSettings::defaultIdleActionIgnoresValuesOutsideOneToTwo()
{
    QFETCH(int, value);
    QFETCH(QVariant, afterwards);

    SettingsFile file;
    file.seed({ { u"defaultIdleAction"_s, 2 } });
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    settings.setDefaultIdleAction(value);
    QCOMPARE(file.stored(u"defaultIdleAction"_s), afterwards);
}

void TestBvSettings::sidebarTextIsScannedLeniently_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<double>("width");
    QTest::addColumn<bool>("collapsed");

    QTest::newRow("as written, collapsed") << QVariant(u"212.000000, YES"_s) << 212.0 << true;
    QTest::newRow("as written, open") << QVariant(u"212.000000, NO"_s) << 212.0 << false;
    QTest::newRow("width only") << QVariant(u"180"_s) << 180.0 << false;
    QTest::newRow("no comma before YES") << QVariant(u"180 YES"_s) << 180.0 << false;
    QTest::newRow("spaces around the comma") << QVariant(u"  96.5 ,  YES"_s) << 96.5 << true;
    QTest::newRow("lower-case yes") << QVariant(u"120,yes"_s) << 120.0 << true;
    QTest::newRow("exponent") << QVariant(u"2.5e2, YES"_s) << 250.0 << true;
    QTest::newRow("not a number") << QVariant(u"wide, YES"_s) << 0.0 << false;
    QTest::newRow("infinity is not a number") << QVariant(u"inf, YES"_s) << 0.0 << false;
    QTest::newRow("missing") << absent << 0.0 << false;
}

void TestBvSettings::sidebarTextIsScannedLeniently()
{
    QFETCH(QVariant, stored);
    QFETCH(double, width);
    QFETCH(bool, collapsed);

    SettingsFile file;
    file.seed(one(u"reportWindowSidebar"_s, stored));
    auto defaults = file.open();
    const BvSettings settings(defaults.get());
    QCOMPARE(settings.reportWindowSidebarWidth(), width);
    QCOMPARE(settings.reportWindowSidebarCollapsed(), collapsed);
}

void TestBvSettings::sidebarIsWrittenInTheFixedFormat()
{
    // The text must not follow the user's locale: a decimal comma would split the width from the flag.
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    SettingsFile file;
    {
        auto defaults = file.open();
        BvSettings settings(defaults.get());
        settings.setReportWindowSidebarCollapsed(true, 212);
        QCOMPARE(file.stored(u"reportWindowSidebar"_s), QVariant(u"212.000000, YES"_s));
        settings.setReportWindowSidebarCollapsed(false, 180.25);
    }
    QLocale::setDefault(previous);
    auto defaults = file.open();
    const BvSettings reopened(defaults.get());
    QCOMPARE(reopened.reportWindowSidebarWidth(), 180.25);
    QCOMPARE(reopened.reportWindowSidebarCollapsed(), false);
}

void TestBvSettings::oldStatusBarTypeSplitsIntoAppearanceAndType_data()
{
    QTest::addColumn<int>("oldType");
    QTest::addColumn<int>("appearance");
    QTest::addColumn<int>("statusbarType");

    QTest::newRow("1: dock, icon and timer") << 1 << 1 << 2;
    QTest::newRow("2: both, icon") << 2 << 2 << 0;
    QTest::newRow("3: both, timer") << 3 << 2 << 1;
    QTest::newRow("0: both, icon and timer") << 0 << 2 << 2;
    QTest::newRow("9: both, icon and timer") << 9 << 2 << 2;
}

void TestBvSettings::oldStatusBarTypeSplitsIntoAppearanceAndType()
{
    QFETCH(int, oldType);
    QFETCH(int, appearance);
    QFETCH(int, statusbarType);

    SettingsFile file;
    file.seed({ { u"status_bar_type"_s, oldType } });
    {
        auto defaults = file.open();
        const BvSettings settings(defaults.get());
        QCOMPARE(settings.appAppearance(), appearance);
        QCOMPARE(settings.appStatusbarType(), statusbarType);
    }
    QVERIFY(!file.keys().contains(u"status_bar_type"_s));
    // The next launch finds the new keys only and reads the same.
    auto defaults = file.open();
    const BvSettings reopened(defaults.get());
    QCOMPARE(reopened.appAppearance(), appearance);
    QCOMPARE(reopened.appStatusbarType(), statusbarType);
}

void TestBvSettings::oldNotificationKeysMoveWithTheReminderIntervalSlip()
{
    SettingsFile file;
    file.seed({
        { u"notification_not_tracking_interval"_s, 10 },
        { u"notification_not_tracking_use_growl"_s, true },
        { u"notification_not_tracking_bounce_dock"_s, false },
        { u"notification_not_tracking_bounce_dock_repeat"_s, true },
        { u"notification_reminder_interval"_s, 45 },
        { u"notification_reminder_use_growl"_s, false },
        { u"notification_reminder_bounce_dock"_s, true },
        { u"notification_reminder_bounce_dock_repeat"_s, true },
    });
    auto defaults = file.open();
    const BvSettings settings(defaults.get());

    const NotificationSettings *notTracking = settings.notTrackingNotification();
    QCOMPARE(notTracking->interval(), 45);
    QCOMPARE(notTracking->displayNotification(), true);
    QCOMPARE(notTracking->bounceDock(), false);
    QCOMPARE(notTracking->bounceDockRepeat(), true);
    const NotificationSettings *reminder = settings.reminderNotification();
    QCOMPARE(reminder->interval(), 1);
    QCOMPARE(reminder->displayNotification(), false);
    QCOMPARE(reminder->bounceDock(), true);
    QCOMPARE(reminder->bounceDockRepeat(), true);

    QVERIFY(!file.keys().contains(u"notification_reminder_interval"_s));
    QCOMPARE(file.stored(u"reminderNotificationInterval"_s), absent);
    QCOMPARE(file.stored(u"notTrackingNotificationInterval"_s), QVariant(u"45"_s));
}

void TestBvSettings::syncMethodUpgradeAsksAboutDropboxOnlyWhenMissing_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QVariant>("registered");
    QTest::addColumn<int>("helper"); // 0 none, 1 not connected, 2 connected
    QTest::addColumn<bool>("needsUpgrade");
    QTest::addColumn<int>("questions");
    QTest::addColumn<QVariant>("afterwards");

    QTest::newRow("missing, connected") << absent << absent << 2 << true << 1 << QVariant(u"1"_s);
    QTest::newRow("missing, not connected") << absent << absent << 1 << true << 1 << QVariant(u"0"_s);
    QTest::newRow("missing, no helper") << absent << absent << 0 << true << 0 << QVariant(u"0"_s);
    QTest::newRow("stored 0, connected") << QVariant(0) << absent << 2 << false << 0 << QVariant(u"0"_s);
    QTest::newRow("only registered, connected") << absent << QVariant(0) << 2 << true << 1 << QVariant(u"1"_s);
}

void TestBvSettings::syncMethodUpgradeAsksAboutDropboxOnlyWhenMissing()
{
    QFETCH(QVariant, stored);
    QFETCH(QVariant, registered);
    QFETCH(int, helper);
    QFETCH(bool, needsUpgrade);
    QFETCH(int, questions);
    QFETCH(QVariant, afterwards);

    SettingsFile file;
    file.seed(one(u"syncMethod"_s, stored));
    auto defaults = file.open(one(u"syncMethod"_s, registered));
    BvSettings settings(defaults.get());
    FakeUpgradeHelper fake;
    fake.connected = helper == 2;
    if (helper != 0)
        settings.setUpgradeHelper(&fake);

    QCOMPARE(settings.needsUpgrade(), needsUpgrade);
    settings.upgrade();
    QCOMPARE(fake.questions, questions);
    QCOMPARE(file.stored(u"syncMethod"_s), afterwards);
    QVERIFY(!settings.needsUpgrade());
}

void TestBvSettings::startAtLoginKeepsItsAsymmetryOnFailure_data()
{
    QTest::addColumn<bool>("storedOn");
    QTest::addColumn<int>("service"); // 0 none, 1 fails, 2 succeeds
    QTest::addColumn<bool>("requested");
    QTest::addColumn<bool>("field");
    QTest::addColumn<QVariant>("afterwards");

    QTest::newRow("enable succeeds") << false << 2 << true << true << QVariant(u"1"_s);
    QTest::newRow("disable succeeds") << true << 2 << false << false << QVariant(u"0"_s);
    QTest::newRow("enable fails: choice stored, field off") << false << 1 << true << false << QVariant(u"1"_s);
    QTest::newRow("disable fails: nothing written") << true << 1 << false << true << QVariant(u"1"_s);
    QTest::newRow("re-register at launch fails") << true << 1 << true << true << QVariant(u"1"_s);
    QTest::newRow("no service counts as failure") << false << 0 << true << false << QVariant(u"1"_s);
}

void TestBvSettings::startAtLoginKeepsItsAsymmetryOnFailure()
{
    QFETCH(bool, storedOn);
    QFETCH(int, service);
    QFETCH(bool, requested);
    QFETCH(bool, field);
    QFETCH(QVariant, afterwards);

    SettingsFile file;
    file.seed({ { u"startAtLogin"_s, storedOn ? u"1"_s : u"0"_s } });
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    FakeLoginItemService fake;
    fake.fail = service == 1;
    if (service != 0)
        settings.setLoginItemService(&fake);

    if (service != 2)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"start at login"_s));
    settings.setStartAtLogin(requested);
    QCOMPARE(fake.requests, service != 0 ? QList<bool> { requested } : QList<bool> {});
    QCOMPARE(settings.startAtLogin(), field);
    QCOMPARE(file.stored(u"startAtLogin"_s), afterwards);
}

void TestBvSettings::recordEditsAreWrittenThrough_data()
{
    QTest::addColumn<QString>("record");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariantMap>("expected");

    QTest::newRow("reminder interval, clamped") << u"reminder"_s << QByteArray("interval") << QVariant(500)
                                                << QVariantMap { { u"reminderNotificationInterval"_s, u"120"_s } };
    QTest::newRow("not-tracking bounce") << u"notTracking"_s << QByteArray("bounceDock") << QVariant(true)
                                         << QVariantMap { { u"notTrackingNotificationBounceDock"_s, u"1"_s } };
    QTest::newRow("reminder repeat") << u"reminder"_s << QByteArray("bounceDockRepeat") << QVariant(true)
                                     << QVariantMap { { u"reminderNotificationBounceDockRepeat"_s, u"1"_s } };
    QTest::newRow("sleep stop writes both keys")
        << u"1"_s << QByteArray("stopTracking") << QVariant(true)
        << QVariantMap { { u"eventSleepStopTracking"_s, u"1"_s }, { u"eventSleepResumeTracking"_s, u"0"_s } };
    QTest::newRow("screen locked resume writes both keys")
        << u"4"_s << QByteArray("resumeTracking") << QVariant(true)
        << QVariantMap { { u"eventScreenLockedStopTracking"_s, u"0"_s },
               { u"eventScreenLockedResumeTracking"_s, u"1"_s } };
}

void TestBvSettings::recordEditsAreWrittenThrough()
{
    QFETCH(QString, record);
    QFETCH(QByteArray, property);
    QFETCH(QVariant, value);
    QFETCH(QVariantMap, expected);

    SettingsFile file;
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    // Reading the records at creation wrote nothing of theirs.
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QCOMPARE(file.stored(it.key()), absent);

    QObject *target = nullptr;
    if (record == u"reminder")
        target = settings.reminderNotification();
    else if (record == u"notTracking")
        target = settings.notTrackingNotification();
    else
        target = settings.computerEventSettings(record.toInt());
    QVERIFY(target);
    QVERIFY(target->setProperty(property.constData(), value));

    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QCOMPARE(file.stored(it.key()), it.value());
}

void TestBvSettings::hideMainWindowOnStartIsOneChoiceOfTwoKeys_data()
{
    using Hide = BvSettings::HideMainWindowOnStart;
    QTest::addColumn<QVariant>("hide");
    QTest::addColumn<QVariant>("dontHide");
    QTest::addColumn<Hide>("read");
    QTest::addColumn<Hide>("chosen");
    QTest::addColumn<QString>("hideWritten");
    QTest::addColumn<QString>("dontHideWritten");
    QTest::newRow("neither, then always")
        << absent << absent << Hide::AfterKeyboardStart << Hide::Always << u"1"_s << u"0"_s;
    QTest::newRow("hide, then never") << QVariant(true) << QVariant(false) << Hide::Always << Hide::Never << u"0"_s
                                      << u"1"_s;
    QTest::newRow("don't hide, then after keyboard start")
        << QVariant(false) << QVariant(true) << Hide::Never << Hide::AfterKeyboardStart << u"0"_s << u"0"_s;
    // Set by hand or by an older version: not hiding wins, and choosing clears the other key.
    QTest::newRow("both, then always") << QVariant(true) << QVariant(true) << Hide::Never << Hide::Always << u"1"_s
                                       << u"0"_s;
}

void TestBvSettings::hideMainWindowOnStartIsOneChoiceOfTwoKeys()
{
    using Hide = BvSettings::HideMainWindowOnStart;
    QFETCH(QVariant, hide);
    QFETCH(QVariant, dontHide);
    QFETCH(Hide, read);
    QFETCH(Hide, chosen);
    QFETCH(QString, hideWritten);
    QFETCH(QString, dontHideWritten);

    SettingsFile file;
    QVariantMap stored = one(u"hideMainWindowOnStartTracking"_s, hide);
    stored.insert(one(u"dontHideMainWindowOnStartTracking"_s, dontHide));
    file.seed(stored);
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QCOMPARE(settings.hideMainWindowOnStart(), read);

    settings.setHideMainWindowOnStart(chosen);
    QCOMPARE(settings.hideMainWindowOnStart(), chosen);
    QCOMPARE(file.stored(u"hideMainWindowOnStartTracking"_s).toString(), hideWritten);
    QCOMPARE(file.stored(u"dontHideMainWindowOnStartTracking"_s).toString(), dontHideWritten);
    auto reopened = file.open();
    QCOMPARE(BvSettings(reopened.get()).hideMainWindowOnStart(), chosen);
}

void TestBvSettings::hotKeyNeedsBothKeys_data()
{
    QTest::addColumn<QVariantMap>("stored");
    QTest::addColumn<bool>("present");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<quint32>("modifierFlags");

    QTest::newRow("both") << QVariantMap { { u"globalHotKeyCode"_s, 49 }, { u"globalHotKeyFlags"_s, 768 } } << true
                          << 49 << quint32(768);
    QTest::newRow("flags use all 32 bits")
        << QVariantMap { { u"globalHotKeyCode"_s, 0 }, { u"globalHotKeyFlags"_s, u"4294967295"_s } } << true << 0
        << quint32(0xffffffff);
    QTest::newRow("code only") << QVariantMap { { u"globalHotKeyCode"_s, 49 } } << false << 0 << quint32(0);
    QTest::newRow("flags only") << QVariantMap { { u"globalHotKeyFlags"_s, 768 } } << false << 0 << quint32(0);
}

void TestBvSettings::hotKeyNeedsBothKeys()
{
    QFETCH(QVariantMap, stored);
    QFETCH(bool, present);
    QFETCH(int, keyCode);
    QFETCH(quint32, modifierFlags);

    SettingsFile file;
    file.seed(stored);
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QCOMPARE(settings.globalHotKey().has_value(), present);
    if (present)
        QCOMPARE(*settings.globalHotKey(), (BvHotKey { keyCode, modifierFlags }));

    QSignalSpy changed(&settings, &BvSettings::globalHotKeyChanged);
    settings.setGlobalHotKey(std::nullopt);
    QCOMPARE(changed.count(), present ? 1 : 0);
    QVERIFY(!file.keys().contains(u"globalHotKeyCode"_s));
    QVERIFY(!file.keys().contains(u"globalHotKeyFlags"_s));
}

void TestBvSettings::notificationRecordClampsIntervalAndDerivesEnabled_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<bool>("displayNotification");
    QTest::addColumn<bool>("bounceDock");
    QTest::addColumn<int>("expectedInterval");
    QTest::addColumn<bool>("enabled");

    QTest::newRow("0 is 1") << 0 << true << false << 1 << true;
    QTest::newRow("-5 is 1") << -5 << true << false << 1 << true;
    QTest::newRow("121 is 120") << 121 << false << true << 120 << true;
    QTest::newRow("120 stays") << 120 << false << true << 120 << true;
    QTest::newRow("no way to get attention") << 30 << false << false << 30 << false;
}

void TestBvSettings::notificationRecordClampsIntervalAndDerivesEnabled()
{
    QFETCH(int, interval);
    QFETCH(bool, displayNotification);
    QFETCH(bool, bounceDock);
    QFETCH(int, expectedInterval);
    QFETCH(bool, enabled);

    NotificationSettings record;
    record.setDisplayNotification(displayNotification);
    record.setBounceDock(bounceDock);
    QVERIFY2(!record.enabled(), "a record without an interval is never enabled");
    QSignalSpy enabledChanged(&record, &NotificationSettings::enabledChanged);
    record.setInterval(interval);
    QCOMPARE(record.interval(), expectedInterval);
    QCOMPARE(record.enabled(), enabled);
    QCOMPARE(enabledChanged.count(), enabled ? 1 : 0);
}

void TestBvSettings::rfc3339TextMustMatchExactly_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected");

    const QDateTime instant(QDate(2024, 3, 12), QTime(9, 30, 5), Qt::UTC);
    QTest::newRow("exact") << u"2024-03-12T09:30:05Z"_s << instant;
    QTest::newRow("without Z") << u"2024-03-12T09:30:05"_s << QDateTime();
    QTest::newRow("with fraction") << u"2024-03-12T09:30:05.250Z"_s << QDateTime();
    QTest::newRow("with offset") << u"2024-03-12T10:30:05+01:00"_s << QDateTime();
    QTest::newRow("leading space") << u" 2024-03-12T09:30:05Z"_s << QDateTime();
    QTest::newRow("trailing newline") << u"2024-03-12T09:30:05Z\n"_s << QDateTime();
    QTest::newRow("lower-case z") << u"2024-03-12T09:30:05z"_s << QDateTime();
    QTest::newRow("30 February") << u"2024-02-30T00:00:00Z"_s << QDateTime();
    QTest::newRow("hour 24") << u"2024-03-12T24:00:00Z"_s << QDateTime();
    QTest::newRow("non-ASCII digits") << u"٢٠٢٤-03-12T09:30:05Z"_s << QDateTime();
    QTest::newRow("empty") << QString() << QDateTime();
}

void TestBvSettings::rfc3339TextMustMatchExactly()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);

    const QDateTime parsed = BvSettings::rfc3339DateFormatter().dateFromString(text);
    QCOMPARE(parsed.isValid(), expected.isValid());
    if (expected.isValid()) {
        QCOMPARE(parsed, expected);
        QCOMPARE(parsed.timeSpec(), Qt::UTC);
    }
}

void TestBvSettings::lastDropboxSyncTimeRoundTripsInUtcToTheSecond()
{
    SettingsFile file;
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QVERIFY(!settings.lastDropboxSyncTime().isValid());

    // 10:30:05.750 in Berlin (UTC+1 in March) is 09:30:05 UTC once the fraction is dropped.
    const QDateTime berlin(QDate(2024, 3, 12), QTime(10, 30, 5, 750), QTimeZone("Europe/Berlin"));
    settings.setLastDropboxSyncTime(berlin);
    QCOMPARE(file.stored(u"dropboxLastSyncTime"_s), QVariant(u"2024-03-12T09:30:05Z"_s));
    QCOMPARE(settings.lastDropboxSyncTime(), QDateTime(QDate(2024, 3, 12), QTime(9, 30, 5), Qt::UTC));

    settings.setLastDropboxSyncTime(QDateTime());
    QCOMPARE(file.stored(u"dropboxLastSyncTime"_s), QVariant(u"2024-03-12T09:30:05Z"_s));
}

void TestBvSettings::syncFolderPathAnnouncesOnlyRealChanges()
{
    SettingsFile file;
    auto defaults = file.open();
    BvSettings settings(defaults.get());
    QSignalSpy changed(&settings, &BvSettings::syncFolderPathChanged);
    QVERIFY(settings.syncFolderPath().isEmpty());

    settings.setSyncFolderPath(u"/home/zoë/Sync/Brimvale"_s);
    settings.setSyncFolderPath(u"/home/zoë/Sync/Brimvale"_s);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(file.stored(u"syncFolderPath"_s), QVariant(u"/home/zoë/Sync/Brimvale"_s));

    settings.setSyncFolderPath(QString());
    QCOMPARE(changed.count(), 2);
    QVERIFY(!file.stored(u"syncFolderPath"_s).isValid());
}

void TestBvSettings::defaultSettingsUseTheStandardFileAndBundledDefaults()
{
    QStandardPaths::setTestModeEnabled(true);
    const IsolatedHome home;
    BvSettings::setNotificationsAvailable([] { return true; });

    BvSettings *settings = BvSettings::defaultSettings();
    QCOMPARE(BvSettings::defaultSettings(), settings);
    // The bundled defaults were in place before the cached values were read.
    QVERIFY(settings->endCurrentActivityOnTrack());
    QCOMPARE(settings->appAppearance(), 2);

    settings->setAppAppearance(3);
    const QString expected
        = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/Brimvale/Brimvale.conf"_s;
    QCOMPARE(UserDefaults::standardUserDefaults()->filePath(), expected);
    QCOMPARE(QSettings(expected, QSettings::IniFormat).value(u"appearance"_s).toString(), u"3"_s);
}

QTEST_GUILESS_MAIN(TestBvSettings)
#include "testbvsettings.moc"
