#include "helper/DeviceFacts.h"
#include "tests/app/DesktopSession.h"
#include "tests/helper/DaemonFixture.h"
#include "tests/support/SystemCommand.h"
#include "tests/support/Udevd.h"
#include "tests/support/Wait.h"
#include "util/InstallPaths.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using testsupport::LoopImage;

namespace {

constexpr uid_t kPerson = 65534;
const QStringList kAsPerson{u"setpriv"_s, u"--reuid=65534"_s, u"--regid=65534"_s,
                            u"--clear-groups"_s};

// Loop volumes mounted by someone else, which "eject all" of a program that polkit lets do
// anything would take too.
QStringList otherLoopMounts(const QString &ours) {
    const QStringList sources =
        testsupport::runCommand(u"findmnt"_s, {u"-rn"_s, u"-o"_s, u"SOURCE"_s}).output.split(u'\n');
    QStringList others;
    for (const QString &source : sources)
        if (source.startsWith(u"/dev/loop"_s) && source != ours)
            others << source;
    return others;
}

// The built program run by an ordinary account under Xvfb with a tray, the built helper on its
// own socket, a polkitd of its own that lets that account do the helper's work, and real NTFS
// loop volumes.
class ApplicationOnRealDisks : public DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        const QString missing = DesktopSession::missingPrograms(true);
        if (!missing.isEmpty())
            GTEST_SKIP() << "a desktop under Xvfb needs " << missing.toStdString();
        const QStringList others = otherLoopMounts({});
        if (!others.isEmpty())
            GTEST_SKIP() << "loop volumes of another program are mounted ("
                         << others.join(u", "_s).toStdString()
                         << "); the program under test would act on them too";
        grantClient();
        ASSERT_EQ(udevd.start(), QString());
        installHelper();
        makeHome();
        m_desktop.insertVariable(u"VANTRELO_HELPER_SOCKET"_s, socketPath);
        ASSERT_EQ(m_desktop.start(true), QString());
    }
    void TearDown() override {
        if (m_app) {
            m_app->terminate();
            if (!m_app->waitForFinished(10000))
                m_app->kill();
        }
        if (!m_linkedHelper.isEmpty())
            QFile::remove(m_linkedHelper);
        if (!m_madeFolder.isEmpty())
            QDir().rmdir(m_madeFolder);
        DaemonTest::TearDown();
    }

    // The program counts its helper as installed when the file is where the install puts it.
    void installHelper() {
        const QString installed =
            InstallPaths::defaultPath(InstallPaths::Component::HelperExecutable);
        if (QFileInfo::exists(installed))
            return;
        const QString folder = QFileInfo(installed).path();
        if (!QFileInfo::exists(folder))
            m_madeFolder = folder;
        ASSERT_TRUE(QDir().mkpath(folder));
        ASSERT_TRUE(QFile::link(QStringLiteral(VANTRELO_HELPER_DAEMON), installed));
        m_linkedHelper = installed;
    }
    void makeHome() {
        ASSERT_TRUE(m_home.isValid());
        const QString runtime = m_home.filePath(u"runtime"_s);
        ASSERT_TRUE(QDir().mkpath(runtime));
        for (const QString &folder : {m_home.path(), runtime})
            ASSERT_EQ(::chown(QFile::encodeName(folder).constData(), kPerson, kPerson), 0);
        ::chmod(QFile::encodeName(runtime).constData(), 0700);
    }
    void startApp() {
        m_app = m_desktop.launch(QStringLiteral(VANTRELO_APP), m_home.path());
        ASSERT_TRUE(m_app->waitForStarted());
        ASSERT_TRUE(testsupport::waitUntil([&] {
            return m_desktop.mappedWindowOf(m_app->processId()) != 0;
        })) << "the main window never appeared";
        ASSERT_TRUE(testsupport::waitUntil([&] {
            return m_desktop.trayIconOf(m_app->processId()) != 0;
        })) << "no icon in the tray";
    }
    // Through the tray icon's menu, with the mouse and keys as a person would.
    void ejectAllFromTheTray() {
        const QString icon = QString::number(m_desktop.trayIconOf(m_app->processId()));
        ASSERT_TRUE(m_desktop.run(u"xdotool"_s, {u"mousemove"_s, u"--window"_s, icon, u"4"_s,
                                                 u"4"_s, u"click"_s, u"3"_s}));
        ASSERT_TRUE(testsupport::waitUntil([&] {
            return m_desktop.popupOf(m_app->processId()) != 0;
        })) << "the tray menu did not open";
        // Off the menu, so no entry is under the pointer: the second entry down is "eject all".
        const QRect screen = m_desktop.screenGeometry();
        ASSERT_TRUE(m_desktop.run(u"xdotool"_s, {u"mousemove"_s, QString::number(screen.left()),
                                                 QString::number(screen.bottom()), u"key"_s,
                                                 u"Down"_s, u"Down"_s, u"Return"_s}));
    }

    testsupport::Udevd udevd;
    DesktopSession m_desktop{kAsPerson};
    QTemporaryDir m_home;
    std::unique_ptr<QProcess> m_app;
    QString m_linkedHelper;
    QString m_madeFolder;
};

TEST_F(ApplicationOnRealDisks, ReadOnlyNtfsBecomesTheAccountsInPlaceAndEjectAllTakesItAway) {
    startApp();
    if (HasFatalFailure())
        return;

    std::unique_ptr<LoopImage> image = ntfsImage(u"Carry"_s);
    ASSERT_TRUE(image);
    ASSERT_EQ(testsupport::Udevd::refresh(image->device()), QString());
    ::chmod(QFile::encodeName(image->scratchDir()).constData(), 0755);
    QString why;
    const QString path = image->mount(image->device(), u"ntfs"_s, true, &why);
    ASSERT_FALSE(path.isEmpty()) << why.toStdString();
    ASSERT_TRUE(testsupport::waitUntil([&] {
        return diskState(image->device()).endsWith(path + u" rw"_s);
    })) << "the program never made it writable: "
        << diskState(image->device()).toStdString();

    const QString written = path + u"/from the account.txt"_s;
    ASSERT_TRUE(testsupport::runCommand(kAsPerson.first(),
                                        kAsPerson.mid(1) + QStringList{u"touch"_s, written})
                    .ok());
    EXPECT_EQ(QFileInfo(written).ownerId(), kPerson);

    const QStringList others = otherLoopMounts(image->device());
    if (!others.isEmpty())
        GTEST_SKIP() << "loop volumes of another program appeared ("
                     << others.join(u", "_s).toStdString() << "); not ejecting them all";
    ejectAllFromTheTray();
    EXPECT_TRUE(testsupport::waitUntil([&] {
        return helper::DeviceFacts()
            .mountsOfDevice(LoopImage::kernelName(image->device()))
            .isEmpty();
    })) << "still mounted: "
        << diskState(image->device()).toStdString();
    EXPECT_EQ(m_app->state(), QProcess::Running);
}

} // namespace
