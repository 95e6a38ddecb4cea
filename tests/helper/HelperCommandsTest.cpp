#include "helper/HelperCommands.h"

#include "tests/helper/FakeSystem.h"
#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace Qt::StringLiterals;
using helper::Caller;
using helpertest::FakeSystem;
using helpertest::FakeToolRunner;
using helpertest::ToolCall;

namespace {

Caller user(bool administrator = false) {
    return {4242, 1000, 1001, {1001}, administrator};
}

helper::HelperSettings settings(bool privileged = true) {
    helper::HelperSettings s;
    s.privileged = privileged;
    return s;
}

const QList<quint64> kDeviceCodes{helper::kMountReadWrite, helper::kEject, helper::kRepair,
                                  helper::kErase, helper::kRename};

class HelperCommandsTest : public ::testing::Test {
protected:
    QString send(quint64 code, const wire::Dictionary &parameter, const Caller &caller = user()) {
        const wire::Dictionary reply = commands.handle({1, code, parameter}, caller);
        EXPECT_TRUE(reply.contains(u"result"_s));
        return reply.value(u"result"_s, u"<missing>"_s);
    }
    QString sendTo(const QString &device, quint64 code, const Caller &caller = user()) {
        return send(code, {{u"bsdName"_s, device}, {u"newName"_s, u"X"_s}}, caller);
    }

    // How the fake machine reacts: the probe sees `type` and `label`, umount and ntfs-3g change the
    // mount table as the kernel would, unless told to fail.
    struct Behaviour {
        QString type = u"ntfs"_s;
        QString label = u"Data"_s;
        QString umountError;
        int ntfsExit = 0;
        QString ntfsError;
        bool fallBackReadOnly = false;
    };
    void simulate(const Behaviour &b) {
        probe.volume = {b.type, b.label};
        runner.setScript([this, b](const ToolCall &call) {
            if (call.program == u"umount"_s) {
                if (!b.umountError.isEmpty())
                    return FakeToolRunner::failure(32, b.umountError);
                system.removeMount(call.arguments.last());
            }
            if (call.program == u"ntfs-3g"_s) {
                const bool rw = call.arguments.value(1).startsWith(u"rw"_s);
                if (rw && b.ntfsExit != 0)
                    return FakeToolRunner::failure(b.ntfsExit, b.ntfsError);
                system.addMount(call.arguments.value(2), call.arguments.value(3), u"fuseblk"_s,
                                rw && !b.fallBackReadOnly ? u"rw"_s : u"ro"_s, u"rw,user_id=0"_s);
            }
            return FakeToolRunner::success();
        });
    }
    void ntfsVolume(const QString &label) {
        Behaviour b;
        b.label = label;
        simulate(b);
    }

    // A real folder to mount on, owned by `uid` when the test may change owners, otherwise by the
    // test's own user; returns the folder and its owner.
    std::pair<QString, uid_t> ownedTarget(const QString &name, uid_t uid) {
        const QString folder = system.path(u"media/"_s + name);
        QDir().mkpath(folder);
        if (::getuid() == 0 && ::chown(QFile::encodeName(folder).constData(), uid, uid) == 0)
            return {folder, uid};
        return {folder, ::getuid()};
    }

    QStringList programs() const {
        QStringList names;
        for (const ToolCall &call : runner.calls)
            names << call.program;
        return names;
    }

