#include "ui/mainwindow/NTDiskViewController.h"

#include "analytics/GoogleAnalytics.h"
#include "disk/NTDiskManager.h"
#include "helperclient/NTCommandHelper.h"
#include "helperclient/NTDiskHelper.h"
#include "helperclient/wire/HelperCommand.h"
#include "system/LLShareBookmark.h"
#include "system/MuLanguage.h"
#include "system/NTFullDiskAccessAuthorizer.h"
#include "ui/controls/Interaction.h"
#include "ui/controls/LLButton.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/controls/LLImage.h"
#include "ui/controls/LLLineProgressView.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/StandardOutput.h"
#include "ui_NTDiskViewController.h"
#include "util/TLUtility.h"
#include "util/VendorSite.h"

#include <QCborValue>
#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace helpercommand;
using Panel = QPointer<NTDiskViewController>;

namespace {

constexpr double kPaneCornerRadius = 6.0;
constexpr int kRefreshDelayMs = 1000;
constexpr int kRepairEndDelayMs = 1000;
constexpr int kEraseEndDelayMs = 2000;
// A helper's reason is shown in an alert; a longer one would only make the alert unusable.
constexpr qsizetype kMaxShownReason = 600;

void track(const QString &action, const QString &param = {}) {
    GoogleAnalytics::trackEventName(u"DiskOperation"_s, action, param);
}

QString shownReason(const QString &reason) {
    return reason.size() <= kMaxShownReason ? reason : reason.left(kMaxShownReason) + QChar(0x2026);
}

void sendPrinting(quint64 code, const wire::Dictionary &parameter, const QString &prefix) {
    NTCommandHelper::shared()->sendCommand(
        code, parameter, [prefix](const wire::ReplyDictionary &reply) {
            StandardOutput::printLine(prefix + StandardOutput::describe(reply));
        });
}

// Replies run on the channel's thread. The hop goes through the application object, which
// outlives every panel, and checks the panel there, on the thread that deletes it.
template <typename Work> void onMainThreadWaiting(const Panel &panel, Work work) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [panel, work] {
            if (panel)
                work(panel.data());
        },
        Qt::BlockingQueuedConnection);
}

// The timer starts on the main thread: one started here would belong to no thread's dispatcher
// and outlive the program when it quits first.
template <typename Work> void onMainThreadAfter(int delayMs, const Panel &panel, Work work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), [delayMs, panel, work] {
        QTimer::singleShot(delayMs, QCoreApplication::instance(), [panel, work] {
            if (panel)
                work(panel.data());
        });
    });
}

// Labels beside their values, quieter than the values yet readable on the pane (contrast 4.5:1).
QColor secondaryTextColour(bool dark) {
    const int grey = dark ? 208 : 110;
    return QColor::fromRgb(grey, grey, grey);
}

QColor paneColour(bool dark) {
    const int grey = dark ? 90 : 245;
    return QColor::fromRgb(grey, grey, grey);
}

// The actions beside Open stay quiet, so the one that is usually wanted stands out.
QColor quietButtonColour(bool dark, int state) {
    const int light[] = {226, 214, 200};
    const int darkGrey[] = {74, 86, 98};
    const int grey = dark ? darkGrey[state] : light[state];
    return QColor::fromRgb(grey, grey, grey);
}

QIcon driveIcon(const NTDiskDrive &drive) {
    const QIcon fallback = LLImage::imageNamed(drive.isInternal() ? u"internaldrive_normal"_s
                                                                  : u"externaldrive_normal"_s);
    return drive.icon().isEmpty() ? fallback : QIcon::fromTheme(drive.icon(), fallback);
}

double usedShare(const NTDiskDrive &drive) {
    if (drive.totalSize() <= 0)
        return 0.0;
    const double used = double(drive.totalSize() - drive.freeSize()) / double(drive.totalSize());
    return qBound(0.0, used, 1.0);
}

} // namespace

NTDiskViewController::NTDiskViewController(NTDiskDrivePtr diskDrive, QWidget *parent)
    : QWidget(parent)
    , m_diskDrive(diskDrive ? std::move(diskDrive) : std::make_shared<NTDiskDrive>())
    , m_ui(std::make_unique<Ui::NTDiskViewController>()) {
    m_ui->setupUi(this);
    viewDidLoad();
}

NTDiskViewController::~NTDiskViewController() = default;

