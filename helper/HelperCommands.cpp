#include "helper/HelperCommands.h"

#include "helper/HelperLogging.h"
#include "helper/RequestValidation.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

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
// Leaves the owner's files (rw-r--r--) and folders (rwxr-xr-x) unwritable by anyone else.
const QString kMasks = u"fmask=0133,dmask=0022"_s;
// Per-mount flags a mount keeps when it is put back.
const QStringList kKeptFlags{u"nosuid"_s, u"nodev"_s, u"noexec"_s, u"noatime"_s};

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

bool isFuse(const MountEntry &mount) {
    return mount.fsType.startsWith(u"fuse"_s);
}

// The mount's own flags, as ntfs-3g and mount(2) take them.
QStringList keptFlags(const MountEntry &mount) {
    QStringList flags{mount.readOnly() ? u"ro"_s : u"rw"_s};
    for (const QString &flag : mount.options.split(u','))
        if (kKeptFlags.contains(flag))
            flags << flag;
    return flags;
}

// ntfs-3g shows neither uid= nor the masks in the mount table; the mounted root's owner and mode
// are what they made.
QString fuseOptions(const MountEntry &mount, const struct stat &root) {
    QStringList options = keptFlags(mount);
    const mode_t mask = ~root.st_mode & 0777;
    options << u"uid=%1"_s.arg(root.st_uid) << u"gid=%1"_s.arg(root.st_gid)
            << u"fmask=%1,dmask=%1"_s.arg(mask, 4, 8, QChar(u'0'));
    if (!mount.readOnly())
        options << u"windows_names"_s;
    return options.join(u',');
}

QString kernelOptions(const MountEntry &mount) {
    QStringList options = keptFlags(mount);
    for (const QString &option : mount.superOptions.split(u',', Qt::SkipEmptyParts))
        if (option != u"ro"_s && option != u"rw"_s)
            options << option;
    return options.join(u',');
}

bool permits(const struct stat &info, const Caller &caller, mode_t wanted) {
    if (caller.uid == 0)
        return true;
    int shift = 0;
    if (info.st_uid == caller.uid)
        shift = 6;
    else if (info.st_gid == caller.gid || std::find(caller.groups.cbegin(), caller.groups.cend(),
                                                    info.st_gid) != caller.groups.cend())
        shift = 3;
    return ((info.st_mode >> shift) & wanted) == wanted;
}

// The caller may see a mount target when its permission bits (ACLs are not consulted) let the
// caller search every folder down to it and list the target itself.
bool visibleTo(const QString &path, const Caller &caller) {
    QString prefix;
    const QStringList parts = path.split(u'/', Qt::SkipEmptyParts);
    for (qsizetype i = -1; i < parts.size(); ++i) {
        prefix += i < 0 ? u"/"_s : (i == 0 ? QString() : u"/"_s) + parts[i];
        struct stat info {};
        const QByteArray bytes = QFile::encodeName(prefix);
        if (::fstatat(AT_FDCWD, bytes.constData(), &info, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) !=
                0 ||
            !S_ISDIR(info.st_mode))
            return false;
        if (!permits(info, caller, i + 1 == parts.size() ? S_IROTH | S_IXOTH : S_IXOTH))
            return false;
    }
    return true;
}

} // namespace

QString commandName(quint64 code) {
    static const QHash<quint64, QString> names{
        {kOpen, u"open"_s},   {kMountReadWrite, u"mount-rw"_s},
        {kEject, u"eject"_s}, {kRepair, u"repair"_s},
        {kErase, u"erase"_s}, {kRename, u"rename"_s}};
    return names.value(code, u"command %1"_s.arg(code));
}

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
    m_record.keepOnly(m_facts.mounts());
}

wire::Dictionary HelperCommands::result(const QString &text) {
    return {{u"result"_s, capResult(text)}};
}

Plan HelperCommands::plan(const wire::Request &request, const Caller &caller) const {
    if (request.code == kVersion)
        return Plan{result(m_settings.version), {}, {}, {}};
    return logged(planUnlogged(request, caller), request, caller);
}

