#pragma once

#include <functional>
#include <memory>

#include <QUrl>
#include <QWidget>

class BVDropboxSyncBackend;
class BVSyncManager;
class BvSettings;
class DropboxConnectFlow;
class PreferencesComboBox;
class QFileDialog;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QWidget;

// The Sync tab: the method ("don't sync", Dropbox, a folder another tool mirrors, with its folder), the
// automatic interval, the Dropbox account (connect in the browser, disconnect, the account's name), the
// last sync, "Sync now" and the zone the journal's sync files are written in. Changing the method or the interval moves
// the next automatic run (the app follows those settings). Main thread.
class SyncPreferencesPage : public QWidget
{
    Q_OBJECT
public:
    // None is owned; all outlive the page. `openUrl` shows a page in the user's browser.
    SyncPreferencesPage(BvSettings &settings, BVDropboxSyncBackend &dropboxAccount, BVSyncManager &syncManager,
        std::function<bool(const QUrl &)> openUrl, QWidget *parent = nullptr);
    ~SyncPreferencesPage() override;

    // Shows the settings, the account (asking the keyring) and the last sync as they are now.
    void reload();

    // Connecting: Dropbox's page opens in the browser, which returns to a listener on this computer; the
    // account is connected once the agent exchanged the code. Where no listener can be opened, the page
    // returns to the brimvaleapp: address instead, which the app's URL handler takes.
    void connectDropbox();
    void disconnectDropbox();
    // The folder chooser, opened window-modal; its choice becomes the sync folder.
    void chooseSyncFolder();
    QFileDialog *syncFolderDialog() const;

    // "Last sync: <local date and time>", "Last sync: never".
    static QString lastSyncText(const QDateTime &lastSync);

private:
    void reloadSettings();
    void updateStates();
    void updateAccount();
    void updateLastSync();
    void updateSyncTimeZone();
    void showDropboxMessage(const QString &message);
    void finishConnecting(const QString &error);

    BvSettings &m_settings;
    BVDropboxSyncBackend &m_dropboxAccount;
    BVSyncManager &m_syncManager;
    std::function<bool(const QUrl &)> m_openUrl;

    QFormLayout *m_form = nullptr;
    PreferencesComboBox *m_syncMethod = nullptr;
    QWidget *m_folderRow = nullptr;
    QLineEdit *m_folderPath = nullptr;
    QPushButton *m_chooseFolder = nullptr;
    QWidget *m_dropboxRow = nullptr;
    QLabel *m_dropboxAccountLabel = nullptr;
    QPushButton *m_connectButton = nullptr;
    QPushButton *m_disconnectButton = nullptr;
    QLabel *m_dropboxMessage = nullptr;
    PreferencesComboBox *m_interval = nullptr;
    QLabel *m_lastSync = nullptr;
    QPushButton *m_syncNow = nullptr;
    QLabel *m_syncTimeZone = nullptr;
    QFileDialog *m_folderDialog = nullptr;

    DropboxConnectFlow *m_connectFlow = nullptr;
    bool m_dropboxConnected = false;
};
