#include "gui/preferences/generalpreferencespage.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include "gui/app/brimvale_appdelegate.h"
#include "gui/preferences/preferencescombobox.h"
#include "settings/bvsettings.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int AppearanceWindowOnly = 1;
constexpr int AppearanceTrayOnly = 3;
constexpr int OrderByDate = 1;
constexpr int OrderByText = 0;

QLabel *noteLabel(const QString &objectName, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setWordWrap(true);
    QFont small = label->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    label->setFont(small);
    label->setForegroundRole(QPalette::PlaceholderText);
    // A row of its own across the field column, so that the text wraps at the page's width, not a pop-up's.
    label->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    return label;
}

} // namespace

GeneralPreferencesPage::GeneralPreferencesPage(
    BvSettings &settings, std::function<bool()> trayAvailable, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_trayAvailable(std::move(trayAvailable))
{
    setObjectName(u"generalPage"_s);
    m_form = new QFormLayout(this);
    // Pop-ups keep their width; the shortcut's row, with its explanations, takes the rest.
    m_form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    m_form->setRowWrapPolicy(QFormLayout::DontWrapRows);

    m_appearance = new PreferencesComboBox(this);
    m_appearance->setObjectName(u"appearance"_s);
    for (int value : { 1, 2, 3 })
        m_appearance->addValue(value, appearanceTitle(value));
    connect(m_appearance, &PreferencesComboBox::valueChosen, this, [this](int value) {
        m_settings.setAppAppearance(value);
        m_appearanceChangedHere = true;
        updateStates();
    });
    m_form->addRow(tr("Show Brimvale in:"), m_appearance);
    m_appearanceNote = noteLabel(u"appearanceNote"_s, this);
    m_form->addRow(QString(), m_appearanceNote);

    m_statusbarType = new PreferencesComboBox(this);
    m_statusbarType->setObjectName(u"statusbarType"_s);
    for (const EnumDescription &item : BvSettings::statusbarTypeValues())
        m_statusbarType->addValue(item.enumValue(), item.enumDescription());
    connect(m_statusbarType, &PreferencesComboBox::valueChosen, &m_settings, &BvSettings::setAppStatusbarType);
    m_form->addRow(tr("Tray shows:"), m_statusbarType);

    m_hideOnStart = new PreferencesComboBox(this);
    m_hideOnStart->setObjectName(u"hideOnStart"_s);
    using Hide = BvSettings::HideMainWindowOnStart;
    m_hideOnStart->addValue(int(Hide::AfterKeyboardStart), tr("When started from the keyboard"));
    m_hideOnStart->addValue(int(Hide::Always), tr("Always"));
    m_hideOnStart->addValue(int(Hide::Never), tr("Never"));
    connect(m_hideOnStart, &PreferencesComboBox::valueChosen, this,
        [this](int value) { m_settings.setHideMainWindowOnStart(Hide(value)); });
    m_form->addRow(tr("Hide the window when tracking starts:"), m_hideOnStart);

    m_endCurrentActivity = new QCheckBox(tr("End the current activity when tracking a new one"), this);
    m_endCurrentActivity->setObjectName(u"endCurrentActivityOnTrack"_s);
    connect(m_endCurrentActivity, &QCheckBox::toggled, &m_settings, &BvSettings::setEndCurrentActivityOnTrack);
    m_form->addRow(QString(), m_endCurrentActivity);

    m_recentCount = new QSpinBox(this);
    m_recentCount->setObjectName(u"recentItemsCount"_s);
    m_recentCount->setRange(0, 50);
    m_recentCount->setKeyboardTracking(false);
    connect(m_recentCount, &QSpinBox::valueChanged, &m_settings, &BvSettings::setRecentItemsCount);
    m_recentOrder = new PreferencesComboBox(this);
    m_recentOrder->setObjectName(u"recentItemsOrder"_s);
    m_recentOrder->addValue(OrderByDate, tr("newest first"));
    m_recentOrder->addValue(OrderByText, tr("by text"));
    connect(m_recentOrder, &PreferencesComboBox::valueChosen, this,
        [this](int value) { m_settings.setRecentItemsOrderedByDate(value == OrderByDate); });
    auto *recentRow = new QHBoxLayout;
    recentRow->setContentsMargins(0, 0, 0, 0);
    recentRow->addWidget(m_recentCount);
    recentRow->addWidget(m_recentOrder);
    recentRow->addStretch();
    m_form->addRow(tr("Recent activities:"), recentRow);
    m_recentExcludeInvoiced = new QCheckBox(tr("Leave out invoiced activities"), this);
    m_recentExcludeInvoiced->setObjectName(u"recentItemsExcludeInvoiced"_s);
    connect(m_recentExcludeInvoiced, &QCheckBox::toggled, &m_settings, &BvSettings::setRecentItemsExcludeInvoiced);
    m_form->addRow(QString(), m_recentExcludeInvoiced);

    m_startAtLogin = new QCheckBox(tr("Start Brimvale when I log in"), this);
    m_startAtLogin->setObjectName(u"startAtLogin"_s);
    connect(m_startAtLogin, &QCheckBox::toggled, this, &GeneralPreferencesPage::onStartAtLoginToggled);
    m_form->addRow(QString(), m_startAtLogin);
    m_startAtLoginNote = noteLabel(u"startAtLoginNote"_s, this);
    m_form->addRow(QString(), m_startAtLoginNote);

    m_form->setRowVisible(m_startAtLoginNote, false);
    reload();
}

void GeneralPreferencesPage::setShortcutRecorder(QWidget *recorder)
{
    recorder->setParent(this);
    recorder->setSizePolicy(QSizePolicy::Expanding, recorder->sizePolicy().verticalPolicy());
    m_form->addRow(tr("Show Brimvale with:"), recorder);
}

QString GeneralPreferencesPage::appearanceTitle(int appearance)
{
    switch (appearance) {
    case 1:
        return tr("Taskbar");
    case 2:
        return tr("Taskbar & Tray");
    case 3:
        return tr("Tray only");
    default:
        return {};
    }
}

QString GeneralPreferencesPage::startAtLoginFailedMessage()
{
    return tr("Brimvale could not change its autostart entry (~/.config/autostart/brimvale.desktop).");
}

void GeneralPreferencesPage::reload()
{
    m_appearance->setValue(m_settings.appAppearance());
    m_statusbarType->setValue(m_settings.appStatusbarType());
    m_hideOnStart->setValue(int(m_settings.hideMainWindowOnStart()));
    {
        const QSignalBlocker blockers[] = { QSignalBlocker(m_endCurrentActivity), QSignalBlocker(m_recentCount),
            QSignalBlocker(m_recentExcludeInvoiced), QSignalBlocker(m_startAtLogin) };
        m_endCurrentActivity->setChecked(m_settings.endCurrentActivityOnTrack());
        m_recentCount->setValue(m_settings.recentItemsCount());
        m_recentExcludeInvoiced->setChecked(m_settings.recentItemsExcludeInvoiced());
        m_startAtLogin->setChecked(m_settings.startAtLogin());
    }
    m_recentOrder->setValue(m_settings.recentItemsOrderedByDate() ? OrderByDate : OrderByText);
    updateStates();
}

void GeneralPreferencesPage::updateStates()
{
    const bool hasTray = !m_trayAvailable || m_trayAvailable();
    const int appearance = m_settings.appAppearance();
    m_statusbarType->setEnabled(appearance != AppearanceWindowOnly && hasTray);
    QString note;
    if (!hasTray && appearance != AppearanceWindowOnly)
        note = Brimvale_AppDelegate::trayUnavailableMessage();
    else if (appearance == AppearanceTrayOnly && m_appearanceChangedHere)
        // The window the user is looking at keeps its taskbar entry until the next start.
        note = tr("Brimvale leaves the taskbar the next time it starts.");
    m_appearanceNote->setText(note);
    m_form->setRowVisible(m_appearanceNote, !note.isEmpty());
}

void GeneralPreferencesPage::onStartAtLoginToggled(bool on)
{
    m_settings.setStartAtLogin(on);
    const bool failed = m_settings.startAtLogin() != on;
    m_startAtLoginNote->setText(failed ? startAtLoginFailedMessage() : QString());
    m_form->setRowVisible(m_startAtLoginNote, failed);
    if (failed) {
        const QSignalBlocker blocker(m_startAtLogin);
        m_startAtLogin->setChecked(m_settings.startAtLogin());
    }
}
