#pragma once

#include "disk/NTDiskDrive.h"
#include "helperclient/wire/WireCodec.h"

#include <QWidget>

#include <memory>

class LLButton;
class LLLineProgressView;
class NTBackGroundView;
class NTFullDiskAccessAuthorizer;
class NTImageView;
class QLabel;
class QToolButton;
namespace Ui {
class NTDiskViewController;
}

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

    // Its format text, lower-cased, is exactly "windows ntfs".
    static bool isNTFS(const NTDiskDrive &drive);
    // "zh", "ja", "de", "fr" or "en", from the first preferred language.
    static QString guideLanguage();

    // The buttons' actions. Helper replies come back on the command channel's thread and reach
    // the panel only while it exists.
    void openDisk();
    void ejectDisk();
    void repairDisk();
    void eraseDisk();
    void reName();

    NTFullDiskAccessAuthorizer *fullDisk() const { return m_fullDisk.get(); }
    LLButton *ejectButton() const;
    LLButton *openButton() const;
    LLButton *repairButton() const;
    LLButton *eraseButton() const;
    QLabel *freetotalSize() const;
    NTImageView *diskImageView() const;
    QLabel *diskNameField() const;
    LLLineProgressView *progressView() const;
    NTBackGroundView *bgView1() const;
    NTBackGroundView *bgView2() const;
    QLabel *bsdNameKeyField() const;
    QLabel *bsdNameValueField() const;
    QLabel *mountPathKeyField() const;
    QLabel *mountPathValueField() const;
    QLabel *formatKeyField() const;
    QLabel *formatValueField() const;
    QLabel *permissionKeyField() const;
    QLabel *permissionValueField() const;
    QToolButton *reNameButton() const;

private:
    void viewDidLoad();
    void darkModeChangedWithSender();
    void showPermission(bool writable);
    void openWithoutHelper();
    void openWithRootAccess();
    struct LoadingTexts {
        const char *loadingKey;
        const char *successKey;
        QString printedPrefix;
        int endDelayMs;
    };
    void runLoadingCommand(quint64 code, const wire::Dictionary &parameter,
                           const LoadingTexts &texts);
    void popHelperInstallWithTip(const QString &tip);
    void fullDiskWindow();
    void mountFailed(const QString &reason);
    void subRename();
    void renameActionWithDic(const wire::ReplyDictionary &dic);

    NTDiskDrivePtr m_diskDrive;
    std::unique_ptr<Ui::NTDiskViewController> m_ui;
    std::unique_ptr<NTFullDiskAccessAuthorizer> m_fullDisk;
};
