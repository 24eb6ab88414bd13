#include "gui/attention/dockattention.h"

#include <QApplication>
#include <QWindow>

#include "attention/attentioncontroller.h"

DockAttention::DockAttention(AttentionController &attention, QObject *parent)
    : QObject(parent)
    , m_attention(attention)
{
    connect(&m_attention, &AttentionController::userAttentionRequested, this, &DockAttention::requestUserAttention);
    connect(
        &m_attention, &AttentionController::userAttentionCancelled, this, &DockAttention::cancelUserAttentionRequest);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, &DockAttention::onApplicationStateChanged);
    m_attention.setTrackingWindowIsMain([this] { return trackingWindowIsMain(); });
}

DockAttention::~DockAttention()
{
    m_attention.setTrackingWindowIsMain({});
}

void DockAttention::setTrackingWindow(QWidget *window)
{
    m_trackingWindow = window;
}

void DockAttention::requestUserAttention(bool critical)
{
    // A duration of zero keeps the hint until the window is activated; otherwise it is taken back after
    // the duration, which is what a single bounce is on a taskbar.
    QApplication::alert(m_trackingWindow, critical ? 0 : OnceMsecs);
}

void DockAttention::cancelUserAttentionRequest()
{
    // Qt has no public call to withdraw the hint, and a new request is ignored while one is up. QWindow's
    // own timeout ends a request through its private slot, which is what a withdrawal is.
    QList<QWindow *> windows;
    if (m_trackingWindow) {
        if (QWindow *window = m_trackingWindow->window()->windowHandle())
            windows << window;
    } else {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (QWindow *window = widget->windowHandle())
                windows << window;
        }
    }
    for (QWindow *window : windows)
        QMetaObject::invokeMethod(window, "_q_clearAlert", Qt::DirectConnection);
}

void DockAttention::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (state == Qt::ApplicationActive)
        m_attention.applicationWillBecomeActive();
}

bool DockAttention::trackingWindowIsMain() const
{
    return m_trackingWindow && m_trackingWindow->isVisible() && m_trackingWindow->isActiveWindow()
        && QGuiApplication::applicationState() == Qt::ApplicationActive;
}
