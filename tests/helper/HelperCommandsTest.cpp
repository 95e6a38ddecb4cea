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
        addDisk(u"pci/ata"_s, u"sda"_s, {u"sda1"_s, u"sda2"_s});
        addDisk(u"pci/usb1"_s, u"sdb"_s, {u"sdb1"_s});
        for (const QChar letter : u"cdef"_s)
            addDisk(u"pci/ata"_s, u"sd"_s + letter, {u"sd"_s + letter + u'1'});
        addDisk(u"platform/mmc0"_s, u"mmcblk0"_s, {u"mmcblk0p1"_s});
        addDisk(u"virtual/block"_s, u"loop0"_s, {u"loop0p1"_s, u"loop0p2"_s});
        addDisk(u"virtual/block"_s, u"loop1"_s, {});
        addDisk(u"virtual/block"_s, u"dm-0"_s, {});
        writeFile(u"sys/class/block/dm-0/slaves/sde1"_s, {});
        writeFile(u"dev/fuse"_s, {});
        writeFile(u"proc/swaps"_s,
                  "Filename Type Size Used Priority\n/dev/sdc1 partition 8 0 -2\n");
        addMount(u"/dev/sda2"_s, u"/"_s, u"ext4"_s, u"rw"_s);
        addMount(u"/dev/dm-0"_s, u"/home"_s, u"ext4"_s, u"rw"_s);
        addMount(u"/dev/sdf1"_s, u"/usr"_s, u"ext4"_s, u"rw"_s);
        addMount(u"/dev/loop0p2"_s, u"/boot"_s, u"ext4"_s, u"rw"_s);
        addMount(u"/dev/sdd1"_s, u"/usr/local"_s, u"ext4"_s, u"rw"_s);
    }
    QString path(const QString &relative) const { return m_dir.filePath(relative); }
    // A real folder to mount on, reachable by everyone.
    QString folder(const QString &relative) const {
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
    // The mount carries the device's number, as the kernel shows ntfs-3g's; an unknown device
    // gets an anonymous one.
    void addMount(const QString &device, const QString &target, const QString &fsType,
                  const QString &options, const QString &superOptions = u"rw"_s) {
        const int id = m_mountLines.size() + 100;
        const QString number = m_numbers.value(device.section(u'/', -1), u"0:%1"_s.arg(id));
        m_mountLines << u"%1 1 %2 / %3 %4 shared:1 - %5 %6 %7"_s.arg(id).arg(
            number, target, options, fsType, device, superOptions);
        writeMounts();
    }
    void removeMount(const QString &target) {
        m_mountLines.removeIf(
            [&](const QString &line) { return line.section(u' ', 4, 4) == target; });
        writeMounts();
    }

private:
    void addDisk(const QString &bus, const QString &disk, const QStringList &partitions) {
        const QString diskDir = u"sys/devices/"_s + bus + u'/' + disk;
        QDir().mkpath(path(u"sys/class/block"_s));
        for (const QString &name : QStringList{disk} + partitions) {
            const QString dir = name == disk ? diskDir : diskDir + u'/' + name;
            const QString number = u"8:%1"_s.arg(m_numbers.size());
            m_numbers.insert(name, number);
            writeFile(dir + u"/dev"_s, number.toUtf8() + '\n');
            QDir().mkpath(path(u"sys/dev/block"_s));
            QFile::link(path(dir), path(u"sys/dev/block/"_s + number));
            if (name != disk)
                writeFile(dir + u"/partition"_s, "1\n");
            writeFile(u"dev/"_s + name, {});
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

Caller user(uid_t uid = 1000) {
    return {4242, 0, uid, 1001, {1001}, false};
}

QString heldPath(int fd) {
    return QFileInfo(u"/proc/self/fd/%1"_s.arg(fd)).symLinkTarget();
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
        handed.append(handedFd < 0 ? QString() : heldPath(handedFd));
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

    QString send(quint64 code, const wire::Dictionary &parameter, const Caller &caller = user()) {
        return commands.handle({1, code, parameter}, caller).value(u"result"_s, u"<missing>"_s);
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

// Whatever the command, a hostile name, a system disk (below /, /home through device-mapper, swap,
// /usr, /boot) or a device with holders gets a reason, and nothing runs or is asked.
TEST_F(HelperCommandsTest, GuardsRefuseBeforeAnythingRuns) {
    system.writeFile(u"sys/class/block/mmcblk0p1/holders/dm-1"_s, {});
    const QStringList hostile{u"sdb1 --force"_s, u"../sda"_s,    u"-o"_s,
                              u"loop0;reboot"_s, u""_s,          u".."_s,
                              u"/dev/sdb1"_s,    u"sdb1\n"_s,    QString(33, u'a'),
                              u"sdz9"_s,         u"$(reboot)"_s, u"dm-0/slaves/x"_s};
    for (const quint64 code : kDeviceCodes) {
        SCOPED_TRACE(code);
        for (const QString &name : hostile)
            EXPECT_FALSE(sendTo(name, code, user(0)).isEmpty()) << name.toStdString();
        for (const QString &name : {u"sda"_s, u"sda1"_s, u"sde1"_s, u"dm-0"_s, u"sdc"_s, u"sdc1"_s,
                                    u"sdf1"_s, u"loop0p1"_s}) {
            const QString text = sendTo(name, code, user(0));
            EXPECT_TRUE(text.contains(u"running system"_s))
                << name.toStdString() << ": " << text.toStdString();
        }
        const QString held = sendTo(code == helper::kEject ? u"mmcblk0"_s : u"mmcblk0p1"_s, code);
        EXPECT_TRUE(held.contains(u"dm-1"_s)) << held.toStdString();
        EXPECT_TRUE(send(code, {{u"name"_s, u"Data"_s}}).contains(u"bsdName"_s));
    }
    for (const quint64 code : {quint64(5), quint64(6), quint64(9), ~quint64(0)})
        EXPECT_TRUE(sendTo(u"loop1"_s, code).contains(u"not support"_s)) << code;
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_TRUE(actions.isEmpty());
}

// The polkit action: -system unless the disk is external for the caller, else -others unless
// every affected mount is known to be the caller's. Root is never asked.
TEST_F(HelperCommandsTest, ActionVariantFollowsTheDiskAndTheOwner) {
    const QString target = system.folder(u"media/v"_s);
    struct Case {
        const char *what;
        QString device;
        QString superOptions; // of sdb1's mount; "" for none
        uid_t caller;
        QString suffix;
    };
    const QList<Case> cases{
        {"internal disk", u"sdd1"_s, {}, 1000, u"-system"_s},
        {"image of someone else's file", u"loop1"_s, {}, 1000, u"-system"_s},
        {"own external, unmounted", u"sdb1"_s, {}, 1000, QString()},
        {"mounted for the caller", u"sdb1"_s, u"rw,uid=1000,gid=1000"_s, 1000, QString()},
        {"someone else's", u"sdb1"_s, u"rw,uid=2000,gid=2000"_s, 1000, u"-others"_s},
        {"root's", u"sdb1"_s, u"rw,uid=0,gid=0"_s, 1000, u"-others"_s},
        {"owner unknown", u"sdb1"_s, u"rw"_s, 1000, u"-others"_s},
        {"root asks", u"sdb1"_s, u"rw,uid=2000,gid=2000"_s, 0, QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        system.removeMount(target);
        if (!c.superOptions.isEmpty())
            system.addMount(u"/dev/sdb1"_s, target, u"vfat"_s, u"rw"_s, c.superOptions);
        for (const quint64 code : kDeviceCodes) {
            actions.clear();
            helper::Plan plan = commands.plan(
                {1, code, {{u"bsdName"_s, c.device}, {u"newName"_s, u"X"_s}}}, user(c.caller));
            ASSERT_TRUE(plan.authorize);
            EXPECT_EQ(plan.authorize(), u""_s);
            const QStringList expected{
                u"com.corvin.vantrelo.%1%2"_s.arg(helper::commandName(code), c.suffix)};
            EXPECT_EQ(actions, c.caller == 0 ? QStringList() : expected);
        }
    }
    EXPECT_TRUE(calls.isEmpty());
}

// Every way a remount can fail or not apply gets its answer; the volume stays, or is back,
// read-only where it was, and nothing is ever forced. A remount that works is the caller's: its
// own uid, nosuid, nodev, and masks that keep others from writing, on the held folder.
TEST_F(HelperCommandsTest, MountReadWriteIsTheCallersOrExplainsAndRestores) {
    const QString target = system.folder(u"media/x"_s);
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                      QFile::ReadGroup | QFile::ExeGroup);
    const QString ntfs = u"ntfs"_s, hibernated = u"Windows is hibernated, refused to mount."_s,
                  eperm = u"fuse: failed to open /dev/fuse: Operation not permitted"_s,
                  advice = u"shut it down fully.*Fast Startup"_s,
                  noAccess = u"^nofulldiskaccess$"_s;
    struct Case {
        const char *what;
        bool mounted, privileged, fuse;
        Behaviour behaviour;
        QString answer; // a pattern
        bool unmounts;
    };
    // clang-format off
    const QList<Case> cases{
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
    const QString restoreOptions =
        u"ro,uid=%1,gid=%2,fmask=0027,dmask=0027"_s.arg(::getuid()).arg(::getgid());
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        system.removeMount(target);
        if (c.mounted)
            system.addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, u"ro"_s);
        if (!c.fuse)
            QFile::remove(system.path(u"dev/fuse"_s));
        calls.clear();
        handed.clear();
        simulate(c.behaviour);
        helper::HelperSettings settings;
        settings.privileged = c.privileged;
        const QString text =
            helper::HelperCommands(*this, facts, *this, *this, settings)
                .handle({1, helper::kMountReadWrite, {{u"bsdName"_s, u"sdb1"_s}}}, user())
                .value(u"result"_s, u"<missing>"_s);
        EXPECT_TRUE(QRegularExpression(c.answer).match(text).hasMatch()) << text.toStdString();
        EXPECT_EQ(calls.value(0).value(0) == u"umount"_s, c.unmounts);
        if (c.unmounts && c.behaviour.umountError.isEmpty()) {
            EXPECT_EQ(calls.value(1),
                      QStringList({u"ntfs-3g"_s, u"-o"_s,
                                   u"rw,uid=1000,gid=1001,fmask=0133,dmask=0022,windows_names,"
                                   u"nosuid,nodev"_s,
                                   u"/dev/sdb1"_s, u"/proc/self/fd/3"_s}));
            EXPECT_EQ(handed.value(1), target);
        }
        if (c.behaviour.ntfsExit != 0) {
            EXPECT_EQ(calls.last(), QStringList({u"ntfs-3g"_s, u"-o"_s, restoreOptions,
                                                 u"/dev/sdb1"_s, u"/proc/self/fd/3"_s}));
            EXPECT_EQ(handed.last(), target);
        }
        const QList<helper::MountEntry> now = facts.mountsOfDevice(u"sdb1"_s);
        ASSERT_EQ(now.size(), c.mounted ? 1 : 0);
        EXPECT_TRUE(!c.mounted || now[0].target == target);
        if (c.mounted) {
            EXPECT_EQ(now[0].readOnly(), QString::fromUtf8(c.what) != u"works"_s);
        }
        for (const QStringList &call : std::as_const(calls))
            EXPECT_FALSE(call.join(u' ').contains(QRegularExpression(u"force|remove_hiberfile"_s)));
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

// A volume put back after a repair keeps its own flags, owner and masks, through ntfs-3g for FUSE
// and mount(2) for a kernel driver, always on the held folder.
TEST_F(HelperCommandsTest, RestoreKeepsTheMountsOwnOptions) {
    const QString target = system.folder(u"media/r"_s);
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                      QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                      QFile::ExeOther);
    const QString masks = u"fmask=0022,dmask=0022"_s;
    const QString owner = u"uid=%1,gid=%2"_s.arg(::getuid()).arg(::getgid());
    struct Case {
        QString fsType, options, superOptions;
        QStringList restored;
    };
    const QList<Case> cases{
        {u"fuseblk"_s,
         u"ro,nosuid,nodev,noexec,relatime"_s,
         u"ro,user_id=0,allow_other"_s,
         {u"ntfs-3g"_s, u"-o"_s, u"ro,nosuid,nodev,noexec,"_s + owner + u',' + masks,
          u"/dev/sdb1"_s, u"/proc/self/fd/3"_s}},
        {u"fuseblk"_s,
         u"rw,relatime"_s,
         u"rw"_s,
         {u"ntfs-3g"_s, u"-o"_s, u"rw,"_s + owner + u',' + masks + u",windows_names"_s,
          u"/dev/sdb1"_s, u"/proc/self/fd/3"_s}},
        {u"ntfs3"_s,
         u"rw,nosuid,noatime"_s,
         u"rw,uid=1000,gid=1000,iocharset=utf8"_s,
         {u"mount"_s, u"-t"_s, u"ntfs3"_s, u"-o"_s,
          u"rw,nosuid,noatime,uid=1000,gid=1000,iocharset=utf8"_s, u"/dev/sdb1"_s}},
    };
    simulate();
    for (const Case &c : cases) {
        SCOPED_TRACE(c.options.toStdString());
        system.removeMount(target);
        system.addMount(u"/dev/sdb1"_s, target, c.fsType, c.options, c.superOptions);
        calls.clear();
        handed.clear();
        EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair, user(0)), u""_s);
        EXPECT_EQ(calls.value(1), QStringList({u"ntfsfix"_s, u"-d"_s, u"/dev/sdb1"_s}));
        EXPECT_EQ(calls.value(2), c.restored);
        EXPECT_EQ(handed.value(2), target);
    }
}

// Whatever changes between the request and each step, the volume is never mounted anywhere but
// the held folder, and the answer says what happened.
TEST_F(HelperCommandsTest, ChangesDuringTheWorkStopIt) {
    const QString target = system.folder(u"media/s"_s);
    const QString elsewhere = system.folder(u"etc-like"_s);
    QFile numberFile(system.path(u"sys/class/block/sdb1/dev"_s));
    ASSERT_TRUE(numberFile.open(QIODevice::ReadOnly));
    const QByteArray number = numberFile.readAll();
    struct Case {
        const char *what;
        std::function<void()> afterUnmount;
        QString answer;
    };
    const QList<Case> cases{
        {"folder swapped for a link",
         [&] {
             QDir().rename(target, target + u".away"_s);
             QFile::link(elsewhere, target);
         },
         u"stays unmounted"_s},
        {"device replaced", [&] { system.writeFile(u"sys/class/block/sdb1/dev"_s, "8:99\n"); },
         u"no longer the device"_s},
        {"mounted elsewhere meanwhile",
         [&] { system.addMount(u"/dev/sdb1"_s, elsewhere, u"fuseblk"_s, u"rw"_s); },
         u"mounted at .*etc-like by something else"_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        system.removeMount(target);
        system.removeMount(elsewhere);
        QFile::remove(target);
        QDir().rename(target + u".away"_s, target);
        system.writeFile(u"sys/class/block/sdb1/dev"_s, number);
        system.addMount(u"/dev/sdb1"_s, target, u"fuseblk"_s, u"ro"_s);
        simulate();
        const auto simulated = script;
        script = [&, simulated](const QStringList &call) {
            const helper::ToolResult answer = simulated(call);
            if (call[0] == u"umount"_s)
                c.afterUnmount();
            return answer;
        };
        calls.clear();
        const QString text = sendTo(u"sdb1"_s, helper::kMountReadWrite);
        EXPECT_TRUE(QRegularExpression(c.answer).match(text).hasMatch()) << text.toStdString();
        EXPECT_EQ(calls.size(), 1);
        EXPECT_EQ(calls.value(0).value(0), u"umount"_s);
    }
    // A mount point below a link is refused before anything is unmounted.
    system.removeMount(target);
    system.removeMount(elsewhere);
    QFile::link(system.path(u"media"_s), system.path(u"linked"_s));
    system.addMount(u"/dev/sdb1"_s, system.path(u"linked/s"_s), u"fuseblk"_s, u"ro"_s);
    calls.clear();
    EXPECT_TRUE(sendTo(u"sdb1"_s, helper::kRepair).contains(u"cannot be trusted"_s));
    EXPECT_TRUE(calls.isEmpty());
}

// A failing tool's error is in the answer, and the volume is mounted again as it was.
TEST_F(HelperCommandsTest, RenameValidatesTheLabelAndRemountsWhateverHappens) {
    QStringList invalid{u""_s, QString(33, u'x'), QString(100000, u'x'), u"-o"_s};
    for (const QChar c : u"\"*/:<>?\\|\t\n\u007f\u0085"_s)
        invalid << u"a"_s + c + u"b"_s;
    const QString target = system.folder(u"media/old"_s);
    system.addMount(u"/dev/loop1"_s, target, u"fuseblk"_s, u"ro"_s);
    simulate();
    const auto rename = [this](const QString &label) {
        calls.clear();
        return send(helper::kRename, {{u"bsdName"_s, u"loop1"_s}, {u"newName"_s, label}});
    };
    for (const QString &label : {QString(32, u'x'), u"Über 😀"_s}) {
        EXPECT_EQ(rename(label), u""_s);
        EXPECT_EQ(calls.value(1), QStringList({u"ntfslabel"_s, u"/dev/loop1"_s, label}));
        EXPECT_EQ(calls.value(2).value(0), u"ntfs-3g"_s);
    }
    for (const QString &label : invalid) {
        SCOPED_TRACE(label.left(40).toStdString());
        EXPECT_FALSE(rename(label).isEmpty());
        EXPECT_TRUE(calls.isEmpty());
    }
    const auto simulated = script;
    script = [&](const QStringList &call) {
        return call[0] == u"ntfslabel"_s ? exited(1, u"Volume is corrupt. Run chkdsk."_s)
                                         : simulated(call);
    };
    EXPECT_TRUE(rename(u"New"_s).contains(u"Run chkdsk"_s));
    EXPECT_EQ(calls.value(2).value(0), u"ntfs-3g"_s);
    EXPECT_EQ(facts.mountsOfDevice(u"loop1"_s).value(0).target, target);
}

// Open only answers: "" for a current mount target the caller can reach, a reason otherwise.
TEST_F(HelperCommandsTest, OpenAnswersWithoutStartingAnything) {
    const QString shared = system.path(u"media/shared"_s), closed = system.path(u"media/closed"_s);
    ASSERT_TRUE(QDir().mkpath(shared) && QDir().mkpath(closed));
    const auto everyone =
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther | QFile::ExeOther;
    for (const QString &folder : {system.path({}), system.path(u"media"_s), shared})
        QFile::setPermissions(folder, everyone);
    QFile::setPermissions(closed, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::link(shared, system.path(u"media/link"_s));
    for (const QString &target : {shared, closed, system.path(u"media/link"_s)})
        system.addMount(u"/dev/loop1"_s, target, u"fuseblk"_s, u"rw"_s);
    Caller stranger = user();
    stranger.uid = ::getuid() + 1;
    stranger.gid = stranger.uid;
    stranger.groups = {};
    Caller owner = stranger;
    owner.uid = ::getuid();
    const struct {
        QString path;
        Caller caller;
        bool opens;
    } cases[]{{shared, stranger, true},
              {closed, owner, true},
              {closed, stranger, false},
              {system.path(u"media/link"_s), owner, false},
              {system.path(u"media/none"_s), owner, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        const QString text = send(helper::kOpen, {{u"mountPath"_s, c.path}}, c.caller);
        EXPECT_EQ(text.isEmpty(), c.opens) << text.toStdString();
    }
    EXPECT_TRUE(calls.isEmpty());
}

// Refusals beyond a uid's share of a minute are counted, and the count is logged once the minute
// is over; other uids keep their own share.
TEST(CommandLog, RefusalsAreRateLimitedPerUid) {
    static QStringList lines;
    lines.clear();
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