bool NTDiskViewController::isNTFS(const NTDiskDrive &drive) {
    return drive.formatDescription().toLower() == u"windows ntfs";
}

QString NTDiskViewController::guideLanguage() {
    return VendorSite::guideLanguage(
        MuLanguage::languageForPreferredLanguages(MuLanguage::preferredLanguages()));
}

void NTDiskViewController::viewDidLoad() {
    const NTDiskDrive &drive = *m_diskDrive;
    m_fullDisk = std::make_unique<NTFullDiskAccessAuthorizer>();
    bgView1()->setCornerRadius(kPaneCornerRadius);
    bgView2()->setCornerRadius(kPaneCornerRadius);
    connect(LLDrakMode::shared(), &LLDrakMode::themeChanged, this,
            &NTDiskViewController::darkModeChangedWithSender);
    darkModeChangedWithSender();

    progressView()->setMaxProgressValue(1.0);
    progressView()->setBackgroundColor(QColor::fromRgb(191, 191, 191));
    progressView()->setProgressColor(QColor::fromRgb(50, 187, 187));
    progressView()->setProgressValue(usedShare(drive));

    diskImageView()->setImage(driveIcon(drive));
    diskImageView()->setAccessibleName(drive.name());
    diskNameField()->setText(drive.name());
    diskNameField()->setToolTip(drive.name());
    QFont nameFont = diskNameField()->font();
    nameFont.setBold(true);
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.35);
    diskNameField()->setFont(nameFont);

    const std::pair<QLabel *, const char *> keys[] = {
        {bsdNameKeyField(), "disk_info_device"},
        {mountPathKeyField(), "disk_info_mountpath"},
        {formatKeyField(), "disk_info_format"},
        {permissionKeyField(), "disk_info_permission"},
    };
    for (const auto &[field, key] : keys) {
        field->setText(qtTrId(key));
    }
    bsdNameValueField()->setText(drive.bsdName());
    mountPathValueField()->setText(drive.mountPath());
    mountPathValueField()->setToolTip(drive.mountPath());
    formatValueField()->setText(drive.formatDescription());
    showPermission(drive.isWritable());

    freetotalSize()->setText(qtTrId("disk_totalsize_freesize")
                                 .arg(TLUtility::getFileSizeStrWithSize(drive.freeSize()),
                                      TLUtility::getFileSizeStrWithSize(drive.totalSize())));
    progressView()->setAccessibleName(freetotalSize()->text());

    if (!drive.isEjectable())
        ejectButton()->hide();
    openButton()->setText(qtTrId("disk_action_open"));
    ejectButton()->setText(qtTrId("disk_action_eject"));
    repairButton()->setText(qtTrId("disk_action_repair"));
    eraseButton()->setText(qtTrId("disk_action_erase"));
    repairButton()->hide();
    eraseButton()->hide();
    reNameButton()->setAccessibleName(qtTrId("rename_window_title"));
    reNameButton()->setToolTip(reNameButton()->accessibleName());

    connect(openButton(), &QPushButton::clicked, this, &NTDiskViewController::openDisk);
    connect(ejectButton(), &QPushButton::clicked, this, &NTDiskViewController::ejectDisk);
    connect(repairButton(), &QPushButton::clicked, this, &NTDiskViewController::repairDisk);
    connect(eraseButton(), &QPushButton::clicked, this, &NTDiskViewController::eraseDisk);
    connect(reNameButton(), &QToolButton::clicked, this, &NTDiskViewController::reName);

    if (!isNTFS(drive))
        return;
    repairButton()->show();
    eraseButton()->show();
    reNameButton()->show();
    if (!drive.isWritable()) {
        openButton()->setText(qtTrId("disk_action_openrw"));
        repairButton()->setEnabled(false);
        eraseButton()->setEnabled(false);
    }
}

void NTDiskViewController::darkModeChangedWithSender() {
    const bool dark = LLDrakMode::isDarkMode();
    reNameButton()->setIcon(LLImage::imageNamed(dark ? u"disk_rename_dark"_s : u"disk_rename"_s));
    bgView1()->setBackgroundColor(paneColour(dark));
    bgView2()->setBackgroundColor(paneColour(dark));
    for (QLabel *label : {bsdNameKeyField(), mountPathKeyField(), formatKeyField(),
                          permissionKeyField(), freetotalSize()}) {
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText, secondaryTextColour(dark));
        label->setPalette(palette);
    }
    for (LLButton *button : {ejectButton(), repairButton(), eraseButton()}) {
        for (int state = 0; state < 3; ++state)
            button->setBackgroundColorForSate(quietButtonColour(dark, state), state);
    }
}