    FakeSystem system;
    FakeToolRunner runner;
    helper::DeviceFacts facts{system.roots()};
    helpertest::FakeVolumeProbe probe;
    helper::HelperCommands commands{runner, facts, probe, settings()};
};

// Names that must never reach a tool, whatever the command; a missing one is named.
TEST_F(HelperCommandsTest, HostileOrMissingDeviceNamesAreRefusedBeforeAnythingRuns) {
    const QStringList hostile{u"sdb1 --force"_s, u"../sda"_s,    u"-o"_s,
                              u"loop0;reboot"_s, u""_s,          QString(33, u'a'),
                              u"sdб1"_s,         u"/dev/sdb1"_s, u"sdb1\n"_s,
                              u".."_s,           u"."_s,         u"sdb1/../../sda"_s,
                              u"loop0 "_s,       u"$(reboot)"_s, u"loop0\u0000"_s,
                              u"--help"_s,       u"sdz9"_s,      u"dm-0/slaves/sda3"_s};
    for (const quint64 code : kDeviceCodes) {
        for (const QString &name : hostile) {
            SCOPED_TRACE(u"code %1 name \"%2\""_s.arg(code).arg(name).toStdString());
            EXPECT_FALSE(sendTo(name, code, user(true)).isEmpty());
        }
        EXPECT_TRUE(send(code, {{u"name"_s, u"Data"_s}}).contains(u"bsdName"_s));
    }
    EXPECT_TRUE(runner.calls.isEmpty());
}

// sda holds / and (through dm-0) /home; sdc holds the active swap.
TEST_F(HelperCommandsTest, SystemDisksAreNeverTouched) {
    system.addMount(u"/dev/sda1"_s, u"/media/win"_s, u"fuseblk"_s, u"ro"_s, u"ro,user_id=0"_s);
    simulate({});
    for (const quint64 code : kDeviceCodes) {
        for (const QString &name :
             {u"sda"_s, u"sda1"_s, u"sda3"_s, u"dm-0"_s, u"sdc1"_s, u"sdc"_s}) {
            const QString text = sendTo(name, code, user(true));
            EXPECT_TRUE(text.contains(u"running system"_s))
                << code << " on " << name.toStdString() << ": " << text.toStdString();
        }
    }
    EXPECT_TRUE(runner.calls.isEmpty());
}

TEST_F(HelperCommandsTest, OnlyAdministratorsMayChangeInternalDisks) {
    simulate({});
    EXPECT_TRUE(sendTo(u"sdd1"_s, helper::kRepair).contains(u"internal"_s));
    EXPECT_TRUE(runner.calls.isEmpty());
    EXPECT_EQ(sendTo(u"sdd1"_s, helper::kRepair, user(true)), u""_s);
    // USB, SD card and disk images count as external for everyone.
    for (const QString &name : {u"sdb1"_s, u"mmcblk0p1"_s, u"loop0p1"_s, u"loop1"_s})
        EXPECT_EQ(sendTo(name, helper::kRepair), u""_s) << name.toStdString();
}

TEST_F(HelperCommandsTest, MountReadWriteRemountsAtTheSamePathForTheCaller) {
    system.addMount(u"/dev/loop1"_s, u"/media/user/My Disk"_s, u"fuseblk"_s, u"ro,nosuid"_s,
                    u"ro,user_id=0,group_id=0,allow_other,blksize=4096"_s);
    simulate({});
    EXPECT_EQ(
        send(helper::kMountReadWrite, {{u"name"_s, u"My Disk"_s}, {u"bsdName"_s, u"loop1"_s}}),
        u""_s);
    EXPECT_EQ(probe.probed, QStringList({u"/dev/loop1"_s}));
    ASSERT_EQ(programs(), QStringList({u"umount"_s, u"ntfs-3g"_s}));
    EXPECT_EQ(runner.calls[0].arguments, QStringList({u"--"_s, u"/media/user/My Disk"_s}));
    EXPECT_EQ(runner.calls[1].arguments,
              QStringList({u"-o"_s, u"rw,uid=1000,gid=1001,windows_names"_s, u"/dev/loop1"_s,
                           u"/media/user/My Disk"_s}));
}

// Every way a remount can fail or not apply: the answer, whether the volume was unmounted, and
// whether it is back read-only where it was (never forced).
TEST_F(HelperCommandsTest, MountReadWriteFailuresExplainAndRestore) {
    const QString hibernated = u"Windows is hibernated, refused to mount.\nThe disk contains an "
                               u"unclean file system (0, 0).\nMetadata kept in Windows cache, "
                               u"refused to mount."_s;
    const QStringList advice{u"Fast Startup"_s, u"shut it down fully"_s};
    const QString eperm = u"fuse: failed to open /dev/fuse: Operation not permitted"_s;
    const QStringList noAccess{u"nofulldiskaccess"_s};
    struct Case {
        const char *what;
        QString fsType; // "" = not mounted
        QString probedType, umountError;
        int ntfsExit;
        QString ntfsError;
        bool fallBackReadOnly, privileged, fuse;
        QStringList expected; // the whole answer when `exact`, else parts of it
        bool exact, unmounts, remountsReadOnly;
    };
    const QString fuse = u"fuseblk"_s, ntfs = u"ntfs"_s, ext4 = u"ext4"_s,
                  busyError = u"target is busy"_s;
    const QStringList busy{u"in use"_s}, notNtfs{u"not NTFS"_s}, absent{u"not mounted"_s};
    // clang-format off
    const QList<Case> cases{
        // what, mounted as, probed, umount error, ntfs-3g exit and error, fell back read-only,
        // privileged, fuse, answer, exact, unmounts, remounts read-only
        {"hibernate", fuse, ntfs, {}, 14, hibernated, false, true, true, advice, false, true, true},
        {"unclean", fuse, ntfs, {}, 15, hibernated, false, true, true, advice, false, true, true},
        {"fell back", fuse, ntfs, {}, 0, hibernated, true, true, true, advice, false, true, false},
        {"EPERM", fuse, ntfs, {}, 21, eperm, false, true, true, noAccess, true, true, true},
        {"not root", fuse, ntfs, {}, 0, {}, false, false, true, noAccess, true, false, false},
        {"no fuse", fuse, ntfs, {}, 0, {}, false, true, false, noAccess, true, false, false},
        {"not NTFS", ext4, ext4, {}, 0, {}, false, true, true, notNtfs, false, false, false},
        {"busy", fuse, ntfs, busyError, 0, {}, false, true, true, busy, false, true, false},
        {"ntfs3", u"ntfs3"_s, ntfs, {}, 0, {}, false, true, true, {u""_s}, true, true, false},
        {"not mounted", {}, ntfs, {}, 0, {}, false, true, true, absent, false, false, false},
    };
    // clang-format on
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        system.setMounts({});
        if (!c.fsType.isEmpty())
            system.addMount(u"/dev/sdb1"_s, u"/media/x"_s, c.fsType, u"ro"_s, u"ro,user_id=0"_s);
        if (c.fuse) {
            system.writeFile(u"dev/fuse"_s, {});
        } else {
            system.removeFuse();
        }
        runner.calls.clear();
        Behaviour b;
        b.type = c.probedType;
        b.umountError = c.umountError;
        b.ntfsExit = c.ntfsExit;
        b.ntfsError = c.ntfsError;
        b.fallBackReadOnly = c.fallBackReadOnly;
        simulate(b);
        const helper::HelperCommands chosen(runner, facts, probe, settings(c.privileged));
        const QString text =
            chosen.handle({1, helper::kMountReadWrite, {{u"bsdName"_s, u"sdb1"_s}}}, user())
                .value(u"result"_s, u"<missing>"_s);
        if (c.exact) {
            EXPECT_EQ(text, c.expected.value(0));
        } else {
            for (const QString &part : c.expected)
                EXPECT_TRUE(text.contains(part)) << text.toStdString();
        }
        EXPECT_EQ(programs().contains(u"umount"_s), c.unmounts);
        if (!c.umountError.isEmpty()) {
            EXPECT_FALSE(programs().contains(u"ntfs-3g"_s));
        }
        if (c.remountsReadOnly) {
            EXPECT_EQ(runner.calls.last().arguments,
                      QStringList({u"-o"_s, u"ro"_s, u"/dev/sdb1"_s, u"/media/x"_s}));
        }
        if (!c.ntfsError.isEmpty()) {
            const QList<helper::MountEntry> now = facts.mountsOfDevice(u"sdb1"_s);
            ASSERT_EQ(now.size(), 1);
            EXPECT_EQ(now[0].target, u"/media/x"_s);
            EXPECT_TRUE(now[0].readOnly());
        }
        for (const ToolCall &call : std::as_const(runner.calls)) {
            EXPECT_FALSE(call.arguments.join(u' ').contains(u"force"_s));
            EXPECT_FALSE(call.arguments.join(u' ').contains(u"remove_hiberfile"_s));
        }
    }
}

