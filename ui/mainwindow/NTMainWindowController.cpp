#include "ui/mainwindow/NTMainWindowController.h"

#include "helperclient/NTCommandHelper.h"
#include "system/UserDefaults.h"
#include "ui/controls/Interaction.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/controls/LLImage.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTDiskViewController.h"
#include "ui/mainwindow/NTImageView.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"
#include "ui/mainwindow/StandardOutput.h"
#include "ui_NTMainWindowController.h"
#include "util/TLUtility.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QPromise>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr quint64 kMountReadWriteCommand = 1;
constexpr int kAutoMountDelayMs = 1000;
constexpr double kGroupRowHeight = 28.0;
constexpr double kVolumeRowHeight = 36.0;
const QString kPopRatingKey = u"popRating"_s;

NTDiskDrivePtr recordOf(const QVariant &item) {
    return item.metaType() == QMetaType::fromType<NTDiskDrivePtr>() ? item.value<NTDiskDrivePtr>()
                                                                    : nullptr;
}

QVariant itemOf(const NTDiskDrivePtr &drive) {
    return QVariant::fromValue(drive);
}

template <typename T> T *outlet(T *widget, const char *name) {
    if (!widget)
        qFatal("NTMainWindowController: outlet %s is missing", name);
    return widget;
}

} // namespace

NTMainWindowController::NTMainWindowController(NTDiskManager *diskManager, QWidget *parent)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::NTMainWindowController>())
    , m_diskManager(diskManager ? diskManager : NTDiskManager::shared())
    , m_internalDrive(NTDiskDrive::initWithName(qtTrId("disk_internal"), 0, true))
    , m_externalDrive(NTDiskDrive::initWithName(qtTrId("disk_external"), 1, true)) {
    m_ui->setupUi(this);
    windowDidLoad();
}

NTMainWindowController::~NTMainWindowController() {
    if (m_diskManager->delegate() == this)
        m_diskManager->setDelegate(nullptr);
    // The build reads the manager, which a test may destroy right after the window.
    m_initialBuild.waitForFinished();
}

void NTMainWindowController::windowDidLoad() {
    connect(LLDrakMode::shared(), &LLDrakMode::themeChanged, this,
            &NTMainWindowController::darkModeChangedWithSender);
    qApp->installEventFilter(this);
    darkModeChangedWithSender();

    outlineView()->setDataSource(this);
    outlineView()->setDelegate(this);
    connect(outlineView(), &NTOutlineView::selectionDidChange, this,
            &NTMainWindowController::outlineViewSelectionDidChange);
    outlineView()->reloadData();
    outlineView()->expandItem({}, true);

    startInitialListBuild();
    m_diskManager->setDelegate(this);
    // Nothing is reported until someone follows the mount table; starting twice is harmless.
    m_diskManager->startMonitoring();
    requestRating();
}

void NTMainWindowController::showWindow() {
    show();
    raise();
    activateWindow();
}

bool NTMainWindowController::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() == QEvent::Close && watched->isWidgetType() &&
        static_cast<QWidget *>(watched)->isWindow())
        windowWillCloseWithNotification(static_cast<QWidget *>(watched));
    return QWidget::eventFilter(watched, event);
}

void NTMainWindowController::windowWillCloseWithNotification(QWidget *window) {
    // Linux has no Dock to leave: the window goes, the process and this controller stay.
    if (window == this)
        hide();
}

void NTMainWindowController::darkModeChangedWithSender() {
    rightBgView()->setBackgroundColor(LLDrakMode::isDarkMode() ? QColor::fromRgb(41, 41, 41)
                                                               : QColor(Qt::white));
}

void NTMainWindowController::startInitialListBuild() {
    auto promise = std::make_shared<QPromise<InitialList>>();
    m_initialBuild.setFuture(promise->future());
    connect(&m_initialBuild, &QFutureWatcherBase::finished, this,
            &NTMainWindowController::initialListDidBuild);
    promise->start();
    QThreadPool::globalInstance()->start([promise, manager = m_diskManager] {
        InitialList list;
        const NTDiskDriveList drives = manager->getAllDiskDrive();
        for (const NTDiskDrivePtr &drive : drives)
            (drive->isInternal() ? list.internal : list.external).append(drive);
        promise->addResult(std::move(list));
        promise->finish();
    });
}

