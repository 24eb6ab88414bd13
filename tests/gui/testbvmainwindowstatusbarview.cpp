#include <QtTest>

#include <QToolButton>

#include "gui/app/bvmainwindowstatusbarview.h"

using namespace Qt::StringLiterals;

class TestBVMainWindowStatusbarView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void syncButtonFollowsStatus_data();
    void syncButtonFollowsStatus();
    void startTimeButtonComesAndGoes();
    void labelGivesWayToButtons();
};

void TestBVMainWindowStatusbarView::syncButtonFollowsStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("method");
    QTest::addColumn<bool>("visible");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<QString>("image");

    QTest::newRow("started, Dropbox") << 2 << 1 << true << u"Dropbox syncing ..."_s << u"DropboxSyncProgress"_s;
    QTest::newRow("completed, Dropbox") << 3 << 1 << true << u"Dropbox sync completed"_s << u"DropboxSyncSuccess"_s;
    QTest::newRow("failed, Dropbox") << 4 << 1 << true << u"Dropbox sync error"_s << u"DropboxSyncError"_s;
    QTest::newRow("failed, other method") << 4 << 2 << true << u" sync error"_s << u"DropboxSyncError"_s;
    QTest::newRow("started, no service") << 2 << 0 << true << u" syncing ..."_s << u"DropboxSyncProgress"_s;
    QTest::newRow("cancelled") << 1 << 1 << false << QString() << QString();
}

void TestBVMainWindowStatusbarView::syncButtonFollowsStatus()
{
    QFETCH(int, status);
    QFETCH(int, method);
    QFETCH(bool, visible);
    QFETCH(QString, toolTip);
    QFETCH(QString, image);

    BVMainWindowStatusbarView view;
    view.resize(400, 24);
    view.show();
    QVERIFY(!view.findChild<QToolButton *>(u"syncStatusButton"_s));
    // A failure shown before must not leave its image or tooltip behind.
    view.setSyncStatus(4, 1);
    view.setSyncStatus(status, method);

    QCOMPARE(view.syncStatus(), status);
    QCOMPARE(view.syncMethod(), method);
    auto *button = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    QVERIFY(button);
    QCOMPARE(button->isVisible(), visible);
    QCOMPARE(view.syncButtonToolTip(), toolTip);
    QCOMPARE(button->size(), QSize(20, 15));
    if (image.isEmpty()) {
        QVERIFY(button->icon().isNull());
        QVERIFY(button->toolTip().isEmpty());
    } else {
        const QImage expected = QIcon(u":/icons/"_s + image + u".svg"_s).pixmap(20, 15).toImage();
        QVERIFY(!expected.isNull());
        QCOMPARE(button->icon().pixmap(20, 15).toImage(), expected);
    }

    int clicks = 0;
    connect(&view, &BVMainWindowStatusbarView::onSyncStatusButton, this, [&clicks] { ++clicks; });
    if (visible) {
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(clicks, 1);
    }
}

void TestBVMainWindowStatusbarView::startTimeButtonComesAndGoes()
{
    BVMainWindowStatusbarView view;
    view.resize(400, 24);
    view.show();
    QVERIFY(!view.isEditStartTimeButtonVisible());
    QVERIFY(!view.findChild<QToolButton *>(u"editStartTimeButton"_s));

    view.setEditStartTimeButtonVisible(true);
    view.setSyncStatus(3, 1);
    auto *button = view.findChild<QToolButton *>(u"editStartTimeButton"_s);
    QVERIFY(button);
    QVERIFY(view.isEditStartTimeButtonVisible());
    QVERIFY(button->isVisible());
    QCOMPARE(button->size(), QSize(19, 15));
    QCOMPARE(button->toolTip(), u"Change start time for current activity"_s);
    QVERIFY(!button->icon().isNull());

    int clicks = 0;
    connect(&view, &BVMainWindowStatusbarView::onEditStartTimeButton, this, [&clicks] { ++clicks; });
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(clicks, 1);

    // Buttons sit after the label, the start-time button first.
    auto *sync = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    QCoreApplication::processEvents();
    QVERIFY(view.findChild<QWidget *>(u"statusLabel"_s)->geometry().right() < button->geometry().left());
    QVERIFY(button->geometry().right() < sync->geometry().left());

    view.setEditStartTimeButtonVisible(false);
    QVERIFY(!view.isEditStartTimeButtonVisible());
    QVERIFY(!button->isVisible());
}

void TestBVMainWindowStatusbarView::labelGivesWayToButtons()
{
    BVMainWindowStatusbarView view;
    view.setStatusString(u"Status: tracking 01:02:05 and a very long text that does not fit in the window"_s);
    view.setEditStartTimeButtonVisible(true);
    view.setSyncStatus(2, 1);
    view.resize(120, 24);
    view.show();
    QCoreApplication::processEvents();
    QCOMPARE(view.statusString(), u"Status: tracking 01:02:05 and a very long text that does not fit in the window"_s);
    auto *sync = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    auto *edit = view.findChild<QToolButton *>(u"editStartTimeButton"_s);
    QVERIFY(view.rect().contains(sync->geometry()));
    QVERIFY(view.rect().contains(edit->geometry()));
    QVERIFY(view.findChild<QWidget *>(u"statusLabel"_s)->width() < 120);
}

QTEST_MAIN(TestBVMainWindowStatusbarView)
#include "testbvmainwindowstatusbarview.moc"
