// The inhibitors against a fake portal and a fake logind on a private bus,
// and the quit signals that go with them.
#include "platform/SessionInhibitor.h"
#include "platform/UnixSignalNotifier.h"
#include "support/PrivateBus.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace {

// Stands in for the portal, its request objects and logind: records the
// inhibitors asked for and answers as they do.
class FakeServices final : public QDBusVirtualObject
{
public:
    QList<QVariantList> portalCalls, logindCalls; // sender, path, signature, then the arguments
    QStringList handles, closed;
    QList<QDBusUnixFileDescriptor> readEnds; // of pipes whose write end went to the caller

    // Inhibitors still held from the portal and from logind. A descriptor is
    // still open somewhere while its pipe shows no EOF.
    QList<qsizetype> live() const
    {
        char c;
        return {std::ranges::count_if(handles, [this](const QString &handle) { return !closed.contains(handle); }),
                std::ranges::count_if(readEnds, [&c](const auto &fd) { return ::read(fd.fileDescriptor(), &c, 1) != 0; })};
    }

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        QVariantList record = QVariantList{call.service(), call.path(), call.signature()} + call.arguments();
        QDBusMessage reply = call.createReply();
        const QString method = call.interface() + '.' + call.member();
        if (method == "org.freedesktop.portal.Inhibit.Inhibit" && record.size() == 6) {
            record[5] = qdbus_cast<QVariantMap>(record[5]);
            portalCalls << record;
            handles << QStringLiteral("/org/freedesktop/portal/desktop/request/t%1").arg(handles.size());
            reply << QVariant::fromValue(QDBusObjectPath(handles.last()));
        } else if (method == "org.freedesktop.login1.Manager.Inhibit") {
            logindCalls << record;
            int ends[2];
            if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
                qFatal("pipe2 failed");
            readEnds << QDBusUnixFileDescriptor(ends[0]); // both take a duplicate
            reply << QVariant::fromValue(QDBusUnixFileDescriptor(ends[1]));
            ::close(ends[0]);
            ::close(ends[1]);
        } else if (method == "org.freedesktop.portal.Request.Close") {
            closed << call.path();
        }
        return bus.send(reply);
    }
};

// An inhibitor on a session and a system connection of its own, the fakes on a third.
struct Fixture
{
    FakeServices fake;
    QDBusConnection fakes, session, system;
    std::unique_ptr<SessionInhibitor> inhibitor;

    explicit Fixture(const QString &address, bool services = true)
        : fakes(QDBusConnection::connectToBus(address, "fakes"))
        , session(QDBusConnection::connectToBus(address, "session"))
        , system(QDBusConnection::connectToBus(address, "system"))
        , inhibitor(std::make_unique<SessionInhibitor>(session, system))
    {
        if (services)
            QVERIFY(fakes.registerVirtualObject("/org/freedesktop/portal/desktop", &fake, QDBusConnection::SubPath) &&
                    fakes.registerVirtualObject("/org/freedesktop/login1", &fake) &&
                    fakes.registerService("org.freedesktop.portal.Desktop") && fakes.registerService("org.freedesktop.login1"));
    }
    ~Fixture()
    {
        inhibitor.reset();
        // QtDBus crashes on a call still queued for an object that outlives its
        // connection. A bus that stopped answering has failed the test already.
        static_cast<void>(settle());
        for (const char *name : {"fakes", "session", "system"})
            QDBusConnection::disconnectFromBus(name);
    }

    // Replies on a connection arrive in order: once the fakes answer a ping sent
    // now, the inhibitor has acted on every reply before it. The second round
    // lets the fakes see what it sent in turn.
    [[nodiscard]] bool settle()
    {
        for (const QDBusConnection &bus : {session, system, session, system}) {
            QDBusPendingCallWatcher ping(bus.asyncCall(QDBusMessage::createMethodCall(
                "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", "ping.Ping", "Ping")));
            if (bus.isConnected() && !QSignalSpy(&ping, &QDBusPendingCallWatcher::finished).wait())
                return false;
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // spent watchers keep descriptors
        return true;
    }
};

} // namespace

class TestSessionInhibitor : public QObject
{
    Q_OBJECT

    PrivateBus m_bus;

private Q_SLOTS:
    void initTestCase() { m_bus.start(); }

    void init() { QTest::failOnWarning(QRegularExpression(".")); }

