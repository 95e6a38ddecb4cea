#include "helper/HelperCommands.h"

#include "helper/CommandLog.h"
#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>

using namespace Qt::StringLiterals;
using helper::Caller;

namespace {

// A sysfs, procfs and /dev tree in a scratch folder: internal sda (sda2 holds /), sdc (sdc1 is
// swap), sdd (sdd1 holds /usr/local), sde (sde1 is below dm-0, which holds /home), sdf (sdf1 holds
// /usr); USB stick sdb, SD card mmcblk0, images loop0 (loop0p2 holds /boot) and loop1.
class FakeSystem {
public:
    FakeSystem() {
        for (const QString &disk :
             {u"pci/ata sda sda1 sda2"_s, u"pci/usb1 sdb sdb1"_s, u"pci/ata sdc sdc1"_s,
              u"pci/ata sdd sdd1"_s, u"pci/ata sde sde1"_s, u"pci/ata sdf sdf1"_s,
              u"platform/mmc0 mmcblk0 mmcblk0p1"_s, u"virtual/block loop0 loop0p1 loop0p2"_s,
              u"virtual/block loop1"_s, u"virtual/block dm-0"_s})
            addDisk(disk.split(u' '));
        writeFile(u"sys/class/block/dm-0/slaves/sde1"_s, {});
        writeFile(u"dev/fuse"_s, {});
        writeSwaps(u"sdc1"_s);
        for (const QString &mount : {u"sda2 /"_s, u"dm-0 /home"_s, u"sdf1 /usr"_s,
                                     u"loop0p2 /boot"_s, u"sdd1 /usr/local"_s})
            addMount(u"/dev/"_s + mount.section(u' ', 0, 0), mount.section(u' ', 1), u"ext4"_s);
    }
    QString path(const QString &relative) const { return m_dir.filePath(relative); }
    QString folder(const QString &relative) const { // to mount on, reachable by everyone
        QDir().mkpath(path(relative));
        for (QString at = path(relative); at.startsWith(m_dir.path()); at = QFileInfo(at).path())
            QFile::setPermissions(at, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                          QFile::ReadOther | QFile::ExeOther);
        return path(relative);
    }
    void writeFile(const QString &relative, const QByteArray &content) const {
        QDir().mkpath(QFileInfo(path(relative)).path());
        QFile out(path(relative));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
    }
    void writeSwaps(const QString &partition) const {
        writeFile(u"proc/swaps"_s, "Filename Type Size Used Priority\n/dev/" + partition.toUtf8() +
                                       " partition 8 0 -2\n");
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

    QTemporaryDir m_dir;
    QStringList m_mountLines;
    QHash<QString, QString> m_numbers;
};

helper::ToolResult exited(int exitCode, const QString &errorOutput = {}) {
    return {true, false, exitCode, {}, errorOutput};
}

Caller user(uid_t uid = 1000, gid_t gid = 1001, std::vector<gid_t> groups = {1001}) {
    return {4242, 0, uid, gid, std::move(groups), false};
}

bool matches(const QString &text, const QString &pattern) {
    return QRegularExpression(pattern).match(text).hasMatch();
}

struct Behaviour {
    QString type = u"ntfs"_s;
    QString umountError;
    int ntfsExit = 0;
    QString ntfsError;
    bool fallBackReadOnly = false;
};

const QList<quint64> kDeviceCodes{helper::kMountReadWrite, helper::kEject, helper::kRepair,
                                  helper::kErase, helper::kRename};

// The fixture stands in for the tools (it records the argv of every call and answers from
// `script`, or succeeds), for the volume probe and for polkit (which allows, noting the action).
class HelperCommandsTest : public ::testing::Test,
                           public helper::ToolRunner,
                           public helper::VolumeProbe,
                           public helper::Authorizer {
protected:
    helper::Authorization check(const Caller &, const QString &action,
                                const QString &) const override {
        actions.append(action);
        return {true, {}};
    }
    helper::ToolResult run(const QString &program, const QStringList &arguments,
                           std::chrono::milliseconds, int handedFd = -1) override {
        calls.append(QStringList{program} + arguments);
        handed.append(handedFd < 0
                          ? QString()
                          : QFileInfo(u"/proc/self/fd/%1"_s.arg(handedFd)).symLinkTarget());
        return script ? script(calls.last()) : exited(0);
    }
    helper::ToolResult mountOnto(int folderFd, const QString &device, const QString &fsType,
                                 const QString &options) override {
        return run(u"mount"_s, {u"-t"_s, fsType, u"-o"_s, options, device}, {}, folderFd);
    }
    helper::ToolResult unmount(const QString &target) override {
        return run(u"umount"_s, {u"--"_s, target}, {});
    }
    Volume probe(const QString &) const override { return volume; }

    QString send(quint64 code, const wire::Dictionary &parameter, const Caller &caller = user(),
                 helper::HelperCommands *other = nullptr) {
        calls.clear();
        handed.clear();
        return (other ? *other : commands)
            .handle({1, code, parameter}, caller)
            .value(u"result"_s, u"<missing>"_s);
    }
    QString sendTo(const QString &device, quint64 code, const Caller &caller = user()) {
        return send(code, {{u"bsdName"_s, device}, {u"newName"_s, u"X"_s}}, caller);
    }

    // The probe sees `type`; umount, ntfs-3g and mount change the mount table as the kernel
    // would (mounting on the folder handed over), unless told to fail.
    void simulate(const Behaviour &b = Behaviour()) {
        volume = {b.type, u"Data"_s, {}};
        script = [this, b](const QStringList &call) {
            if (call[0] == u"umount"_s) {
                if (!b.umountError.isEmpty())
                    return exited(32, b.umountError);
                system.removeMount(call.last());
            }
            if (call[0] == u"ntfs-3g"_s) {
                const bool rw = call.value(2).startsWith(u"rw"_s);
                if (rw && b.ntfsExit != 0)
                    return exited(b.ntfsExit, b.ntfsError);
                system.addMount(call.value(3), handed.last(), u"fuseblk"_s,
                                rw && !b.fallBackReadOnly ? u"rw,nosuid,nodev"_s : u"ro"_s);
            }
            if (call[0] == u"mount"_s)
                system.addMount(call.last(), handed.last(), call[2], call[4]);
            return exited(0);
        };
    }

    std::function<helper::ToolResult(const QStringList &)> script;
    QList<QStringList> calls;
    QStringList handed; // the folder each call was handed, "" for none
    mutable QStringList actions;
    Volume volume;
    FakeSystem system;
    helper::DeviceFacts facts{
        {system.path(u"sys"_s), system.path(u"proc"_s), system.path(u"dev"_s), false}};
    helper::HelperCommands commands{*this, facts, *this, *this};
};

// A system disk (below /, /home through device-mapper, swap, /usr, /boot), a device with holders,
// a bad label or an unknown code gets a reason, and nothing runs or is asked. (Hostile device
// names are the fuzz target's.)
TEST_F(HelperCommandsTest, GuardsRefuseBeforeAnythingRuns) {
    system.writeFile(u"sys/class/block/mmcblk0p1/holders/dm-1"_s, {});
    for (const quint64 code : kDeviceCodes) {
        SCOPED_TRACE(code);
        for (const QString &name : {u"sda"_s, u"sda1"_s, u"sde1"_s, u"dm-0"_s, u"sdc"_s, u"sdc1"_s,
                                    u"sdf1"_s, u"loop0p1"_s})
            EXPECT_TRUE(sendTo(name, code, user(0)).contains(u"running system"_s))
                << name.toStdString();
        const QString held = sendTo(code == helper::kEject ? u"mmcblk0"_s : u"mmcblk0p1"_s, code);
        EXPECT_TRUE(held.contains(u"dm-1"_s)) << held.toStdString();
        EXPECT_TRUE(send(code, {{u"name"_s, u"Data"_s}}).contains(u"bsdName"_s));
    }
    QStringList labels{u""_s, QString(33, u'x'), QString(100000, u'x'), u"-o"_s};
    for (const QChar c : u"\"*/:<>?\\|\t\n\u007f\u0085"_s)
        labels << u"a"_s + c + u"b"_s;
    for (const QString &label : labels)
        EXPECT_FALSE(
            send(helper::kRename, {{u"bsdName"_s, u"sdb1"_s}, {u"newName"_s, label}}).isEmpty())
            << label.left(40).toStdString();
    for (const quint64 code : {quint64(5), quint64(6), quint64(9), ~quint64(0)})
        EXPECT_TRUE(sendTo(u"loop1"_s, code).contains(u"not support"_s)) << code;
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(actions.isEmpty());
}

// The view is kept until the mount table is said to have changed; a new swap area counts at once,
// as swapon does not touch the mount table.
TEST_F(HelperCommandsTest, SystemDiskViewFollowsMountTableNoticesAndSwap) {
    EXPECT_TRUE(facts.isSystemDisk(u"sdf"_s));
    system.removeMount(u"/usr"_s);
    system.addMount(u"/dev/sdb1"_s, u"/usr"_s, u"ext4"_s);
    EXPECT_FALSE(facts.isSystemDisk(u"sdb"_s));
    facts.mountTableChanged();
    EXPECT_TRUE(facts.isSystemDisk(u"sdb"_s));
    EXPECT_FALSE(facts.isSystemDisk(u"sdf"_s));
    system.writeSwaps(u"mmcblk0p1"_s);
    EXPECT_TRUE(facts.isSystemDisk(u"mmcblk0"_s));
}

// The polkit action: -system unless the disk is external for the caller, else -others unless
// every affected mount is known to be the caller's. Root is never asked.
TEST_F(HelperCommandsTest, ActionVariantFollowsTheDiskAndTheOwner) {
    const QString target = system.folder(u"media/v"_s);
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
        system.removeMount(target);
        if (!c.superOptions.isEmpty())
            system.addMount(u"/dev/sdb1"_s, target, u"vfat"_s, u"rw"_s, c.superOptions);
        for (const quint64 code : kDeviceCodes) {
            actions.clear();
            const helper::Plan plan = commands.plan(
                {1, code, {{u"bsdName"_s, c.device}, {u"newName"_s, u"X"_s}}}, user(c.caller));
            ASSERT_TRUE(plan.authorize);
            EXPECT_EQ(plan.authorize(), u""_s);
            const QString action = u"com.corvin.vantrelo."_s + helper::commandName(code);
            EXPECT_EQ(actions, c.caller == 0 ? QStringList() : QStringList{action + c.suffix});
        }
    }
    EXPECT_TRUE(calls.isEmpty());
}

// Every way a remount can fail or not apply gets its answer; the volume stays, or is back with its
// own flags, read-only where it was, and nothing is ever forced. A remount that works is the
// caller's: its own uid, nosuid, nodev, and masks that keep others from writing, on the held
// folder.
TEST_F(HelperCommandsTest, MountReadWriteIsTheCallersOrExplainsAndRestores) {
    const QString target = system.folder(u"media/x"_s);
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                      QFile::ReadGroup | QFile::ExeGroup);
    const QString ntfs = u"ntfs"_s, hibernated = u"Windows is hibernated, refused to mount."_s,
                  eperm = u"fuse: failed to open /dev/fuse: Operation not permitted"_s,
                  advice = u"shut it down fully.*Fast Startup"_s,
                  noAccess = u"^nofulldiskaccess$"_s;
    const QStringList held{u"/dev/sdb1"_s, u"/proc/self/fd/3"_s};
    const QString writable =
        u"rw,uid=1000,gid=1001,fmask=0133,dmask=0022,windows_names,nosuid,nodev"_s;
    const QString flags = u"ro,nosuid,nodev,noexec"_s;
    const QString restore =
        flags + u",uid=%1,gid=%2,fmask=0027,dmask=0027"_s.arg(::getuid()).arg(::getgid());
    // clang-format off
    const struct {
        const char *what;
        bool mounted, privileged, fuse;
        Behaviour behaviour;
        QString answer; // a pattern
        bool unmounts;
    } cases[]{
        {"works", true, true, true, {}, u"^$"_s, true},
        {"hibernated", true, true, true, {ntfs, {}, 14, hibernated, false}, advice, true},
        {"fell back", true, true, true, {ntfs, {}, 0, hibernated, true}, advice, true},
        {"EPERM", true, true, true, {ntfs, {}, 21, eperm, false}, noAccess, true},
        {"not root", true, false, true, {}, noAccess, false},
        {"not NTFS", true, true, true, {u"ext4"_s, {}, 0, {}, false}, u"not NTFS"_s, false},
        {"busy", true, true, true, {ntfs, u"target is busy"_s, 0, {}, false}, u"in use.*target is busy"_s, true},
        {"not mounted", false, true, true, {}, u"not mounted"_s, false},
        {"no fuse (last: it stays removed)", true, true, false, {}, noAccess, false},
    };
    // clang-format on
    helper::HelperSettings settings;
    settings.privileged = false;
    helper::HelperCommands unprivileged(*this, facts, *this, *this, settings);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        system.removeMount(target);
        if (c.mounted)
            system.addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, flags + u",relatime"_s);
        if (!c.fuse)
            QFile::remove(system.path(u"dev/fuse"_s));
        simulate(c.behaviour);
        const QString text = send(helper::kMountReadWrite, {{u"bsdName"_s, u"sdb1"_s}}, user(),
                                  c.privileged ? nullptr : &unprivileged);
        EXPECT_TRUE(matches(text, c.answer)) << text.toStdString();
        EXPECT_EQ(calls.value(0).value(0) == u"umount"_s, c.unmounts);
        if (c.unmounts && c.behaviour.umountError.isEmpty()) {
            EXPECT_EQ(calls.value(1), QStringList({u"ntfs-3g"_s, u"-o"_s, writable}) + held);
            EXPECT_EQ(handed.value(1), target);
        }
        if (c.behaviour.ntfsExit != 0) {
            EXPECT_EQ(calls.last(), QStringList({u"ntfs-3g"_s, u"-o"_s, restore}) + held);
            EXPECT_EQ(handed.last(), target);
        }
        const QList<helper::MountEntry> now = facts.mountsOfDevice(u"sdb1"_s);
        ASSERT_EQ(now.size(), c.mounted ? 1 : 0);
        EXPECT_TRUE(!c.mounted ||
                    (now[0].target == target && now[0].readOnly() == !text.isEmpty()));
        for (const QStringList &call : std::as_const(calls))
            EXPECT_FALSE(matches(call.join(u' '), u"force|remove_hiberfile"_s));
    }
    // The helper's record now says whose the writable mount is.
    QFile(system.path(u"dev/fuse"_s)).open(QIODevice::WriteOnly);
    simulate();
    ASSERT_EQ(sendTo(u"sdb1"_s, helper::kMountReadWrite), u""_s);
    actions.clear();
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair), u""_s);
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair, user(2000)), u""_s);
    EXPECT_EQ(actions, QStringList({u"com.corvin.vantrelo.repair"_s,
                                    u"com.corvin.vantrelo.repair-others"_s}));
}

