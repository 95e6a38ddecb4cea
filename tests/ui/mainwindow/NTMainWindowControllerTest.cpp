#include "ui/mainwindow/NTMainWindowController.h"

#include "helperclient/NTCommandHelper.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/helperclient/StandInHelper.h"
#include "tests/support/LayoutAudit.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/support/Wait.h"
#include "tests/ui/mainwindow/FakeDisks.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTDiskViewController.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTImageView.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"
#include "util/InstallPaths.h"

#include <QFile>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Standard output into a file the test can read while the window runs.
class StdoutCapture {
public:
    StdoutCapture() {
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        m_file.open();
        ::dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() {
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
    }
    QString text() {
        std::fflush(stdout);
        QFile file(m_file.fileName());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

NTDiskDrivePtr volume(const QString &name, const QString &path, bool internal,
                      const QString &format = u"ext4"_s, bool writable = true) {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setName(name);
    drive->setMountPath(path);
    drive->setBsdName(u"sd"_s + name.toLower());
    drive->setIsInternal(internal);
    drive->setFormatDescription(format);
    drive->setIsWritable(writable);
    return drive;
}

class MainWindow : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(helper().listen());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, helper().socketPath());
    }
    void SetUp() override {
        helper().setHandler(StandInHelper::defaultResponse);
        installed(true, true);
        UserDefaults::standard().setBool(true, u"popRating"_s);
    }
    void TearDown() override { InstallPaths::clearOverrides(); }

    static StandInHelper &helper() {
        static StandInHelper instance;
        return instance;
    }
    void installed(bool helperPresent, bool fusePresent) {
        InstallPaths::clearOverrides();
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, helper().socketPath());
        const QString present = QCoreApplication::applicationFilePath();
        const QString missing = scratch.filePath(u"missing"_s);
        InstallPaths::setOverride(InstallPaths::Component::HelperExecutable,
                                  helperPresent ? present : missing);
        InstallPaths::setOverride(InstallPaths::Component::Ntfs3gDriver,
                                  fusePresent ? present : missing);
        InstallPaths::setOverride(InstallPaths::Component::FuseDevice, present);
    }

    // A window over the fake machine, its first list loaded.
    std::unique_ptr<NTMainWindowController> loadedWindow() {
        // Made after the volumes, which it would otherwise report as mounted since.
        if (!manager)
            manager = std::make_unique<NTDiskManager>(FakeDisks::system(disks));
        auto window = std::make_unique<NTMainWindowController>(manager.get());
        QSignalSpy loaded(window.get(), &NTMainWindowController::initialListDidLoad);
        window->show();
        EXPECT_TRUE(testsupport::waitUntil([&loaded] { return loaded.count() == 1; }));
        return window;
    }
    static QStringList rowNames(const NTMainWindowController &window) {
        QStringList names;
        NTOutlineView *list = window.outlineView();
        for (int row = 0; row < list->numberOfRows(); ++row)
            names << window.outlineView()->itemAtRow(row).value<NTDiskDrivePtr>()->name();
        return names;
    }
    static NTDiskViewController *shownPanel(const NTMainWindowController &window) {
        return qobject_cast<NTDiskViewController *>(window.contentBox()->currentWidget());
    }
    static int requestsSent() { return int(helper().record().requests.size()); }

    QTemporaryDir scratch;
    RecordingInteraction interaction;
    std::shared_ptr<FakeDisks> disks = std::make_shared<FakeDisks>();
    std::unique_ptr<NTDiskManager> manager;
};

