#pragma once

#include <functional>

#include <QIcon>
#include <QImage>
#include <QObject>
#include <QPointer>

#include <QMenu>
class QSystemTrayIcon;

// The app's icon in the panel's tray. Its three looks follow the user's status bar type: 0 the icon,
// 1 the timer, 2 the icon and the timer. Tray hosts (StatusNotifierItem and XEmbed alike) show no text
// beside an icon, so the timer is drawn into the icon and the full status goes into the tooltip. The icon
// is drawn again only when what it shows changes, which for a minute timer is once a minute.
class BvStatusBarItem : public QObject
{
    Q_OBJECT
public:
    // `trayAvailable` says whether the session has a tray host right now (the app passes
    // QSystemTrayIcon::isSystemTrayAvailable).
    explicit BvStatusBarItem(std::function<bool()> trayAvailable, QObject *parent = nullptr);
    ~BvStatusBarItem() override;

    bool isAvailable() const;

    // Not owned; the context menu, shown on right click or the host's menu request.
    void setMenu(QMenu *menu);
    QMenu *menu() const { return m_menu; }

    // 0 icon, 1 timer, 2 icon and timer; any other value counts as 0.
    void setStatusBarType(int type);
    int statusBarType() const { return m_type; }
    // The timer text (such as "01:23"), null or empty when none. With type 0 the title stays empty; else it
    // is the text, or "--:--" when there is none.
    void setStatusBarTitle(const QString &text);
    QString title() const { return m_title; }
    // The running activity's text for the tooltip; null when nothing runs.
    void setTrackingText(const QString &text);

    // "Brimvale", and on a second line the timer and the running activity's text when there are any.
    QString toolTip() const;
    QIcon icon() const;

    // Shows the icon in the tray when one is available.
    void setVisible(bool visible);
    bool isVisible() const;

    // The icon drawn for `type` with `title` at `size` pixels square: the plain icon for type 0 or when no
    // timer runs ("--:--" or empty), else the timer ("1:23") in white on a dark badge, which reads on light
    // and dark panels alike.
    static QImage renderIcon(int type, const QString &title, int size);

Q_SIGNALS:
    // A left click on the icon, or the host's Activate.
    void activated();

private:
    void updateTitle();
    void updateToolTip();
    void updateIcon();

    std::function<bool()> m_trayAvailable;
    QSystemTrayIcon *m_tray = nullptr;
    QPointer<QMenu> m_menu;
    int m_type = 0;
    QString m_text;
    QString m_title;
    QString m_trackingText;
    // What the current icon shows: drawn again only when this changes.
    QString m_iconKey;
};
