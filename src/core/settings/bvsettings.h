#pragma once

#include <functional>
#include <optional>

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>

#include "export/csvtokenfield.h"
#include "settings/bvhotkey.h"
#include "settings/bvsettingsview.h"
#include "settings/enumdescription.h"
#include "settings/rfc3339dateformatter.h"

class BVSettingsUpgradeHelper;
class ComputerEventSettings;
class LoginItemService;
class NotificationSettings;
class UserDefaults;

// The application's settings over the user-defaults store. Values marked cached are read once, when the
// object is made, and afterwards change only through its setters; the others read the store at every
// call. Invalid stored values read as their fallbacks and are never reported. Every setter writes the
// store and synchronises it at once.
//
// Main thread only, except lastSyncTime / setLastSyncTime, which any thread may call.
class BvSettings : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int appAppearance READ appAppearance WRITE setAppAppearance NOTIFY appAppearanceChanged)
    Q_PROPERTY(int appStatusbarType READ appStatusbarType WRITE setAppStatusbarType NOTIFY appStatusbarTypeChanged)
    Q_PROPERTY(
        int appNotificationType READ appNotificationType WRITE setAppNotificationType NOTIFY appNotificationTypeChanged)
    Q_PROPERTY(int syncMethod READ syncMethod WRITE setSyncMethod NOTIFY syncMethodChanged)
    Q_PROPERTY(
        int dropboxSyncInterval READ dropboxSyncInterval WRITE setDropboxSyncInterval NOTIFY dropboxSyncIntervalChanged)

