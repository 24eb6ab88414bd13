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
    void buttonsStayInANarrowWindow();
};

void TestBVMainWindowStatusbarView::syncButtonFollowsStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("method");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<QString>("image");

    QTest::newRow("started, Dropbox") << 2 << 1 << u"Dropbox syncing ..."_s << u"DropboxSyncProgress"_s;
    QTest::newRow("completed, Dropbox") << 3 << 1 << u"Dropbox sync completed"_s << u"DropboxSyncSuccess"_s;
    QTest::newRow("failed, Dropbox") << 4 << 1 << u"Dropbox sync error"_s << u"DropboxSyncError"_s;
    QTest::newRow("failed, other method") << 4 << 2 << u" sync error"_s << u"DropboxSyncError"_s;
    QTest::newRow("started, no service") << 2 << 0 << u" syncing ..."_s << u"DropboxSyncProgress"_s;
    QTest::newRow("cancelled: hidden") << 1 << 1 << QString() << QString();
}

void TestBVMainWindowStatusbarView::syncButtonFollowsStatus()
{
    QFETCH(int, status);
    QFETCH(int, method);
    QFETCH(QString, toolTip);
    QFETCH(QString, image);

    BVMainWindowStatusbarView view;
    view.show();
    QVERIFY(!view.findChild<QToolButton *>(u"syncStatusButton"_s));
    // A failure shown before must leave neither its image nor its tooltip behind.
    view.setSyncStatus(4, 1);
    view.setSyncStatus(status, method);

    QCOMPARE(view.syncStatus(), status);
    auto *button = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    QCOMPARE(button->isVisible(), !image.isEmpty());
    QCOMPARE(view.syncButtonToolTip(), toolTip);
    QCOMPARE(button->size(), QSize(20, 15));
    if (image.isEmpty()) {
        QVERIFY(button->icon().isNull());
        return;
    }
    const QImage expected = QIcon(u":/icons/"_s + image + u".svg"_s).pixmap(20, 15).toImage();
    QVERIFY(!expected.isNull());
    QCOMPARE(button->icon().pixmap(20, 15).toImage(), expected);
    QSignalSpy clicks(&view, &BVMainWindowStatusbarView::onSyncStatusButton);
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(clicks.count(), 1);
}

void TestBVMainWindowStatusbarView::buttonsStayInANarrowWindow()
{
    BVMainWindowStatusbarView view;
    const QString status = u"Status: tracking 01:02:05 and a text far too long for the window"_s;
    view.setStatusString(status);
    view.setEditStartTimeButtonVisible(true);
    view.setSyncStatus(3, 1);
    view.resize(120, 24);
    view.show();
    QCoreApplication::processEvents();

    auto *label = view.findChild<QWidget *>(u"statusLabel"_s);
    auto *edit = view.findChild<QToolButton *>(u"editStartTimeButton"_s);
    auto *sync = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    QCOMPARE(view.statusString(), status);
    QCOMPARE(edit->size(), QSize(19, 15));
    QCOMPARE(edit->toolTip(), u"Change start time for current activity"_s);
    // The label gives way; the buttons follow it, the start-time button first, all inside the view.
    QVERIFY(label->geometry().right() < edit->geometry().left());
    QVERIFY(edit->geometry().right() < sync->geometry().left());
    QVERIFY(view.rect().contains(sync->geometry()));

    QSignalSpy clicks(&view, &BVMainWindowStatusbarView::onEditStartTimeButton);
    QTest::mouseClick(edit, Qt::LeftButton);
    QCOMPARE(clicks.count(), 1);
    view.setEditStartTimeButtonVisible(false);
    QVERIFY(!view.isEditStartTimeButtonVisible());
    QVERIFY(!edit->isVisible());
}

QTEST_MAIN(TestBVMainWindowStatusbarView)
#include "testbvmainwindowstatusbarview.moc"