TEST_F(HelperCommandsTest, AWritableMountOfTheCallerIsLeftAsItIs) {
    simulate({});
    const auto [mine, me] = ownedTarget(u"mine"_s, 1000);
    system.addMount(u"/dev/sdb1"_s, mine, u"fuseblk"_s, u"rw"_s, u"rw,user_id=0"_s);
    Caller caller = user();
    caller.uid = me;
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kMountReadWrite, caller), u""_s);
    EXPECT_TRUE(runner.calls.isEmpty());
}

// Like udisks2's "unmount others" rule: an ordinary user cannot take over, change or eject a
// volume mounted for someone else; an administrator can.
TEST_F(HelperCommandsTest, VolumesMountedForAnotherUserAreTheirs) {
    simulate({});
    const auto [theirs, owner] = ownedTarget(u"theirs"_s, 1002);
    if (owner == 0)
        GTEST_SKIP() << "needs a folder owned by a user other than root";
    Caller stranger = user();
    stranger.uid = owner + 1;
    Caller administrator = stranger;
    administrator.administrator = true;
    for (const bool readOnly : {false, true}) {
        for (const quint64 code : kDeviceCodes) {
            SCOPED_TRACE(u"code %1, read-only %2"_s.arg(code).arg(readOnly).toStdString());
            system.setMounts({});
            system.addMount(u"/dev/sdb1"_s, theirs, u"fuseblk"_s, readOnly ? u"ro"_s : u"rw"_s,
                            u"rw,user_id=0"_s);
            runner.calls.clear();
            const QString refusal = sendTo(u"sdb1"_s, code, stranger);
            EXPECT_TRUE(refusal.contains(u"another user"_s)) << refusal.toStdString();
            EXPECT_TRUE(runner.calls.isEmpty());
            EXPECT_EQ(sendTo(u"sdb1"_s, code, administrator), u""_s);
        }
    }
}

