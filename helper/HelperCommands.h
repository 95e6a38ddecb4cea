#pragma once

#include "helper/Authorizer.h"
#include "helper/Caller.h"
#include "helper/CommandLog.h"
#include "helper/DeviceFacts.h"
#include "helper/MountPoint.h"
#include "helper/MountRecord.h"
#include "helper/ToolRunner.h"
#include "helper/VolumeProbe.h"
#include "helperclient/wire/WireCodec.h"

#include <chrono>
#include <functional>
#include <optional>

namespace helper {

// The numbers clients send; they are fixed by the protocol.
enum CommandCode : quint64 {
    kOpen = 0,
    kMountReadWrite = 1,
    kEject = 2,
    kRepair = 3,
    kErase = 4,
    kVersion = 7,
    kRename = 8,
};

// The command's name in the log and in its polkit action ("mount-rw", ...).
QString commandName(quint64 code);

// What to do with one request: either an answer right away, or work that must hold the lock of
// one disk ("" when it needs none) while it runs.
struct Plan {
    std::optional<wire::Dictionary> immediate;
    QString disk;
    // Runs off the event loop before the disk is locked, and may wait for a password: "" lets
    // `work` run, anything else is the refusal to send. Empty when nothing needs authorizing.
    std::function<QString()> authorize;
    std::function<wire::Dictionary()> work;
};

class RequestHandler {
public:
    virtual ~RequestHandler() = default;
    // Validates the request on the event loop; must not block, run a tool or change anything.
    virtual Plan plan(const wire::Request &request, const Caller &caller) const = 0;
    // The kernel's mount table changed: views cached for plan() are stale.
    virtual void mountTableChanged() const {}
};

struct HelperSettings {
    bool privileged = true; // running as root
    QString version = QStringLiteral(VANTRELO_VERSION);
    std::chrono::milliseconds quickLimit{std::chrono::seconds(30)};
    std::chrono::milliseconds mountLimit{std::chrono::seconds(60)};
    std::chrono::milliseconds longLimit{std::chrono::minutes(10)};
};

class HelperCommands : public RequestHandler {
public:
    HelperCommands(ToolRunner &runner, const DeviceFacts &facts, const VolumeProbe &probe,
                   const Authorizer &authorizer, HelperSettings settings = {});

    Plan plan(const wire::Request &request, const Caller &caller) const override;
    void mountTableChanged() const override;
    // Plans, authorizes and, when there is work, runs it on this thread.
    wire::Dictionary handle(const wire::Request &request, const Caller &caller) const;

    static wire::Dictionary result(const QString &text);

private:
    // Validation only; plan() adds the log lines.
    Plan planUnlogged(const wire::Request &request, const Caller &caller) const;
    Plan logged(Plan plan, const wire::Request &request, const Caller &caller) const;

    wire::Dictionary open(const QString &mountPath, const Caller &caller) const;
    wire::Dictionary mountReadWrite(const QString &device, const Caller &caller) const;
    wire::Dictionary eject(const QString &disk) const;
    wire::Dictionary repair(const QString &device, const Caller &caller) const;
    wire::Dictionary erase(const QString &device, const Caller &caller) const;
    wire::Dictionary rename(const QString &device, const QString &label,
                            const Caller &caller) const;

    // The polkit action for `code` on `device`: its -system variant for a disk that is not
    // external for the caller, its -others variant when a mount it affects is not known to be the
    // caller's.
    QString actionFor(quint64 code, const QString &device, const Caller &caller) const;
    // "" when the caller may run `code` on `device`, otherwise the refusal.
    QString authorize(quint64 code, const QString &device, const Caller &caller) const;
    // Whom the volume at `mount` is mounted for; nullopt when that is not known.
    std::optional<uid_t> ownerOf(const MountEntry &mount) const;

    // "" when the device holds NTFS, otherwise why the command does not apply.
    QString requireNtfs(const QString &device) const;
    // The volume's single mount, if any; "" or the refusal when it is mounted more than once.
    QString singleMount(const QString &device, std::optional<MountEntry> *mount) const;
    // "" when /dev/`device` is still the block device `number` and nothing of it is mounted:
    // checked right before a tool writes to it or mounts it.
    QString stillUnmounted(const QString &device, dev_t number) const;
    QString unmount(const MountEntry &mount) const;
    // Unmounts `mount`, holding its mount point from before until `point` has the folder itself,
    // which must be root's, the caller's or the volume owner's: a folder of anyone else may have
    // been swapped in. "" or the whole answer when it cannot.
    QString unmountHolding(const QString &device, const MountEntry &mount, const Caller &caller,
                           std::optional<uid_t> owner, MountPoint *point) const;
    // Mounts the volume read/write for the caller onto the held folder.
    ToolResult mountForCaller(const QString &device, const MountPoint &point,
                              const Caller &caller) const;
    // Mounts the volume onto the held folder again with `mount`'s options, for `owner`; "" or why
    // not.
    QString restore(const QString &device, dev_t number, const MountEntry &mount,
                    const MountPoint &point, std::optional<uid_t> owner) const;
    // Notes that the device's mounts are now `uid`'s.
    void remember(const QString &device, uid_t uid) const;
    // Runs `tool` (which answers "" or why it failed) on the NTFS volume while it is unmounted,
    // then mounts it again as it was.
    wire::Dictionary whileUnmounted(const QString &device, const Caller &caller,
                                    const std::function<QString()> &tool) const;

    ToolRunner &m_runner;
    const DeviceFacts &m_facts;
    const VolumeProbe &m_probe;
    const Authorizer &m_authorizer;
    HelperSettings m_settings;
    mutable CommandLog m_log;
    mutable MountRecord m_record;
};

} // namespace helper
