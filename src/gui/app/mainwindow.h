#pragma once

#include <QMainWindow>

#include "app/trackingcontroller.h"

class ActivityTextView;
class BVMainWindowStatusbarView;
class MainMenuBar;
class QLabel;
class QToolButton;
class RecentActivitiesMenu;

// The main window, titled "Brimvale": the one-line activity field, the earlier-activities button with its
// "Previous activities" menu, the message line (errors in red, information in dark grey) and the status
// bar view. It shows what the controller tells it and reports what the user does; it decides nothing.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // `tracking` fills the menus and the field's completion; it outlives the window.
    explicit MainWindow(TrackingController &tracking, QWidget *parent = nullptr);
    ~MainWindow() override;

    ActivityTextView *textView() const { return m_textView; }
    BVMainWindowStatusbarView *statusbarView() const { return m_statusbarView; }
    QLabel *errorLabel() const { return m_errorLabel; }
    QToolButton *earlierActivitiesButton() const { return m_earlierActivitiesButton; }
    RecentActivitiesMenu *earlierActivitiesMenu() const { return m_earlierActivitiesMenu; }
    MainMenuBar *mainMenuBar() const { return m_menuBar; }

    // showError / showInfo / hideError: the message line in the kind's colour, hidden for None.
    void showMessage(TrackingController::MessageKind kind, const QString &text);
    // showEarlierActivities: pops the "Previous activities" menu up under its button.
    void showEarlierActivities();

Q_SIGNALS:
    // Return (or Enter) in the activity field.
    void returnPressed();
    // The user changed the field's text.
    void textEdited(const QString &text);
    void becameMain();
    void resignedMain();
    // The user closed the window (it is hidden, not destroyed).
    void closed();

protected:
    void changeEvent(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    ActivityTextView *m_textView = nullptr;
    QToolButton *m_earlierActivitiesButton = nullptr;
    RecentActivitiesMenu *m_earlierActivitiesMenu = nullptr;
    QLabel *m_errorLabel = nullptr;
    BVMainWindowStatusbarView *m_statusbarView = nullptr;
    MainMenuBar *m_menuBar = nullptr;
};