TEST_F(HelperCommandsTest, RepairUnmountsFixesAndMountsAgainAsItWas) {
    const auto [target, owner] = ownedTarget(u"Data"_s, 1000);
    system.addMount(u"/dev/loop0p2"_s, target, u"fuseblk"_s, u"rw,nosuid,nodev"_s,
                    u"rw,user_id=0,group_id=0,allow_other"_s);
    simulate({});
    EXPECT_EQ(sendTo(u"loop0p2"_s, helper::kRepair), u""_s);
    ASSERT_EQ(programs(), QStringList({u"umount"_s, u"ntfsfix"_s, u"ntfs-3g"_s}));
    EXPECT_EQ(runner.calls[1].arguments, QStringList({u"-d"_s, u"/dev/loop0p2"_s}));
    const QString ownerOptions =
        owner == 0 ? QString()
                   : u",uid=%1,gid=%2"_s.arg(owner).arg(owner == ::getuid() ? ::getgid() : owner);
    EXPECT_EQ(runner.calls[2].arguments,
              QStringList({u"-o"_s, u"rw"_s + ownerOptions + u",windows_names"_s, u"/dev/loop0p2"_s,
                           target}));
}

TEST_F(HelperCommandsTest, RepairFailureFoldsTheToolErrorAndStillRemounts) {
    system.addMount(u"/dev/loop1"_s, u"/media/d"_s, u"fuseblk"_s, u"ro"_s, u"ro"_s);
    probe.volume = {u"ntfs"_s, {}};
    runner.setScript([](const ToolCall &call) {
        return call.program == u"ntfsfix"_s
                   ? FakeToolRunner::failure(1, u"Volume is corrupt. You should run chkdsk."_s)
                   : FakeToolRunner::success();
    });
    const QString text = sendTo(u"loop1"_s, helper::kRepair);
    EXPECT_TRUE(text.contains(u"run chkdsk"_s)) << text.toStdString();
    EXPECT_EQ(programs().last(), u"ntfs-3g"_s);
}

TEST_F(HelperCommandsTest, EraseKeepsTheLabelAndMountsReadWriteForTheCaller) {
    system.addMount(u"/dev/sdb1"_s, u"/media/u/-Backup"_s, u"fuseblk"_s, u"ro"_s, u"ro"_s);
    ntfsVolume(u"-Backup"_s);
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kErase), u""_s);
    ASSERT_EQ(programs(), QStringList({u"umount"_s, u"mkntfs"_s, u"ntfs-3g"_s}));
    EXPECT_EQ(runner.calls[1].arguments,
              QStringList({u"--fast"_s, u"--label=-Backup"_s, u"/dev/sdb1"_s}));
    EXPECT_EQ(runner.calls[2].arguments.value(1), u"rw,uid=1000,gid=1001,windows_names"_s);

    // An unlabelled, unmounted volume gets no label and no mount.
    runner.calls.clear();
    ntfsVolume({});
    EXPECT_EQ(sendTo(u"loop1"_s, helper::kErase), u""_s);
    ASSERT_EQ(programs(), QStringList({u"mkntfs"_s}));
    EXPECT_EQ(runner.calls[0].arguments, QStringList({u"--fast"_s, u"/dev/loop1"_s}));
}

