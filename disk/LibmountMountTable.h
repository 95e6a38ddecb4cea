#pragma once

#include "disk/MountTable.h"

// Parses a mountinfo file with libmount, which undoes the kernel's escapes (\040, \012, ...).
class LibmountMountTable final : public MountTable {
public:
    explicit LibmountMountTable(QString mountInfoPath = QStringLiteral("/proc/self/mountinfo"));
    QList<MountEntry> read() const override;
    QString path() const { return m_path; }

private:
    QString m_path;
};