TEST_F(MainWindow, AnswersTheOutlineForTheRootRecordsAndAnythingElse) {
    disks->add({u"sda1"_s, u"/"_s, {}, u"ext4"_s, false, false});
    auto window = loadedWindow();
    const QVariant root;
    const QVariant internal = QVariant::fromValue(window->internalDrive());
    const QVariant volumeItem = window->childOfItem(0, internal);
    const QVariant other = u"x"_s;
    struct Case {
        const char *what;
        QVariant item;
        qint64 children;
        bool group, select;
        double height;
    } cases[] = {{"nil", root, 2, false, true, 36.0},
                 {"group", internal, 1, true, false, 28.0},
                 {"volume", volumeItem, 0, false, true, 36.0},
                 {"other", other, 0, false, true, 36.0}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(window->numberOfChildrenOfItem(c.item), c.children);
        EXPECT_EQ(window->isGroupItem(c.item), c.group);
        EXPECT_EQ(window->isItemExpandable(c.item), c.group);
        EXPECT_EQ(window->shouldExpandItem(c.item), c.group);
        EXPECT_EQ(window->shouldSelectItem(c.item), c.select);
        EXPECT_EQ(window->heightOfRowByItem(c.item), c.height);
        EXPECT_EQ(window->childOfItem(5, c.item), QVariant(u""_s));
    }
    EXPECT_EQ(window->childOfItem(1, root).value<NTDiskDrivePtr>(), window->externalDrive());
    EXPECT_EQ(volumeItem.value<NTDiskDrivePtr>()->name(), u"testhost"_s);

    // Cells: the group's heading where the images start, a volume's image and name, nothing else.
    std::unique_ptr<QWidget> groupCell(window->viewForTableColumn(internal));
    std::unique_ptr<QWidget> volumeCell(window->viewForTableColumn(volumeItem));
    std::unique_ptr<QWidget> otherCell(window->viewForTableColumn(other));
    auto *group = qobject_cast<NTTableCellView *>(groupCell.get());
    auto *disk = qobject_cast<NTTableCellView *>(volumeCell.get());
    ASSERT_TRUE(group && disk);
    EXPECT_FALSE(qobject_cast<NTTableCellView *>(otherCell.get()));
    EXPECT_TRUE(group->imageView()->isHidden());
    EXPECT_EQ(group->textField()->text(), qtTrId("disk_internal"));
    EXPECT_FALSE(disk->imageView()->isHidden());
    EXPECT_FALSE(disk->imageView()->image().isNull());
    EXPECT_EQ(disk->textField()->text(), u"testhost"_s);
    std::unique_ptr<NTTableRowView> row(window->rowViewForItem(volumeItem));
    EXPECT_TRUE(row->isInternal());
    EXPECT_EQ(row->size(), window->outlineView()->size());
}

TEST_F(MainWindow, FirstListPutsInternalVolumesFirstAndSelectsRowOne) {
    struct Case {
        const char *what;
        QList<FakeDisks::Volume> volumes;
        QStringList rows;
        QString panelKey;
    } cases[] = {
        {"mixed",
         {{u"sdb1"_s, u"/media/usb"_s, u"USB"_s, u"ntfs"_s, true, false},
          {u"sda1"_s, u"/"_s, u"System"_s, u"ext4"_s, false, false},
          {u"sdc1"_s, u"/media/card"_s, u"Card"_s, u"vfat"_s, true, false},
          {u"sda2"_s, u"/home"_s, u"Home"_s, u"ext4"_s, false, false}},
         {qtTrId("disk_internal"), u"System"_s, u"Home"_s, qtTrId("disk_external"), u"USB"_s,
          u"Card"_s},
         u"/"_s},
        {"no internal volume",
         {{u"sdb1"_s, u"/media/usb"_s, u"USB"_s, u"ntfs"_s, true, false}},
         {qtTrId("disk_internal"), qtTrId("disk_external"), u"USB"_s},
         u""_s},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        disks = std::make_shared<FakeDisks>();
        for (const FakeDisks::Volume &v : c.volumes)
            disks->add(v);
        manager.reset();
        const auto window = loadedWindow();
        EXPECT_EQ(rowNames(*window), c.rows);
        EXPECT_EQ(window->outlineView()->selectedRow(), 1);
        EXPECT_EQ(window->vcDic().keys(), QStringList{c.panelKey});
        ASSERT_TRUE(shownPanel(*window));
        EXPECT_EQ(shownPanel(*window), window->vcDic().value(c.panelKey));
        EXPECT_EQ(shownPanel(*window)->diskDrive(),
                  window->outlineView()->itemAtRow(1).value<NTDiskDrivePtr>());
        for (int row = 0; row < int(c.rows.size()); ++row) {
            NTTableRowView *rowView = window->outlineView()->rowViewAtRow(row);
            ASSERT_TRUE(rowView) << row;
            EXPECT_EQ(rowView->isSelected(), row == 1) << row;
            const bool group =
                c.rows[row] == qtTrId("disk_internal") || c.rows[row] == qtTrId("disk_external");
            EXPECT_EQ(rowView->height(), group ? 28 : 36) << row;
        }
    }
}