TEST_F(HelperCommandsTest, RenameValidatesTheLabel) {
    const QStringList valid{u"Data"_s,         u"日本語のディスク"_s, QString(32, u'x'),
                            u" spaced out "_s, u"a-b_c.d"_s,          u"😀😀"_s};
    const QStringList invalid{u""_s,          QString(33, u'x'), QString(100000, u'x'),
                              u"a/b"_s,       u"a:b"_s,          u"a\"b"_s,
                              u"a*b"_s,       u"a<b"_s,          u"a>b"_s,
                              u"a?b"_s,       u"a\\b"_s,         u"a|b"_s,
                              u"tab\there"_s, u"line\nbreak"_s,  u"del\u007f"_s,
                              u"c1\u0085"_s,  u"-o"_s,           u"--force"_s};
    system.addMount(u"/dev/loop1"_s, u"/media/old"_s, u"fuseblk"_s, u"ro"_s, u"ro"_s);
    simulate({});
    const auto rename = [this](const QString &label) {
        runner.calls.clear();
        return send(helper::kRename, {{u"bsdName"_s, u"loop1"_s}, {u"newName"_s, label}});
    };
    for (const QString &label : valid) {
        SCOPED_TRACE(label.toStdString());
        EXPECT_EQ(rename(label), u""_s);
        ASSERT_EQ(programs(), QStringList({u"umount"_s, u"ntfslabel"_s, u"ntfs-3g"_s}));
        EXPECT_EQ(runner.calls[1].arguments, QStringList({u"/dev/loop1"_s, label}));
    }
    for (const QString &label : invalid) {
        SCOPED_TRACE(label.left(40).toStdString());
        EXPECT_FALSE(rename(label).isEmpty());
        EXPECT_TRUE(runner.calls.isEmpty());
    }
    EXPECT_TRUE(send(helper::kRename, {{u"bsdName"_s, u"loop1"_s}}).contains(u"empty"_s));
    EXPECT_TRUE(runner.calls.isEmpty());
}

TEST_F(HelperCommandsTest, EjectUnmountsEveryVolumeThenDetachesTheImage) {
    system.addMount(u"/dev/loop0p1"_s, u"/media/a"_s, u"fuseblk"_s, u"rw"_s, u"rw"_s);
    system.addMount(u"/dev/loop0p2"_s, u"/media/a/b"_s, u"vfat"_s, u"rw"_s, u"rw"_s);
    system.addMount(u"/dev/loop1"_s, u"/media/other"_s, u"fuseblk"_s, u"rw"_s, u"rw"_s);
    runner.setScript([this](const ToolCall &call) {
        if (call.program == u"umount"_s)
            system.setMounts({}); // as the kernel would after the last one
        return FakeToolRunner::success();
    });
    EXPECT_EQ(send(helper::kEject, {{u"name"_s, u"A"_s}, {u"bsdName"_s, u"loop0p1"_s}}), u""_s);
    ASSERT_EQ(programs(),
              QStringList({u"sync"_s, u"umount"_s, u"sync"_s, u"umount"_s, u"losetup"_s}));
    EXPECT_EQ(runner.calls[0].arguments, QStringList({u"-f"_s, u"--"_s, u"/media/a/b"_s}));
    EXPECT_EQ(runner.calls[1].arguments, QStringList({u"--"_s, u"/media/a/b"_s}));
    EXPECT_EQ(runner.calls[3].arguments, QStringList({u"--"_s, u"/media/a"_s}));
    EXPECT_EQ(runner.calls[4].arguments, QStringList({u"-d"_s, u"/dev/loop0"_s}));
}