void NTDiskViewController::showPermission(bool writable) {
    permissionValueField()->setText(
        qtTrId(writable ? "disk_permission_readwrite" : "disk_permission_readonly"));
}

void NTDiskViewController::refreshWriteState(const QString &mountPath) {
    const bool writable = NTDiskManager::checkWrite(mountPath);
    m_diskDrive->setIsWritable(writable);
    if (writable)
        openButton()->setText(qtTrId("disk_action_open"));
    showPermission(writable);
    repairButton()->setEnabled(writable);
    eraseButton()->setEnabled(writable);
}

void NTDiskViewController::openDisk() {
    const NTDiskDrivePtr drive = m_diskDrive;
    const bool ntfs = isNTFS(*drive);
    if (!TLUtility::checkHelperAppInstalled() || !TLUtility::checkFuseInstalled()) {
        if (ntfs) {
            popHelperInstallWithTip(qtTrId("disk_installhelper_tip"));
            return;
        }
        track(u"open"_s, u"drivenotinstall"_s);
        openWithoutHelper();
        return;
    }
    const Panel panel(this);
    if (ntfs && !drive->isWritable()) {
        track(u"open"_s, u"ntfs read&write"_s);
        NTCommandHelper::shared()->sendCommand(
            kMountReadWrite, mountParameter(drive->name(), drive->bsdName()),
            [panel, drive](const wire::ReplyDictionary &reply) {
                const std::optional<QString> result = resultOf(reply);
                if (result == u"nofulldiskaccess"_s) {
                    track(u"open"_s, u"nofulldiskaccess"_s);
                    onMainThreadWaiting(panel, [](auto *self) { self->fullDiskWindow(); });
                    StandardOutput::printLine(u"mountDisk result:nofulldiskaccess"_s);
                    return;
                }
                onMainThreadAfter(kRefreshDelayMs, panel, [](auto *self) {
                    self->refreshWriteState(self->diskDrive()->mountPath());
                });
                if (result && result->isEmpty()) {
                    track(u"mount success"_s,
                          u"name:"_s + drive->name() + u"&bsdName:"_s + drive->bsdName());
                    StandardOutput::printLine(u"mountDisk success"_s);
                    return;
                }
                const QString reason = result.value_or(QString());
                onMainThreadWaiting(panel, [reason](auto *self) { self->mountFailed(reason); });
                track(u"mount failed"_s, u"failed:"_s + StandardOutput::describe(reply));
                StandardOutput::printLine(u"mountDisk result:"_s + StandardOutput::describe(reply));
            });
        return;
    }
    track(u"open"_s, u"driveinstall"_s);
    const QString mountPath = drive->mountPath();
    NTCommandHelper::shared()->sendCommand(
        kOpen, openParameter(mountPath), [panel, mountPath](const wire::ReplyDictionary &reply) {
            StandardOutput::printLine(u"openDisk result:"_s + StandardOutput::describe(reply));
            if (resultOf(reply) != u""_s)
                return;
            // The helper only says the folder may be shown; the person's own session shows it.
            QMetaObject::invokeMethod(QCoreApplication::instance(), [panel, mountPath] {
                if (panel)
                    Interaction::shared().openUrl(QUrl::fromLocalFile(mountPath));
            });
        });
}

void NTDiskViewController::openWithoutHelper() {
    if (LLShareBookmark::defaultShareBookmark()
            .BookmarkStartAccessingSecurityScopedResourceWithFilePath(u"/"_s)) {
        NTDiskHelper::openDisk(m_diskDrive->mountPath());
        return;
    }
    openWithRootAccess();
}

void NTDiskViewController::openWithRootAccess() {
    const QString chosen =
        Interaction::shared().chooseFolder(window(), qtTrId("disk_fullaccess_tip"), u"/"_s);
    if (chosen.isEmpty())
        return;
    LLShareBookmark &bookmarks = LLShareBookmark::defaultShareBookmark();
    bookmarks.saveOpenFileToBookmarkWithFilePath(chosen);
    bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(u"/"_s);
    NTDiskHelper::openDisk(m_diskDrive->mountPath());
}