TEST_F(MainWindow, SelectionBuildsOnePanelPerMountPathAndGroupsRefuseClicks) {
    disks->add({u"sda1"_s, u"/"_s, u"System"_s, u"ext4"_s, false, false});
    disks->add({u"sdb1"_s, u"/media/usb"_s, u"USB"_s, u"ntfs"_s, true, false});
    auto window = loadedWindow();
    NTOutlineView *list = window->outlineView();
    NTDiskViewController *system = shownPanel(*window);
    list->selectRow(3);
    NTDiskViewController *usb = shownPanel(*window);
    ASSERT_TRUE(usb && usb != system);
    EXPECT_EQ(usb->diskDrive()->name(), u"USB"_s);
    list->selectRow(1);
    EXPECT_EQ(shownPanel(*window), system);
    list->selectRow(3);
    EXPECT_EQ(shownPanel(*window), usb);
    EXPECT_EQ(window->vcDic().size(), 2);
    EXPECT_FALSE(list->rowViewAtRow(1)->isSelected());
    EXPECT_TRUE(list->rowViewAtRow(3)->isSelected());

    // A person's click on a group heading leaves the selection as it was.
    const QRect heading = list->visualRect(
        list->outlineModel()->indexOfItem(QVariant::fromValue(window->externalDrive())));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, heading.center());
    EXPECT_EQ(list->selectedRow(), 3);
    QTest::keyClick(list, Qt::Key_Up);
    EXPECT_EQ(list->selectedRow(), 1);
}

TEST_F(MainWindow, MountsAppendAndUnmountsRemoveEveryRowOfThePath) {
    disks->add({u"sda1"_s, u"/"_s, u"System"_s, u"ext4"_s, false, false});
    auto window = loadedWindow();
    NTOutlineView *list = window->outlineView();
    const NTDiskDrivePtr first = volume(u"Stick"_s, u"/media/stick"_s, false);
    window->diskDidMount(first);
    window->diskDidMount(volume(u"Stick"_s, u"/media/stick"_s, false));
    window->diskDidMount(volume(u"Data"_s, u"/data"_s, true));
    const QString internal = qtTrId("disk_internal"), external = qtTrId("disk_external");
    EXPECT_EQ(rowNames(*window),
              (QStringList{internal, u"System"_s, u"Data"_s, external, u"Stick"_s, u"Stick"_s}));
    EXPECT_EQ(list->selectedRow(), 1);

    // Another volume goes: the selection stays on its volume; its panel is dropped.
    list->selectRow(4);
    NTDiskViewController *stickPanel = shownPanel(*window);
    list->selectRow(2);
    ASSERT_TRUE(window->vcDic().contains(u"/media/stick"_s));
    window->diskDidUnMount(u"/media/stick"_s);
    EXPECT_EQ(rowNames(*window), (QStringList{internal, u"System"_s, u"Data"_s, external}));
    EXPECT_EQ(list->selectedRow(), 2);
    EXPECT_FALSE(window->vcDic().contains(u"/media/stick"_s));
    EXPECT_EQ(window->contentBox()->indexOf(stickPanel), -1);

    // The selected one goes: row 1 is selected and shown.
    window->diskDidUnMount(u"/data"_s);
    EXPECT_EQ(list->selectedRow(), 1);
    EXPECT_EQ(shownPanel(*window)->diskDrive()->name(), u"System"_s);
    // A path nobody has changes nothing.
    window->diskDidUnMount(u"/nowhere"_s);
    EXPECT_EQ(rowNames(*window), (QStringList{internal, u"System"_s, external}));
}