TEST_F(HelperCommandsTest, EjectStopsWhenAVolumeIsBusy) {
    system.addMount(u"/dev/loop0p1"_s, u"/media/a"_s, u"fuseblk"_s, u"rw"_s, u"rw"_s);
    Behaviour busy;
    busy.umountError = u"umount: /media/a: target is busy."_s;
    simulate(busy);
    const QString text = sendTo(u"loop0"_s, helper::kEject);
    EXPECT_TRUE(text.contains(u"target is busy"_s)) << text.toStdString();
    EXPECT_FALSE(programs().contains(u"losetup"_s));
}

TEST_F(HelperCommandsTest, EjectPowersOffAUsbDiskTheEjectToolCannotHandle) {
    runner.setScript([](const ToolCall &call) {
        return call.program == u"eject"_s ? FakeToolRunner::failure(1, u"eject: unable to eject"_s)
                                          : FakeToolRunner::success();
    });
    EXPECT_EQ(sendTo(u"sdb1"_s, helper::kEject), u""_s);
    EXPECT_EQ(runner.calls.last().arguments, QStringList({u"--"_s, u"/dev/sdb"_s}));
    QFile deleteFile(system.path(u"sys/block/sdb/device/delete"_s));
    ASSERT_TRUE(deleteFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(deleteFile.readAll(), "1\n");
}

TEST_F(HelperCommandsTest, VersionAndUnknownCodes) {
    EXPECT_EQ(send(helper::kVersion, {}), QStringLiteral(VANTRELO_VERSION));
    for (const quint64 code :
         {quint64(5), quint64(6), quint64(9), quint64(1000), std::numeric_limits<quint64>::max()})
        EXPECT_TRUE(sendTo(u"loop1"_s, code).contains(u"not support"_s)) << code;
    EXPECT_TRUE(runner.calls.isEmpty());
}

TEST_F(HelperCommandsTest, OpenRunsTheFileBrowserAsTheCallerInTheCallersSession) {
    system.addMount(u"/dev/loop1"_s, u"/media/u/Data"_s, u"fuseblk"_s, u"rw"_s, u"rw"_s);
    Caller caller = user();
    // The caller's process folder must belong to the caller.
    if (::getuid() != 0)
        caller.uid = ::getuid();
    const char environ[] = "DISPLAY=:1\0LD_PRELOAD=/tmp/evil.so\0HOME=/home/u\0"
                           "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus\0PATH=/tmp\0"
                           "XDG_RUNTIME_DIR=/run/user/1000\0";
    system.writeFile(u"proc/4242/environ"_s, QByteArray(environ, sizeof environ - 1));
    if (::getuid() == 0) {
        ASSERT_EQ(::chown(QFile::encodeName(system.path(u"proc/4242"_s)).constData(), caller.uid,
                          caller.gid),
                  0);
    }
    const auto open = [this](const QString &path, const Caller &who) {
        return send(helper::kOpen, {{u"mountPath"_s, path}}, who);
    };
    EXPECT_TRUE(open(u"/media/u/Other"_s, caller).contains(u"Nothing is mounted"_s));
    EXPECT_TRUE(open(u"media/u/Data"_s, caller).contains(u"absolute"_s));
    // Never as root, and never with another user's session.
    Caller root = caller;
    root.uid = 0;
    EXPECT_FALSE(open(u"/media/u/Data"_s, root).isEmpty());
    Caller stranger = caller;
    stranger.uid = caller.uid + 1;
    EXPECT_FALSE(open(u"/media/u/Data"_s, stranger).isEmpty());
    EXPECT_TRUE(runner.calls.isEmpty());

    EXPECT_EQ(open(u"/media/u/Data"_s, caller), u""_s);
    ASSERT_EQ(runner.spawnedAs.size(), 1);
    EXPECT_EQ(runner.calls[0].program, u"xdg-open"_s);
    EXPECT_EQ(runner.calls[0].arguments, QStringList({u"/media/u/Data"_s}));
    EXPECT_EQ(runner.spawnedAs[0].uid, caller.uid);
    EXPECT_EQ(runner.spawnedAs[0].gid, caller.gid);
    QStringList environment = runner.spawnedAs[0].environment;
    environment.sort();
    EXPECT_EQ(environment, QStringList({u"DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus"_s,
                                        u"DISPLAY=:1"_s, u"HOME=/home/u"_s,
                                        u"PATH=/usr/local/bin:/usr/bin:/bin"_s,
                                        u"XDG_RUNTIME_DIR=/run/user/1000"_s}));
}

} // namespace
