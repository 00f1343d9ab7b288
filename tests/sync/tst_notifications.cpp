// Desktop notifications of runs, against a fake notification server on a
// private bus, with the fake rclone; and the other desktop services the
// program asks over the session bus.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeRclone.h"
#include "model/UuidString.h"
#include "platform/DesktopAppearance.h"
#include "platform/DesktopNotifier.h"
#include "platform/FileManager.h"
#include "platform/PowerAndNetwork.h"
#include "platform/TrayHostWatcher.h"
#include "platform/MemorySettingsStore.h"
#include "sync/ProblemNotifier.h"
#include "support/PrivateBus.h"
#include "sync/SyncManager.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QNetworkInformation>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A service as a desktop has it: answers the calls of one method and records
// their arguments. The notification server's Notify, the portal's
// Settings.Read, a StatusNotifierWatcher's property Get.
class FakeService final : public QDBusVirtualObject
{
public:
    FakeService(const QString &member, std::function<QVariant()> answer) : m_member(member), m_answer(std::move(answer)) {}
    QList<QVariantList> calls;

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        if (call.member() != m_member)
            return bus.send(call.createErrorReply(QDBusError::UnknownMethod, call.member()));
        calls.append(call.arguments());
        return bus.send(call.createReply(m_answer()));
    }

private:
    const QString m_member;
    const std::function<QVariant()> m_answer;
};

// Fails once with too many deletes, once more the same way, then succeeds
// twice, the second time renaming a conflicting copy.
const QByteArray kTooManyDeletes =
    "echo 'ERROR : Safety abort: too many deletes (>50%, 6 of 10) on Path1 \"/home/user/Docs/\". Run with --force if "
    "desired.'\necho 'NOTICE: Failed to bisync: too many deletes'\nexit 1\n";
const QByteArray kConflict =
    "echo '2026/11/22 21:11:56 INFO  : Synching Path1 \"/home/user/Docs/\" with Path2 \"gdrive:Docs/\"'\n"
    "echo '2026/11/22 21:11:56 NOTICE: - Path1    Renaming Path1 copy                - /home/user/Docs/a.txt.conflict1'\n";

} // namespace

class TestNotifications : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    PrivateBus m_bus;
    QByteArray m_realHome;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;