Plan HelperCommands::planUnlogged(const wire::Request &request, const Caller &caller) const {
    const auto answer = [](const QString &text) { return Plan{result(text), {}, {}, {}}; };
    const auto parameter = [&request](const QString &key) { return request.parameter.value(key); };
    for (auto it = request.parameter.cbegin(); it != request.parameter.cend(); ++it) {
        if (it.key().size() > 64 || it.value().size() > kMaxParameterText)
            return answer(u"The request is too large."_s);
    }

    switch (request.code) {
    case kOpen: {
        const QString mountPath = parameter(u"mountPath"_s);
        if (const QString problem = mountPathProblem(mountPath); !problem.isEmpty())
            return answer(problem);
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
    const QStringList holders =
        request.code == kEject ? m_facts.diskHolders(disk) : m_facts.holders(device);
    if (!holders.isEmpty())
        return answer(u"%1 is in use by %2 (device-mapper, LVM or RAID), which would be left "
                      u"without its device. Stop %2 first."_s.arg(
                          request.code == kEject ? disk : device, holders.join(u", "_s)));
    const auto authorize = [this, code = request.code, device, caller] {
        return this->authorize(code, device, caller);
    };
    switch (request.code) {
    case kMountReadWrite:
        return Plan{std::nullopt, disk, authorize,
                    [this, device, caller] { return mountReadWrite(device, caller); }};
    case kEject:
        return Plan{std::nullopt, disk, authorize, [this, disk] { return eject(disk); }};
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

Plan HelperCommands::logged(Plan plan, const wire::Request &request, const Caller &caller) const {
    const QString device = request.parameter.value(u"bsdName"_s).left(64);
    // Client text: one line, whatever it holds.
    const QString subject =
        (request.code == kOpen ? request.parameter.value(u"mountPath"_s).left(256) : device)
            .simplified();
    const QString what = commandName(request.code) + u' ' + subject;
    const uid_t uid = caller.uid;
    if (plan.immediate) {
        m_log.refused(uid, what + u": "_s + plan.immediate->value(u"result"_s).left(300));
        return plan;
    }
    if (plan.authorize) {
        plan.authorize = [this, what, uid, authorize = std::move(plan.authorize)] {
            const QString refusal = authorize();
            if (!refusal.isEmpty())
                m_log.refused(uid, what + u": "_s + refusal);
            return refusal;
        };
    }
    plan.work = [this, what, uid, device, disk = plan.disk, work = std::move(plan.work)] {
        QStringList targets;
        if (!disk.isEmpty()) {
            const QList<MountEntry> mounts =
                device == disk ? m_facts.mountsOfDisk(disk) : m_facts.mountsOfDevice(device);
            for (const MountEntry &mount : mounts)
                targets << mount.target;
        }
        const wire::Dictionary reply = work();
        const QString text = reply.value(u"result"_s);
        m_log.done(uid, what + (targets.isEmpty() ? QString() : u" at "_s + targets.join(u", "_s)) +
                            u": "_s + (text.isEmpty() ? u"done"_s : text.left(300)));
        return reply;
    };
    return plan;
}

std::optional<uid_t> HelperCommands::ownerOf(const MountEntry &mount) const {
    return m_facts.ownerOf(mount, m_record);
}

QString HelperCommands::actionFor(quint64 code, const QString &device, const Caller &caller) const {
    const QString action = u"com.corvin.vantrelo."_s + commandName(code);
    const QString disk = m_facts.parentDisk(device);
    if (!m_facts.isExternalFor(disk, caller.uid))
        return action + u"-system"_s;
    const QList<MountEntry> mounts =
        code == kEject ? m_facts.mountsOfDisk(disk) : m_facts.mountsOfDevice(device);
    for (const MountEntry &mount : mounts) {
        if (ownerOf(mount) != caller.uid)
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

QString HelperCommands::singleMount(const QString &device, std::optional<MountEntry> *mount) const {
    const QList<MountEntry> mounts = m_facts.mountsOfDevice(device);
    if (mounts.size() > 1)
        return u"%1 is mounted at more than one place (%2 and %3). Unmount the others first."_s.arg(
            device, mounts[0].target, mounts[1].target);
    if (!mounts.isEmpty())
        *mount = mounts.first();
    return {};
}

QString HelperCommands::stillUnmounted(const QString &device, dev_t number) const {
    if (number == 0 || m_facts.deviceNumber(device) != number)
        return u"%1 is no longer the device it was."_s.arg(device);
    const QList<MountEntry> mounts = m_facts.mountsOfDevice(device);
    if (!mounts.isEmpty())
        return u"%1 was mounted at %2 by something else meanwhile."_s.arg(device,
                                                                          mounts.first().target);
    return {};
}

QString HelperCommands::unmount(const MountEntry &mount) const {
    const ToolResult result = m_runner.unmount(mount.target);
    if (result.ok()) {
        m_record.forget(mount);
        return {};
    }
    return u"The volume at %1 is in use and could not be unmounted. Close the files and windows "
           u"that use it, then try again. (%2)"_s.arg(mount.target, toolText(result));
}

QString HelperCommands::unmountHolding(const QString &device, const MountEntry &mount,
                                       const Caller &caller, std::optional<uid_t> owner,
                                       MountPoint *point) const {
    if (const QString problem = point->holdParent(mount); !problem.isEmpty())
        return u"%1 was left as it is: its mount point cannot be trusted (%2)."_s.arg(device,
                                                                                      problem);
    const QList<MountEntry> now = m_facts.mountsOfDevice(device);
    if (now.size() != 1 || now.first().mountId != mount.mountId ||
        now.first().target != mount.target)
        return u"%1 was left as it is: its mounts changed while the request waited."_s.arg(device);
    if (const QString problem = unmount(mount); !problem.isEmpty())
        return problem;
    QList<uid_t> owners{caller.uid};
    if (owner)
        owners.append(*owner);
    if (const QString problem = point->holdFolder(owners); !problem.isEmpty()) {
        qCWarning(lcHelper) << "mount point" << mount.target << "changed during a remount";
        return u"%1 was unmounted and stays unmounted: its mount point changed meanwhile (%2), "
               u"so it was not mounted anywhere else. Mount it again by hand."_s.arg(device,
                                                                                     problem);
    }
    return {};
}

ToolResult HelperCommands::mountForCaller(const QString &device, const MountPoint &point,
                                          const Caller &caller) const {
    // ntfs-3g takes no "--"; the device and target are absolute paths, never options.
    const QString options = u"rw,uid=%1,gid=%2,%3,windows_names,nosuid,nodev"_s.arg(caller.uid)
                                .arg(caller.gid)
                                .arg(kMasks);
    return m_runner.run(u"ntfs-3g"_s,
                        {u"-o"_s, options, devicePath(device), MountPoint::handedPath()},
                        m_settings.mountLimit, point.folder());
}

void HelperCommands::remember(const QString &device, uid_t uid) const {
    for (const MountEntry &mount : m_facts.mountsOfDevice(device))
        m_record.remember(mount, uid);
}

QString HelperCommands::restore(const QString &device, dev_t number, const MountEntry &mount,
                                const MountPoint &point, std::optional<uid_t> owner) const {
    if (const QString problem = stillUnmounted(device, number); !problem.isEmpty())
        return u"%1 was not mounted again at %2: %3"_s.arg(device, mount.target, problem);
    const ToolResult result = isFuse(mount)
                                  ? m_runner.run(u"ntfs-3g"_s,
                                                 {u"-o"_s, fuseOptions(mount, point.mountedRoot()),
                                                  devicePath(device), MountPoint::handedPath()},
                                                 m_settings.mountLimit, point.folder())
                                  : m_runner.mountOnto(point.folder(), devicePath(device),
                                                       mount.fsType, kernelOptions(mount));
    if (result.ok()) {
        if (owner)
            remember(device, *owner);
        return {};
    }
    qCWarning(lcHelper) << "could not mount" << device << "again at" << mount.target;
    return failure(u"Mounting %1 again at %2 failed"_s.arg(device, mount.target), result);
}

wire::Dictionary HelperCommands::open(const QString &mountPath, const Caller &caller) const {
    if (!m_facts.isMountTarget(mountPath) || !visibleTo(mountPath, caller))
        return result(u"Nothing you can open is mounted at \"%1\"."_s.arg(mountPath));
    return result({});
}

wire::Dictionary HelperCommands::mountReadWrite(const QString &device, const Caller &caller) const {
    std::optional<MountEntry> mount;
    if (const QString problem = singleMount(device, &mount); !problem.isEmpty())
        return result(problem);
    if (!mount)
        return result(u"%1 is not mounted, so there is no mount to make writable."_s.arg(device));
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    const std::optional<uid_t> owner = ownerOf(*mount);
    if (!mount->readOnly() && owner == caller.uid)
        return result({});
    if (!m_settings.privileged || !m_facts.fuseUsable())
        return result(kNoFullDiskAccess);

    const dev_t number = m_facts.deviceNumber(device);
    MountPoint point;
    if (const QString problem = unmountHolding(device, *mount, caller, owner, &point);
        !problem.isEmpty())
        return result(problem);
    if (const QString problem = stillUnmounted(device, number); !problem.isEmpty())
        return result(problem);
    const ToolResult mounted = mountForCaller(device, point, caller);
    if (mounted.ok()) {
        remember(device, caller.uid);
        // ntfs-3g falls back to read-only on a hibernated volume and still reports success.
        const QList<MountEntry> now = m_facts.mountsOfDevice(device);
        const bool writable = std::any_of(
            now.cbegin(), now.cend(), [](const MountEntry &entry) { return !entry.readOnly(); });
        if (writable)
            return result({});
        if (now.isEmpty())
            restore(device, number, *mount, point, owner);
        return result(hibernatedText(mounted));
    }
    // The volume goes back to how it was before anything else is said.
    const QString restoreProblem = restore(device, number, *mount, point, owner);
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

wire::Dictionary HelperCommands::eject(const QString &disk) const {
    const dev_t number = m_facts.deviceNumber(disk);
    QList<MountEntry> mounts = m_facts.mountsOfDisk(disk);
    // Nested mounts go first, so a parent is never busy because of its child.
    std::sort(mounts.begin(), mounts.end(), [](const MountEntry &a, const MountEntry &b) {
        return a.target.size() > b.target.size();
    });
    for (const MountEntry &mount : std::as_const(mounts)) {
        const ToolResult flushed =
            m_runner.run(u"sync"_s, {u"-f"_s, u"--"_s, mount.target}, m_settings.longLimit);
        if (!flushed.ok())
            qCWarning(lcHelper) << "sync of" << mount.target << "failed:" << toolText(flushed);
        if (const QString problem = unmount(mount); !problem.isEmpty())
            return result(problem);
    }
    if (number == 0 || m_facts.deviceNumber(disk) != number)
        return result(u"%1 is no longer the device it was; it was left attached."_s.arg(disk));
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
    std::optional<MountEntry> mount;
    if (const QString problem = singleMount(device, &mount); !problem.isEmpty())
        return result(problem);
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    const dev_t number = m_facts.deviceNumber(device);
    MountPoint point;
    std::optional<uid_t> owner;
    if (mount) {
        owner = ownerOf(*mount);
        if (const QString problem = unmountHolding(device, *mount, caller, owner, &point);
            !problem.isEmpty())
            return result(problem);
    }
    QString text = stillUnmounted(device, number);
    if (text.isEmpty())
        text = tool();
    if (mount) {
        if (const QString problem = restore(device, number, *mount, point, owner);
            !problem.isEmpty())
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
    std::optional<MountEntry> mount;
    if (const QString problem = singleMount(device, &mount); !problem.isEmpty())
        return result(problem);
    if (const QString problem = requireNtfs(device); !problem.isEmpty())
        return result(problem);
    const QString label = m_probe.probe(devicePath(device)).label;
    const dev_t number = m_facts.deviceNumber(device);
    MountPoint point;
    std::optional<uid_t> owner;
    if (mount) {
        owner = ownerOf(*mount);
        if (const QString problem = unmountHolding(device, *mount, caller, owner, &point);
            !problem.isEmpty())
            return result(problem);
    }
    QStringList arguments{u"--fast"_s};
    // As one argument, a label that starts with "-" cannot be taken for an option.
    if (!label.isEmpty())
        arguments << u"--label="_s + label;
    arguments << devicePath(device);
    QString text = stillUnmounted(device, number);
    if (text.isEmpty()) {
        const ToolResult formatted = m_runner.run(u"mkntfs"_s, arguments, m_settings.longLimit);
        if (!formatted.ok())
            text = failure(u"mkntfs could not erase %1"_s.arg(device), formatted);
    }
    if (!text.isEmpty()) {
        if (mount) {
            if (const QString problem = restore(device, number, *mount, point, owner);
                !problem.isEmpty())
                text += u" "_s + problem;
        }
        return result(text);
    }
    qCInfo(lcHelper) << device << "erased";
    if (!mount)
        return result({});
    if (const QString problem = stillUnmounted(device, number); !problem.isEmpty())
        return result(u"%1 was erased but not mounted again: %2"_s.arg(device, problem));
    const ToolResult mounted = mountForCaller(device, point, caller);
    if (mounted.ok())
        remember(device, caller.uid);
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
