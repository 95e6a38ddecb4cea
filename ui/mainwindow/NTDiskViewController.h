#pragma once

#include "disk/NTDiskDrive.h"

#include <QWidget>

#include <memory>

// The detail panel of one volume: its name, icon, used space, device, mount path, format and
// permission, with the actions Open, Eject, Repair, Erase and Rename. Built from its .ui file.
class NTDiskViewController : public QWidget {
    Q_OBJECT
public:
    // The view loads at once: the panel shows diskDrive from the start.
    explicit NTDiskViewController(NTDiskDrivePtr diskDrive, QWidget *parent = nullptr);
    ~NTDiskViewController() override;

    NTDiskDrivePtr diskDrive() const { return m_diskDrive; }
    QWidget *view() { return this; }

    // Re-reads whether mountPath is writable, stores it in the drive and updates the panel.
    void refreshWriteState(const QString &mountPath);

private:
    NTDiskDrivePtr m_diskDrive;
};
