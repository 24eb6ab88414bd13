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
    QTest::addColumn<bool>("visible");
    QTest::addColumn<QString>("image");
    QTest::addColumn<QString>("toolTip");

    QTest::newRow("progress") << true << u"DropboxSyncProgress"_s << u"Dropbox syncing ..."_s;
    QTest::newRow("success") << true << u"DropboxSyncSuccess"_s << u"Folder sync completed"_s;
    QTest::newRow("error") << true << u"DropboxSyncError"_s << u"Dropbox sync error"_s;
    QTest::newRow("hidden") << false << u"DropboxSyncError"_s << u"Dropbox sync error"_s;
}

void TestBVMainWindowStatusbarView::syncButtonFollowsStatus()
{
    QFETCH(bool, visible);
    QFETCH(QString, image);
    QFETCH(QString, toolTip);

    BVMainWindowStatusbarView view;
    view.show();
    // Nothing to hide before the first run: the button does not exist yet.
    view.setSyncButton(false, QString(), QString());
    QVERIFY(!view.findChild<QToolButton *>(u"syncStatusButton"_s));
    // A failure shown before must leave neither its image nor its tooltip behind.
    view.setSyncButton(true, u"DropboxSyncError"_s, u"Dropbox sync error"_s);
    view.setSyncButton(visible, image, toolTip);

    auto *button = view.findChild<QToolButton *>(u"syncStatusButton"_s);
    QCOMPARE(button->isVisible(), visible);
    QCOMPARE(view.syncButtonToolTip(), visible ? toolTip : QString());
    QCOMPARE(button->size(), QSize(20, 15));
    if (!visible) {
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
    view.setSyncButton(true, u"DropboxSyncSuccess"_s, u"Dropbox sync completed"_s);
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