void NTDiskViewController::ejectDisk() {
    const NTDiskDrivePtr drive = m_diskDrive;
    QThreadPool::globalInstance()->start([drive] {
        if (TLUtility::checkHelperAppInstalled()) {
            track(u"eject"_s, u"driveinstall"_s);
            sendPrinting(kEject, ejectParameter(drive->name(), drive->bsdName()),
                         u"ejectDisk result:"_s);
            return;
        }
        track(u"eject"_s, u"drivenotinstall"_s);
        NTDiskHelper::ejectDiskWithDrive(drive);
    });
}

void NTDiskViewController::repairDisk() {
    track(u"repair"_s);
    if (m_diskDrive->isWritable())
        runLoadingCommand(kRepair, repairParameter(m_diskDrive->bsdName()),
                          {"disk_repair_loading", "disk_repair_success", u"repairDisk result:"_s,
                           kRepairEndDelayMs});
}

void NTDiskViewController::eraseDisk() {
    track(u"eraseDisk"_s);
    if (!m_diskDrive->isWritable())
        return;
    const Interaction::Alert confirm{{},
                                     qtTrId("disk_erase_title"),
                                     {qtTrId("disk_erase_ok"), qtTrId("disk_installhelper_cancel")},
                                     Interaction::AlertStyle::Warning};
    if (Interaction::shared().runAlert(window(), confirm) != Interaction::kFirstButtonReturn)
        return;
    runLoadingCommand(
        kErase, eraseParameter(m_diskDrive->bsdName()),
        {"disk_erase_loading", "disk_erase_success", u"eraseDisk result:"_s, kEraseEndDelayMs});
}

// Repair and erase: the sheet stays up until the reply, whatever it says, then tells of success
// and ends a moment later. A reply that never comes leaves the sheet up.
void NTDiskViewController::runLoadingCommand(quint64 code, const wire::Dictionary &parameter,
                                             const LoadingTexts &texts) {
    const QPointer<NTLoadingWindowController> sheet =
        NTLoadingWindowController::beginSheet(this, qtTrId(texts.loadingKey));
    NTCommandHelper::shared()->sendCommand(
        code, parameter, [sheet, texts](const wire::ReplyDictionary &reply) {
            StandardOutput::printLine(texts.printedPrefix + StandardOutput::describe(reply));
            QMetaObject::invokeMethod(QCoreApplication::instance(), [sheet, texts] {
                if (!sheet)
                    return;
                sheet->tipTextField()->setText(qtTrId(texts.successKey));
                QTimer::singleShot(texts.endDelayMs, sheet.data(), &QDialog::close);
            });
        });
}

void NTDiskViewController::reName() {
    track(u"reName"_s);
    if (!TLUtility::checkHelperAppInstalled()) {
        popHelperInstallWithTip(qtTrId("diskrename_installhelper_tip"));
        return;
    }
    const Panel panel(this);
    NTCommandHelper::shared()->sendCommand(
        kHelperVersion, helperVersionParameter(), [panel](const wire::ReplyDictionary &reply) {
            if (isHelperVersionCurrent(reply)) {
                onMainThreadWaiting(panel, [](auto *self) { self->subRename(); });
                return;
            }
            onMainThreadWaiting(panel, [](auto *self) {
                self->popHelperInstallWithTip(qtTrId("diskrename_installhelper_updatetip"));
            });
        });
}

void NTDiskViewController::subRename() {
    const Panel panel(this);
    const NTDiskDrivePtr drive = m_diskDrive;
    NTRenameWindowController::present(this, [panel, drive](int response,
                                                           const std::optional<QString> &name) {
        if (response != 1 || !name) {
            track(u"reName"_s, u"cancel"_s);
            return;
        }
        track(u"reName"_s, u"ok"_s);
        NTCommandHelper::shared()->sendCommand(kRename, renameParameter(*name, drive->bsdName()),
                                               [panel](const wire::ReplyDictionary &reply) {
                                                   onMainThreadWaiting(panel, [reply](auto *self) {
                                                       self->renameActionWithDic(reply);
                                                   });
                                               });
    });
}

