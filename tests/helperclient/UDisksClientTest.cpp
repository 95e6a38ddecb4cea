#include "helperclient/UDisksClient.h"

#include "HelperTestSupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;

using InterfaceMap = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, InterfaceMap>;

namespace {

const QString kRoot = u"/org/freedesktop/UDisks2"_s;
const QString kBlockPrefix = u"/org/freedesktop/UDisks2/block_devices/"_s;
const QString kBlock = u"org.freedesktop.UDisks2.Block"_s;
const QString kFilesystem = u"org.freedesktop.UDisks2.Filesystem"_s;
const QString kPartition = u"org.freedesktop.UDisks2.Partition"_s;
const QString kPartitionTable = u"org.freedesktop.UDisks2.PartitionTable"_s;
const QString kLoop = u"org.freedesktop.UDisks2.Loop"_s;

// A dbus-daemon of our own on a private socket, stopped by its process id.
class PrivateBus {
public:
    bool start(QString *why) {
        const QString socket = m_dir.filePath(u"bus"_s);
        QFile config(m_dir.filePath(u"bus.conf"_s));
        if (!config.open(QIODevice::WriteOnly)) {
            *why = u"cannot write a bus configuration"_s;
            return false;
        }
        config.write("<busconfig><type>session</type><listen>unix:path=" + socket.toUtf8() +
                     "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                     "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                     "<allow own=\"*\"/></policy></busconfig>");
        config.close();
        m_daemon.start(u"dbus-daemon"_s,
                       {u"--config-file="_s + config.fileName(), u"--nofork"_s, u"--nopidfile"_s});
        if (!m_daemon.waitForStarted(5000)) {
            *why = u"dbus-daemon cannot be started: "_s + m_daemon.errorString();
            return false;
        }
        if (!waitUntil([&] { return QFileInfo::exists(socket); }, 10000)) {
            *why = u"dbus-daemon made no socket"_s;
            return false;
        }
        m_address = u"unix:path="_s + socket;
        return true;
    }
    ~PrivateBus() {
        if (m_daemon.state() != QProcess::NotRunning) {
            m_daemon.terminate();
            if (!m_daemon.waitForFinished(5000))
                m_daemon.kill();
            m_daemon.waitForFinished(5000);
        }
    }
    QDBusConnection connect(const QString &name) {
        return QDBusConnection::connectToBus(m_address, name);
    }

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
};

// Plays udisksd: answers GetManagedObjects from a fixture and records every other call.
class FakeUDisks : public QDBusVirtualObject {
public:
    ManagedObjects objects;
    QStringList calls;     // "object interface.method arguments"
    QSet<QString> failing; // "interface.method" answered with an error

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        if (message.member() == "GetManagedObjects"_L1) {
            connection.send(message.createReply(QVariant::fromValue(objects)));
            return true;
        }
        // The signature pins the argument types; text arguments are shown as they came.
        QStringList texts;
        for (const QVariant &argument : message.arguments())
            if (argument.metaType() == QMetaType::fromType<QString>())
                texts << argument.toString();
        const QString member = message.interface() + u'.' + message.member();
        const QString call = message.path().mid(kRoot.size() + 1) + u' ' + member + u' ' +
                             message.signature() + u' ' + texts.join(u',');
        calls << call.trimmed();
        if (failing.contains(member))
            connection.send(message.createErrorReply(u"org.freedesktop.UDisks2.Error.Failed"_s,
                                                     u"refused by the fake"_s));
        else
            connection.send(message.createReply());
        return true;
    }
};

QVariantMap block(const QString &drive = u"/"_s) {
    return {{u"Drive"_s, QVariant::fromValue(QDBusObjectPath(drive))}};
}

QVariantMap filesystem(const QByteArrayList &mountPoints) {
    return {{u"MountPoints"_s, QVariant::fromValue(mountPoints)}};
}

QVariantMap partitionOf(const QString &table) {
    return {{u"Table"_s, QVariant::fromValue(QDBusObjectPath(kBlockPrefix + table))}};
}

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
        ASSERT_TRUE(m_bus.start(&why)) << why.toStdString();
        m_service = m_bus.connect(u"fake-udisks"_s);
        ASSERT_TRUE(m_service.isConnected());
        ASSERT_TRUE(m_service.registerService(u"org.freedesktop.UDisks2"_s));
        ASSERT_TRUE(m_service.registerVirtualObject(kRoot, &m_fake, QDBusConnection::SubPath));
        m_client = m_bus.connect(u"client"_s);
        ASSERT_TRUE(m_client.isConnected());
    }
    void TearDown() override {
        QDBusConnection::disconnectFromBus(u"fake-udisks"_s);
        QDBusConnection::disconnectFromBus(u"client"_s);
    }

    void add(const QString &name, const InterfaceMap &interfaces) {
        m_fake.objects.insert(QDBusObjectPath(kBlockPrefix + name), interfaces);
    }

    // The client blocks on its calls, so it runs on another thread while this one serves.
    bool run(const std::function<bool(UDisksClient &)> &work, QString *error = nullptr) {
        std::atomic<bool> done = false;
        bool ok = false;
        QThread *thread = QThread::create([&] {
            UDisksClient udisks(m_client);
            ok = work(udisks);
            if (error)
                *error = udisks.lastError();
            done = true;
        });
        thread->start();
        EXPECT_TRUE(waitUntil([&] { return done.load(); }));
        thread->wait();
        delete thread;
        return ok;
    }

    PrivateBus m_bus;
    FakeUDisks m_fake;
    QDBusConnection m_service{u"unset"_s};
    QDBusConnection m_client{u"unset"_s};
};

