#include "helper/HelperCommands.h"

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

Caller user(bool administrator = false) {
    return {4242, 0, 1000, 1001, {1001}, administrator};
}

struct Behaviour {
    QString type = u"ntfs"_s;
    QString umountError;
    int ntfsExit = 0;
    QString ntfsError;
    bool fallBackReadOnly = false;
};

// The fixture stands in for the tools (it records the argv of every call and answers from
// `script`, or succeeds) and for the volume probe.
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
        handed.append(handedFd);
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

    // The probe sees `type`; umount and ntfs-3g change the mount table as the kernel would,
    // unless told to fail.
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
                system.addMount(call.value(3), call.value(4), u"fuseblk"_s,
                                rw && !b.fallBackReadOnly ? u"rw"_s : u"ro"_s);
            }
            return exited(0);
        };
    }

    std::function<helper::ToolResult(const QStringList &)> script;
    QList<QStringList> calls;
    QList<int> handed;
    mutable QStringList actions;
    Volume volume;
    FakeSystem system;
    helper::DeviceFacts facts{
        {system.path(u"sys"_s), system.path(u"proc"_s), system.path(u"dev"_s), false}};
    helper::HelperCommands commands{*this, facts, *this, *this};
};

// Whatever the command, a hostile name, a system disk (below /, /home through device-mapper, swap,
// /usr, /boot) or an ordinary user's internal disk gets a reason and nothing runs.
TEST_F(HelperCommandsTest, GuardsRefuseBeforeAnythingRuns) {
    const QStringList hostile{u"sdb1 --force"_s, u"../sda"_s,    u"-o"_s,
                              u"loop0;reboot"_s, u""_s,          u".."_s,
                              u"/dev/sdb1"_s,    u"sdb1\n"_s,    QString(33, u'a'),
                              u"sdz9"_s,         u"$(reboot)"_s, u"dm-0/slaves/x"_s};
    for (const quint64 code : {helper::kMountReadWrite, helper::kEject, helper::kRepair,
                               helper::kErase, helper::kRename}) {
        SCOPED_TRACE(code);
        for (const QString &name : hostile)
            EXPECT_FALSE(sendTo(name, code, user(true)).isEmpty()) << name.toStdString();
        for (const QString &name : {u"sda"_s, u"sda1"_s, u"sde1"_s, u"dm-0"_s, u"sdc"_s, u"sdc1"_s,
                                    u"sdf1"_s, u"loop0p1"_s}) {
            const QString text = sendTo(name, code, user(true));
            EXPECT_TRUE(text.contains(u"running system"_s))
                << name.toStdString() << ": " << text.toStdString();
        }
        EXPECT_TRUE(sendTo(u"sdd1"_s, code).contains(u"internal"_s));
        EXPECT_TRUE(send(code, {{u"name"_s, u"Data"_s}}).contains(u"bsdName"_s));
    }
    for (const quint64 code : {quint64(5), quint64(6), quint64(9), ~quint64(0)})
        EXPECT_TRUE(sendTo(u"loop1"_s, code).contains(u"not support"_s)) << code;
    EXPECT_TRUE(calls.isEmpty());

    // sdd1 holds /usr/local, which is not /usr; USB, SD card and images are external.
    simulate();
    EXPECT_EQ(sendTo(u"sdd1"_s, helper::kRepair, user(true)), u""_s);
    for (const QString &name : {u"sdb1"_s, u"mmcblk0p1"_s, u"loop1"_s})
        EXPECT_EQ(sendTo(name, helper::kRepair), u""_s) << name.toStdString();
}

// A volume mounted for one user is not another ordinary user's to change.
TEST_F(HelperCommandsTest, AnotherUsersVolumeIsLeftToThemAndAdministrators) {
    const QString target = system.path(u"media/other"_s);
    system.addMount(u"/dev/sdb1"_s, target, u"vfat"_s, u"ro"_s, u"rw,uid=2000,gid=2000"_s);
    simulate();
    for (const quint64 code : {helper::kMountReadWrite, helper::kEject, helper::kRepair,
                               helper::kErase, helper::kRename})
        EXPECT_TRUE(sendTo(u"sdb1"_s, code).contains(u"another user"_s)) << code;
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kRepair, user(true)), u""_s);
}

// Every way a remount can fail or not apply gets its answer; the volume stays, or is back,
// read-only where it was, and nothing is ever forced.
TEST_F(HelperCommandsTest, MountReadWriteFailuresExplainAndRestore) {
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
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        system.removeMount(u"/media/x"_s);
        if (c.mounted)
            system.addMount(u"/dev/sdb1"_s, u"/media/x"_s, u"fuseblk"_s, u"ro"_s);
        if (!c.fuse)
            QFile::remove(system.path(u"dev/fuse"_s));
        calls.clear();
        simulate(c.behaviour);
        helper::HelperSettings settings;
        settings.privileged = c.privileged;
        const QString text =
            helper::HelperCommands(*this, facts, *this, *this, settings)
                .handle({1, helper::kMountReadWrite, {{u"bsdName"_s, u"sdb1"_s}}}, user())
                .value(u"result"_s, u"<missing>"_s);
        EXPECT_TRUE(QRegularExpression(c.answer).match(text).hasMatch()) << text.toStdString();
        EXPECT_EQ(calls.value(0).value(0) == u"umount"_s, c.unmounts);
        if (c.behaviour.ntfsExit != 0) {
            EXPECT_EQ(calls.last(),
                      QStringList({u"ntfs-3g"_s, u"-o"_s, u"ro"_s, u"/dev/sdb1"_s, u"/media/x"_s}));
        }
        const QList<helper::MountEntry> now = facts.mountsOfDevice(u"sdb1"_s);
        ASSERT_EQ(now.size(), c.mounted ? 1 : 0);
        EXPECT_TRUE(!c.mounted || (now[0].target == u"/media/x"_s && now[0].readOnly()));
        for (const QStringList &call : std::as_const(calls))
            EXPECT_FALSE(call.join(u' ').contains(QRegularExpression(u"force|remove_hiberfile"_s)));
    }
}

// A failing tool's error is in the answer, and the volume is mounted again as it was.
TEST_F(HelperCommandsTest, RenameValidatesTheLabelAndRemountsWhateverHappens) {
    QStringList invalid{u""_s, QString(33, u'x'), QString(100000, u'x'), u"-o"_s};
    for (const QChar c : u"\"*/:<>?\\|\t\n\u007f\u0085"_s)
        invalid << u"a"_s + c + u"b"_s;
    system.addMount(u"/dev/loop1"_s, u"/media/old"_s, u"fuseblk"_s, u"ro"_s);
    simulate();
    const auto rename = [this](const QString &label) {
        calls.clear();
        return send(helper::kRename, {{u"bsdName"_s, u"loop1"_s}, {u"newName"_s, label}});
    };
    const QStringList remount{u"ntfs-3g"_s, u"-o"_s, u"ro"_s, u"/dev/loop1"_s, u"/media/old"_s};
    for (const QString &label : {QString(32, u'x'), u"Über 😀"_s}) {
        EXPECT_EQ(rename(label), u""_s);
        EXPECT_EQ(calls.value(1), QStringList({u"ntfslabel"_s, u"/dev/loop1"_s, label}));
        EXPECT_EQ(calls.value(2), remount);
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
    EXPECT_EQ(calls.value(2), remount);
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

} // namespace