void NTMainWindowController::initialListDidBuild() {
    // The groups are filled here rather than on the pool: the list reads them meanwhile.
    const InitialList list = m_initialBuild.result();
    m_internalDrive->childArray().append(list.internal);
    m_externalDrive->childArray().append(list.external);
    outlineView()->reloadItem(itemOf(m_internalDrive), true);
    outlineView()->reloadItem(itemOf(m_externalDrive), true);
    outlineView()->selectRow(1);
    Q_EMIT initialListDidLoad();
}

qint64 NTMainWindowController::numberOfChildrenOfItem(const QVariant &item) const {
    if (!item.isValid())
        return 2;
    const NTDiskDrivePtr record = recordOf(item);
    return record ? record->childArray().size() : 0;
}

QVariant NTMainWindowController::childOfItem(qint64 index, const QVariant &item) const {
    if (!item.isValid()) {
        if (index == 0 || index == 1)
            return itemOf(index == 0 ? m_internalDrive : m_externalDrive);
        return u""_s;
    }
    const NTDiskDrivePtr record = recordOf(item);
    if (!record || index < 0 || index >= record->childArray().size())
        return u""_s;
    return itemOf(record->childArray().at(index));
}

bool NTMainWindowController::isGroupItem(const QVariant &item) const {
    const NTDiskDrivePtr record = recordOf(item);
    return record && record->isGroup();
}

bool NTMainWindowController::isItemExpandable(const QVariant &item) const {
    return isGroupItem(item);
}

bool NTMainWindowController::shouldExpandItem(const QVariant &item) const {
    return isGroupItem(item);
}

bool NTMainWindowController::shouldSelectItem(const QVariant &item) const {
    return !isGroupItem(item);
}

double NTMainWindowController::heightOfRowByItem(const QVariant &item) const {
    return isGroupItem(item) ? kGroupRowHeight : kVolumeRowHeight;
}

NTTableRowView *NTMainWindowController::rowViewForItem(const QVariant &item) {
    auto *row = new NTTableRowView(QRect(QPoint(0, 0), outlineView()->size()));
    if (const NTDiskDrivePtr record = recordOf(item))
        row->setInternal(record->isInternal());
    return row;
}

QWidget *NTMainWindowController::viewForTableColumn(const QVariant &item) {
    const NTDiskDrivePtr record = recordOf(item);
    if (!record)
        return new QWidget;
    auto *cell = new NTTableCellView;
    cell->setObjectName(u"DataCell"_s);
    NTTruncatingLabel *textField = cell->textField();
    if (record->isGroup()) {
        // The heading starts where the volumes' images start.
        cell->imageView()->hide();
        QFont font = textField->font();
        font.setBold(true);
        font.setPointSizeF(font.pointSizeF() * 0.85);
        textField->setFont(font);
        textField->setForegroundRole(QPalette::PlaceholderText);
    } else {
        cell->imageView()->setImage(LLImage::imageNamed(
            record->isInternal() ? u"internaldrive_normal"_s : u"externaldrive_normal"_s));
    }
    textField->setText(record->name());
    return cell;
}

NTDiskDriveList NTMainWindowController::flatRows() const {
    return NTDiskDriveList{m_internalDrive} + m_internalDrive->childArray() +
           NTDiskDriveList{m_externalDrive} + m_externalDrive->childArray();
}

void NTMainWindowController::outlineViewSelectionDidChange() {
    const int row = outlineView()->selectedRow();
    if (row == -1)
        return;
    const NTDiskDriveList rows = flatRows();
    if (row >= rows.size())
        qFatal("NTMainWindowController: row %d is beyond the list of %d", row, int(rows.size()));
    const NTDiskDrivePtr &drive = rows.at(row);
    const QString key = drive->mountPath();
    NTDiskViewController *panel = m_vcDic.value(key);
    if (!panel) {
        panel = new NTDiskViewController(drive, contentBox());
        m_vcDic.insert(key, panel);
    }
    showInBox(panel);
}

void NTMainWindowController::showInBox(NTDiskViewController *panel) {
    if (contentBox()->indexOf(panel->view()) < 0)
        contentBox()->addWidget(panel->view());
    contentBox()->setCurrentWidget(panel->view());
    dropUnlistedPanels();
}

void NTMainWindowController::dropUnlistedPanels() {
    // A panel whose volume went away stays on screen until another one replaces it.
    for (int i = contentBox()->count() - 1; i >= 0; --i) {
        QWidget *view = contentBox()->widget(i);
        const bool listed =
            std::any_of(m_vcDic.cbegin(), m_vcDic.cend(),
                        [view](NTDiskViewController *p) { return p->view() == view; });
        if (listed || view == contentBox()->currentWidget())
            continue;
        contentBox()->removeWidget(view);
        view->deleteLater();
    }
}