public:
    // Reads the cached values from defaults (not owned; must outlive this object), upgrading keys of
    // earlier versions and writing back invalid values of "appearance", "statusbarType" and
    // "notificationType". Set the notification availability first (setNotificationsAvailable).
    explicit BvSettings(UserDefaults *defaults, QObject *parent = nullptr);
    ~BvSettings() override;

    // The process-wide settings over UserDefaults::standardUserDefaults(), made on the first call after
    // the bundled defaults are registered on that store. Lives until the process ends. Main thread.
    static BvSettings *defaultSettings();

    // The export layouts and sync choice over the same store, for code that must not write settings.
    BvSettingsView view() const { return BvSettingsView(*m_defaults); }

    // Whether system notifications can be posted, asked whenever "Enabled" (2) is chosen or offered,
    // including during construction. Without a check, notifications count as unavailable. Process-wide;
    // set it before the first settings object is made.
    static void setNotificationsAvailable(std::function<bool()> available);
    static bool notificationsAvailable();
    // Registers and removes the start at login; not owned. Without one, every change fails.
    void setLoginItemService(LoginItemService *service) { m_loginItemService = service; }
    // Tells upgrade() whether Dropbox is connected; not owned. Without one, Dropbox counts as not connected.
    void setUpgradeHelper(BVSettingsUpgradeHelper *helper) { m_upgradeHelper = helper; }

    // Recent-activities list (cached): length 0..50, order by date (else by text), invoiced left out.
    int recentItemsCount() const { return m_recentItemsCount; }
    bool recentItemsOrderedByDate() const { return m_recentItemsOrderedByDate; }
    bool recentItemsExcludeInvoiced() const { return m_recentItemsExcludeInvoiced; }
    // The preferences' setters: the count is clamped to 0..50; the order is stored as "date" or "text".
    // A change emits recentItemsChanged.
    void setRecentItemsCount(int count);
    void setRecentItemsOrderedByDate(bool orderedByDate);
    void setRecentItemsExcludeInvoiced(bool excludeInvoiced);

    // 1 window only, 2 window and tray icon, 3 tray icon only (cached). Other values set 1.
    int appAppearance() const { return m_appAppearance; }
    void setAppAppearance(int appAppearance);
    // 0 icon, 1 timer, 2 icon and timer in the tray (cached). Other values set 0.
    int appStatusbarType() const { return m_appStatusbarType; }
    void setAppStatusbarType(int appStatusbarType);
    // 0 no system notifications, 2 system notifications (cached). 2 sets 0 when notifications are
    // unavailable; any value other than 0 and 2 sets 2.
    int appNotificationType() const { return m_appNotificationType; }
    void setAppNotificationType(int appNotificationType);

    // Start at login (cached). Asks the login-item service; on success the value is kept and stored. On
    // failure nothing changes when the value was on; when it was off the requested value is stored all the
    // same but this getter stays false until the next launch.
    bool startAtLogin() const { return m_startAtLogin; }
    void setStartAtLogin(bool startAtLogin);

    // The hot key that shows the main window (cached); none removes it.
    std::optional<BvHotKey> globalHotKey() const { return m_globalHotKey; }
    void setGlobalHotKey(std::optional<BvHotKey> globalHotKey);

    // The attention records (cached, owned by this object); edits are written through at once.
    NotificationSettings *reminderNotification() const { return m_reminderNotification; }
    NotificationSettings *notTrackingNotification() const { return m_notTrackingNotification; }
    // The computer-event records 1..4 (cached, owned); edits are written through at once.
    ComputerEventSettings *eventSleepSettings() const { return m_eventSleepSettings; }
    ComputerEventSettings *eventScreenSleepSettings() const { return m_eventScreenSleepSettings; }
    ComputerEventSettings *eventScreensaverSettings() const { return m_eventScreensaverSettings; }
    ComputerEventSettings *eventScreenLockedSettings() const { return m_eventScreenLockedSettings; }
    // The record of an attention value of attentionSettingsValues(), or of a computer event 1..4; null otherwise.
    NotificationSettings *attentionSettings(int value) const;
    ComputerEventSettings *computerEventSettings(int computerEvent) const;

    // Whether starting to track hides the main window: "hideMainWindowOnStartTracking" and
    // "dontHideMainWindowOnStartTracking" as one choice. Neither: a start from the keyboard hides it while a
    // tray icon leads back. Both set (by hand, or by an older version) read as Never: not hiding wins.
    enum class HideMainWindowOnStart : int { AfterKeyboardStart = 0, Always = 1, Never = 2 };
    HideMainWindowOnStart hideMainWindowOnStart() const;
    // Writes both keys, so that the file holds at most one of them set.
    void setHideMainWindowOnStart(HideMainWindowOnStart choice);
    // Whether tracking a new line ends the running activity (cached; the setter writes through).
    bool endCurrentActivityOnTrack() const { return m_endCurrentActivityOnTrack; }
    void setEndCurrentActivityOnTrack(bool endCurrentActivityOnTrack);

    // Report window sidebar (cached): collapsed, and its width in device-independent pixels.
    bool reportWindowSidebarCollapsed() const { return m_reportWindowSidebarCollapsed; }
    double reportWindowSidebarWidth() const { return m_reportWindowSidebarWidth; }
    void setReportWindowSidebarCollapsed(bool collapsed, double andWidth);

    // CSV field separator (live), ";" when none is stored; "{TAB}" stands for a tab.
    QString csvFieldSeparator() const;
    void setCsvFieldSeparator(const QString &csvFieldSeparator);
    // Whether a CSV export starts with a row of column titles (live, key "csvHeaderRow"); off by default.
    bool csvHeaderRow() const;
    void setCsvHeaderRow(bool csvHeaderRow);
    // The CSV export columns (live), each with its value's short title switched on. The default layout
    // when "csv_row_format" is missing; an empty one when it holds something that is not a layout.
    QList<CSVTokenField> getCSVFormat() const;
    // Stores the columns as they are.
    void setCSVFormat(const QList<CSVTokenField> &csvFormat);
    // The XML export attributes (live): the four fixed ones, then the user's from "xml_properties", each
    // with its value's short title switched on.
    QList<CSVTokenField> getXMLFormat() const;
    // Stores the enabled attributes only, so the fixed ones never reach the settings file.
    void setXMLFormat(const QList<CSVTokenField> &xmlFormat);
    // Start date (short style), start time, formatted duration, project, text, invoiced: all CSV columns.
    static QList<CSVTokenField> getDefaultCSVFormat();
    // The fixed XML attributes, not enabled: "uid" (403), "invoiced" (404), "from" (121), "to" (171).
    static QList<CSVTokenField> getDefaultXMLFormat();
    // Last chosen export format (live): 0 CSV, 1 XML; anything else reads as 0.
    int defaultActivityExportFormat() const;
    void setDefaultActivityExportFormat(int defaultActivityExportFormat);

    // Report sidebar switches, stored as "1"/"0" through boolForKey / setBoolValue.
    bool reportSidebarProjectsVisible() const;
    void setReportSidebarProjectsVisible(bool visible);
    bool reportSidebarTasksVisible() const;
    void setReportSidebarTasksVisible(bool visible);
    bool reportSidebarProjectsOrdered() const;
    void setReportSidebarProjectsOrdered(bool ordered);
    bool reportSidebarTasksOrdered() const;
    void setReportSidebarTasksOrdered(bool ordered);
    bool reportSidebarDynamicItems() const;
    void setReportSidebarDynamicItems(bool dynamicItems);

    // Duration column format (live): 0 hours:minutes:seconds, 1 minutes, 2 decimal hours; anything else
    // reads as 0. The setter stores any value.
    int reportDurationFormat() const;
    void setReportDurationFormat(int reportDurationFormat);
    // Report filter bar and its toolbar item (live); the toolbar item shows unless turned off.
    bool reportFilterVisible() const;
    void setReportFilterVisible(bool visible);
    bool reportFilterToolbarVisible() const;
    void setReportFilterToolbarVisible(bool visible);
    // The report's chart pane under the table, stored as "1"/"0"; hidden unless turned on.
    bool reportChartVisible() const;
    void setReportChartVisible(bool visible);
    // The report window's geometry and its table header's state (column widths, order, hidden columns),
    // as Qt saves them, stored in base64; empty until the window first closed.
    QByteArray reportWindowGeometry() const;
    void setReportWindowGeometry(const QByteArray &geometry);
    QByteArray reportTableHeaderState() const;
    void setReportTableHeaderState(const QByteArray &state);

    // Idle detection on or off; a change emits BvIdleDetectionChanged.
    bool idleTimeoutDetection() const;
    void setIdleTimeoutDetection(bool enabled);
    // Idle threshold in minutes, 1..60 (live); other values read and set as 15. A change emits
    // BvIdleDetectionChanged.
    int idleTimeoutInterval() const;
    void setIdleTimeoutInterval(int minutes);
    // Preselected idle action (live): 1 subtract and stop, 2 subtract and continue. The setter ignores
    // other values; stored values other than 2 read as 1.
    int defaultIdleAction() const;
    void setDefaultIdleAction(int defaultIdleAction);

    // The activity line left in the main window at quit (live), "" when none.
    QString lastActivityText() const;
    void setLastActivityText(const QString &lastActivityText);

    // 0 no sync, 1 Dropbox, 2 a folder kept in sync by another tool (live); other stored values read as 0.
    int syncMethod() const;
    void setSyncMethod(int syncMethod);
    // The folder that sync method 2 writes its files into (live); null when none was chosen. A null string
    // removes the key.
    QString syncFolderPath() const;
    void setSyncFolderPath(const QString &syncFolderPath);
    // Automatic sync: 0 manually, 1 every 15 minutes, 2 every 30 minutes, 3 every hour (live); other stored
    // values read as 0. Every call emits dropboxSyncIntervalChanged, changed or not.
    int dropboxSyncInterval() const;
    void setDropboxSyncInterval(int dropboxSyncInterval);
    // The last Dropbox sync (live), kept as UTC text to the second; invalid when none. An invalid date
    // leaves the stored one.
    QDateTime lastDropboxSyncTime() const;
    void setLastDropboxSyncTime(const QDateTime &lastDropboxSyncTime);
    // The connected Dropbox account (live); null strings remove the keys.
    QString dropboxAccountName() const;
    QString dropboxAccountID() const;
    void setDropboxConnectedAccountName(const QString &name, const QString &andAccountID);
    // The Dropbox change cursor (live); a null string removes it.
    QString dropboxHash() const;
    void setDropboxHash(const QString &dropboxHash);
    // When the last Dropbox sync finished (live), to the millisecond; an invalid date removes it.
    QDateTime dropboxSyncDate() const;
    void setDropboxSyncDate(const QDateTime &dropboxSyncDate);
    // The older single sleep and wake switches (live), kept readable and writable.
    bool stopTrackOnSleep() const;
    void setStopTrackOnSleep(bool stopTrackOnSleep);
    bool resumeTrackOnWake() const;
    void setResumeTrackOnWake(bool resumeTrackOnWake);

    // The last sync of this run, in memory only; invalid until a sync ran. Any thread.
    QDateTime lastSyncTime() const;
    void setLastSyncTime(const QDateTime &lastSyncTime);

    // A key stored as "1"/"0": true exactly when the stored text is "1", the default when the key is
    // missing. Answers are cached until setBoolValue writes the key.
    bool boolForKey(const QString &key, bool withDefaultValue) const;
    void setBoolValue(bool value, const QString &forKey);

    // True when "syncMethod" is not in the settings file (a first launch, or an earlier version).
    bool needsUpgrade() const;
    // Stores sync method 1 when "syncMethod" is missing and Dropbox is connected, 0 when it is missing
    // otherwise; then synchronises.
    void upgrade();

    // The formatter of lastDropboxSyncTime's text.
    static Rfc3339DateFormatter rfc3339DateFormatter();

    // Pop-up lists of the preferences and the report window, in the order shown.
    static QList<EnumDescription> appearanceValues();
    static QList<EnumDescription> statusbarTypeValues();
    // "Disabled", and "Enabled" only when notifications are available.
    static QList<EnumDescription> notificationTypeValues();
    // 0 the reminder of the running activity, 1 the nag while not tracking (see attentionSettings).
    static QList<EnumDescription> attentionSettingsValues();
    static QList<EnumDescription> computerEventValues();
    static QList<EnumDescription> idleActionValues();
    static QList<EnumDescription> exportFormatValues();
    // The file type of an export format: "csv" for 0, "xml" for 1, a null string otherwise.
    static QString exportFormatFileType(int format);
    static QList<EnumDescription> durationFormatValues();
    static QList<EnumDescription> syncMethodValues();