TEST_F(MainWindow, MountsAutomaticallyOnlyReadOnlyWindowsNtfsWithHelperAndFuse) {
    struct Case {
        const char *what;
        QString format;
        bool writable, helperPresent, fusePresent, expected;
    } cases[] = {{"read-only NTFS", u"Windows NTFS"_s, false, true, true, true},
                 {"any case", u"WINDOWS ntfs"_s, false, true, true, true},
                 {"NTFS alone", u"NTFS"_s, false, true, true, false},
                 {"extra words", u"Windows NTFS (compressed)"_s, false, true, true, false},
                 {"writable", u"Windows NTFS"_s, true, true, true, false},
                 {"no helper", u"Windows NTFS"_s, false, false, true, false},
                 {"no FUSE", u"Windows NTFS"_s, false, true, false, false},
                 {"ext4", u"ext4"_s, false, true, true, false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        installed(c.helperPresent, c.fusePresent);
        const NTDiskDrivePtr drive = volume(u"X"_s, u"/media/x"_s, false, c.format, c.writable);
        EXPECT_EQ(NTMainWindowController::shouldMountAutomatically(*drive), c.expected);
    }
}

TEST_F(MainWindow, AutomaticMountAsksTheHelperForExternalVolumesOnly) {
    auto window = loadedWindow();
    StdoutCapture output;
    const int before = requestsSent();
    const NTDiskDrivePtr internal =
        volume(u"Windows"_s, u"/mnt/windows"_s, true, u"Windows NTFS"_s, false);
    window->diskDidMount(internal);
    ASSERT_TRUE(testsupport::waitUntil(
        [&output] { return output.text().contains("auto mount disCoonected\n"_L1); }));

    // An external one whose path cannot be read counts as writable once the helper answered.
    const NTDiskDrivePtr external =
        volume(u"Passport"_s, u"/nonexistent/passport"_s, false, u"Windows NTFS"_s, false);
    window->diskDidMount(external);
    EXPECT_FALSE(external->isWritable());
    ASSERT_TRUE(testsupport::waitUntil([&external] { return external->isWritable(); }));
    const QList<wire::Request> requests = helper().record().requests.mid(before);
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests[0].code, 1u);
    EXPECT_EQ(requests[0].parameter,
              (wire::Dictionary{{u"name"_s, u"Passport"_s}, {u"bsdName"_s, u"sdpassport"_s}}));
    EXPECT_TRUE(output.text().contains("auto mount result: {\"result\": \"\"}\n"_L1))
        << output.text().toStdString();
}

TEST_F(MainWindow, OddOrMissingRepliesNeverHurtTheWindow) {
    auto window = loadedWindow();
    StdoutCapture output;
    helper().setHandler([](const wire::Request &request) {
        return StandInHelper::Response{
            StandInHelper::Response::Kind::Write,
            wire::encodeReply({request.id, {{u"result"_s, 7}, {u"note"_s, QString(20000, u'x')}}})};
    });
    const NTDiskDrivePtr odd =
        volume(u"Odd"_s, u"/nonexistent/odd"_s, false, u"Windows NTFS"_s, false);
    window->diskDidMount(odd);
    ASSERT_TRUE(testsupport::waitUntil([&odd] { return odd->isWritable(); }));
    EXPECT_TRUE(output.text().contains("\"result\": 7"_L1));

    // The window goes before the reply comes: the late reply is printed and nothing else.
    helper().setHandler([](const wire::Request &) {
        return StandInHelper::Response{StandInHelper::Response::Kind::Hold, {}};
    });
    const int before = requestsSent();
    window->diskDidMount(
        volume(u"Late"_s, u"/nonexistent/late"_s, false, u"Windows NTFS"_s, false));
    ASSERT_TRUE(testsupport::waitUntil([before] { return requestsSent() == before + 1; }));
    window.reset();
    helper().setHandler([](const wire::Request &) {
        return StandInHelper::Response{StandInHelper::Response::Kind::Release, {}};
    });
    NTCommandHelper::shared()->sendCommand(7, {}, [](const wire::ReplyDictionary &) {});
    ASSERT_TRUE(testsupport::waitUntil(
        [&output] { return output.text().count("auto mount result: "_L1) == 2; }));
    QCoreApplication::processEvents();
}