bool NTMainWindowController::shouldMountAutomatically(const NTDiskDrive &drive) {
    return NTDiskViewController::isNTFS(drive) && !drive.isWritable() &&
           TLUtility::checkHelperAppInstalled() && TLUtility::checkFuseInstalled();
}

void NTMainWindowController::diskDidMount(const NTDiskDrivePtr &drive) {
    if (!drive)
        return;
    if (shouldMountAutomatically(*drive))
        QTimer::singleShot(kAutoMountDelayMs, this, [this, drive] { autoMountDisk(drive); });
    const NTDiskDrivePtr &group = drive->isInternal() ? m_internalDrive : m_externalDrive;
    group->childArray().append(drive);
    outlineView()->reloadItem(itemOf(group), true);
}

void NTMainWindowController::autoMountDisk(const NTDiskDrivePtr &drive) {
    // Only the external group: an internal volume is never made writable behind one's back.
    const NTDiskDriveList &external = m_externalDrive->childArray();
    if (std::none_of(external.cbegin(), external.cend(), [&drive](const NTDiskDrivePtr &d) {
            return d->mountPath() == drive->mountPath();
        })) {
        StandardOutput::printLine(u"auto mount disCoonected"_s);
        return;
    }
    const wire::Dictionary parameter{{u"name"_s, drive->name()}, {u"bsdName"_s, drive->bsdName()}};
    NTCommandHelper::shared()->sendCommand(
        kMountReadWriteCommand, parameter,
        [window = QPointer(this), drive](const wire::ReplyDictionary &reply) {
            StandardOutput::printLine(u"auto mount result: "_s + StandardOutput::describe(reply));
            // The pointer is read on the main thread only, where the window is destroyed.
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [window, drive] {
                    if (window)
                        window->autoMountDidReply(drive);
                },
                Qt::QueuedConnection);
        });
}

void NTMainWindowController::autoMountDidReply(const NTDiskDrivePtr &drive) {
    if (NTDiskViewController *panel = m_vcDic.value(drive->mountPath())) {
        panel->refreshWriteState(drive->mountPath());
        return;
    }
    drive->setIsWritable(NTDiskManager::checkWrite(drive->mountPath()));
}

void NTMainWindowController::diskDidUnMount(const QString &mountPath) {
    const int selected = outlineView()->selectedRow();
    const NTDiskDriveList rows = flatRows();
    removeFromGroup(m_internalDrive, mountPath, rows, selected);
    removeFromGroup(m_externalDrive, mountPath, rows, selected);
    dropUnlistedPanels();
}

void NTMainWindowController::removeFromGroup(const NTDiskDrivePtr &group, const QString &mountPath,
                                             const NTDiskDriveList &rowsBefore,
                                             int selectedBefore) {
    NTDiskDriveList &children = group->childArray();
    const auto first =
        std::find_if(children.cbegin(), children.cend(),
                     [&](const NTDiskDrivePtr &d) { return d->mountPath() == mountPath; });
    if (first == children.cend())
        return;
    const qsizetype row = rowsBefore.indexOf(*first);
    children.removeIf([&](const NTDiskDrivePtr &d) { return d->mountPath() == mountPath; });
    outlineView()->reloadItem(itemOf(group), true);
    m_vcDic.remove(mountPath);
    if (row >= 0 && row == selectedBefore)
        outlineView()->selectRow(1);
}

void NTMainWindowController::requestRating() {
    UserDefaults &defaults = UserDefaults::standard();
    if (defaults.objectForKey(kPopRatingKey).isValid())
        return;
    Interaction::shared().requestReview();
    defaults.setBool(true, kPopRatingKey);
    defaults.synchronize();
}

NTOutlineView *NTMainWindowController::outlineView() const {
    return outlet(m_ui->outlineView, "outlineView");
}

QStackedWidget *NTMainWindowController::contentBox() const {
    return outlet(m_ui->contentBox, "contentBox");
}

NTBackGroundView *NTMainWindowController::rightBgView() const {
    return outlet(m_ui->rightBgView, "rightBgView");
}

QWidget *NTMainWindowController::leftBgView() const {
    return outlet(m_ui->leftBgView, "leftBgView");
}
