#include "helper/HelperCommands.h"

#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <tuple>

using namespace Qt::StringLiterals;
using helper::Caller;

namespace {

Caller user(uid_t uid = 1000, gid_t gid = 1001, std::vector<gid_t> groups = {1001}) {
    return {4242, 0, uid, gid, std::move(groups), false};
}

struct Tools {                // how the tools behave; by default they work
    QString type = u"ntfs"_s; // what the probe sees
    QString umountError;
    int ntfsExit = 0;
    QString ntfsError;
};

const QList<quint64> kDeviceCodes{helper::kMountReadWrite, helper::kEject, helper::kRepair,
                                  helper::kErase, helper::kRename};

// Stands in for polkit (allowing), the probe and the tools (noting each argv, and "on FOLDER" when
// handed one; changing the mount table as the kernel would), over a scratch sysfs, procfs and /dev:
// internal sda (sda2 holds /), sdc (sdc1 is swap), sdd (sdd1 holds /usr/local), sde (below dm-0,
// which holds /home), sdf (sdf1 holds /usr); USB stick sdb, SD card mmcblk0, images loop0 (loop0p2
// holds /boot) and loop1.
class HelperCommandsTest : public ::testing::Test,
                           public helper::ToolRunner,
                           public helper::VolumeProbe,
                           public helper::Authorizer {
protected:
    HelperCommandsTest() {
        ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
        for (const QString &disk :
             {u"pci/ata sda sda1 sda2"_s, u"pci/usb1 sdb sdb1"_s, u"pci/ata sdc sdc1"_s,
              u"pci/ata sdd sdd1"_s, u"pci/ata sde sde1"_s, u"pci/ata sdf sdf1"_s,
              u"platform/mmc0 mmcblk0 mmcblk0p1"_s, u"virtual/block loop0 loop0p1 loop0p2"_s,
              u"virtual/block loop1"_s, u"virtual/block dm-0"_s})
            addDisk(disk.split(u' '));
        writeFile(u"sys/class/block/dm-0/slaves/sde1"_s, {});
        writeFile(u"dev/fuse"_s, {});
        writeFile(u"proc/swaps"_s,
                  "Filename Type Size Used Priority\n/dev/sdc1 partition 8 0 -2\n");
        for (const QString &mount : {u"sda2 /"_s, u"dm-0 /home"_s, u"sdf1 /usr"_s,
                                     u"loop0p2 /boot"_s, u"sdd1 /usr/local"_s})
            addMount(u"/dev/"_s + mount.section(u' ', 0, 0), mount.section(u' ', 1), u"ext4"_s);
    }
    QString path(const QString &relative) const { return m_dir.filePath(relative); }
    QString folder(const QString &relative) const { // to mount on, reachable by everyone
        return QDir().mkpath(path(relative)) ? path(relative) : QString();
    }
    void writeFile(const QString &relative, const QByteArray &content) const {
        QDir().mkpath(QFileInfo(path(relative)).path());
        QFile out(path(relative));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
    }
    // The mount carries the device's number, as the kernel shows ntfs-3g's.
    void addMount(const QString &device, const QString &target, const QString &fsType,
                  const QString &options = u"rw"_s, const QString &superOptions = u"rw"_s) {
        m_mountLines << u"%1 1 %2 / %3 %4 shared:1 - %5 %6 %7"_s.arg(m_mountLines.size() + 100)
                            .arg(m_numbers.value(device.section(u'/', -1)), target, options, fsType,
                                 device, superOptions);
        writeMounts();
    }
    void removeMount(const QString &target) {
        m_mountLines.removeIf(
            [&](const QString &line) { return line.section(u' ', 4, 4) == target; });
        writeMounts();
    }

    helper::Authorization check(const Caller &, const QString &action,
                                const QString &) const override {
        actions.append(action);
        return {true, {}};
    }
    helper::ToolResult run(const QString &program, const QStringList &arguments,
                           std::chrono::milliseconds, int handedFd = -1) override {
        const QString folder = handedFd < 0
                                   ? QString()
                                   : QFileInfo(u"/proc/self/fd/%1"_s.arg(handedFd)).symLinkTarget();
        calls << QStringList{program} + arguments;
        if (!folder.isEmpty())
            calls.last() << u"on "_s + folder;
        if (program == u"umount"_s) {
            if (!tools.umountError.isEmpty())
                return {true, false, 32, {}, tools.umountError};
            removeMount(arguments.last());
            if (afterUnmount)
                afterUnmount();
        }
        const bool rw = arguments.value(1).startsWith(u"rw"_s);
        if (program == u"ntfs-3g"_s && rw && tools.ntfsExit != 0)
            return {true, false, tools.ntfsExit, {}, tools.ntfsError};
        if (program == u"ntfs-3g"_s)
            addMount(arguments.value(2), folder, u"fuseblk"_s, rw ? u"rw,nosuid,nodev"_s : u"ro"_s);
        return {true, false, 0, {}, {}};
    }
    helper::ToolResult mountOnto(int folderFd, const QString &device, const QString &fsType,
                                 const QString &options) override {
        return run(u"mount"_s, {u"-t"_s, fsType, u"-o"_s, options, device}, {}, folderFd);
    }
    helper::ToolResult unmount(const QString &target) override {
        return run(u"umount"_s, {u"--"_s, target}, {});
    }
    Volume probe(const QString &) const override { return {tools.type, u"Data"_s, {}}; }

    QString send(quint64 code, const wire::Dictionary &parameter, const Caller &caller = user()) {
        calls.clear();
        return commands.handle({1, code, parameter}, caller).value(u"result"_s, u"<missing>"_s);
    }
    QString sendTo(const QString &device, quint64 code, const Caller &caller = user()) {
        return send(code, {{u"bsdName"_s, device}, {u"newName"_s, u"X"_s}}, caller);
    }

    Tools tools;
    std::function<void()> afterUnmount;
    QList<QStringList> calls;
    mutable QStringList actions;
    QTemporaryDir m_dir;
    QStringList m_mountLines;
    QHash<QString, QString> m_numbers;
    helper::DeviceFacts facts{{path(u"sys"_s), path(u"proc"_s), path(u"dev"_s), false}};
    helper::HelperCommands commands{*this, facts, *this, *this};

private:
    // Bus, disk, partitions.
    void addDisk(const QStringList &words) {
        const QString diskDir = u"sys/devices/"_s + words[0] + u'/' + words[1];
        QDir().mkpath(path(u"sys/class/block"_s));
        QDir().mkpath(path(u"sys/dev/block"_s));
        for (const QString &name : words.sliced(1)) {
            const QString dir = name == words[1] ? diskDir : diskDir + u'/' + name;
            const QString number = u"8:%1"_s.arg(m_numbers.size());
            m_numbers.insert(name, number);
            writeFile(dir + u"/dev"_s, number.toUtf8() + '\n');
            if (name != words[1])
                writeFile(dir + u"/partition"_s, "1\n");
            writeFile(u"dev/"_s + name, {});
            QFile::link(path(dir), path(u"sys/dev/block/"_s + number));
            QFile::link(path(dir), path(u"sys/class/block/"_s + name));
        }
    }
    void writeMounts() const {
        writeFile(u"proc/self/mountinfo"_s, m_mountLines.join(u'\n').toUtf8() + '\n');
    }
};

// A system disk (below /, /home through device-mapper, swap, /usr, /boot), a device with holders,
// or a bad label gets a reason, and nothing runs or is asked; root's 40 refusals are logged up to
// its share of a minute. (Hostile names and unknown codes are the fuzz target's.)
TEST_F(HelperCommandsTest, GuardsRefuseBeforeAnythingRuns) {
    writeFile(u"sys/class/block/mmcblk0p1/holders/dm-1"_s, {});
    static int rootLines = 0;
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
            rootLines += text.startsWith(u"uid 0 "_s);
        });
    for (const quint64 code : kDeviceCodes) {
        SCOPED_TRACE(code);
        for (const QString &name : {u"sda"_s, u"sda1"_s, u"sde1"_s, u"dm-0"_s, u"sdc"_s, u"sdc1"_s,
                                    u"sdf1"_s, u"loop0p1"_s})
            EXPECT_TRUE(sendTo(name, code, user(0)).contains(u"running system"_s))
                << name.toStdString();
        const QString held = sendTo(code == helper::kEject ? u"mmcblk0"_s : u"mmcblk0p1"_s, code);
        EXPECT_TRUE(held.contains(u"dm-1"_s)) << held.toStdString();
    }
    for (const QString &label : {u""_s, QString(33, u'x'), u"-o"_s, u"a?b"_s, u"a\nb"_s})
        EXPECT_FALSE(
            send(helper::kRename, {{u"bsdName"_s, u"sdb1"_s}, {u"newName"_s, label}}).isEmpty())
            << label.toStdString();
    qInstallMessageHandler(previous);
    EXPECT_EQ(rootLines, 20);
    EXPECT_TRUE(calls.isEmpty() && actions.isEmpty());
}

