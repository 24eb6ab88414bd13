#include "gui/preferences/syncpreferencespage.h"

#include <QCoreApplication>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>

#include "gui/preferences/preferencescombobox.h"
#include "platform/dropboxconnectflow.h"
#include "settings/bvsettings.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvsyncmanager.h"
#include "sync/bvsyncoption.h"
#include "sync/dropboxsyncintervalcollection.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int NoSync = 0;
constexpr int DropboxSync = 1;
constexpr int FolderSync = 2;

QWidget *row(QWidget *parent, const QList<QWidget *> &widgets, int stretchIndex)
{
    auto *container = new QWidget(parent);
    auto *layout = new QHBoxLayout(container);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < widgets.size(); ++i)
        layout->addWidget(widgets.at(i), i == stretchIndex ? 1 : 0);
    if (stretchIndex < 0)
        layout->addStretch();
    return container;
}

} // namespace

SyncPreferencesPage::SyncPreferencesPage(BvSettings &settings, BVDropboxSyncBackend &dropboxAccount,
    BVSyncManager &syncManager, std::function<bool(const QUrl &)> openUrl, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_dropboxAccount(dropboxAccount)
    , m_syncManager(syncManager)
    , m_openUrl(std::move(openUrl))
{
    setObjectName(u"syncPage"_s);
    m_form = new QFormLayout(this);
    QFormLayout *form = m_form;
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

    m_syncMethod = new PreferencesComboBox(this);
    m_syncMethod->setObjectName(u"syncMethod"_s);
    for (const BVSyncOption &option : BVSyncOption::syncMethods())
        m_syncMethod->addValue(option.syncMethod(), option.title());
    connect(m_syncMethod, &PreferencesComboBox::valueChosen, this, [this](int method) {
        m_settings.setSyncMethod(method);
        updateStates();
        // A folder method without a folder cannot run: ask for one at once.
        if (method == FolderSync && m_settings.syncFolderPath().isEmpty())
            chooseSyncFolder();
    });
    form->addRow(tr("Sync:"), m_syncMethod);

    m_folderPath = new QLineEdit(this);
    m_folderPath->setObjectName(u"syncFolderPath"_s);
    m_folderPath->setReadOnly(true);
    m_folderPath->setPlaceholderText(tr("No folder chosen"));
    m_chooseFolder = new QPushButton(tr("Choose…"), this);
    m_chooseFolder->setObjectName(u"chooseSyncFolder"_s);
    connect(m_chooseFolder, &QPushButton::clicked, this, &SyncPreferencesPage::chooseSyncFolder);
    m_folderPath->setMinimumWidth(320);
    m_folderRow = row(this, { m_folderPath, m_chooseFolder }, 0);
    form->addRow(tr("Folder:"), m_folderRow);

    m_dropboxAccountLabel = new QLabel(this);
    m_dropboxAccountLabel->setObjectName(u"dropboxAccount"_s);
    m_dropboxAccountLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_connectButton = new QPushButton(tr("Connect…"), this);
    m_connectButton->setObjectName(u"connectDropbox"_s);
    connect(m_connectButton, &QPushButton::clicked, this, &SyncPreferencesPage::connectDropbox);
    m_disconnectButton = new QPushButton(tr("Disconnect"), this);
    m_disconnectButton->setObjectName(u"disconnectDropbox"_s);
    connect(m_disconnectButton, &QPushButton::clicked, this, &SyncPreferencesPage::disconnectDropbox);
    m_dropboxRow = row(this, { m_dropboxAccountLabel, m_connectButton, m_disconnectButton }, -1);
    form->addRow(tr("Dropbox:"), m_dropboxRow);
    m_dropboxMessage = new QLabel(this);
    m_dropboxMessage->setObjectName(u"dropboxMessage"_s);
    m_dropboxMessage->setWordWrap(true);
    form->addRow(QString(), m_dropboxMessage);
    connect(&m_dropboxAccount, &BVDropboxSyncBackend::BvDropboxAuthChanged, this, &SyncPreferencesPage::updateAccount);
    m_connectFlow = new DropboxConnectFlow(m_dropboxAccount, this);
    connect(m_connectFlow, &DropboxConnectFlow::stateChanged, this, [this](DropboxConnectFlow::State state) {
        if (state == DropboxConnectFlow::State::Exchanging)
            showDropboxMessage(tr("Connecting…"));
        else
            updateStates();
    });
    connect(m_connectFlow, &DropboxConnectFlow::refused, this,
        [this] { showDropboxMessage(tr("Dropbox did not allow access.")); });
    connect(m_connectFlow, &DropboxConnectFlow::exchanged, this, &SyncPreferencesPage::finishConnecting);

    m_interval = new PreferencesComboBox(this);
    m_interval->setObjectName(u"dropboxSyncInterval"_s);
    const QList<DropboxSyncIntervalCollection::Item> intervals = DropboxSyncIntervalCollection::items();
    for (int i = 0; i < intervals.size(); ++i) {
        m_interval->addValue(intervals.at(i).value, intervals.at(i).title);
        if (DropboxSyncIntervalCollection::separatorAfter(i))
            m_interval->insertSeparator(m_interval->count());
    }
    connect(m_interval, &PreferencesComboBox::valueChosen, &m_settings, &BvSettings::setDropboxSyncInterval);
    form->addRow(tr("Sync automatically:"), m_interval);

    m_lastSync = new QLabel(this);
    m_lastSync->setObjectName(u"lastSync"_s);
    m_syncNow = new QPushButton(tr("Sync now"), this);
    m_syncNow->setObjectName(u"syncNow"_s);
    connect(m_syncNow, &QPushButton::clicked, &m_syncManager, &BVSyncManager::startSync);
    form->addRow(QString(), row(this, { m_lastSync, m_syncNow }, -1));
    connect(&m_syncManager, &BVSyncManager::syncOperationChanged, this, [this] {
        updateLastSync();
        updateStates();
    });
    // Read-only: the sync folder's timezone.json decides it, the first machine to sync having recorded its own.
    m_syncTimeZone = new QLabel(this);
    m_syncTimeZone->setObjectName(u"syncTimeZone"_s);
    m_syncTimeZone->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow(tr("Sync time zone:"), m_syncTimeZone);
    connect(&m_syncManager, &BVSyncManager::syncTimeZoneKnown, this, &SyncPreferencesPage::updateSyncTimeZone);

    // Other parts of the app change these too. The account is not read again here: that asks the keyring.
    connect(&m_settings, &BvSettings::syncMethodChanged, this, &SyncPreferencesPage::reloadSettings);
    connect(&m_settings, &BvSettings::syncFolderPathChanged, this, &SyncPreferencesPage::reloadSettings);
    connect(&m_settings, &BvSettings::dropboxSyncIntervalChanged, this, &SyncPreferencesPage::reloadSettings);

    reload();
}

SyncPreferencesPage::~SyncPreferencesPage() = default;

void SyncPreferencesPage::reload()
{
    updateAccount();
    reloadSettings();
}

void SyncPreferencesPage::reloadSettings()
{
    m_syncMethod->setValue(m_settings.syncMethod());
    m_folderPath->setText(m_settings.syncFolderPath());
    m_interval->setValue(m_settings.dropboxSyncInterval());
    updateLastSync();
    updateSyncTimeZone();
    updateStates();
}

void SyncPreferencesPage::updateStates()
{
    const int method = m_settings.syncMethod();
    m_form->setRowVisible(m_folderRow, method == FolderSync);
    m_form->setRowVisible(m_dropboxRow, method == DropboxSync);
    m_form->setRowVisible(m_dropboxMessage, method == DropboxSync && !m_dropboxMessage->text().isEmpty());
    m_interval->setEnabled(method != NoSync);
    m_form->setRowVisible(m_syncTimeZone, method != NoSync);
    m_connectButton->setVisible(!m_dropboxConnected);
    m_connectButton->setEnabled(m_connectFlow->state() != DropboxConnectFlow::State::Exchanging);
    m_connectButton->setText(
        m_connectFlow->state() == DropboxConnectFlow::State::WaitingForBrowser ? tr("Cancel") : tr("Connect…"));
    m_disconnectButton->setVisible(m_dropboxConnected);
    const bool runnable
        = method == FolderSync ? !m_settings.syncFolderPath().isEmpty() : method == DropboxSync && m_dropboxConnected;
    m_syncNow->setEnabled(runnable && !m_syncManager.currentSyncService());
}

void SyncPreferencesPage::updateAccount()
{
    m_dropboxConnected = m_dropboxAccount.isDropboxConnected();
    if (!m_dropboxConnected) {
        m_dropboxAccountLabel->setText(tr("Not connected"));
    } else {
        const QString name = m_settings.dropboxAccountName();
        m_dropboxAccountLabel->setText(name.isEmpty() ? tr("Connected") : tr("Connected as %1").arg(name));
    }
    updateStates();
}

QString SyncPreferencesPage::lastSyncText(const QDateTime &lastSync)
{
    if (!lastSync.isValid())
        return tr("Last sync: never");
    return tr("Last sync: %1").arg(QLocale().toString(lastSync.toLocalTime(), QLocale::ShortFormat));
}

void SyncPreferencesPage::updateLastSync()
{
    if (m_syncManager.currentSyncService()) {
        m_lastSync->setText(tr("Syncing…"));
        return;
    }
    // A run of this session, whatever its end; before any, the last Dropbox run that succeeded.
    QDateTime last = m_settings.lastSyncTime();
    if (!last.isValid() && m_settings.syncMethod() == DropboxSync)
        last = m_settings.dropboxSyncDate();
    m_lastSync->setText(lastSyncText(last));
}

void SyncPreferencesPage::updateSyncTimeZone()
{
    const QByteArray zone = m_syncManager.syncTimeZone();
    m_syncTimeZone->setText(zone.isEmpty() ? tr("known after the next sync") : QString::fromUtf8(zone));
}

void SyncPreferencesPage::showDropboxMessage(const QString &message)
{
    m_dropboxMessage->setText(message);
    updateStates();
}

void SyncPreferencesPage::connectDropbox()
{
    if (m_connectFlow->state() == DropboxConnectFlow::State::WaitingForBrowser) {
        // The button reads "Cancel" while the browser has the page.
        m_connectFlow->cancel();
        showDropboxMessage(QString());
        return;
    }
    const QUrl page
        = m_connectFlow->start(DropboxConnectFlow::Return::Loopback, DropboxConnectFlow::Return::ImplicitGrant);
    if (!m_openUrl || !m_openUrl(page)) {
        m_connectFlow->cancel();
        showDropboxMessage(tr("No browser could be opened. Connect with: brimvale dropbox connect --paste"));
        return;
    }
    showDropboxMessage(tr("Allow Brimvale on Dropbox's page in your browser."));
}

void SyncPreferencesPage::finishConnecting(const QString &error)
{
    updateAccount();
    showDropboxMessage(error.isEmpty() ? QString() : tr("Dropbox was not connected: %1").arg(error));
}

void SyncPreferencesPage::disconnectDropbox()
{
    QPointer<SyncPreferencesPage> self(this);
    m_dropboxAccount.disconnectDropbox([self](const QString &error) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, error] {
                // Forgotten here either way; a failed revocation only leaves the token valid at Dropbox.
                if (self && !error.isEmpty())
                    self->showDropboxMessage(tr("Disconnected here, but Dropbox could not be told: %1").arg(error));
            },
            Qt::QueuedConnection);
    });
    updateAccount();
    showDropboxMessage(QString());
}

void SyncPreferencesPage::chooseSyncFolder()
{
    if (!m_folderDialog) {
        m_folderDialog = new QFileDialog(this, tr("Choose the sync folder"));
        m_folderDialog->setObjectName(u"syncFolderDialog"_s);
        m_folderDialog->setFileMode(QFileDialog::Directory);
        m_folderDialog->setOption(QFileDialog::ShowDirsOnly);
        m_folderDialog->setAcceptMode(QFileDialog::AcceptOpen);
        m_folderDialog->setWindowModality(Qt::WindowModal);
        connect(m_folderDialog, &QFileDialog::fileSelected, this, [this](const QString &folder) {
            m_settings.setSyncFolderPath(folder);
            m_folderPath->setText(m_settings.syncFolderPath());
            updateStates();
        });
    }
    const QString current = m_settings.syncFolderPath();
    m_folderDialog->setDirectory(current.isEmpty() ? QDir::homePath() : current);
    m_folderDialog->open();
}

QFileDialog *SyncPreferencesPage::syncFolderDialog() const
{
    return m_folderDialog;
}