// A kernel driver's volume is put back through mount(2) on the held folder, with its own options.
TEST_F(HelperCommandsTest, RestoreOfAKernelDriversVolumeKeepsItsOptions) {
    const QString target = system.folder(u"media/r"_s);
    system.addMount(u"/dev/sdb1"_s, target, u"ntfs3"_s, u"rw,nosuid,noatime"_s,
                    u"rw,uid=1000,gid=1000,iocharset=utf8"_s);
    simulate();
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair, user(0)), u""_s);
    EXPECT_EQ(calls.mid(1),
              QList<QStringList>(
                  {{u"ntfsfix"_s, u"-d"_s, u"/dev/sdb1"_s},
                   {u"mount"_s, u"-t"_s, u"ntfs3"_s, u"-o"_s,
                    u"rw,nosuid,noatime,uid=1000,gid=1000,iocharset=utf8"_s, u"/dev/sdb1"_s}}));
    EXPECT_EQ(handed.value(2), target);
}

// What changes between the request and the remount stops the work, and the answer says why. (A
// folder swapped for a link is tried with the real tools in the mount-safety test.)
TEST_F(HelperCommandsTest, ChangesDuringTheWorkStopIt) {
    const QString target = system.folder(u"media/s"_s), elsewhere = system.folder(u"etc-like"_s);
    const struct {
        std::function<void()> afterUnmount;
        QString answer;
    } cases[]{
        {[&] { system.writeFile(u"sys/class/block/sdb1/dev"_s, "8:99\n"); },
         u"no longer the device"_s},
        {[&] { system.addMount(u"/dev/sdb1"_s, elsewhere, u"fuseblk"_s); },
         u"mounted at .*etc-like by something else"_s},
    };
    for (const auto &c : cases) {
        system.addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, u"ro"_s);
        simulate();
        script = [&, simulated = script](const QStringList &call) {
            const helper::ToolResult answer = simulated(call);
            if (call[0] == u"umount"_s)
                c.afterUnmount();
            return answer;
        };
        const QString text = sendTo(u"sdb1"_s, helper::kMountReadWrite);
        EXPECT_TRUE(matches(text, c.answer)) << text.toStdString();
        EXPECT_EQ(calls, QList<QStringList>({{u"umount"_s, u"--"_s, target}}));
    }
    // A mount point below a link is refused before anything is unmounted.
    system.removeMount(elsewhere);
    QFile::link(system.path(u"media"_s), system.path(u"linked"_s));
    system.addMount(u"/dev/sdb1"_s, system.path(u"linked/s"_s), u"fuseblk"_s, u"ro"_s);
    EXPECT_TRUE(sendTo(u"sdb1"_s, helper::kRepair).contains(u"cannot be trusted"_s));
    EXPECT_TRUE(calls.isEmpty());
}

