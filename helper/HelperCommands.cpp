#include "helper/HelperCommands.h"

#include "helper/HelperLogging.h"
#include "helper/RequestValidation.h"

using namespace Qt::StringLiterals;

namespace helper {

namespace {

constexpr qsizetype kMaxResultText = 4000;
constexpr qsizetype kMaxParameterText = 8192;

// ntfs-3g's exit codes for volumes it will not open read/write.
constexpr int kNtfsHibernated = 14;
constexpr int kNtfsUncleanUnmount = 15;
constexpr int kNtfsNoPrivilege = 19;
constexpr int kNtfsFuseError = 21;

const QString kNoFullDiskAccess = u"nofulldiskaccess"_s;

QString devicePath(const QString &name) {
    return u"/dev/"_s + name;
}

QString toolText(const ToolResult &result) {
    QString text = result.errorOutput.trimmed();
    if (text.isEmpty())
        text = result.output.trimmed();
    if (result.timedOut)
        text = (text.isEmpty() ? QString() : text + u" "_s) + u"(stopped: it took too long)"_s;
    else if (!result.started && text.isEmpty())
        text = u"could not be started"_s;
    else if (text.isEmpty())
        text = u"exit status %1"_s.arg(result.exitCode);
    return text.simplified();
}

QString failure(const QString &what, const ToolResult &result) {
    return what + u": "_s + toolText(result);
}

QString capResult(QString text) {
    if (text.size() > kMaxResultText)
        text = text.left(kMaxResultText) + u"…"_s;
    return text;
}

bool refusedAsHibernated(const ToolResult &result) {
    const QString text = result.errorOutput.toLower();
    return result.exitCode == kNtfsHibernated || result.exitCode == kNtfsUncleanUnmount ||
           text.contains(u"hibernat"_s) || text.contains(u"unsafe state"_s) ||
           text.contains(u"unclean"_s);
}

bool refusedForPrivilege(const ToolResult &result) {
    const QString text = result.errorOutput.toLower();
    return result.exitCode == kNtfsNoPrivilege || result.exitCode == kNtfsFuseError ||
           text.contains(u"operation not permitted"_s) ||
           text.contains(u"fuse: device not found"_s) || text.contains(u"/dev/fuse"_s);
}

QString hibernatedText(const ToolResult &mounted) {
    return u"Windows did not shut down completely on this volume (it is hibernated or was not "
           u"unmounted cleanly), so it can only be opened read-only. Start Windows and shut it "
           u"down fully, or turn off Fast Startup in Windows' power options, then try again. "
           u"(ntfs-3g: %1)"_s.arg(toolText(mounted));
}

} // namespace

HelperCommands::HelperCommands(ToolRunner &runner, const DeviceFacts &facts,
                               const VolumeProbe &probe, const Authorizer &authorizer,
                               HelperSettings settings)
    : m_runner(runner)
    , m_facts(facts)
    , m_probe(probe)
    , m_authorizer(authorizer)
    , m_settings(std::move(settings)) {}

void HelperCommands::mountTableChanged() const {
    m_facts.mountTableChanged();
}

wire::Dictionary HelperCommands::result(const QString &text) {
    return {{u"result"_s, capResult(text)}};
}

Plan HelperCommands::plan(const wire::Request &request, const Caller &caller) const {
    const auto answer = [](const QString &text) { return Plan{result(text), {}, {}, {}}; };
    const auto parameter = [&request](const QString &key) { return request.parameter.value(key); };
    for (auto it = request.parameter.cbegin(); it != request.parameter.cend(); ++it) {
        if (it.key().size() > 64 || it.value().size() > kMaxParameterText)
            return answer(u"The request is too large."_s);
    }

    switch (request.code) {
    case kVersion:
        return answer(m_settings.version);
    case kOpen: {
        const QString mountPath = parameter(u"mountPath"_s);
        if (const QString problem = mountPathProblem(mountPath); !problem.isEmpty())
            return answer(problem);
        if (!m_facts.isMountTarget(mountPath))
            return answer(u"Nothing is mounted at \"%1\"."_s.arg(mountPath));
        return Plan{
            std::nullopt, {}, {}, [this, mountPath, caller] { return open(mountPath, caller); }};
    }
    case kMountReadWrite:
    case kEject:
    case kRepair:
    case kErase:
    case kRename:
        break;
    default:
        return answer(u"The helper does not support command %1."_s.arg(request.code));
    }

    if (!request.parameter.contains(u"bsdName"_s))
        return answer(u"The request does not name a device (\"bsdName\" is missing)."_s);
    const QString device = parameter(u"bsdName"_s);
    if (!isKernelDeviceName(device))
        return answer(u"\"%1\" is not a device name. Give the kernel name of the device, such as "
                      u"sdb1."_s.arg(device.left(64)));
    if (!m_facts.isBlockDevice(device))
        return answer(u"There is no block device named %1."_s.arg(device));
    const QString disk = m_facts.parentDisk(device);
    if (m_facts.isSystemDisk(disk))
        return answer(u"%1 is on the disk that holds the running system; the helper does not "
                      u"change it."_s.arg(device));
    const auto authorize = [this, code = request.code, device, caller] {
        return this->authorize(code, device, caller);
    };
    switch (request.code) {
    case kMountReadWrite:
        return Plan{std::nullopt, disk, authorize,
                    [this, device, caller] { return mountReadWrite(device, caller); }};
    case kEject:
        return Plan{std::nullopt, disk, authorize,
                    [this, disk, caller] { return eject(disk, caller); }};
    case kRepair:
        return Plan{std::nullopt, disk, authorize,
                    [this, device, caller] { return repair(device, caller); }};
    case kErase:
        return Plan{std::nullopt, disk, authorize,
                    [this, device, caller] { return erase(device, caller); }};
    case kRename: {
        const QString label = parameter(u"newName"_s);
        if (const QString problem = ntfsLabelProblem(label); !problem.isEmpty())
            return answer(problem);
        return Plan{std::nullopt, disk, authorize,
                    [this, device, label, caller] { return rename(device, label, caller); }};
    }
    default:
        return answer(u"The helper does not support command %1."_s.arg(request.code));
    }
}

QString HelperCommands::actionFor(quint64 code, const QString &device, const Caller &caller) const {
    static const QHash<quint64, QString> kinds{{kMountReadWrite, u"mount-rw"_s},
                                               {kEject, u"eject"_s},
                                               {kRepair, u"repair"_s},
                                               {kErase, u"erase"_s},
                                               {kRename, u"rename"_s}};
    QString action = u"com.corvin.vantrelo."_s + kinds.value(code);
    if (!m_facts.isExternalFor(m_facts.parentDisk(device), caller.uid))
        return action + u"-system"_s;
    const QString disk = m_facts.parentDisk(device);
    const QList<MountEntry> mounts =
        code == kEject ? m_facts.mountsOfDisk(disk) : m_facts.mountsOfDevice(device);
    for (const MountEntry &mount : mounts) {
        if (m_facts.ownerOf(mount, m_record) != caller.uid)
            return action + u"-others"_s;
    }
    return action;
}

QString HelperCommands::authorize(quint64 code, const QString &device, const Caller &caller) const {
    if (caller.uid == 0)
        return {};
    static const QHash<quint64, QString> verbs{{kMountReadWrite, u"make %1 writable"_s},
                                               {kEject, u"eject %1"_s},
                                               {kRepair, u"repair %1"_s},
                                               {kErase, u"erase %1"_s},
                                               {kRename, u"rename %1"_s}};
    const Authorization decision =
        m_authorizer.check(caller, actionFor(code, device, caller), verbs.value(code).arg(device));
    return decision.allowed ? QString() : decision.refusal;
}

wire::Dictionary HelperCommands::handle(const wire::Request &request, const Caller &caller) const {
    Plan planned = plan(request, caller);
    if (planned.immediate)
        return *planned.immediate;
    if (planned.authorize) {
        if (const QString refusal = planned.authorize(); !refusal.isEmpty())
            return result(refusal);
    }
    return planned.work();
}

QString HelperCommands::requireNtfs(const QString &device) const {
    const VolumeProbe::Volume volume = m_probe.probe(devicePath(device));
    if (!volume.failure.isEmpty())
        return volume.failure;
    const QString &type = volume.type;
    if (type == u"ntfs"_s)
        return {};
    if (type.isEmpty())
        return u"No file system was recognized on %1."_s.arg(device);
    return u"%1 holds %2, not NTFS; the helper only works on NTFS volumes."_s.arg(device, type);
}

OwnedMount HelperCommands::withOwner(const MountEntry &mount) const {
    OwnedMount owned{mount};
    if (const std::optional<uid_t> uid = m_facts.ownerOf(mount, m_record))
        owned.ownerUid = *uid;
    if (const std::optional<gid_t> gid = m_facts.groupOf(mount))
        owned.ownerGid = *gid;
    return owned;
}

QString HelperCommands::ownerProblem(const QString &device, const OwnedMount &mount,
                                     const Caller &caller) {
    if (caller.administrator || mount.ownerUid <= 0 || mount.ownerUid == qint64(caller.uid))
        return {};
    return u"%1 is mounted for another user at %2. Only that user or an administrator can change "
           u"it."_s.arg(device, mount.target);
}

QString HelperCommands::singleMount(const QString &device, const Caller &caller,
                                    std::optional<OwnedMount> *mount) const {
    const QList<MountEntry> mounts = m_facts.mountsOfDevice(device);
    if (mounts.size() > 1)
        return u"%1 is mounted at more than one place (%2 and %3). Unmount the others first."_s.arg(
            device, mounts[0].target, mounts[1].target);
    if (mounts.isEmpty())
        return {};
    *mount = withOwner(mounts.first());
    return ownerProblem(device, **mount, caller);
}

QString HelperCommands::unmount(const MountEntry &mount) const {
    const ToolResult result = m_runner.unmount(mount.target);
    if (result.ok())
        return {};
    return u"The volume at %1 is in use and could not be unmounted. Close the files and windows "
           u"that use it, then try again. (%2)"_s.arg(mount.target, toolText(result));
}

ToolResult HelperCommands::mountForCaller(const QString &device, const QString &target,
                                          const Caller &caller) const {
    // ntfs-3g takes no "--"; the device and target are absolute paths, never options.
    const QString options = u"rw,uid=%1,gid=%2,windows_names"_s.arg(caller.uid).arg(caller.gid);
    return m_runner.run(u"ntfs-3g"_s, {u"-o"_s, options, devicePath(device), target},
                        m_settings.mountLimit);
}

QString HelperCommands::restore(const QString &device, const OwnedMount &mount) const {
    const QString mode = mount.readOnly() ? u"ro"_s : u"rw"_s;
    ToolResult result;
    if (mount.fsType == u"fuseblk"_s || mount.fsType.startsWith(u"fuse"_s)) {
        QString options = mode;
        if (mount.ownerUid > 0)
            options +=
                u",uid=%1,gid=%2"_s.arg(mount.ownerUid).arg(std::max<qint64>(mount.ownerGid, 0));
        if (!mount.readOnly())
            options += u",windows_names"_s;
        result = m_runner.run(u"ntfs-3g"_s, {u"-o"_s, options, devicePath(device), mount.target},
                              m_settings.mountLimit);
    } else {
        result = m_runner.run(
            u"mount"_s,
            {u"-t"_s, mount.fsType, u"-o"_s, mode, u"--"_s, devicePath(device), mount.target},
            m_settings.mountLimit);
    }
    if (result.ok())
        return {};
    qCWarning(lcHelper) << "could not mount" << device << "again at" << mount.target;
    return failure(u"Mounting %1 again at %2 failed"_s.arg(device, mount.target), result);
}

wire::Dictionary HelperCommands::open(const QString &mountPath, const Caller &caller) const {
    if (caller.uid == 0)
        return result(u"The helper does not start programs as root. Open %1 from your own "
                      u"session."_s.arg(mountPath));
    Identity identity{caller.uid, caller.gid, caller.groups,
                      m_facts.sessionEnvironment(caller.pid, caller.uid)};
    const bool graphical = std::any_of(
        identity.environment.cbegin(), identity.environment.cend(), [](const QString &entry) {
            return entry.startsWith(u"DISPLAY="_s) || entry.startsWith(u"WAYLAND_DISPLAY="_s);
        });
    if (!graphical)
        return result(u"No graphical session was found for the calling program, so %1 cannot be "
                      u"shown in a file browser."_s.arg(mountPath));
    identity.environment.append(u"PATH=/usr/local/bin:/usr/bin:/bin"_s);
    QString why;
    if (!m_runner.spawnAs(u"xdg-open"_s, {mountPath}, identity, &why))
        return result(u"Could not open %1: %2"_s.arg(mountPath, why));
    return result({});
}

wire::Dictionary HelperCommands::mountReadWrite(const QString &device, const Caller &caller) const {
    std::optional<OwnedMount> mount;
    if (const QString problem = singleMount(device, caller, &mount); !problem.isEmpty())
        return result(problem);
    if (!mount)
        return result(u"%1 is not mounted, so there is no mount to make writable."_s.arg(device));
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    if (!mount->readOnly() && mount->ownerUid == qint64(caller.uid))
        return result({});
    if (!m_settings.privileged || !m_facts.fuseUsable())
        return result(kNoFullDiskAccess);

    if (const QString problem = unmount(*mount); !problem.isEmpty())
        return result(problem);
    const ToolResult mounted = mountForCaller(device, mount->target, caller);
    if (mounted.ok()) {
        // ntfs-3g falls back to read-only on a hibernated volume and still reports success.
        const QList<MountEntry> now = m_facts.mountsOfDevice(device);
        const bool writable = std::any_of(now.cbegin(), now.cend(), [&](const MountEntry &entry) {
            return entry.target == mount->target && !entry.readOnly();
        });
        if (writable) {
            qCInfo(lcHelper) << device << "mounted read/write at" << mount->target << "for uid"
                             << caller.uid;
            return result({});
        }
        if (now.isEmpty())
            restore(device, *mount);
        return result(hibernatedText(mounted));
    }
    // The volume goes back to how it was before anything else is said.
    const QString restoreProblem = restore(device, *mount);
    QString text;
    if (refusedAsHibernated(mounted))
        text = hibernatedText(mounted);
    else if (refusedForPrivilege(mounted))
        text = kNoFullDiskAccess;
    else
        text = failure(u"ntfs-3g could not mount %1 read/write"_s.arg(device), mounted);
    if (!restoreProblem.isEmpty() && text != kNoFullDiskAccess)
        text += u" "_s + restoreProblem;
    return result(text);
}

wire::Dictionary HelperCommands::eject(const QString &disk, const Caller &caller) const {
    QList<OwnedMount> mounts;
    for (const MountEntry &mount : m_facts.mountsOfDisk(disk)) {
        mounts.append(withOwner(mount));
        if (const QString problem = ownerProblem(mount.device, mounts.last(), caller);
            !problem.isEmpty())
            return result(problem);
    }
    // Nested mounts go first, so a parent is never busy because of its child.
    std::sort(mounts.begin(), mounts.end(), [](const OwnedMount &a, const OwnedMount &b) {
        return a.target.size() > b.target.size();
    });
    for (const OwnedMount &mount : std::as_const(mounts)) {
        const ToolResult flushed =
            m_runner.run(u"sync"_s, {u"-f"_s, u"--"_s, mount.target}, m_settings.longLimit);
        if (!flushed.ok())
            qCWarning(lcHelper) << "sync of" << mount.target << "failed:" << toolText(flushed);
        if (const QString problem = unmount(mount); !problem.isEmpty())
            return result(problem);
    }
    if (!m_facts.mountsOfDisk(disk).isEmpty())
        return result(
            u"%1 was mounted again while it was being ejected; it stays attached."_s.arg(disk));
    if (DeviceFacts::isLoopDevice(disk)) {
        const ToolResult detached =
            m_runner.run(u"losetup"_s, {u"-d"_s, devicePath(disk)}, m_settings.quickLimit);
        return result(detached.ok() ? QString()
                                    : failure(u"Detaching %1 failed"_s.arg(disk), detached));
    }
    const ToolResult ejected =
        m_runner.run(u"eject"_s, {u"--"_s, devicePath(disk)}, m_settings.mountLimit);
    if (ejected.ok())
        return result({});
    if (m_facts.isUsb(disk)) {
        QString why;
        if (m_facts.requestRemoval(disk, &why))
            return result({});
        return result(u"Every volume of %1 was unmounted, but the device could not be powered "
                      u"off: %2"_s.arg(disk, why));
    }
    return result(u"Every volume of %1 was unmounted; the device cannot be ejected (%2)."_s.arg(
        disk, toolText(ejected)));
}

wire::Dictionary HelperCommands::whileUnmounted(const QString &device, const Caller &caller,
                                                const std::function<QString()> &tool) const {
    std::optional<OwnedMount> mount;
    if (const QString problem = singleMount(device, caller, &mount); !problem.isEmpty())
        return result(problem);
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    if (mount) {
        if (const QString problem = unmount(*mount); !problem.isEmpty())
            return result(problem);
    }
    QString text = tool();
    if (mount) {
        if (const QString problem = restore(device, *mount); !problem.isEmpty())
            text = text.isEmpty() ? problem : text + u" "_s + problem;
    }
    return result(text);
}

wire::Dictionary HelperCommands::repair(const QString &device, const Caller &caller) const {
    return whileUnmounted(device, caller, [&] {
        const ToolResult fixed =
            m_runner.run(u"ntfsfix"_s, {u"-d"_s, devicePath(device)}, m_settings.longLimit);
        return fixed.ok() ? QString()
                          : failure(u"ntfsfix could not repair %1"_s.arg(device), fixed);
    });
}

wire::Dictionary HelperCommands::erase(const QString &device, const Caller &caller) const {
    std::optional<OwnedMount> mount;
    if (const QString problem = singleMount(device, caller, &mount); !problem.isEmpty())
        return result(problem);
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    const QString label = m_probe.probe(devicePath(device)).label;
    if (mount) {
        if (const QString problem = unmount(*mount); !problem.isEmpty())
            return result(problem);
    }
    QStringList arguments{u"--fast"_s};
    // As one argument, a label that starts with "-" cannot be taken for an option.
    if (!label.isEmpty())
        arguments << u"--label="_s + label;
    arguments << devicePath(device);
    const ToolResult formatted = m_runner.run(u"mkntfs"_s, arguments, m_settings.longLimit);
    if (!formatted.ok()) {
        QString text = failure(u"mkntfs could not erase %1"_s.arg(device), formatted);
        if (mount) {
            if (const QString problem = restore(device, *mount); !problem.isEmpty())
                text += u" "_s + problem;
        }
        return result(text);
    }
    qCInfo(lcHelper) << device << "erased";
    if (!mount)
        return result({});
    const ToolResult mounted = mountForCaller(device, mount->target, caller);
    return result(mounted.ok()
                      ? QString()
                      : failure(u"%1 was erased but could not be mounted again at %2"_s.arg(
                                    device, mount->target),
                                mounted));
}

wire::Dictionary HelperCommands::rename(const QString &device, const QString &label,
                                        const Caller &caller) const {
    // ntfslabel will not write to a mounted volume.
    return whileUnmounted(device, caller, [&] {
        const ToolResult labelled =
            m_runner.run(u"ntfslabel"_s, {devicePath(device), label}, m_settings.quickLimit);
        return labelled.ok() ? QString()
                             : failure(u"ntfslabel could not rename %1"_s.arg(device), labelled);
    });
}

} // namespace helper
