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

    // `status` as the sync manager reports it: 1 cancelled (the button goes), 2 started, 3 completed,
    // 4 failed. `withSyncMethod` 1 is Dropbox, which the tooltip then names.
    void setSyncStatus(int status, int withSyncMethod);
    int syncStatus() const { return m_syncStatus; }
    int syncMethod() const { return m_syncMethod; }
    // Empty while the button is hidden.
    QString syncButtonToolTip() const;

Q_SIGNALS:
    void onEditStartTimeButton();
    void onSyncStatusButton();

private:
    void showSyncButton(int status);

    QHBoxLayout *m_layout = nullptr;
    QLabel *m_label = nullptr;
    QToolButton *m_editStartTimeButton = nullptr;
    QToolButton *m_syncButton = nullptr;
    bool m_editStartTimeButtonVisible = false;
    int m_syncStatus = 0;
    int m_syncMethod = 0;
};
