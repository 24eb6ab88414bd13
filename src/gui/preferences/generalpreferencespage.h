#pragma once

#include <functional>

#include <QWidget>

class BvSettings;
class PreferencesComboBox;
class QCheckBox;
class QFormLayout;
class QLabel;
class QSpinBox;

// The General tab: where the app shows itself (taskbar, tray or both) and what the tray shows, the main
// window when tracking starts, ending the running activity for a new one, the recent-activities list and
// the start at login. Every change goes to the settings at once. Main thread.
class GeneralPreferencesPage : public QWidget
{
    Q_OBJECT
public:
    // `trayAvailable` tells whether the session shows tray icons now. `settings` outlives the page.
    GeneralPreferencesPage(BvSettings &settings, std::function<bool()> trayAvailable, QWidget *parent = nullptr);

    // Shows the settings as they are now.
    void reload();
    // Puts the control that records the global shortcut into its row.
    void setShortcutRecorder(QWidget *recorder);

    // Titles of the appearance values 1, 2 and 3 in Linux desktops' words.
    static QString appearanceTitle(int appearance);
    // Said when the start at login could not be changed.
    static QString startAtLoginFailedMessage();

private:
    void updateStates();
    void onStartAtLoginToggled(bool on);

    BvSettings &m_settings;
    std::function<bool()> m_trayAvailable;
    QFormLayout *m_form = nullptr;
    PreferencesComboBox *m_appearance = nullptr;
    QLabel *m_appearanceNote = nullptr;
    PreferencesComboBox *m_statusbarType = nullptr;
    PreferencesComboBox *m_hideOnStart = nullptr;
    QCheckBox *m_endCurrentActivity = nullptr;
    QSpinBox *m_recentCount = nullptr;
    PreferencesComboBox *m_recentOrder = nullptr;
    QCheckBox *m_recentExcludeInvoiced = nullptr;
    QCheckBox *m_startAtLogin = nullptr;
    QLabel *m_startAtLoginNote = nullptr;
    bool m_appearanceChangedHere = false;
};