// The view is kept until the mount table is said to have changed; a new swap area counts at once,
// as swapon does not touch the mount table.
TEST_F(HelperCommandsTest, SystemDiskViewFollowsMountTableNoticesAndSwap) {
    EXPECT_TRUE(facts.isSystemDisk(u"sdf"_s));
    removeMount(u"/usr"_s);
    addMount(u"/dev/sdb1"_s, u"/usr"_s, u"ext4"_s);
    EXPECT_FALSE(facts.isSystemDisk(u"sdb"_s));
    facts.mountTableChanged();
    EXPECT_TRUE(facts.isSystemDisk(u"sdb"_s));
    EXPECT_FALSE(facts.isSystemDisk(u"sdf"_s));
    writeFile(u"proc/swaps"_s,
              "Filename Type Size Used Priority\n/dev/mmcblk0p1 partition 8 0 -2\n");
    EXPECT_TRUE(facts.isSystemDisk(u"mmcblk0"_s));
}

// The polkit action: -system unless the disk is external for the caller, else -others unless
// every affected mount is known to be the caller's. Root is never asked.
TEST_F(HelperCommandsTest, ActionVariantFollowsTheDiskAndTheOwner) {
    const QString target = folder(u"media/v"_s);
    const struct {
        const char *what;
        QString device, superOptions; // of sdb1's mount; "" for none
        uid_t caller;
        QString suffix;
    } cases[]{
        {"internal disk", u"sdd1"_s, {}, 1000, u"-system"_s},
        {"image of someone else's file", u"loop1"_s, {}, 1000, u"-system"_s},
        {"own external, unmounted", u"sdb1"_s, {}, 1000, {}},
        {"mounted for the caller", u"sdb1"_s, u"rw,uid=1000,gid=1000"_s, 1000, {}},
        {"someone else's", u"sdb1"_s, u"rw,uid=2000,gid=2000"_s, 1000, u"-others"_s},
        {"root's", u"sdb1"_s, u"rw,uid=0,gid=0"_s, 1000, u"-others"_s},
        {"owner unknown", u"sdb1"_s, u"rw"_s, 1000, u"-others"_s},
        {"root asks", u"sdb1"_s, u"rw,uid=2000,gid=2000"_s, 0, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        removeMount(target);
        if (!c.superOptions.isEmpty())
            addMount(u"/dev/sdb1"_s, target, u"vfat"_s, u"rw"_s, c.superOptions);
        for (const quint64 code : kDeviceCodes) {
            actions.clear();
            const helper::Plan plan = commands.plan(
                {1, code, {{u"bsdName"_s, c.device}, {u"newName"_s, u"X"_s}}}, user(c.caller));
            ASSERT_TRUE(plan.authorize && plan.authorize().isEmpty());
            const QString action = u"com.corvin.vantrelo."_s + helper::commandName(code);
            EXPECT_EQ(actions, c.caller == 0 ? QStringList() : QStringList{action + c.suffix});
        }
    }
    EXPECT_TRUE(calls.isEmpty());
}

// A remount that works is the caller's (own uid, nosuid, nodev, masks that keep others from
// writing) on the held folder; one that fails or does not apply says why and leaves the volume, or
// puts it back with its own flags, read-only where it was. Nothing is ever forced.
TEST_F(HelperCommandsTest, MountReadWriteIsTheCallersOrExplainsAndRestores) {
    const QString target = folder(u"media/x"_s);
    ::chmod(QFile::encodeName(target).constData(), 0750);
    const QString flags = u"ro,nosuid,nodev,noexec"_s, fd3 = u"/proc/self/fd/3"_s;
    const QString restore =
        flags + u",uid=%1,gid=%2,fmask=0027,dmask=0027"_s.arg(::getuid()).arg(::getgid());
    const QList<QStringList> steps{
        {u"umount"_s, u"--"_s, target},
        {u"ntfs-3g"_s, u"-o"_s,
         u"rw,uid=1000,gid=1001,fmask=0133,dmask=0022,windows_names,nosuid,nodev"_s, u"/dev/sdb1"_s,
         fd3, u"on "_s + target},
        {u"ntfs-3g"_s, u"-o"_s, restore, u"/dev/sdb1"_s, fd3, u"on "_s + target}};
    // clang-format off
    const struct {
        const char *what;
        Tools tools;
        QString answer;  // a pattern
        qsizetype steps; // how many of unmount, read/write mount, restore run
    } cases[]{
        {"works", {}, u"^$"_s, 2},
        {"hibernated", {u"ntfs"_s, {}, 14, u"Windows is hibernated, refused to mount."_s}, u"shut it down fully.*Fast Startup"_s, 3},
        {"not NTFS", {u"ext4"_s, {}, 0, {}}, u"not NTFS"_s, 0},
        {"busy", {u"ntfs"_s, u"target is busy"_s, 0, {}}, u"in use.*target is busy"_s, 1},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        removeMount(target);
        addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, flags + u",relatime"_s);
        tools = c.tools;
        const QString text = sendTo(u"sdb1"_s, helper::kMountReadWrite);
        EXPECT_TRUE(QRegularExpression(c.answer).match(text).hasMatch()) << text.toStdString();
        EXPECT_EQ(calls, steps.first(c.steps));
        const QList<helper::MountEntry> now = facts.mountsOfDevice(u"sdb1"_s);
        ASSERT_EQ(now.size(), 1);
        EXPECT_EQ(now[0].target, target);
        EXPECT_EQ(now[0].readOnly(), !text.isEmpty());
    }
    // The helper's record now says whose the writable mount is.
    tools = {};
    ASSERT_EQ(sendTo(u"sdb1"_s, helper::kMountReadWrite), u""_s);
    actions.clear();
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair), u""_s);
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair, user(2000)), u""_s);
    EXPECT_EQ(actions, QStringList({u"com.corvin.vantrelo.repair"_s,
                                    u"com.corvin.vantrelo.repair-others"_s}));
}

