#include "gui/app/bvstatusbaritem.h"

#include <QFont>
#include <QFontMetricsF>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSvgRenderer>
#include <QSystemTrayIcon>

namespace {

const QString EmptyTimer = QStringLiteral("--:--");

// Hosts ask for 22 or 24 pixels on most panels, 16 on small ones, 64 for the StatusNotifierItem's
// large pixmap and 32 or 48 on high-density screens.
constexpr int IconSizes[] = { 16, 22, 24, 32, 48, 64 };

QString baseIconPath()
{
    return QStringLiteral(":/icons/statusbar-icon.svg");
}

// "01:23" shows as "1:23": every pixel counts at 22 pixels.
QString iconText(const QString &title)
{
    if (title.size() > 4 && title.startsWith(u'0') && title.at(1).isDigit())
        return title.mid(1);
    return title;
}

} // namespace

BvStatusBarItem::BvStatusBarItem(std::function<bool()> trayAvailable, QObject *parent)
    : QObject(parent)
    , m_trayAvailable(std::move(trayAvailable))
    , m_tray(new QSystemTrayIcon(this))
{
    m_tray->setObjectName(QStringLiteral("statusBarTrayIcon"));
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            Q_EMIT activated();
    });
    updateTitle();
    updateToolTip();
    updateIcon();
}

BvStatusBarItem::~BvStatusBarItem() = default;

bool BvStatusBarItem::isAvailable() const
{
    return m_trayAvailable && m_trayAvailable();
}

void BvStatusBarItem::setMenu(QMenu *menu)
{
    m_menu = menu;
    m_tray->setContextMenu(menu);
}

void BvStatusBarItem::setStatusBarType(int type)
{
    m_type = (type == 1 || type == 2) ? type : 0;
    updateTitle();
    updateToolTip();
    updateIcon();
}

void BvStatusBarItem::setStatusBarTitle(const QString &text)
{
    if (text == m_text && text.isNull() == m_text.isNull())
        return;
    m_text = text;
    updateTitle();
    updateToolTip();
    updateIcon();
}

void BvStatusBarItem::setTrackingText(const QString &text)
{
    m_trackingText = text;
    updateToolTip();
}

void BvStatusBarItem::updateTitle()
{
    if (m_type == 0)
        m_title = QString();
    else
        m_title = m_text.isEmpty() ? EmptyTimer : m_text;
}

QString BvStatusBarItem::toolTip() const
{
    return m_tray->toolTip();
}

void BvStatusBarItem::updateToolTip()
{
    QStringList status;
    if (!m_text.isEmpty())
        status << m_text;
    if (!m_trackingText.isEmpty())
        status << m_trackingText;
    QString toolTip = QStringLiteral("Brimvale");
    if (!status.isEmpty())
        toolTip += u'\n' + status.join(u' ');
    if (toolTip != m_tray->toolTip())
        m_tray->setToolTip(toolTip);
}

QIcon BvStatusBarItem::icon() const
{
    return m_tray->icon();
}

void BvStatusBarItem::updateIcon()
{
    const QString key = m_type == 0 ? QString() : QString::number(m_type) + u' ' + m_title;
    if (!m_tray->icon().isNull() && key == m_iconKey)
        return;
    m_iconKey = key;
    if (key.isEmpty()) {
        m_tray->setIcon(QIcon(baseIconPath()));
        return;
    }
    QIcon icon;
    for (int size : IconSizes)
        icon.addPixmap(QPixmap::fromImage(renderIcon(m_type, m_title, size)));
    m_tray->setIcon(icon);
}

void BvStatusBarItem::setVisible(bool visible)
{
    m_tray->setVisible(visible && isAvailable());
}

bool BvStatusBarItem::isVisible() const
{
    return m_tray->isVisible();
}

QImage BvStatusBarItem::renderIcon(int type, const QString &title, int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing | QPainter::SmoothPixmapTransform);

    // Nothing running: the app's icon says more than a row of dashes would at this size.
    const QString text = title == EmptyTimer ? QString() : iconText(title);
    const bool drawIcon = type != 1 || text.isEmpty();
    if (drawIcon) {
        QSvgRenderer svg(baseIconPath());
        svg.render(&painter, QRectF(0, 0, size, size));
    }
    if (type == 0 || text.isEmpty())
        return image;

    // With the icon the badge covers its lower part, so the clock still shows above the timer.
    const qreal badgeHeight = type == 2 ? size * 0.56 : size * 0.72;
    const QRectF badge(0, (size - badgeHeight) / (type == 2 ? 1.0 : 2.0), size, badgeHeight);
    QPainterPath path;
    path.addRoundedRect(badge, size * 0.18, size * 0.18);
    painter.fillPath(path, QColor(32, 32, 32, 235));

    // The largest bold font whose text fits the badge with a pixel to spare on each side.
    QFont font;
    font.setBold(true);
    font.setStyleStrategy(QFont::PreferAntialias);
    const qreal room = size - 2.0;
    int pixelSize = int(badgeHeight * 0.9);
    for (; pixelSize > 5; --pixelSize) {
        font.setPixelSize(pixelSize);
        if (QFontMetricsF(font).horizontalAdvance(text) <= room - 1.0)
            break;
    }
    font.setPixelSize(pixelSize);
    if (QFontMetricsF(font).horizontalAdvance(text) > room - 1.0)
        font.setStretch(QFont::Condensed);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(badge, Qt::AlignCenter, text);
    return image;
}