void NTDiskViewController::renameActionWithDic(const wire::ReplyDictionary &dic) {
    const auto found = dic.constFind(u"result"_s);
    if (found == dic.cend())
        return;
    const std::optional<QString> result = resultOf(dic);
    if (!result || !result->isEmpty()) {
        track(u"reName"_s, u"failed"_s);
        const QString reason =
            result ? *result : QCborValue::fromVariant(*found).toDiagnosticNotation();
        Interaction::shared().runAlert(window(),
                                       {{},
                                        qtTrId("diskrename_failed_tip").arg(shownReason(reason)),
                                        {qtTrId("Alert_Ok")},
                                        Interaction::AlertStyle::Warning});
        return;
    }
    track(u"reName"_s, u"success"_s);
    const Interaction::Alert success{
        {},
        qtTrId("diskrename_success_tip"),
        {qtTrId("disk_action_eject"), qtTrId("disk_installhelper_cancel")}};
    if (Interaction::shared().runAlert(window(), success) == Interaction::kFirstButtonReturn)
        sendPrinting(kEject, ejectParameter(m_diskDrive->name(), m_diskDrive->bsdName()),
                     u"ejectDisk result:"_s);
}

void NTDiskViewController::popHelperInstallWithTip(const QString &tip) {
    track(u"download"_s, u"pop"_s);
    const Interaction::Alert offer{
        {}, tip, {qtTrId("disk_installhelper_install"), qtTrId("disk_installhelper_cancel")}};
    if (Interaction::shared().runAlert(window(), offer) != Interaction::kFirstButtonReturn) {
        track(u"download"_s, u"cancel download"_s);
        return;
    }
    track(u"download"_s, u"start download"_s);
    if (const QUrl installer = VendorSite::helperInstallerUrl(); installer.isValid())
        Interaction::shared().openUrl(installer);
}

void NTDiskViewController::fullDiskWindow() {
    NTFullAccessWindowController::present(window());
}

void NTDiskViewController::mountFailed(const QString &reason) {
    Interaction::Alert alert{
        {},
        qtTrId("mount_failed_title"),
        {qtTrId("mount_failed_checkdocument"), qtTrId("disk_installhelper_cancel")},
        Interaction::AlertStyle::Warning};
    alert.informativeText = shownReason(reason);
    if (Interaction::shared().runAlert(window(), alert) != Interaction::kFirstButtonReturn)
        return;
    track(u"view document"_s);
    if (const QUrl guide = VendorSite::helperGuideUrl(guideLanguage()); guide.isValid())
        Interaction::shared().openUrl(guide);
}

LLButton *NTDiskViewController::ejectButton() const {
    return m_ui->ejectButton;
}

LLButton *NTDiskViewController::openButton() const {
    return m_ui->openButton;
}

LLButton *NTDiskViewController::repairButton() const {
    return m_ui->repairButton;
}

LLButton *NTDiskViewController::eraseButton() const {
    return m_ui->eraseButton;
}

QLabel *NTDiskViewController::freetotalSize() const {
    return m_ui->freetotalSize;
}

NTImageView *NTDiskViewController::diskImageView() const {
    return m_ui->diskImageView;
}

QLabel *NTDiskViewController::diskNameField() const {
    return m_ui->diskNameField;
}

LLLineProgressView *NTDiskViewController::progressView() const {
    return m_ui->progressView;
}

NTBackGroundView *NTDiskViewController::bgView1() const {
    return m_ui->bgView1;
}

NTBackGroundView *NTDiskViewController::bgView2() const {
    return m_ui->bgView2;
}

QLabel *NTDiskViewController::bsdNameKeyField() const {
    return m_ui->bsdNameKeyField;
}

QLabel *NTDiskViewController::bsdNameValueField() const {
    return m_ui->bsdNameValueField;
}

QLabel *NTDiskViewController::mountPathKeyField() const {
    return m_ui->mountPathKeyField;
}

QLabel *NTDiskViewController::mountPathValueField() const {
    return m_ui->mountPathValueField;
}

QLabel *NTDiskViewController::formatKeyField() const {
    return m_ui->formatKeyField;
}

QLabel *NTDiskViewController::formatValueField() const {
    return m_ui->formatValueField;
}

QLabel *NTDiskViewController::permissionKeyField() const {
    return m_ui->permissionKeyField;
}

QLabel *NTDiskViewController::permissionValueField() const {
    return m_ui->permissionValueField;
}

QToolButton *NTDiskViewController::reNameButton() const {
    return m_ui->reNameButton;
}
