#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

// The real tools, with a hook right after each unmount: where a hostile user would act,
// deterministically. Polkit allows everything.
class RacingRunner : public helper::ProcessToolRunner, public helper::Authorizer {
public:
    std::function<void(const QString &target)> afterUnmount;

    helper::ToolResult unmount(const QString &target) override {
        const helper::ToolResult result = ProcessToolRunner::unmount(target);
        if (result.ok() && afterUnmount)
            afterUnmount(target);
        return result;
    }
    helper::Authorization check(const helper::Caller &, const QString &,
                                const QString &) const override {
        return {true, {}};
    }
};

// A read-only NTFS loop volume made writable for nobody, by the helper's commands around the real
// tools, while its folder is swapped for a link between unmount and mount: the volume goes
// nowhere, and the answer says so.
TEST(MountSafety, AMountPointSwappedForALinkNeverReceivesTheVolume) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "needs root to attach loop devices and mount them";
    QString why;
    const auto image = testsupport::LoopImage::create(64, &why);
    ASSERT_TRUE(image && image->format(image->device(), u"ntfs"_s, u"Safety"_s, &why))
        << why.toStdString();
    const QString target = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(target.isEmpty()) << why.toStdString();
    const QString decoy = image->scratchDir() + u"/decoy"_s;
    ASSERT_TRUE(QDir().mkpath(decoy));

    RacingRunner runner;
    runner.afterUnmount = [&](const QString &unmounted) {
        ASSERT_TRUE(QDir().rename(unmounted, unmounted + u".away"_s));
        ASSERT_TRUE(QFile::link(decoy, unmounted));
    };
    const helper::DeviceFacts facts;
    const helper::BlkidVolumeProbe probe;
    helper::HelperCommands commands(runner, facts, probe, runner);
    const QString device = testsupport::LoopImage::kernelName(image->device());
    const QString text = commands
                             .handle({1, helper::kMountReadWrite, {{u"bsdName"_s, device}}},
                                     {1, 0, 65534, 65534, {65534}, false})
                             .value(u"result"_s, u"<missing>"_s);
    EXPECT_TRUE(text.contains(u"stays unmounted"_s)) << text.toStdString();
    EXPECT_TRUE(facts.mountsOfDevice(device).isEmpty()); // at the decoy or anywhere
}

} // namespace
