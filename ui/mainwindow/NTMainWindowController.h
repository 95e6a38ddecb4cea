#pragma once

#include "disk/NTDiskManager.h"
#include "ui/mainwindow/NTOutlineModel.h"
#include "ui/mainwindow/NTOutlineView.h"

#include <QFutureWatcher>
#include <QHash>
#include <QWidget>

#include <memory>

class NTBackGroundView;
class NTDiskViewController;
class QStackedWidget;
namespace Ui {
class NTMainWindowController;
}

// The main window: every mounted volume in an internal and an external group on the left, the
// selected one's detail panel on the right. It follows the disk manager's mounts and unmounts
// and asks the helper to make a newly mounted read-only NTFS volume writable.
class NTMainWindowController : public QWidget,
                               public DiskMountDelegate,
                               public NTOutlineViewDataSource,
                               public NTOutlineViewDelegate {
    Q_OBJECT
public:
    // Volumes come from diskManager (the shared one when null), which reports to this window
    // from now on and is made to follow the mount table.
    explicit NTMainWindowController(NTDiskManager *diskManager = nullptr,
                                    QWidget *parent = nullptr);
    ~NTMainWindowController() override;

    void showWindow();
    // Closing this window only hides it; the list and the panels stay for the next showWindow().
    void windowWillCloseWithNotification(QWidget *window);
    void darkModeChangedWithSender();

    qint64 numberOfChildrenOfItem(const QVariant &item) const override;
    QVariant childOfItem(qint64 index, const QVariant &item) const override;
    bool isGroupItem(const QVariant &item) const;
    bool isItemExpandable(const QVariant &item) const override;
    bool shouldExpandItem(const QVariant &item) const override;
    bool shouldSelectItem(const QVariant &item) const override;
    double heightOfRowByItem(const QVariant &item) const override;
    NTTableRowView *rowViewForItem(const QVariant &item) override;
    QWidget *viewForTableColumn(const QVariant &item) override;
    void outlineViewSelectionDidChange();

    void diskDidMount(const NTDiskDrivePtr &drive) override;
    void diskDidUnMount(const QString &mountPath) override;

    // A read-only Windows NTFS volume, with the helper and the FUSE driver installed.
    static bool shouldMountAutomatically(const NTDiskDrive &drive);

    NTDiskDrivePtr internalDrive() const { return m_internalDrive; }
    NTDiskDrivePtr externalDrive() const { return m_externalDrive; }
    // The detail panels built so far, by mount path ("" for a group's).
    const QHash<QString, NTDiskViewController *> &vcDic() const { return m_vcDic; }

    NTOutlineView *outlineView() const;
    QStackedWidget *contentBox() const;
    NTBackGroundView *rightBgView() const;
    QWidget *leftBgView() const;

Q_SIGNALS:
    // The first list is on screen with row 1 selected.
    void initialListDidLoad();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    struct InitialList {
        NTDiskDriveList internal;
        NTDiskDriveList external;
    };

    void windowDidLoad();
    void startInitialListBuild();
    void initialListDidBuild();
    void autoMountDisk(const NTDiskDrivePtr &drive);
    void autoMountDidReply(const NTDiskDrivePtr &drive);
    void removeFromGroup(const NTDiskDrivePtr &group, const QString &mountPath,
                         const NTDiskDriveList &rowsBefore, int selectedBefore);
    void showInBox(NTDiskViewController *panel);
    void dropUnlistedPanels();
    void requestRating();
    NTDiskDriveList flatRows() const;

    std::unique_ptr<Ui::NTMainWindowController> m_ui;
    NTDiskManager *const m_diskManager;
    const NTDiskDrivePtr m_internalDrive;
    const NTDiskDrivePtr m_externalDrive;
    QHash<QString, NTDiskViewController *> m_vcDic;
    QFutureWatcher<InitialList> m_initialBuild;
};
