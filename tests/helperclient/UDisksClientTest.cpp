#include "helperclient/UDisksClient.h"

#include "HelperTestSupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;

using InterfaceMap = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, InterfaceMap>;

namespace {

const QString kRoot = u"/org/freedesktop/UDisks2"_s;
const QString kUsbStick = kRoot + u"/drives/USB_Stick"_s;
const QString kInterfacePrefix = u"org.freedesktop.UDisks2."_s;

// Plays udisksd: answers GetManagedObjects from a fixture and records every other call.
class FakeUDisks : public QDBusVirtualObject {
public:
    ManagedObjects objects;
    QStringList calls;     // "object interface.method signature text-arguments"
    QSet<QString> failing; // "interface.method" answered with an error

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        if (message.member() == "GetManagedObjects"_L1) {
            connection.send(message.createReply(QVariant::fromValue(objects)));
            return true;
        }
        QStringList texts;
        for (const QVariant &argument : message.arguments())
            if (argument.metaType() == QMetaType::fromType<QString>())
                texts << argument.toString();
        QString member = message.interface() + u'.' + message.member();
        if (member.startsWith(kInterfacePrefix)) // shortened only when it is right
            member.remove(0, kInterfacePrefix.size());
        const QString call = message.path().mid(kRoot.size() + 1) + u' ' + member + u' ' +
                             message.signature() + u' ' + texts.join(u',');
        calls << call.trimmed();
        connection.send(failing.contains(member)
                            ? message.createErrorReply(u"org.freedesktop.UDisks2.Error.Failed"_s,
                                                       u"refused by the fake"_s)
                            : message.createReply());
        return true;
    }
};

class UDisksClientCalls : public testing::Test {
protected:
    static void SetUpTestSuite() {
        qDBusRegisterMetaType<QByteArrayList>();
        qDBusRegisterMetaType<InterfaceMap>();
        qDBusRegisterMetaType<ManagedObjects>();
    }

    void SetUp() override {
        if (!QFileInfo::exists(u"/usr/bin/dbus-daemon"_s))
            GTEST_SKIP() << "dbus-daemon is not installed";
        QString why;
        const QString address = helpertest::startBusDaemon(m_bus, m_dir.path(), u"session"_s, &why);
        ASSERT_FALSE(address.isEmpty()) << why.toStdString();
        m_service = QDBusConnection::connectToBus(address, address + u"/fake-udisks"_s);
        ASSERT_TRUE(m_service.registerService(u"org.freedesktop.UDisks2"_s))
            << m_service.lastError().message().toStdString();
        ASSERT_TRUE(m_service.registerVirtualObject(kRoot, &m_fake, QDBusConnection::SubPath));
        m_client = QDBusConnection::connectToBus(address, address + u"/client"_s);
        ASSERT_TRUE(m_client.isConnected());
    }
    void TearDown() override {
        // Named after this test's own bus, so a connection still closing cannot be reused.
        QDBusConnection::disconnectFromBus(m_service.name());
        QDBusConnection::disconnectFromBus(m_client.name());
        helpertest::stopProcess(m_bus);
    }

    // A block device on `drive`; `table` makes it a partition, `mountPoints` gives it a file
    // system, `extra` adds a bare interface (PartitionTable, Loop).
    void add(const QString &name, const QString &drive, const QString &table = {},
             std::optional<QByteArrayList> mountPoints = {}, const QString &extra = {}) {
        const QString prefix = kRoot + u"/block_devices/"_s;
        InterfaceMap interfaces = {{u"org.freedesktop.UDisks2.Block"_s,
                                    {{u"Drive"_s, QVariant::fromValue(QDBusObjectPath(drive))}}}};
        if (!table.isEmpty())
            interfaces[u"org.freedesktop.UDisks2.Partition"_s] = {
                {u"Table"_s, QVariant::fromValue(QDBusObjectPath(prefix + table))}};
        if (mountPoints)
            interfaces[u"org.freedesktop.UDisks2.Filesystem"_s] = {
                {u"MountPoints"_s, QVariant::fromValue(*mountPoints)}};
        if (!extra.isEmpty())
            interfaces[kInterfacePrefix + extra] = {};
        m_fake.objects.insert(QDBusObjectPath(prefix + name), interfaces);
    }

    // The client blocks on its calls, so it runs on another thread while this one serves.
    bool run(const std::function<bool(UDisksClient &)> &work, QString *error = nullptr) {
        std::atomic<bool> done = false;
        bool ok = false;
        std::unique_ptr<QThread> thread(QThread::create([&] {
            UDisksClient udisks(m_client);
            ok = work(udisks);
            if (error)
                *error = udisks.lastError();
            done = true;
        }));
        thread->start();
        EXPECT_TRUE(waitUntil([&] { return done.load(); }));
        thread->wait();
        return ok;
    }

