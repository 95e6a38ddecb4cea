#include "tests/helper/DaemonFixture.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/support/Udevd.h"
#include "tests/support/Wait.h"
#include "ui/controls/LLButton.h"
#include "ui/mainwindow/NTDiskViewController.h"
#include "ui/mainwindow/NTMainWindowController.h"
#include "util/InstallPaths.h"

#include <QLabel>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The real window on the real disk manager and the real helper: an NTFS volume mounted read-only
// after the window has loaded is listed, becomes writable where it is, and goes when unmounted.
class MainWindowOnRealDisks : public DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        ASSERT_EQ(udevd.start(), QString());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, socketPath);
        InstallPaths::setOverride(InstallPaths::Component::HelperExecutable,
                                  QStringLiteral(VANTRELO_HELPER_DAEMON));
    }
    void TearDown() override {
        InstallPaths::clearOverrides();
        DaemonTest::TearDown();
    }

    static NTDiskDriveList listedAt(const NTMainWindowController &window, const QString &path) {
        NTDiskDriveList listed;
        for (const NTDiskDrivePtr &drive : window.externalDrive()->childArray())
            if (drive->mountPath() == path)
                listed.append(drive);
        return listed;
    }
    // Selects the external volume's row; its panel, built now if it was not yet.
    static NTDiskViewController *select(NTMainWindowController &window,
                                        const NTDiskDrivePtr &drive) {
        window.outlineView()->selectRow(int(2 + window.internalDrive()->childArray().size() +
                                            window.externalDrive()->childArray().indexOf(drive)));
        return window.vcDic().value(drive->mountPath());
    }

    testsupport::Udevd udevd;
    RecordingInteraction interaction;
};

TEST_F(MainWindowOnRealDisks, ReadOnlyNtfsBecomesWritableInPlaceAndLeavesTheList) {
    NTMainWindowController window;
    bool loaded = false;
    QObject::connect(&window, &NTMainWindowController::initialListDidLoad, &window,
                     [&loaded] { loaded = true; });
    window.showWindow();
    ASSERT_TRUE(testsupport::waitUntil([&loaded] { return loaded; }));

    std::unique_ptr<testsupport::LoopImage> image = ntfsImage(u"Auto"_s);
    ASSERT_TRUE(image);
    ASSERT_EQ(testsupport::Udevd::refresh(image->device()), QString());
    QString why;
    const QString path = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(path.isEmpty()) << why.toStdString();

    ASSERT_TRUE(testsupport::waitUntil([&] { return !listedAt(window, path).isEmpty(); }))
        << "the volume never appeared in the list";
    const NTDiskDrivePtr drive = listedAt(window, path).constFirst();
    EXPECT_EQ(drive->formatDescription(), u"Windows NTFS"_s);
    EXPECT_EQ(select(window, drive)->permissionValueField()->text(),
              qtTrId("disk_permission_readonly"));
    EXPECT_TRUE(testsupport::waitUntil([&] {
        return drive->isWritable() && NTDiskManager::checkWrite(path);
    })) << "the helper never made it writable: "
        << diskState(image->device()).toStdString();
    EXPECT_TRUE(diskState(image->device()).endsWith(path + u" rw"_s))
        << diskState(image->device()).toStdString();

    // The helper's remount is an unmount and a new mount: one row for the path again, whose
    // panel offers the writable volume's actions.
    const NTDiskDriveList listed = listedAt(window, path);
    ASSERT_EQ(listed.size(), 1);
    const NTDiskViewController *panel = select(window, listed.constFirst());
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->permissionValueField()->text(), qtTrId("disk_permission_readwrite"));
    EXPECT_TRUE(panel->repairButton()->isEnabled());
    EXPECT_TRUE(panel->eraseButton()->isEnabled());

    ASSERT_TRUE(image->unmount(path));
    EXPECT_TRUE(testsupport::waitUntil([&] { return listedAt(window, path).isEmpty(); }))
        << "the volume stayed in the list";
}

} // namespace