    // '+' hold, '-' release, '.' let the replies arrive, 'x' destroy.
    void endsInTheStateLastAskedFor_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("taken");
        QTest::addColumn<int>("live");
        QTest::newRow("held") << "+" << 1 << 1;
        QTest::newRow("held twice") << "++" << 1 << 1;
        QTest::newRow("released unheld") << "-" << 0 << 0;
        QTest::newRow("released while pending") << "+-" << 1 << 0;
        QTest::newRow("held again while pending") << "+-+" << 1 << 1;
        QTest::newRow("toggled while pending") << "+-+-+-" << 1 << 0;
        QTest::newRow("released once answered") << "+.-" << 1 << 0;
        QTest::newRow("held again once released") << "+.-+" << 2 << 1;
        QTest::newRow("destroyed while pending") << "+x" << 1 << 0;
        QTest::newRow("destroyed while held") << "+.x" << 1 << 0;
    }

    void endsInTheStateLastAskedFor()
    {
        QFETCH(QString, steps);
        QFETCH(int, taken);
        QFETCH(int, live);
        Fixture f(m_bus.address());
        for (const QChar step : steps) {
            if (step == u'.')
                QVERIFY(f.settle());
            else if (step == u'x')
                f.inhibitor.reset();
            else
                f.inhibitor->setHeld(step == u'+');
        }
        QVERIFY(f.settle());
        const QVariantList portalCall{f.session.baseService(), "/org/freedesktop/portal/desktop", "sua{sv}", QString(),
                                      5u, QVariantMap{{"reason", "Finishing a sync"}}};
        const QVariantList logindCall{f.system.baseService(), "/org/freedesktop/login1", "ssss", "shutdown:sleep",
                                      "Nimbrell", "Finishing a sync", "delay"};
        QCOMPARE(f.fake.portalCalls, QList<QVariantList>(taken, portalCall));
        QCOMPARE(f.fake.logindCalls, QList<QVariantList>(taken, logindCall));
        QCOMPARE(f.fake.live(), QList<qsizetype>(2, live));
        if (f.inhibitor) {
            f.inhibitor->setHeld(false);
            QTRY_COMPARE(f.fake.live(), QList<qsizetype>(2, 0));
        }
    }

    void relaysLogindAnnouncements()
    {
        Fixture f(m_bus.address());
        QSignalSpy sleep(f.inhibitor.get(), &SessionInhibitor::prepareForSleep);
        QSignalSpy shutdown(f.inhibitor.get(), &SessionInhibitor::prepareForShutdown);
        QVERIFY(f.settle()); // the inhibitor's match rules are on the bus
        const auto announce = [&f](const char *name, bool starting) {
            return f.fakes.send(QDBusMessage::createSignal("/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                                           name) << starting);
        };
        QVERIFY(announce("PrepareForSleep", true) && announce("PrepareForShutdown", false) &&
                announce("PrepareForSleep", false));
        QTRY_COMPARE(sleep.size(), 2); // one sender's signals arrive in order
        QCOMPARE(sleep, (QList<QVariantList>{{true}, {false}}));
        QCOMPARE(shutdown, QList<QVariantList>{{false}});
    }

    // The quit signals that go with them: each reported once the event loop
    // runs, and the interrupted code's errno left as it was, even when the
    // signals come faster than they are read (the pipe full).
    void quitSignalsKeepErrno()
    {
        UnixSignalNotifier notifier({SIGUSR2});
        QSignalSpy received(&notifier, &UnixSignalNotifier::received);
        for (int i = 0; i < 70000; ++i)
            ::raise(SIGUSR2);
        errno = EDOM;
        ::raise(SIGUSR2);
        QCOMPARE(errno, EDOM);
        QTRY_VERIFY(received.size() >= 65536);
        QCOMPARE(received.first().first().toInt(), SIGUSR2);
    }

    // Without a bus, then on one with neither service: a warning fails the test (init()).
    void quietWithoutBusOrServices()
    {
        for (const QString &address : {QStringLiteral("unix:path=/nonexistent"), m_bus.address()}) {
            Fixture f(address, false);
            for (const bool held : {true, false, true}) {
                f.inhibitor->setHeld(held);
                QVERIFY(f.settle());
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestSessionInhibitor)
#include "tst_sessioninhibitor.moc"