TEST_F(MainWindow, ThemeCloseAndRatingHook) {
    UserDefaults::standard().removeObjectForKey(u"popRating"_s);
    auto window = loadedWindow();
    EXPECT_EQ(interaction.reviewRequests, 1);
    EXPECT_TRUE(UserDefaults::standard().boolForKey(u"popRating"_s));
    auto second = loadedWindow();
    EXPECT_EQ(interaction.reviewRequests, 1);

    for (const bool dark : {true, false}) {
        UserDefaults::globalDomain().setObject(dark ? u"Dark"_s : u"Light"_s,
                                               u"AppleInterfaceStyle"_s);
        Q_EMIT LLDrakMode::shared()->themeChanged();
        EXPECT_EQ(window->rightBgView()->backgroundColor(),
                  dark ? QColor::fromRgb(41, 41, 41) : QColor(Qt::white));
    }
    UserDefaults::globalDomain().removeObjectForKey(u"AppleInterfaceStyle"_s);

    // Another window's close changes nothing; this one's hides it and keeps everything.
    QWidget other;
    other.show();
    other.close();
    EXPECT_TRUE(window->isVisible());
    const QStringList rows = rowNames(*window);
    window->close();
    EXPECT_FALSE(window->isVisible());
    window->showWindow();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(rowNames(*window), rows);
}

// The window with each kind of volume selected in turn, and the dialogs with the rename error
// line, in every language: translated texts that fit, rows that screen readers can name.
TEST_F(MainWindow, TextsAreTranslatedAndFitInEveryLanguage) {
    disks->add({u"nvme0n1p2"_s, u"/"_s, u"System"_s, u"ext4"_s, false, false});
    disks->add({u"sdb1"_s, u"/media/anna/My Passport"_s, u"My Passport"_s, u"ntfs"_s, true, true});
    disks->add({u"sdc1"_s, u"/media/anna/Backup"_s, u"Backup"_s, u"ntfs"_s, true, false});
    const QStringList keys = testsupport::translationKeys();
    ASSERT_FALSE(keys.isEmpty());
    const auto expectReadable = [&keys](const QWidget *window, const std::string &where) {
        EXPECT_EQ(testsupport::clippedTexts(window), QStringList()) << where;
        EXPECT_EQ(testsupport::untranslatedTexts(window, keys), QStringList()) << where;
    };
    for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
        MuLanguage::setLanguage(language);
        auto window = loadedWindow();
        NTOutlineModel *model = window->outlineView()->outlineModel();
        const QModelIndex system = model->index(0, 0, model->index(0, 0));
        EXPECT_EQ(model->data(system, Qt::AccessibleTextRole).toString(), u"System"_s);
        EXPECT_EQ(model->data(system, Qt::AccessibleDescriptionRole).toString(),
                  qtTrId("disk_internal"));
        for (int row : {1, 3, 4}) {
            window->outlineView()->selectRow(row);
            QCoreApplication::processEvents();
            expectReadable(window.get(), language.toStdString() + " row " + std::to_string(row));
        }
        NTRenameWindowController rename;
        rename.show();
        rename.okAction();
        NTFullAccessWindowController guide(nullptr, [] { return true; });
        guide.show();
        const QWidget *sheet =
            NTLoadingWindowController::beginSheet(window.get(), qtTrId("disk_erase_loading"));
        QCoreApplication::processEvents();
        for (const QWidget *dialog : std::initializer_list<const QWidget *>{&rename, &guide, sheet})
            expectReadable(dialog,
                           language.toStdString() + " " + dialog->objectName().toStdString());
    }
    MuLanguage::setLanguage({});
}

} // namespace
