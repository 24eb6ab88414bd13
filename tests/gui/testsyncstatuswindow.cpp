#include <QtTest>

#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>

#include "fakes/fakesyncbackend.h"
#include "gui/sync/bvsyncstatuswindowcontroller.h"
#include "model/store.h"
#include "support/isolatedhome.h"
#include "sync/bvsyncservice.h"

using namespace Qt::StringLiterals;

namespace {

// Holds the change listing until the test lets it go, so a cancel surely arrives mid-run.
class StallingBackend : public FakeSyncBackend
{
public:
    using FakeSyncBackend::FakeSyncBackend;

    void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) override
    {
        QMutexLocker lock(&m_mutex);
        m_cache = localCache;
        m_handler = std::move(andHandler);
    }
    bool stalled()
    {
        QMutexLocker lock(&m_mutex);
        return bool(m_handler);
    }
    void release()
    {
        QMutexLocker lock(&m_mutex);
        FakeSyncBackend::fetchChangesWithLocalCache(m_cache, std::exchange(m_handler, nullptr));
    }

private:
    QMutex m_mutex;
    QList<BVTmpSyncFile> m_cache;
    ChangesHandler m_handler;
};

} // namespace

class TestSyncStatusWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void withoutRunningServiceItSaysSo();
    void runEndsAsTheServiceReports_data();
    void runEndsAsTheServiceReports();
    void cancelAsksTheServiceAndWaits();
    void detailsShowTheLog();

private:
    BVSyncService *makeService(std::unique_ptr<FakeSyncBackend> backend);
    QPushButton *button(const char *name) { return m_window->findChild<QPushButton *>(QLatin1String(name)); }

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<QTemporaryDir> m_remote;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<BVSyncService> m_service;
    std::unique_ptr<BVSyncStatusWindowController> m_window;
};

void TestSyncStatusWindow::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_remote = std::make_unique<QTemporaryDir>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    m_store = std::move(*Store::open(options));
    m_window = std::make_unique<BVSyncStatusWindowController>();
    m_window->show();
}

void TestSyncStatusWindow::cleanup()
{
    m_window.reset();
    m_service.reset();
    m_store.reset();
    m_remote.reset();
    m_home.reset();
}

BVSyncService *TestSyncStatusWindow::makeService(std::unique_ptr<FakeSyncBackend> backend)
{
    m_service = std::make_unique<BVSyncService>(std::move(backend), std::nullopt);
    m_service->setMOC(*m_store);
    return m_service.get();
}

void TestSyncStatusWindow::withoutRunningServiceItSaysSo()
{
    QCOMPARE(m_window->statusText(), u"Sync operation is not running."_s);
    QVERIFY(m_window->isFinished());
    QCOMPARE(button("syncCancelButton")->text(), u"Close"_s);
    QTest::mouseClick(button("syncCancelButton"), Qt::LeftButton);
    QVERIFY(!m_window->isVisible());
}

void TestSyncStatusWindow::runEndsAsTheServiceReports_data()
{
    QTest::addColumn<bool>("fail");
    QTest::addColumn<QString>("message");
    QTest::newRow("success") << false << u"Sync operation completed!"_s;
    QTest::newRow("failure") << true << u"Failure. Remote folder unreachable"_s;
}

void TestSyncStatusWindow::runEndsAsTheServiceReports()
{
    QFETCH(bool, fail);
    auto backend = std::make_unique<FakeSyncBackend>(m_remote->path());
    if (fail)
        backend->failNext(FakeSyncBackend::Operation::FetchChanges, u"Remote folder unreachable"_s);
    BVSyncService *service = makeService(std::move(backend));
    service->sync();
    m_window->setSyncService(service);
    QVERIFY(!m_window->isFinished());
    QVERIFY(m_window->findChild<QProgressBar *>(u"syncIndicator"_s)->isVisible());
    QCOMPARE(button("syncCancelButton")->text(), u"Cancel"_s);

    QTRY_VERIFY(m_window->isFinished());
    QTEST(m_window->statusText(), "message");
    QVERIFY(!m_window->findChild<QProgressBar *>(u"syncIndicator"_s)->isVisible());
    QCOMPARE(button("syncCancelButton")->text(), u"Close"_s);
    QVERIFY(button("syncDetailsButton")->isVisible());
    QVERIFY(m_window->isVisible());

    // A window opened after the run shows how it ended.
    BVSyncStatusWindowController late;
    late.setSyncService(service);
    QVERIFY(late.isFinished());
    QVERIFY(!late.statusText().isEmpty());
}

void TestSyncStatusWindow::cancelAsksTheServiceAndWaits()
{
    auto owned = std::make_unique<StallingBackend>(m_remote->path());
    StallingBackend *backend = owned.get();
    BVSyncService *service = makeService(std::move(owned));
    service->sync();
    m_window->setSyncService(service);
    QTRY_VERIFY(backend->stalled());

    QTest::mouseClick(button("syncCancelButton"), Qt::LeftButton);
    // The run stops at its next checkpoint; until then the window says it is on its way.
    QCOMPARE(m_window->statusText(), u"Cancelling sync operation..."_s);
    QVERIFY(!button("syncCancelButton")->isEnabled());

    backend->release();
    QTRY_VERIFY(m_window->isFinished());
    QCOMPARE(m_window->statusText(), u"Operation cancelled."_s);
    QVERIFY(button("syncCancelButton")->isEnabled());
}

void TestSyncStatusWindow::detailsShowTheLog()
{
    BVSyncService *service = makeService(std::make_unique<FakeSyncBackend>(m_remote->path()));
    service->sync();
    m_window->setSyncService(service);
    QTRY_VERIFY(m_window->isFinished());
    auto *details = m_window->findChild<QPlainTextEdit *>(u"syncDetails"_s);
    QVERIFY(!details->isVisible());
    const int compactHeight = m_window->height();
    QTest::mouseClick(button("syncDetailsButton"), Qt::LeftButton);
    QVERIFY(details->isVisible());
    QVERIFY(!button("syncDetailsButton")->isVisible());
    QCOMPARE(details->toPlainText(), service->activityLog());
    QVERIFY(!details->toPlainText().isEmpty());
    QVERIFY(m_window->height() > compactHeight);
}

QTEST_MAIN(TestSyncStatusWindow)
#include "testsyncstatuswindow.moc"