TEST_F(UDisksClientCalls, EjectOfAUsbDiskUnmountsEveryVolumeThenEjectsAndPowersOff) {
    const QString drive = kRoot + u"/drives/USB_Stick"_s;
    add(u"sdb"_s, {{kBlock, block(drive)}, {kPartitionTable, {}}});
    add(u"sdb1"_s, {{kBlock, block(drive)},
                    {kPartition, partitionOf(u"sdb"_s)},
                    {kFilesystem, filesystem({QByteArray("/media/u/DATA\0", 14)})}});
    add(u"sdb2"_s, {{kBlock, block(drive)},
                    {kPartition, partitionOf(u"sdb"_s)},
                    {kFilesystem, filesystem({QByteArray("/media/u/MORE\0", 14)})}});
    add(u"sdb3"_s, {{kBlock, block(drive)},
                    {kPartition, partitionOf(u"sdb"_s)},
                    {kFilesystem, filesystem({})}});
    add(u"sda1"_s, {{kBlock, block(kRoot + u"/drives/Internal"_s)},
                    {kFilesystem, filesystem({QByteArray("/\0", 2)})}});

    EXPECT_TRUE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/MORE"_s); }));
    const QStringList expected = {
        u"block_devices/sdb1 org.freedesktop.UDisks2.Filesystem.Unmount a{sv}"_s,
        u"block_devices/sdb2 org.freedesktop.UDisks2.Filesystem.Unmount a{sv}"_s,
        u"drives/USB_Stick org.freedesktop.UDisks2.Drive.Eject a{sv}"_s,
        u"drives/USB_Stick org.freedesktop.UDisks2.Drive.PowerOff a{sv}"_s,
    };
    EXPECT_EQ(m_fake.calls.join(u'\n').toStdString(), expected.join(u'\n').toStdString());
}

TEST_F(UDisksClientCalls, VolumeStillInUseIsNotEjected) {
    const QString drive = kRoot + u"/drives/USB_Stick"_s;
    add(u"sdc1"_s,
        {{kBlock, block(drive)}, {kFilesystem, filesystem({QByteArray("/media/u/BUSY\0", 14)})}});
    m_fake.failing.insert(u"org.freedesktop.UDisks2.Filesystem.Unmount"_s);
    QString error;
    EXPECT_FALSE(
        run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/BUSY"_s); }, &error));
    EXPECT_EQ(error, u"refused by the fake"_s);
    ASSERT_EQ(m_fake.calls.size(), 1);
    EXPECT_TRUE(m_fake.calls[0].contains(u"Unmount"_s));
}

TEST_F(UDisksClientCalls, LoopImageIsDetached) {
    add(u"loop4"_s, {{kBlock, block()},
                     {kLoop, {}},
                     {kFilesystem, filesystem({QByteArray("/media/u/IMG\0", 13)})}});
    EXPECT_TRUE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/IMG"_s); }));
    const QStringList expected = {
        u"block_devices/loop4 org.freedesktop.UDisks2.Filesystem.Unmount a{sv}"_s,
        u"block_devices/loop4 org.freedesktop.UDisks2.Loop.Delete a{sv}"_s,
    };
    EXPECT_EQ(m_fake.calls.join(u'\n').toStdString(), expected.join(u'\n').toStdString());
}

TEST_F(UDisksClientCalls, WholeDiskMountSkipsWhatIsMountedAndRenameNamesTheVolume) {
    add(u"sdd"_s, {{kBlock, block()}, {kPartitionTable, {}}});
    add(u"sdd1"_s,
        {{kBlock, block()}, {kPartition, partitionOf(u"sdd"_s)}, {kFilesystem, filesystem({})}});
    add(u"sdd2"_s, {{kBlock, block()},
                    {kPartition, partitionOf(u"sdd"_s)},
                    {kFilesystem, filesystem({QByteArray("/media/u/ON\0", 12)})}});
    add(u"sdd3"_s, {{kBlock, block()}, {kPartition, partitionOf(u"sdd"_s)}}); // no file system
    EXPECT_TRUE(run([](UDisksClient &u) { return u.mountWhole(u"sdd"_s); }));
    EXPECT_TRUE(run([](UDisksClient &u) { return u.rename(u"sdd1"_s, u"Nouveau nom"_s); }));
    const QStringList expected = {
        u"block_devices/sdd1 org.freedesktop.UDisks2.Filesystem.Mount a{sv}"_s,
        u"block_devices/sdd1 org.freedesktop.UDisks2.Filesystem.SetLabel sa{sv} Nouveau nom"_s,
    };
    EXPECT_EQ(m_fake.calls.join(u'\n').toStdString(), expected.join(u'\n').toStdString());
}

TEST_F(UDisksClientCalls, StaleMountPathCallsNothing) {
    add(u"sde1"_s, {{kBlock, block()}, {kFilesystem, filesystem({})}});
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountAndEject(u"/media/u/GONE"_s); }));
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountAndEject(QString()); }));
    EXPECT_FALSE(run([](UDisksClient &u) { return u.unmountWhole(u"nosuch"_s); }));
    EXPECT_TRUE(m_fake.calls.isEmpty()) << m_fake.calls.join(u'\n').toStdString();
}

} // namespace
