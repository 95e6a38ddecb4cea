#pragma once

#include "helper/DeviceFacts.h"
#include "helper/ToolRunner.h"
#include "helper/VolumeProbe.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

namespace helpertest {

// A sysfs, procfs and /dev tree in a scratch folder, shaped like a machine with:
//   sda (SATA, internal): sda1, sda2 (holds /), sda3 (under dm-0, which holds /home)
//   sdb (USB stick): sdb1
//   sdc (SATA, internal): sdc1 (active swap)
//   sdd (SATA, internal, not used by the system): sdd1
//   mmcblk0 (SD card): mmcblk0p1
//   loop0 (disk image, partitioned): loop0p1, loop0p2
//   loop1 (disk image, whole-disk file system)
class FakeSystem {
public:
    FakeSystem();
    helper::SystemRoots roots() const;
    QString path(const QString &relative) const;

    // mountinfo lines: "device target fstype options superOptions" are filled into the format.
    void setMounts(const QStringList &lines);
    void addMount(const QString &device, const QString &target, const QString &fsType,
                  const QString &options, const QString &superOptions = QStringLiteral("rw"));
    void removeMount(const QString &target);
    void writeFile(const QString &relative, const QByteArray &content) const;
    void removeFuse() const;

private:
    void addDisk(const QString &devicePath, const QString &disk, int major, int minor,
                 const QStringList &partitions);
    void writeMountInfo() const;

    QTemporaryDir m_dir;
    QStringList m_mountLines;
    int m_nextMountId = 100;
};

struct ToolCall {
    QString program;
    QStringList arguments;
};

// Records every tool call and answers from a script; a call the script does not know succeeds
// with no output.
class FakeToolRunner : public helper::ToolRunner {
public:
    using Script = std::function<helper::ToolResult(const ToolCall &)>;

    helper::ToolResult run(const QString &program, const QStringList &arguments,
                           std::chrono::milliseconds limit) override;
    bool spawnAs(const QString &program, const QStringList &arguments,
                 const helper::Identity &identity, QString *why) override;
    // Recorded as the call of umount it stands for.
    helper::ToolResult unmount(const QString &target) override;

    void setScript(Script script) { m_script = std::move(script); }
    static helper::ToolResult success(const QString &output = {});
    static helper::ToolResult failure(int exitCode, const QString &errorOutput);

    QList<ToolCall> calls;
    QList<helper::Identity> spawnedAs;

private:
    Script m_script;
};

// Answers every probe with `volume` and remembers what was asked.
class FakeVolumeProbe : public helper::VolumeProbe {
public:
    Volume probe(const QString &devicePath) const override {
        probed.append(devicePath);
        return volume;
    }
    Volume volume;
    mutable QStringList probed;
};

} // namespace helpertest
