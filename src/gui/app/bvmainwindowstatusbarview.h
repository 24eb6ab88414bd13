#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;
class QToolButton;

// The strip at the bottom of the main window: the tracking status text, and on its right the button that
// changes the running activity's start and the button that shows how the last sync went. The label gives
// way to the buttons when the window is narrow. The buttons are made when first shown.
class BVMainWindowStatusbarView : public QWidget
{
    Q_OBJECT
public:
    explicit BVMainWindowStatusbarView(QWidget *parent = nullptr);

    void setStatusString(const QString &text);
    QString statusString() const;

    void setEditStartTimeButtonVisible(bool visible);
    bool isEditStartTimeButtonVisible() const { return m_editStartTimeButtonVisible; }

    // Shows the sync button with the image of that name (":/icons/<name>.svg") and the tooltip, or hides
    // it; BVSyncStatusIndicator says which for each state of the sync.
    void setSyncButton(bool visible, const QString &imageName, const QString &toolTip);
    // Empty while the button is hidden.
    QString syncButtonToolTip() const;

Q_SIGNALS:
    void onEditStartTimeButton();
    void onSyncStatusButton();

private:
    QHBoxLayout *m_layout = nullptr;
    QLabel *m_label = nullptr;
    QToolButton *m_editStartTimeButton = nullptr;
    QToolButton *m_syncButton = nullptr;
    bool m_editStartTimeButtonVisible = false;
};