// What changes between the request and the remount stops the work. (A folder swapped for a link is
// tried with the real tools in the mount-safety test.)
TEST_F(HelperCommandsTest, ChangesDuringTheWorkStopIt) {
    const QString target = folder(u"media/s"_s), elsewhere = folder(u"etc-like"_s);
    const struct {
        std::function<void()> afterUnmount;
        QString answer;
    } cases[]{
        {[&] { writeFile(u"sys/class/block/sdb1/dev"_s, "8:99\n"); }, u"no longer the device"_s},
        {[&] { addMount(u"/dev/sdb1"_s, elsewhere, u"fuseblk"_s); },
         u"mounted at .*etc-like by something else"_s},
    };
    for (const auto &c : cases) {
        addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, u"ro"_s);
        afterUnmount = c.afterUnmount;
        const QString text = sendTo(u"sdb1"_s, helper::kMountReadWrite);
        EXPECT_TRUE(QRegularExpression(c.answer).match(text).hasMatch()) << text.toStdString();
        EXPECT_EQ(calls, QList<QStringList>({{u"umount"_s, u"--"_s, target}}));
    }
    // A mount point below a link is refused before anything is unmounted.
    removeMount(elsewhere);
    QFile::link(path(u"media"_s), path(u"linked"_s));
    addMount(u"/dev/sdb1"_s, path(u"linked/s"_s), u"fuseblk"_s, u"ro"_s);
    EXPECT_TRUE(sendTo(u"sdb1"_s, helper::kRepair).contains(u"cannot be trusted"_s));
    EXPECT_TRUE(calls.isEmpty());
}

// Open only answers: "" for a current mount target the caller can reach, a reason otherwise.
TEST_F(HelperCommandsTest, OpenAnswersWithoutStartingAnything) {
    const QString shared = folder(u"media/shared"_s), closed = folder(u"media/c"_s);
    const QString link = path(u"media/link"_s), none = path(u"media/none"_s);
    ::chmod(QFile::encodeName(closed).constData(), 0700);
    QFile::link(shared, link);
    for (const QString &target : {shared, closed, link})
        addMount(u"/dev/loop1"_s, target, u"fuseblk"_s);
    const Caller stranger = user(::getuid() + 1, ::getuid() + 1, {});
    const Caller owner = user(::getuid(), ::getuid() + 1, {});
    for (const auto &[where, caller, opens] :
         {std::tuple(shared, stranger, true), std::tuple(closed, owner, true),
          std::tuple(closed, stranger, false), std::tuple(link, owner, false),
          std::tuple(none, owner, false)}) {
        const QString text = send(helper::kOpen, {{u"mountPath"_s, where}}, caller);
        EXPECT_EQ(text.isEmpty(), opens) << where.toStdString() << ": " << text.toStdString();
    }
    EXPECT_TRUE(calls.isEmpty());
}

} // namespace