    QTemporaryDir m_dir;
    QProcess m_bus;
    FakeUDisks m_fake;
    QDBusConnection m_service{u"unset"_s};
    QDBusConnection m_client{u"unset"_s};
};

TEST_F(UDisksClientCalls, EjectUnmountsEveryVolumeOfAUsbDiskThenPowersItOffAndDetachesALoop) {
    add(u"sdb"_s, kUsbStick, {}, {}, u"PartitionTable"_s);
    add(u"sdb1"_s, kUsbStick, u"sdb"_s, QByteArrayList{QByteArray("/media/u/DATA\0", 14)});
    add(u"sdb2"_s, kUsbStick, u"sdb"_s, QByteArrayList{QByteArray("/media/u/MORE\0", 14)});
    add(u"sdb3"_s, kUsbStick, u"sdb"_s, QByteArrayList{});
    add(u"sda1"_s, kRoot + u"/drives/Internal"_s, {}, QByteArrayList{QByteArray("/\0", 2)});
    add(u"loop4"_s, u"/"_s, {}, QByteArrayList{QByteArray("/media/u/IMG\0", 13)}, u"Loop"_s);

    EXPECT_TRUE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/MORE"_s); }));
    EXPECT_TRUE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/IMG"_s); }));
    EXPECT_EQ(m_fake.calls, QStringList({u"block_devices/sdb1 Filesystem.Unmount a{sv}"_s,
                                         u"block_devices/sdb2 Filesystem.Unmount a{sv}"_s,
                                         u"drives/USB_Stick Drive.Eject a{sv}"_s,
                                         u"drives/USB_Stick Drive.PowerOff a{sv}"_s,
                                         u"block_devices/loop4 Filesystem.Unmount a{sv}"_s,
                                         u"block_devices/loop4 Loop.Delete a{sv}"_s}));
}

TEST_F(UDisksClientCalls, BusyOrStaleVolumesAreNotEjected) {
    add(u"sdc1"_s, kUsbStick, {}, QByteArrayList{QByteArray("/media/u/BUSY\0", 14)});
    add(u"sde1"_s, u"/"_s, {}, QByteArrayList{});
    m_fake.failing.insert(u"Filesystem.Unmount"_s);
    QString error;
    EXPECT_FALSE(
        run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/BUSY"_s); }, &error));
    EXPECT_EQ(error, u"refused by the fake"_s);
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/GONE"_s); }));
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountAndEject(QString()); }));
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountWhole(u"nosuch"_s); }));
    // Only the refused unmount was tried.
    EXPECT_EQ(m_fake.calls, QStringList({u"block_devices/sdc1 Filesystem.Unmount a{sv}"_s}));
}

TEST_F(UDisksClientCalls, WholeDiskMountSkipsWhatIsMountedAndRenameNamesTheVolume) {
    add(u"sdd"_s, u"/"_s, {}, {}, u"PartitionTable"_s);
    add(u"sdd1"_s, u"/"_s, u"sdd"_s, QByteArrayList{});
    add(u"sdd2"_s, u"/"_s, u"sdd"_s, QByteArrayList{QByteArray("/media/u/ON\0", 12)});
    add(u"sdd3"_s, u"/"_s, u"sdd"_s); // no file system
    EXPECT_TRUE(run([](UDisksClient &u) { return u.mountWhole(u"sdd"_s); }));
    EXPECT_TRUE(run([](UDisksClient &u) { return u.rename(u"sdd1"_s, u"Nouveau nom"_s); }));
    EXPECT_EQ(m_fake.calls,
              QStringList({u"block_devices/sdd1 Filesystem.Mount a{sv}"_s,
                           u"block_devices/sdd1 Filesystem.SetLabel sa{sv} Nouveau nom"_s}));
}

TEST(UDisksObjectPath, EscapesLikeUdisks) {
    const QString prefix = u"/org/freedesktop/UDisks2/block_devices/"_s;
    EXPECT_EQ(UDisksClient::blockObjectPath(u"sdb1"_s), prefix + u"sdb1"_s);
    EXPECT_EQ(UDisksClient::blockObjectPath(u"dm-0"_s), prefix + u"dm_2d0"_s);
    EXPECT_EQ(UDisksClient::blockObjectPath(u"../x"_s), prefix + u"_2e_2e_2fx"_s);
}

} // namespace
