#pragma once

#include <QPointer>
#include <QWidget>

class AttentionController;

// The taskbar side of the attention rules: asks for attention through the window's urgency hint (once,
// or until the app is activated), withdraws a lasting request, and answers the rules whether the window
// with the activity line is the active one; tells them when the app becomes active. Main thread.
class DockAttention : public QObject
{
    Q_OBJECT
public:
    // How long a one-time request stays up.
    static constexpr int OnceMsecs = 2000;

    // `attention` is not owned and outlives this object.
    explicit DockAttention(AttentionController &attention, QObject *parent = nullptr);
    ~DockAttention() override;

    // The main window with the activity line; the request goes to it (or to every window without one).
    void setTrackingWindow(QWidget *window);

    void requestUserAttention(bool critical);
    void cancelUserAttentionRequest();

private:
    void onApplicationStateChanged(Qt::ApplicationState state);
    bool trackingWindowIsMain() const;

    AttentionController &m_attention;
    QPointer<QWidget> m_trackingWindow;
};
