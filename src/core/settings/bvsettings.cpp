#include "settings/bvsettings.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

#include <QMutexLocker>

#include "base/logging.h"
#include "settings/bvsettingsupgradehelper.h"
#include "settings/bvsettingsview.h"
#include "settings/computereventsettings.h"
#include "settings/loginitemservice.h"
#include "settings/notificationsettings.h"
#include "settings/userdefaults.h"

namespace {

namespace Key {
const auto RecentItemsCount = QStringLiteral("recentItemsCount");
const auto RecentItemsOrderedBy = QStringLiteral("recentItemsOrderedBy");
const auto RecentItemsExcludeInvoiced = QStringLiteral("recentItemsExcludeInvoiced");
const auto Appearance = QStringLiteral("appearance");
const auto StatusbarType = QStringLiteral("statusbarType");
const auto NotificationType = QStringLiteral("notificationType");
const auto StartAtLogin = QStringLiteral("startAtLogin");
const auto GlobalHotKeyFlags = QStringLiteral("globalHotKeyFlags");
const auto GlobalHotKeyCode = QStringLiteral("globalHotKeyCode");
const auto NotTrackingNotification = QStringLiteral("notTrackingNotification");
const auto ReminderNotification = QStringLiteral("reminderNotification");
const auto EventSleep = QStringLiteral("eventSleep");
const auto EventScreenSleep = QStringLiteral("eventScreenSleep");
const auto EventScreensaver = QStringLiteral("eventScreensaver");
const auto EventScreenLocked = QStringLiteral("eventScreenLocked");
const auto HideMainWindowOnStartTracking = QStringLiteral("hideMainWindowOnStartTracking");
const auto DontHideMainWindowOnStartTracking = QStringLiteral("dontHideMainWindowOnStartTracking");
const auto EndCurrentActivityOnTrack = QStringLiteral("endCurrentActivityOnTrack");
const auto ReportWindowSidebar = QStringLiteral("reportWindowSidebar");
const auto CsvFieldSeparator = QStringLiteral("csvFieldSeparator");
const auto CsvHeaderRow = QStringLiteral("csvHeaderRow");
const auto CsvRowFormat = QStringLiteral("csv_row_format");
const auto XmlProperties = QStringLiteral("xml_properties");
const auto DefaultActivityExportFormat = QStringLiteral("default_activity_export_format");
const auto ReportSidebarProjectsVisible = QStringLiteral("report_sidebar_projects_visible");
const auto ReportSidebarTasksVisible = QStringLiteral("report_sidebar_tasks_visible");
const auto ReportSidebarProjectsOrdered = QStringLiteral("report_sidebar_projects_ordered");
const auto ReportSidebarTasksOrdered = QStringLiteral("report_sidebar_tasks_ordered");
const auto ReportSidebarDynamicItems = QStringLiteral("reportSidebarDynamicItems");
const auto ReportDurationFormat = QStringLiteral("report_duration_format");
const auto ReportFilterVisible = QStringLiteral("reportFilterVisible");
const auto ReportFilterToolbarVisible = QStringLiteral("reportFilterToolbarVisible");
const auto ReportChartVisible = QStringLiteral("reportChartVisible");
const auto ReportWindowGeometry = QStringLiteral("reportWindowGeometry");
const auto ReportTableHeaderState = QStringLiteral("reportTableHeaderState");
const auto IdleDetectionEnabled = QStringLiteral("idleDetectionEnabled");
const auto IdleDetectionTimeout = QStringLiteral("idleDetectionTimeout");
const auto DefaultIdleAction = QStringLiteral("defaultIdleAction");
const auto LastActivityText = QStringLiteral("lastActivityText");
const auto SyncMethod = QStringLiteral("syncMethod");
const auto SyncFolderPath = QStringLiteral("syncFolderPath");
const auto DropboxSyncInterval = QStringLiteral("dropboxSyncInterval");
const auto DropboxLastSyncTime = QStringLiteral("dropboxLastSyncTime");
const auto DropboxAccountName = QStringLiteral("dropbox_account_name");
const auto DropboxAccountId = QStringLiteral("dropbox_account_id");
const auto DropboxHash = QStringLiteral("dropbox_hash");
const auto DropboxSyncDate = QStringLiteral("dropbox_sync_date");
const auto StopTrackingWhenGoingSleep = QStringLiteral("stop_tracking_when_going_sleep");
const auto ResumeTrackingOnWake = QStringLiteral("resume_tracking_on_wake");

const auto OldStatusBarType = QStringLiteral("status_bar_type");
const auto OldNotTrackingInterval = QStringLiteral("notification_not_tracking_interval");
const auto OldNotTrackingUseGrowl = QStringLiteral("notification_not_tracking_use_growl");
const auto OldNotTrackingBounceDock = QStringLiteral("notification_not_tracking_bounce_dock");
const auto OldNotTrackingBounceDockRepeat = QStringLiteral("notification_not_tracking_bounce_dock_repeat");
const auto OldReminderInterval = QStringLiteral("notification_reminder_interval");
const auto OldReminderUseGrowl = QStringLiteral("notification_reminder_use_growl");
const auto OldReminderBounceDock = QStringLiteral("notification_reminder_bounce_dock");
const auto OldReminderBounceDockRepeat = QStringLiteral("notification_reminder_bounce_dock_repeat");
} // namespace Key

namespace Suffix {
const auto Interval = QStringLiteral("Interval");
const auto DisplayNotification = QStringLiteral("DisplayNotification");
const auto BounceDock = QStringLiteral("BounceDock");
const auto BounceDockRepeat = QStringLiteral("BounceDockRepeat");
const auto StopTracking = QStringLiteral("StopTracking");
const auto ResumeTracking = QStringLiteral("ResumeTracking");
} // namespace Suffix

// Stored integers are 64-bit; one far outside int must still count as out of range, not wrap into it.
int saturated(qint64 value)
{
    return int(std::clamp<qint64>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

int inRangeOr(qint64 value, int low, int high, int fallback)
{
    return value < low || value > high ? fallback : int(value);
}

std::function<bool()> &notificationsAvailableCheck()
{
    static std::function<bool()> s_check;
    return s_check;
}

} // namespace

BvSettings::BvSettings(UserDefaults *defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    Q_ASSERT(m_defaults);

    m_reminderNotification = new NotificationSettings(this);
    m_notTrackingNotification = new NotificationSettings(this);
    m_eventSleepSettings = ComputerEventSettings::initWithCompputerEvent(1, this);
    m_eventScreenSleepSettings = ComputerEventSettings::initWithCompputerEvent(2, this);
    m_eventScreensaverSettings = ComputerEventSettings::initWithCompputerEvent(3, this);
    m_eventScreenLockedSettings = ComputerEventSettings::initWithCompputerEvent(4, this);

    normalizeSettings();

    m_settingValues.reserve(2);

    if (m_defaults->objectForKey(Key::RecentItemsCount).isValid())
        m_recentItemsCount = int(std::clamp<qint64>(m_defaults->integerForKey(Key::RecentItemsCount), 0, 50));
    else
        m_recentItemsCount = 10;

    m_recentItemsOrderedByDate = m_defaults->stringForKey(Key::RecentItemsOrderedBy) != QStringLiteral("text");
    m_recentItemsExcludeInvoiced = m_defaults->boolForKey(Key::RecentItemsExcludeInvoiced);

    // The raw value goes into the field first so that the setter writes back only a value it had to
    // replace.
    m_appAppearance = saturated(m_defaults->integerForKey(Key::Appearance));
    setAppAppearance(m_appAppearance);
    m_appStatusbarType = saturated(m_defaults->integerForKey(Key::StatusbarType));
    setAppStatusbarType(m_appStatusbarType);
    m_appNotificationType = saturated(m_defaults->integerForKey(Key::NotificationType));
    setAppNotificationType(m_appNotificationType);

    m_startAtLogin = m_defaults->boolForKey(Key::StartAtLogin);
    if (m_defaults->objectForKey(Key::GlobalHotKeyFlags).isValid()
        && m_defaults->objectForKey(Key::GlobalHotKeyCode).isValid()) {
        m_globalHotKey = BvHotKey { saturated(m_defaults->integerForKey(Key::GlobalHotKeyCode)),
            quint32(m_defaults->integerForKey(Key::GlobalHotKeyFlags)) };
    }

    // The records are filled before they are observed, so that reading them writes nothing back.
    readNotificationSettings(m_notTrackingNotification, Key::NotTrackingNotification);
    readNotificationSettings(m_reminderNotification, Key::ReminderNotification);
    observeNotificationSettings(m_notTrackingNotification, Key::NotTrackingNotification);
    observeNotificationSettings(m_reminderNotification, Key::ReminderNotification);

    const std::pair<ComputerEventSettings *, QString> events[] = {
        { m_eventSleepSettings, Key::EventSleep },
        { m_eventScreenSleepSettings, Key::EventScreenSleep },
        { m_eventScreensaverSettings, Key::EventScreensaver },
        { m_eventScreenLockedSettings, Key::EventScreenLocked },
    };
    for (const auto &[record, prefix] : events) {
        readEventSettings(record, prefix);
        observeEventSettings(record, prefix);
    }

    m_hideMainWindowOnStartTracking = m_defaults->boolForKey(Key::HideMainWindowOnStartTracking);
    m_dontHideMainWindowOnStartTracking = m_defaults->boolForKey(Key::DontHideMainWindowOnStartTracking);
    m_endCurrentActivityOnTrack = m_defaults->boolForKey(Key::EndCurrentActivityOnTrack);
    parseReportWindowSidebar(m_defaults->stringForKey(Key::ReportWindowSidebar));
}

BvSettings::~BvSettings() = default;

BvSettings *BvSettings::defaultSettings()
{
    // Never destroyed: the standard store it writes to is a static that may be gone at exit.
    static BvSettings *const s_instance = [] {
        UserDefaults *defaults = UserDefaults::standardUserDefaults();
        // Registered before the cached values are read, so that a fresh installation starts from the
        // bundled defaults rather than from the bare fallbacks.
        defaults->registerDefaultsFromResource();
        return new BvSettings(defaults);
    }();
    return s_instance;
}

void BvSettings::setNotificationsAvailable(std::function<bool()> available)
{
    notificationsAvailableCheck() = std::move(available);
}

bool BvSettings::notificationsAvailable()
{
    const std::function<bool()> &check = notificationsAvailableCheck();
    return check && check();
}

void BvSettings::normalizeSettings()
{
    if (m_defaults->hasKey(Key::OldStatusBarType)) {
        // The old single setting mixed where the application shows itself with what the status item shows.
        const qint64 type = m_defaults->integerForKey(Key::OldStatusBarType);
        if (type == 1) {
            setAppAppearance(1);
            setAppStatusbarType(2);
        } else {
            setAppAppearance(2);
            setAppStatusbarType(type == 2 ? 0 : type == 3 ? 1 : 2);
        }
        m_defaults->removeObject(Key::OldStatusBarType);
        m_defaults->synchronize();
    }

    if (m_defaults->hasKey(Key::OldNotTrackingInterval)) {
        NotificationSettings *notTracking = m_notTrackingNotification;
        notTracking->setInterval(saturated(m_defaults->integerForKey(Key::OldNotTrackingInterval)));
        notTracking->setDisplayNotification(m_defaults->boolForKey(Key::OldNotTrackingUseGrowl));
        notTracking->setBounceDock(m_defaults->boolForKey(Key::OldNotTrackingBounceDock));
        notTracking->setBounceDockRepeat(m_defaults->boolForKey(Key::OldNotTrackingBounceDockRepeat));

        NotificationSettings *reminder = m_reminderNotification;
        reminder->setInterval(saturated(m_defaults->integerForKey(Key::OldReminderInterval)));
        reminder->setDisplayNotification(m_defaults->boolForKey(Key::OldReminderUseGrowl));
        reminder->setBounceDock(m_defaults->boolForKey(Key::OldReminderBounceDock));
        reminder->setBounceDockRepeat(m_defaults->boolForKey(Key::OldReminderBounceDockRepeat));

        const QString &nt = Key::NotTrackingNotification;
        m_defaults->setInteger(notTracking->interval(), nt + Suffix::Interval);
        m_defaults->setBool(notTracking->displayNotification(), nt + Suffix::DisplayNotification);
        m_defaults->setBool(notTracking->bounceDock(), nt + Suffix::BounceDock);
        m_defaults->setBool(notTracking->bounceDockRepeat(), nt + Suffix::BounceDockRepeat);
        // The reminder's interval lands on the not-tracking key too, and the reminder's own interval key
        // is left alone. Earlier releases upgraded exactly this way; keeping it gives every upgraded
        // installation the same settings.
        m_defaults->setInteger(reminder->interval(), nt + Suffix::Interval);
        const QString &rm = Key::ReminderNotification;
        m_defaults->setBool(reminder->displayNotification(), rm + Suffix::DisplayNotification);
        m_defaults->setBool(reminder->bounceDock(), rm + Suffix::BounceDock);
        m_defaults->setBool(reminder->bounceDockRepeat(), rm + Suffix::BounceDockRepeat);

        for (const QString &oldKey : { Key::OldNotTrackingInterval, Key::OldNotTrackingUseGrowl,
                 Key::OldNotTrackingBounceDock, Key::OldNotTrackingBounceDockRepeat, Key::OldReminderInterval,
                 Key::OldReminderUseGrowl, Key::OldReminderBounceDock, Key::OldReminderBounceDockRepeat }) {
            m_defaults->removeObject(oldKey);
        }
        m_defaults->synchronize();
    }
}

void BvSettings::readNotificationSettings(NotificationSettings *record, const QString &prefix)
{
    record->setInterval(saturated(m_defaults->integerForKey(prefix + Suffix::Interval)));
    record->setDisplayNotification(m_defaults->boolForKey(prefix + Suffix::DisplayNotification));
    record->setBounceDock(m_defaults->boolForKey(prefix + Suffix::BounceDock));
    record->setBounceDockRepeat(m_defaults->boolForKey(prefix + Suffix::BounceDockRepeat));
}

void BvSettings::observeNotificationSettings(NotificationSettings *record, const QString &prefix)
{
    connect(record, &NotificationSettings::intervalChanged, this, [this, record, prefix] {
        m_defaults->setInteger(record->interval(), prefix + Suffix::Interval);
        m_defaults->synchronize();
    });
    connect(record, &NotificationSettings::displayNotificationChanged, this, [this, record, prefix] {
        m_defaults->setBool(record->displayNotification(), prefix + Suffix::DisplayNotification);
        m_defaults->synchronize();
    });
    connect(record, &NotificationSettings::bounceDockChanged, this, [this, record, prefix] {
        m_defaults->setBool(record->bounceDock(), prefix + Suffix::BounceDock);
        m_defaults->synchronize();
    });
    connect(record, &NotificationSettings::bounceDockRepeatChanged, this, [this, record, prefix] {
        m_defaults->setBool(record->bounceDockRepeat(), prefix + Suffix::BounceDockRepeat);
        m_defaults->synchronize();
    });
}

void BvSettings::readEventSettings(ComputerEventSettings *record, const QString &prefix)
{
    record->setStopTracking(m_defaults->boolForKey(prefix + Suffix::StopTracking));
    record->setResumeTracking(m_defaults->boolForKey(prefix + Suffix::ResumeTracking));
}

void BvSettings::observeEventSettings(ComputerEventSettings *record, const QString &prefix)
{
    const auto write = [this, record, prefix] {
        m_defaults->setBool(record->stopTracking(), prefix + Suffix::StopTracking);
        m_defaults->setBool(record->resumeTracking(), prefix + Suffix::ResumeTracking);
        m_defaults->synchronize();
    };
    connect(record, &ComputerEventSettings::stopTrackingChanged, this, write);
    connect(record, &ComputerEventSettings::resumeTrackingChanged, this, write);
}

// The text is "<width>, YES" or "<width>, NO" as written by "%f, %@". It is scanned leniently, the way it
// has always been read: white space may surround the comma and the answer may be in any case.
void BvSettings::parseReportWindowSidebar(const QString &text)
{
    m_reportWindowSidebarWidth = 0.0;
    m_reportWindowSidebarCollapsed = false;

    const QByteArray bytes = text.toUtf8();
    const char *p = bytes.constData();
    const char *const end = p + bytes.size();
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto skipSpace = [&p, end] {
        while (p < end && std::isspace(static_cast<unsigned char>(*p)))
            ++p;
    };

    skipSpace();
    if (p < end && *p == '+')
        ++p;
    const char *digits = p < end && *p == '-' ? p + 1 : p;
    // from_chars also reads "inf" and "nan", which are not numbers here.
    if (digits >= end || !(isDigit(*digits) || *digits == '.'))
        return;
    double width = 0.0;
    const auto [next, error] = std::from_chars(p, end, width, std::chars_format::general);
    if (error != std::errc())
        return;
    m_reportWindowSidebarWidth = width;
    p = next;

    skipSpace();
    if (p >= end || *p != ',')
        return;
    ++p;
    skipSpace();
    m_reportWindowSidebarCollapsed = end - p >= 3 && qstrnicmp(p, "YES", 3) == 0;
}

void BvSettings::writeString(const QString &value, const QString &key)
{
    if (value.isNull())
        m_defaults->removeObject(key);
    else
        m_defaults->setObject(value, key);
    m_defaults->synchronize();
}

void BvSettings::setAppAppearance(int appAppearance)
{
    const int value = inRangeOr(appAppearance, 1, 3, 1);
    if (value == m_appAppearance)
        return;
    m_appAppearance = value;
    m_defaults->setInteger(value, Key::Appearance);
    m_defaults->synchronize();
    Q_EMIT appAppearanceChanged();
}

void BvSettings::setAppStatusbarType(int appStatusbarType)
{
    const int value = inRangeOr(appStatusbarType, 0, 2, 0);
    if (value == m_appStatusbarType)
        return;
    m_appStatusbarType = value;
    m_defaults->setInteger(value, Key::StatusbarType);
    m_defaults->synchronize();
    Q_EMIT appStatusbarTypeChanged();
}

void BvSettings::setAppNotificationType(int appNotificationType)
{
    // Values other than 0 and 2 name notification kinds of earlier versions (Growl among them); they all
    // meant "on".
    int value = 2;
    if (appNotificationType == 0)
        value = 0;
    else if (appNotificationType == 2)
        value = notificationsAvailable() ? 2 : 0;
    if (value == m_appNotificationType)
        return;
    m_appNotificationType = value;
    m_defaults->setInteger(value, Key::NotificationType);
    m_defaults->synchronize();
    Q_EMIT appNotificationTypeChanged();
}

void BvSettings::setStartAtLogin(bool startAtLogin)
{
    const std::expected<void, QString> result = m_loginItemService
        ? m_loginItemService->setEnabled(startAtLogin)
        : std::unexpected(QStringLiteral("no login-item service"));
    if (result) {
        m_startAtLogin = startAtLogin;
        m_defaults->setBool(startAtLogin, Key::StartAtLogin);
        m_defaults->synchronize();
        return;
    }
    qCWarning(lcSettings) << "Could not" << (startAtLogin ? "register" : "remove")
                          << "the start at login:" << result.error();
    // A failed removal leaves the entry registered, so the stored "on" stays true to it. A failed
    // registration still stores the user's choice: the next launch reads it and registers again.
    if (m_startAtLogin)
        return;
    m_defaults->setBool(startAtLogin, Key::StartAtLogin);
    m_defaults->synchronize();
}

void BvSettings::setRecentItemsCount(int count)
{
    const int value = std::clamp(count, 0, 50);
    if (value == m_recentItemsCount)
        return;
    m_recentItemsCount = value;
    m_defaults->setInteger(value, Key::RecentItemsCount);
    m_defaults->synchronize();
    Q_EMIT recentItemsChanged();
}

void BvSettings::setRecentItemsOrderedByDate(bool orderedByDate)
{
    if (orderedByDate == m_recentItemsOrderedByDate)
        return;
    m_recentItemsOrderedByDate = orderedByDate;
    writeString(orderedByDate ? QStringLiteral("date") : QStringLiteral("text"), Key::RecentItemsOrderedBy);
    Q_EMIT recentItemsChanged();
}

void BvSettings::setRecentItemsExcludeInvoiced(bool excludeInvoiced)
{
    if (excludeInvoiced == m_recentItemsExcludeInvoiced)
        return;
    m_recentItemsExcludeInvoiced = excludeInvoiced;
    m_defaults->setBool(excludeInvoiced, Key::RecentItemsExcludeInvoiced);
    m_defaults->synchronize();
    Q_EMIT recentItemsChanged();
}

BvSettings::HideMainWindowOnStart BvSettings::hideMainWindowOnStart() const
{
    if (m_dontHideMainWindowOnStartTracking)
        return HideMainWindowOnStart::Never;
    return m_hideMainWindowOnStartTracking ? HideMainWindowOnStart::Always : HideMainWindowOnStart::AfterKeyboardStart;
}

void BvSettings::setHideMainWindowOnStart(HideMainWindowOnStart choice)
{
    m_hideMainWindowOnStartTracking = choice == HideMainWindowOnStart::Always;
    m_dontHideMainWindowOnStartTracking = choice == HideMainWindowOnStart::Never;
    m_defaults->setBool(m_hideMainWindowOnStartTracking, Key::HideMainWindowOnStartTracking);
    m_defaults->setBool(m_dontHideMainWindowOnStartTracking, Key::DontHideMainWindowOnStartTracking);
    m_defaults->synchronize();
}

void BvSettings::setEndCurrentActivityOnTrack(bool endCurrentActivityOnTrack)
{
    const bool changed = endCurrentActivityOnTrack != m_endCurrentActivityOnTrack;
    m_endCurrentActivityOnTrack = endCurrentActivityOnTrack;
    m_defaults->setBool(endCurrentActivityOnTrack, Key::EndCurrentActivityOnTrack);
    m_defaults->synchronize();
    if (changed)
        Q_EMIT endCurrentActivityOnTrackChanged();
}

void BvSettings::setGlobalHotKey(std::optional<BvHotKey> globalHotKey)
{
    if (globalHotKey) {
        m_defaults->setInteger(globalHotKey->modifierFlags, Key::GlobalHotKeyFlags);
        m_defaults->setInteger(globalHotKey->keyCode, Key::GlobalHotKeyCode);
    } else {
        m_defaults->removeObject(Key::GlobalHotKeyFlags);
        m_defaults->removeObject(Key::GlobalHotKeyCode);
    }
    m_defaults->synchronize();
    if (globalHotKey == m_globalHotKey)
        return;
    m_globalHotKey = globalHotKey;
    Q_EMIT globalHotKeyChanged();
}

NotificationSettings *BvSettings::attentionSettings(int value) const
{
    switch (value) {
    case 0:
        return m_reminderNotification;
    case 1:
        return m_notTrackingNotification;
    default:
        return nullptr;
    }
}

ComputerEventSettings *BvSettings::computerEventSettings(int computerEvent) const
{
    switch (computerEvent) {
    case 1:
        return m_eventSleepSettings;
    case 2:
        return m_eventScreenSleepSettings;
    case 3:
        return m_eventScreensaverSettings;
    case 4:
        return m_eventScreenLockedSettings;
    default:
        return nullptr;
    }
}

void BvSettings::setReportWindowSidebarCollapsed(bool collapsed, double andWidth)
{
    m_reportWindowSidebarCollapsed = collapsed;
    m_reportWindowSidebarWidth = andWidth;
    writeString(QString::asprintf("%f, %s", andWidth, collapsed ? "YES" : "NO"), Key::ReportWindowSidebar);
}

QString BvSettings::csvFieldSeparator() const
{
    return view().csvFieldSeparator();
}

void BvSettings::setCsvFieldSeparator(const QString &csvFieldSeparator)
{
    writeString(csvFieldSeparator, Key::CsvFieldSeparator);
}

bool BvSettings::csvHeaderRow() const
{
    return view().csvHeaderRow();
}

void BvSettings::setCsvHeaderRow(bool csvHeaderRow)
{
    writeString(csvHeaderRow ? QStringLiteral("1") : QStringLiteral("0"), Key::CsvHeaderRow);
}

QList<CSVTokenField> BvSettings::getCSVFormat() const
{
    return view().getCSVFormat();
}

void BvSettings::setCSVFormat(const QList<CSVTokenField> &csvFormat)
{
    m_defaults->setObject(CSVTokenField::archive(csvFormat), Key::CsvRowFormat);
    m_defaults->synchronize();
}

QList<CSVTokenField> BvSettings::getXMLFormat() const
{
    return view().getXMLFormat();
}

void BvSettings::setXMLFormat(const QList<CSVTokenField> &xmlFormat)
{
    QList<CSVTokenField> stored;
    stored.reserve(xmlFormat.size());
    for (const CSVTokenField &field : xmlFormat) {
        if (field.enabled())
            stored.append(field);
    }
    m_defaults->setObject(CSVTokenField::archive(stored), Key::XmlProperties);
    m_defaults->synchronize();
}

QList<CSVTokenField> BvSettings::getDefaultCSVFormat()
{
    return BvSettingsView::defaultCSVFormat();
}

QList<CSVTokenField> BvSettings::getDefaultXMLFormat()
{
    return BvSettingsView::defaultXMLFormat();
}

int BvSettings::defaultActivityExportFormat() const
{
    return inRangeOr(m_defaults->integerForKey(Key::DefaultActivityExportFormat), 0, 1, 0);
}

void BvSettings::setDefaultActivityExportFormat(int defaultActivityExportFormat)
{
    m_defaults->setInteger(defaultActivityExportFormat, Key::DefaultActivityExportFormat);
    m_defaults->synchronize();
}

bool BvSettings::reportSidebarProjectsVisible() const
{
    return boolForKey(Key::ReportSidebarProjectsVisible, true);
}

void BvSettings::setReportSidebarProjectsVisible(bool visible)
{
    setBoolValue(visible, Key::ReportSidebarProjectsVisible);
}

bool BvSettings::reportSidebarTasksVisible() const
{
    return boolForKey(Key::ReportSidebarTasksVisible, true);
}

void BvSettings::setReportSidebarTasksVisible(bool visible)
{
    setBoolValue(visible, Key::ReportSidebarTasksVisible);
}

bool BvSettings::reportSidebarProjectsOrdered() const
{
    return boolForKey(Key::ReportSidebarProjectsOrdered, false);
}

void BvSettings::setReportSidebarProjectsOrdered(bool ordered)
{
    setBoolValue(ordered, Key::ReportSidebarProjectsOrdered);
}

bool BvSettings::reportSidebarTasksOrdered() const
{
    return boolForKey(Key::ReportSidebarTasksOrdered, false);
}

void BvSettings::setReportSidebarTasksOrdered(bool ordered)
{
    setBoolValue(ordered, Key::ReportSidebarTasksOrdered);
}

bool BvSettings::reportSidebarDynamicItems() const
{
    return boolForKey(Key::ReportSidebarDynamicItems, false);
}

void BvSettings::setReportSidebarDynamicItems(bool dynamicItems)
{
    setBoolValue(dynamicItems, Key::ReportSidebarDynamicItems);
}

int BvSettings::reportDurationFormat() const
{
    return inRangeOr(m_defaults->integerForKey(Key::ReportDurationFormat), 0, 2, 0);
}

void BvSettings::setReportDurationFormat(int reportDurationFormat)
{
    writeString(QString::number(reportDurationFormat), Key::ReportDurationFormat);
}

bool BvSettings::reportFilterVisible() const
{
    return m_defaults->boolForKey(Key::ReportFilterVisible);
}

void BvSettings::setReportFilterVisible(bool visible)
{
    m_defaults->setBool(visible, Key::ReportFilterVisible);
    m_defaults->synchronize();
}

bool BvSettings::reportFilterToolbarVisible() const
{
    if (!m_defaults->objectForKey(Key::ReportFilterToolbarVisible).isValid())
        return true;
    return m_defaults->boolForKey(Key::ReportFilterToolbarVisible);
}

void BvSettings::setReportFilterToolbarVisible(bool visible)
{
    m_defaults->setBool(visible, Key::ReportFilterToolbarVisible);
    m_defaults->synchronize();
}

bool BvSettings::reportChartVisible() const
{
    return boolForKey(Key::ReportChartVisible, false);
}

void BvSettings::setReportChartVisible(bool visible)
{
    setBoolValue(visible, Key::ReportChartVisible);
}

QByteArray BvSettings::reportWindowGeometry() const
{
    return QByteArray::fromBase64(m_defaults->stringForKey(Key::ReportWindowGeometry).toLatin1());
}

void BvSettings::setReportWindowGeometry(const QByteArray &geometry)
{
    writeString(QString::fromLatin1(geometry.toBase64()), Key::ReportWindowGeometry);
}

QByteArray BvSettings::reportTableHeaderState() const
{
    return QByteArray::fromBase64(m_defaults->stringForKey(Key::ReportTableHeaderState).toLatin1());
}

void BvSettings::setReportTableHeaderState(const QByteArray &state)
{
    writeString(QString::fromLatin1(state.toBase64()), Key::ReportTableHeaderState);
}

bool BvSettings::idleTimeoutDetection() const
{
    return boolForKey(Key::IdleDetectionEnabled, false);
}

void BvSettings::setIdleTimeoutDetection(bool enabled)
{
    const bool wasEnabled = idleTimeoutDetection();
    setBoolValue(enabled, Key::IdleDetectionEnabled);
    if (wasEnabled != enabled)
        Q_EMIT BvIdleDetectionChanged();
}

int BvSettings::idleTimeoutInterval() const
{
    return inRangeOr(m_defaults->integerForKey(Key::IdleDetectionTimeout), 1, 60, 15);
}

void BvSettings::setIdleTimeoutInterval(int minutes)
{
    const int value = inRangeOr(minutes, 1, 60, 15);
    if (value == idleTimeoutInterval())
        return;
    writeString(QString::number(value), Key::IdleDetectionTimeout);
    Q_EMIT BvIdleDetectionChanged();
}

int BvSettings::defaultIdleAction() const
{
    return m_defaults->integerForKey(Key::DefaultIdleAction) == 2 ? 2 : 1;
}

void BvSettings::setDefaultIdleAction(int defaultIdleAction)
{
    // "Continue" (0) is never a default: a prompt that does nothing by default would be pointless.
    if (defaultIdleAction < 1 || defaultIdleAction > 2)
        return;
    m_defaults->setInteger(defaultIdleAction, Key::DefaultIdleAction);
    m_defaults->synchronize();
}

QString BvSettings::lastActivityText() const
{
    const QString text = m_defaults->stringForKey(Key::LastActivityText);
    return text.isNull() ? QStringLiteral("") : text;
}

void BvSettings::setLastActivityText(const QString &lastActivityText)
{
    writeString(lastActivityText.isNull() ? QStringLiteral("") : lastActivityText, Key::LastActivityText);
}

int BvSettings::syncMethod() const
{
    return view().syncMethod();
}

void BvSettings::setSyncMethod(int syncMethod)
{
    const int before = this->syncMethod();
    m_defaults->setInteger(syncMethod, Key::SyncMethod);
    m_defaults->synchronize();
    if (this->syncMethod() != before)
        Q_EMIT syncMethodChanged();
}

QString BvSettings::syncFolderPath() const
{
    return view().syncFolderPath();
}

void BvSettings::setSyncFolderPath(const QString &syncFolderPath)
{
    const QString before = this->syncFolderPath();
    writeString(syncFolderPath, Key::SyncFolderPath);
    if (this->syncFolderPath() != before)
        Q_EMIT syncFolderPathChanged();
}

int BvSettings::dropboxSyncInterval() const
{
    return inRangeOr(m_defaults->integerForKey(Key::DropboxSyncInterval), 1, 3, 0);
}

void BvSettings::setDropboxSyncInterval(int dropboxSyncInterval)
{
    m_defaults->setInteger(dropboxSyncInterval, Key::DropboxSyncInterval);
    m_defaults->synchronize();
    // Announced on every call: the sync manager re-plans its next run whenever the preference is set.
    Q_EMIT dropboxSyncIntervalChanged();
}

QDateTime BvSettings::lastDropboxSyncTime() const
{
    return rfc3339DateFormatter().dateFromString(m_defaults->stringForKey(Key::DropboxLastSyncTime));
}

void BvSettings::setLastDropboxSyncTime(const QDateTime &lastDropboxSyncTime)
{
    if (!lastDropboxSyncTime.isValid())
        return;
    writeString(rfc3339DateFormatter().stringFromDate(lastDropboxSyncTime), Key::DropboxLastSyncTime);
}

QString BvSettings::dropboxAccountName() const
{
    return m_defaults->stringForKey(Key::DropboxAccountName);
}

QString BvSettings::dropboxAccountID() const
{
    return m_defaults->stringForKey(Key::DropboxAccountId);
}

void BvSettings::setDropboxConnectedAccountName(const QString &name, const QString &andAccountID)
{
    writeString(name, Key::DropboxAccountName);
    writeString(andAccountID, Key::DropboxAccountId);
}

QString BvSettings::dropboxHash() const
{
    return m_defaults->stringForKey(Key::DropboxHash);
}

void BvSettings::setDropboxHash(const QString &dropboxHash)
{
    writeString(dropboxHash, Key::DropboxHash);
}

QDateTime BvSettings::dropboxSyncDate() const
{
    const QVariant value = m_defaults->objectForKey(Key::DropboxSyncDate);
    if (value.typeId() == QMetaType::QDateTime)
        return value.toDateTime();
    const QString text = m_defaults->stringForKey(Key::DropboxSyncDate);
    return text.isEmpty() ? QDateTime() : QDateTime::fromString(text, Qt::ISODateWithMs);
}

void BvSettings::setDropboxSyncDate(const QDateTime &dropboxSyncDate)
{
    // Kept as ISO 8601 text in UTC: readable in the file, and the same instant in any time zone.
    writeString(dropboxSyncDate.isValid() ? dropboxSyncDate.toUTC().toString(Qt::ISODateWithMs) : QString(),
        Key::DropboxSyncDate);
}

bool BvSettings::stopTrackOnSleep() const
{
    return m_defaults->boolForKey(Key::StopTrackingWhenGoingSleep);
}

void BvSettings::setStopTrackOnSleep(bool stopTrackOnSleep)
{
    m_defaults->setBool(stopTrackOnSleep, Key::StopTrackingWhenGoingSleep);
    m_defaults->synchronize();
}

bool BvSettings::resumeTrackOnWake() const
{
    return m_defaults->boolForKey(Key::ResumeTrackingOnWake);
}

void BvSettings::setResumeTrackOnWake(bool resumeTrackOnWake)
{
    m_defaults->setBool(resumeTrackOnWake, Key::ResumeTrackingOnWake);
    m_defaults->synchronize();
}

QDateTime BvSettings::lastSyncTime() const
{
    const QMutexLocker locker(&m_lastSyncTimeMutex);
    return m_lastSyncTime;
}

void BvSettings::setLastSyncTime(const QDateTime &lastSyncTime)
{
    const QMutexLocker locker(&m_lastSyncTimeMutex);
    m_lastSyncTime = lastSyncTime;
}

bool BvSettings::boolForKey(const QString &key, bool withDefaultValue) const
{
    const auto cached = m_settingValues.constFind(key);
    if (cached != m_settingValues.cend())
        return cached.value();
    const QString text = m_defaults->stringForKey(key);
    const bool value = text.isNull() ? withDefaultValue : text == QStringLiteral("1");
    m_settingValues.insert(key, value);
    return value;
}

void BvSettings::setBoolValue(bool value, const QString &forKey)
{
    m_defaults->setObject(value ? QStringLiteral("1") : QStringLiteral("0"), forKey);
    m_defaults->synchronize();
    m_settingValues.remove(forKey);
}

bool BvSettings::needsUpgrade() const
{
    return !m_defaults->hasKey(Key::SyncMethod);
}

void BvSettings::upgrade()
{
    if (!m_defaults->hasKey(Key::SyncMethod)) {
        // Versions before the choice of sync method synced whenever a Dropbox account was connected.
        const bool connected = m_upgradeHelper && m_upgradeHelper->isDropboxConnected();
        setSyncMethod(connected ? 1 : 0);
    }
    m_defaults->synchronize();
}

Rfc3339DateFormatter BvSettings::rfc3339DateFormatter()
{
    return Rfc3339DateFormatter();
}

QList<EnumDescription> BvSettings::appearanceValues()
{
    return { { 1, tr("Dock") }, { 2, tr("Dock & Statusbar") }, { 3, tr("Statusbar") } };
}

QList<EnumDescription> BvSettings::statusbarTypeValues()
{
    return { { 2, tr("Icon & Timer") }, { 1, tr("Timer") }, { 0, tr("Icon") } };
}

QList<EnumDescription> BvSettings::notificationTypeValues()
{
    QList<EnumDescription> values { { 0, tr("Disabled") } };
    if (notificationsAvailable())
        values.append({ 2, tr("Enabled") });
    return values;
}

QList<EnumDescription> BvSettings::attentionSettingsValues()
{
    return { { 0, tr("Reminder of activity") }, { 1, tr("When not tracking") } };
}

QList<EnumDescription> BvSettings::computerEventValues()
{
    return { { 1, tr("Computer sleep") }, { 2, tr("Screen sleep") }, { 3, tr("Screensaver") },
        { 4, tr("Screen locked") } };
}

QList<EnumDescription> BvSettings::idleActionValues()
{
    return { { 0, tr("Continue") }, { 1, tr("Subtract and stop") }, { 2, tr("Subtract and continue") } };
}

QList<EnumDescription> BvSettings::exportFormatValues()
{
    return { { 0, tr("CSV") }, { 1, tr("XML") } };
}

QString BvSettings::exportFormatFileType(int format)
{
    switch (format) {
    case 0:
        return QStringLiteral("csv");
    case 1:
        return QStringLiteral("xml");
    default:
        return {};
    }
}

QList<EnumDescription> BvSettings::durationFormatValues()
{
    return { { 0, tr("Formatted duration") }, { 1, tr("Duration in minutes") },
        { 2, tr("Duration as decimal hours") } };
}

QList<EnumDescription> BvSettings::syncMethodValues()
{
    return { { 0, tr("don't sync") }, { 1, tr("Dropbox") }, { 2, tr("Folder") } };
}