private Q_SLOTS:
    void initTestCase()
    {
        m_realHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_dir.path()));
        m_bus.start();
    }

    void cleanupTestCase() { qputenv("HOME", m_realHome); }

    void tellsFailureOnceRecoveryAndConflictsNeverRoutineSuccess()
    {
        const QString &address = m_bus.address();
        FakeService server("Notify", [&server] { return QVariant(uint(server.calls.size())); }); // a notification's id
        QDBusConnection serverBus = QDBusConnection::connectToBus(address, "server");
        QVERIFY(serverBus.registerVirtualObject("/org/freedesktop/Notifications", &server) &&
                serverBus.registerService("org.freedesktop.Notifications"));
        DesktopNotifier notifier(QDBusConnection::connectToBus(address, "client"));

        FakeRclone fake;
        fake.script("bisync.1", kTooManyDeletes);
        fake.script("bisync.2", kTooManyDeletes);
        fake.script("bisync.5", kConflict);
        RcloneEngine engine(FakeRclone::path());
        SyncManager manager({m_settings, engine, m_fileEvents});
        SyncFolder folder;
        folder.name = "Docs";
        folder.localPath = m_dir.filePath("Docs");
        QVERIFY(QDir().mkpath(folder.localPath));
        folder.remoteTargets = {{QUuid::createUuid(), "gdrive", "Docs", true}};
        manager.addFolder(folder);
        ProblemNotifier problems(manager, m_settings, notifier);

        QSignalSpy completed(&manager, &SyncManager::runCompleted);
        for (int run = 1; run <= 5; ++run) {
            QVERIFY(manager.syncFolder(folder.id));
            QTRY_COMPARE(completed.size(), run);
        }
        const auto summaries = [&server] {
            QStringList summaries;
            for (const QVariantList &call : std::as_const(server.calls))
                summaries.append(call.value(3).toString());
            return summaries;
        };
        const QStringList expected{"Docs: Stopped before deleting files", "Docs is back in sync",
                                   "1 file in Docs had conflicting changes"};
        QTRY_COMPARE(summaries(), expected);
        // Names are shown as they are: the body is escaped markup, the summary plain text.
        notifier.notify("<i>Docs</i> & more", "<b>x</b> & \"y\" <a href=\"file:///etc\">", "k");
        QTRY_COMPARE(server.calls.size(), 4);
        QCOMPARE(server.calls.last().value(3).toString(), "<i>Docs</i> & more");
        QCOMPARE(server.calls.last().value(4).toString(),
                 "&lt;b&gt;x&lt;/b&gt; &amp; &quot;y&quot; &lt;a href=&quot;file:///etc&quot;&gt;");
        const QVariantList &first = server.calls.first(); // app, id, icon, summary, body, actions, hints, timeout
        QCOMPARE(first.mid(0, 3), (QVariantList{"Nimbrell", 0u, "org.nimbrell.Nimbrell"}));
        QVERIFY2(first.value(4).toString().contains("6 of 10 files on gdrive:Docs"), qPrintable(first.value(4).toString()));
        QCOMPARE(first.value(5).toStringList(), (QStringList{"default", "Open"}));
        QCOMPARE(qdbus_cast<QVariantMap>(first.value(6)), (QVariantMap{{"desktop-entry", "org.nimbrell.Nimbrell"}}));

        // A click on the first one: its folder.
        QSignalSpy activated(&notifier, &DesktopNotifier::activated);
        QVERIFY(serverBus.send(QDBusMessage::createSignal("/org/freedesktop/Notifications",
                                                          "org.freedesktop.Notifications", "ActionInvoked")
                               << 1u << QString("default")));
        QVERIFY(activated.wait());
        QCOMPARE(activated.first().first().toString(), uuidString(folder.id));

        // Turned off in Settings: nothing more.
        m_settings.setBoolValue(ProblemNotifier::kShowNotificationsKey, false);
        fake.script("bisync.6", kTooManyDeletes);
        QVERIFY(manager.syncFolder(folder.id));
        QTRY_COMPARE(completed.size(), 6);
        QTest::qWait(200);
        QCOMPARE(server.calls.size(), 4);

        // A folder list this version cannot use is told once, at start.
        m_settings.setBoolValue(ProblemNotifier::kShowNotificationsKey, true);
        QFile store(manager.repository().path());
        QVERIFY(store.open(QIODevice::WriteOnly | QIODevice::Truncate) && store.write("[{") == 2);
        store.close();
        SyncManager unusable({m_settings, engine, m_fileEvents});
        ProblemNotifier told(unusable, m_settings, notifier);
        QTRY_COMPARE(server.calls.size(), 5);
        QCOMPARE(server.calls.last().value(3).toString(), "Folder list needs attention");
        QVERIFY(server.calls.last().value(4).toString().contains("cannot be used"));
    }

    // The desktop's light or dark preference from the portal, read at
    // start and followed; another setting's change is not taken for it.
    void colorSchemeFromThePortal()
    {
        // Read() answers a variant in a variant.
        FakeService portal("Read", [] { return QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(1u)))); });
        QDBusConnection portalBus = QDBusConnection::connectToBus(m_bus.address(), "portal");
        QVERIFY(portalBus.registerVirtualObject("/org/freedesktop/portal/desktop", &portal) &&
                portalBus.registerService("org.freedesktop.portal.Desktop"));
        DesktopAppearance appearance(QDBusConnection::connectToBus(m_bus.address(), "appearance"));
        QTRY_COMPARE(appearance.colorScheme(), DesktopAppearance::ColorScheme::dark);

        const auto changed = [&](const QString &group, const QString &key, uint value) {
            QVERIFY(portalBus.send(QDBusMessage::createSignal("/org/freedesktop/portal/desktop",
                                                              "org.freedesktop.portal.Settings", "SettingChanged")
                                   << group << key << QVariant::fromValue(QDBusVariant(value))));
        };
        QSignalSpy followed(&appearance, &DesktopAppearance::colorSchemeChanged);
        changed("org.freedesktop.appearance", "accent-color", 2u);
        changed("org.freedesktop.appearance", "color-scheme", 2u);
        QVERIFY(followed.wait());
        QCOMPARE(followed.size(), 1);
        QCOMPARE(appearance.colorScheme(), DesktopAppearance::ColorScheme::light);
        changed("org.freedesktop.appearance", "color-scheme", 0u);
        QTRY_COMPARE(appearance.colorScheme(), DesktopAppearance::ColorScheme::noPreference);
        portalBus.unregisterService("org.freedesktop.portal.Desktop");
    }

    // A tray that comes after us (its panel started later) is noticed.
    void trayHostArrivingLate()
    {
        TrayHostWatcher tray(QDBusConnection::connectToBus(m_bus.address(), "tray"));
        QSignalSpy checked(&tray, &TrayHostWatcher::checked);
        QVERIFY(checked.wait());
        QVERIFY(tray.hasAnswered());
        QVERIFY(!tray.isAvailable());

        FakeService watcher("Get", [] { return QVariant::fromValue(QDBusVariant(true)); });
        QDBusConnection panel = QDBusConnection::connectToBus(m_bus.address(), "panel");
        QVERIFY(panel.registerVirtualObject("/StatusNotifierWatcher", &watcher) &&
                panel.registerService("org.kde.StatusNotifierWatcher"));
        QTRY_VERIFY(tray.isAvailable());
    }

    // "Show in Folder" asks the file manager to show the file, by its URL;
    // without one on the bus, the caller is told so and opens the folder.
    void fileManagerShowsTheFile()
    {
        QDBusConnection files = QDBusConnection::connectToBus(m_bus.address(), "files");
        std::optional<bool> shown;
        const auto show = [&] {
            shown.reset();
            showInFileManager(files, "/home/user/My Docs/#1 plan.txt", this, [&](bool ok) { shown = ok; });
            QTRY_VERIFY(shown.has_value());
        };
        show();
        QCOMPARE(*shown, false);
        FakeService manager("ShowItems", [] { return QVariant(true); });
        QDBusConnection desktop = QDBusConnection::connectToBus(m_bus.address(), "desktop");
        QVERIFY(desktop.registerVirtualObject("/org/freedesktop/FileManager1", &manager)
                && desktop.registerService("org.freedesktop.FileManager1"));
        show();
        QCOMPARE(*shown, true);
        QCOMPARE(manager.calls, (QList<QVariantList>{{QStringList{"file:///home/user/My%20Docs/%231%20plan.txt"}, QString()}}));
    }

    // UPower's OnBattery, read at start and followed.
    void batteryFromUPower()
    {
        BatteryMonitor none(QDBusConnection::connectToBus(m_bus.address(), "no upower"));
        QTest::qWait(200);
        QVERIFY(!none.isAvailable());
        FakeService upower("Get", [] { return QVariant::fromValue(QDBusVariant(true)); });
        QDBusConnection system = QDBusConnection::connectToBus(m_bus.address(), "upower");
        QVERIFY(system.registerVirtualObject("/org/freedesktop/UPower", &upower)
                && system.registerService("org.freedesktop.UPower"));
        BatteryMonitor battery(QDBusConnection::connectToBus(m_bus.address(), "battery"));
        QTRY_VERIFY(battery.isAvailable());
        QVERIFY(battery.onBattery());
        QCOMPARE(upower.calls, (QList<QVariantList>{{"org.freedesktop.UPower", "OnBattery"}}));
        QSignalSpy changed(&battery, &BatteryMonitor::changed);
        QVERIFY(system.send(QDBusMessage::createSignal("/org/freedesktop/UPower", "org.freedesktop.DBus.Properties",
                                                       "PropertiesChanged")
                            << QString("org.freedesktop.UPower") << QVariantMap{{"OnBattery", false}} << QStringList()));
        QVERIFY(changed.wait());
        QVERIFY(!battery.onBattery());
        system.unregisterService("org.freedesktop.UPower");
    }

    // The real backend, where NetworkManager runs.
    void meteredFromNetworkManager()
    {
        MeteredNetworkMonitor network;
        if (!network.isAvailable())
            QSKIP("NetworkManager does not run here");
        QCOMPARE(network.isMetered(), QNetworkInformation::instance()->isMetered());
    }

    void quietWithoutABus()
    {
        DesktopNotifier notifier(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"), "none"));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("notifications are not available"));
        notifier.notify("a", "b", "c");
        notifier.notify("a", "b", "c");
    }
};

QTEST_GUILESS_MAIN(TestNotifications)
#include "tst_notifications.moc"