Q_SIGNALS:
    // Idle detection was switched, or its threshold changed.
    void BvIdleDetectionChanged();
    void appAppearanceChanged();
    void appStatusbarTypeChanged();
    void appNotificationTypeChanged();
    void globalHotKeyChanged();
    void syncMethodChanged();
    void syncFolderPathChanged();
    void dropboxSyncIntervalChanged();
    void recentItemsChanged();
    void endCurrentActivityOnTrackChanged();

private:
    void normalizeSettings();
    void readNotificationSettings(NotificationSettings *record, const QString &prefix);
    void observeNotificationSettings(NotificationSettings *record, const QString &prefix);
    void readEventSettings(ComputerEventSettings *record, const QString &prefix);
    void observeEventSettings(ComputerEventSettings *record, const QString &prefix);
    void parseReportWindowSidebar(const QString &text);
    void writeString(const QString &value, const QString &key);

    UserDefaults *const m_defaults;
    LoginItemService *m_loginItemService = nullptr;
    BVSettingsUpgradeHelper *m_upgradeHelper = nullptr;

    mutable QHash<QString, bool> m_settingValues;
    int m_recentItemsCount = 10;
    bool m_recentItemsOrderedByDate = true;
    bool m_recentItemsExcludeInvoiced = false;
    int m_appStatusbarType = 0;
    int m_appNotificationType = 0;
    NotificationSettings *m_reminderNotification = nullptr;
    NotificationSettings *m_notTrackingNotification = nullptr;
    bool m_startAtLogin = false;
    bool m_hideMainWindowOnStartTracking = false;
    bool m_dontHideMainWindowOnStartTracking = false;
    bool m_reportWindowSidebarCollapsed = false;
    bool m_endCurrentActivityOnTrack = false;
    int m_appAppearance = 0;
    ComputerEventSettings *m_eventSleepSettings = nullptr;
    ComputerEventSettings *m_eventScreenSleepSettings = nullptr;
    ComputerEventSettings *m_eventScreensaverSettings = nullptr;
    ComputerEventSettings *m_eventScreenLockedSettings = nullptr;
    std::optional<BvHotKey> m_globalHotKey;
    double m_reportWindowSidebarWidth = 0.0;

    mutable QMutex m_lastSyncTimeMutex;
    QDateTime m_lastSyncTime;
};
