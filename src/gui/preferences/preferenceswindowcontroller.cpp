#include "gui/preferences/preferenceswindowcontroller.h"

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "gui/preferences/attentionpreferencespage.h"
#include "gui/preferences/exportlayoutspage.h"
#include "gui/preferences/generalpreferencespage.h"
#include "gui/preferences/syncpreferencespage.h"
#include "gui/shortcut/bvshortcutrecorder.h"
#include "platform/brimvaledbus.h"

using namespace Qt::StringLiterals;

namespace {
// The tab's fixed number, kept on the page widget.
constexpr auto TabIdxProperty = "preferencesTabIdx";
} // namespace

PreferencesWindowController::PreferencesWindowController(const Parts &parts, QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(u"PreferencesWindowController"_s);
    setWindowTitle(tr("Brimvale Preferences"));

    auto *layout = new QVBoxLayout(this);
    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(u"preferencesTabs"_s);
    m_tabs->setDocumentMode(false);
    layout->addWidget(m_tabs);

    m_general = new GeneralPreferencesPage(parts.settings, parts.trayAvailable);
    auto *recorder = new BvShortcutRecorder(parts.settings, parts.globalHotKey);
    recorder->setReservedShortcuts(parts.reservedShortcuts);
    m_general->setShortcutRecorder(recorder);
    addTab(m_general, PreferencesTab::General, tr("General"));
    m_attention = new AttentionPreferencesPage(parts.settings, parts.idleSource, parts.notifications);
    addTab(m_attention, PreferencesTab::Attention, tr("Attention"));
    std::function<bool(const QUrl &)> openUrl = parts.openUrl;
    if (!openUrl)
        openUrl = [](const QUrl &url) { return QDesktopServices::openUrl(url); };
    m_export = new ExportLayoutsPage(parts.settings, parts.store);
    addTab(m_export, PreferencesTab::Export, tr("Export"));
    m_sync = new SyncPreferencesPage(parts.settings, parts.dropboxAccount, parts.syncManager, std::move(openUrl));
    addTab(m_sync, PreferencesTab::Sync, tr("Sync"));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    m_closeButton = buttons->button(QDialogButtonBox::Close);
    m_closeButton->setObjectName(u"closeButton"_s);
    connect(buttons, &QDialogButtonBox::rejected, this, &QWidget::close);
    layout->addWidget(buttons);
}

PreferencesWindowController::~PreferencesWindowController() = default;

QList<QPair<QKeySequence, QString>> PreferencesWindowController::menuShortcuts(const QMenuBar &menuBar)
{
    QList<QPair<QKeySequence, QString>> shortcuts;
    std::function<void(const QList<QAction *> &)> collect = [&](const QList<QAction *> &actions) {
        for (const QAction *action : actions) {
            if (action->menu())
                collect(action->menu()->actions());
            const QString title = QString(action->text()).remove(QLatin1Char('&'));
            for (const QKeySequence &shortcut : action->shortcuts())
                shortcuts.append({ shortcut, title });
        }
    };
    collect(menuBar.actions());
    return shortcuts;
}

void PreferencesWindowController::addTab(QWidget *page, int tabIdx, const QString &title)
{
    page->setProperty(TabIdxProperty, tabIdx);
    m_tabs->addTab(page, title);
}

void PreferencesWindowController::showPreferencesWithTabIdx(int tabIdx)
{
    for (int i = 0; i < m_tabs->count(); ++i) {
        if (m_tabs->widget(i)->property(TabIdxProperty).toInt() == tabIdx)
            m_tabs->setCurrentIndex(i);
    }
    // Other windows change settings too (the idle prompt's answer, the tray's sync): show what holds now.
    reload();
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void PreferencesWindowController::keyPressEvent(QKeyEvent *event)
{
    // Esc closes the window, as it closes a dialog; the controls that use Esc (an open pop-up) take it first.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

int PreferencesWindowController::currentTabIdx() const
{
    const QWidget *page = m_tabs->currentWidget();
    return page ? page->property(TabIdxProperty).toInt() : -1;
}

void PreferencesWindowController::reload()
{
    m_general->reload();
    m_attention->reload();
    m_sync->reload();
}
