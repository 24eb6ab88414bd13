#include <QtTest>
#include <QtWidgets>

#include "attention/attentioncontroller.h"
#include "attention/bvusernotificationservice.h"
#include "fakes/fakeclock.h"
#include "fakes/fakeidlesource.h"
#include "fakes/fakenotificationcentre.h"
#include "gui/attention/dockattention.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {
const QDateTime T0(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC);
}

// The urgency hint on a real X display, read from what the window asks the window manager: the offscreen
// platform keeps no alert state, so only a window system shows whether a request is really withdrawn.
class TestDockAttention : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void cancelWithdrawsALastingRequest_data();
    void cancelWithdrawsALastingRequest();

private:
    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { T0 };
    FakeIdleSource m_idle;
    FakeNotificationCentre m_centre;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<BvUserNotificationService> m_notifications;
    std::unique_ptr<AttentionController> m_attention;
};

namespace {
xcb_atom_t internAtom(xcb_connection_t *connection, const char *name)
{
    xcb_intern_atom_reply_t *reply
        = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, false, uint16_t(qstrlen(name)), name), nullptr);
    const xcb_atom_t atom = reply ? reply->atom : XCB_ATOM_NONE;
    free(reply);
    return atom;
}

// Listens where a window manager does: clients ask it to change _NET_WM_STATE with messages to the root
// window, which every client listening to the root reads as well, in the order they were sent.
class StateRequests
{
public:
    StateRequests()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(m_connection, root, XCB_CW_EVENT_MASK, &mask);
        m_state = internAtom(m_connection, "_NET_WM_STATE");
        m_demandsAttention = internAtom(m_connection, "_NET_WM_STATE_DEMANDS_ATTENTION");
    }
    ~StateRequests() { xcb_disconnect(m_connection); }
    StateRequests(const StateRequests &) = delete;
    StateRequests &operator=(const StateRequests &) = delete;

    // Whether the last request about the window's attention state asked to add it.
    bool demandsAttention(WId window)
    {
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            if ((event->response_type & 0x7f) == XCB_CLIENT_MESSAGE) {
                const auto *message = reinterpret_cast<xcb_client_message_event_t *>(event);
                const uint32_t *data = message->data.data32;
                if (message->type == m_state && (data[1] == m_demandsAttention || data[2] == m_demandsAttention))
                    m_attention[message->window] = data[0] == 1;
            }
            free(event);
        }
        return m_attention.value(xcb_window_t(window));
    }

private:
    xcb_connection_t *m_connection;
    xcb_atom_t m_state = XCB_ATOM_NONE;
    xcb_atom_t m_demandsAttention = XCB_ATOM_NONE;
    QHash<xcb_window_t, bool> m_attention;
};
} // namespace

void TestDockAttention::initTestCase()
{
    if (QGuiApplication::platformName() != "xcb"_L1)
        QSKIP("needs an X display");
}

void TestDockAttention::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    m_manager = std::make_unique<ActivityManager>(*m_store);
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_notifications = std::make_unique<BvUserNotificationService>(m_centre);
    m_attention = std::make_unique<AttentionController>(*m_manager, *m_settings, m_clock, m_idle, *m_notifications);
}

void TestDockAttention::cleanup()
{
    m_attention.reset();
    m_notifications.reset();
    m_settings.reset();
    m_defaults.reset();
    m_manager.reset();
    m_store.reset();
    m_home.reset();
}

void TestDockAttention::cancelWithdrawsALastingRequest_data()
{
    QTest::addColumn<bool>("withTrackingWindow");
    QTest::addColumn<int>("requests");
    QTest::newRow("tracking window, one request") << true << 1;
    QTest::newRow("tracking window, repeated request") << true << 3;
    QTest::newRow("every window, repeated request") << false << 2;
}

void TestDockAttention::cancelWithdrawsALastingRequest()
{
    QFETCH(bool, withTrackingWindow);
    QFETCH(int, requests);
    // Another window holds the focus, as when the user works elsewhere: an active window is never alerted.
    QWidget other;
    other.resize(200, 100);
    other.show();
    QVERIFY(QTest::qWaitForWindowExposed(&other));
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QWidget window;
    window.setAttribute(Qt::WA_ShowWithoutActivating);
    window.resize(200, 100);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(!window.isActiveWindow());
    StateRequests stateRequests;

    DockAttention dock(*m_attention);
    if (withTrackingWindow)
        dock.setTrackingWindow(&window);
    for (int i = 0; i < requests; ++i)
        dock.requestUserAttention(true);
    QTRY_VERIFY(stateRequests.demandsAttention(window.winId()));

    dock.cancelUserAttentionRequest();
    // Qt sends its queued requests when its event loop next waits; hand them to the server now.
    xcb_flush(qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection());
    QTRY_VERIFY(!stateRequests.demandsAttention(window.winId()));
}

QTEST_MAIN(TestDockAttention)
#include "testdockattention.moc"