// Open only answers: "" for a current mount target the caller can reach, a reason otherwise.
TEST_F(HelperCommandsTest, OpenAnswersWithoutStartingAnything) {
    const QString shared = system.folder(u"media/shared"_s), closed = system.folder(u"media/c"_s);
    const QString link = system.path(u"media/link"_s);
    QFile::setPermissions(closed, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::link(shared, link);
    for (const QString &target : {shared, closed, link})
        system.addMount(u"/dev/loop1"_s, target, u"fuseblk"_s);
    const Caller stranger = user(::getuid() + 1, ::getuid() + 1, {});
    const Caller owner = user(::getuid(), ::getuid() + 1, {});
    const struct {
        QString path;
        Caller caller;
        bool opens;
    } cases[]{{shared, stranger, true},
              {closed, owner, true},
              {closed, stranger, false},
              {link, owner, false},
              {system.path(u"media/none"_s), owner, false}};
    for (const auto &c : cases) {
        const QString text = send(helper::kOpen, {{u"mountPath"_s, c.path}}, c.caller);
        EXPECT_EQ(text.isEmpty(), c.opens) << c.path.toStdString() << ": " << text.toStdString();
    }
    EXPECT_TRUE(calls.isEmpty());
}

// Refusals beyond a uid's share of a minute are counted, and the count is logged once the minute
// is over; other uids keep their own share.
TEST(CommandLog, RefusalsAreRateLimitedPerUid) {
    static QStringList lines;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { lines << text; });
    std::chrono::steady_clock::time_point now{};
    helper::CommandLog log(2, [&now] { return now; });
    for (int i = 0; i < 5; ++i)
        log.refused(1000, u"refused %1"_s.arg(i));
    log.refused(2000, u"other"_s);
    now += std::chrono::seconds(61);
    log.refused(1000, u"later"_s);
    qInstallMessageHandler(previous);
    EXPECT_EQ(lines,
              QStringList({u"uid 1000 refused 0"_s, u"uid 1000 refused 1"_s, u"uid 2000 other"_s,
                           u"uid 1000 : 3 more refusals were not logged"_s, u"uid 1000 later"_s}));
}

} // namespace
