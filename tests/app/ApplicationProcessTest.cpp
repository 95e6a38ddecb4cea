#include "system/UserDefaults.h"
#include "tests/app/DesktopSession.h"
#include "tests/support/Wait.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// The built program as a whole process on a desktop of its own, seen only from outside: through
// the X server, its exit status and the files it leaves.
class ApplicationProcessTest : public testing::Test {
protected:
    void SetUp() override {
        const QString missing = DesktopSession::missingPrograms(withTray());
        if (!missing.isEmpty())
            GTEST_SKIP() << "a desktop under Xvfb needs " << missing.toStdString();
        ASSERT_TRUE(m_home.isValid());
        ASSERT_TRUE(QDir().mkpath(runtimeFolder()));
        QFile::setPermissions(runtimeFolder(),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        const QString why = m_desktop.start(withTray());
        ASSERT_TRUE(why.isEmpty()) << why.toStdString();
    }
    void TearDown() override {
        for (const auto &app : m_apps) {
            app->terminate();
            if (!app->waitForFinished(10000))
                app->kill();
        }
    }
    virtual bool withTray() const { return true; }

    QString runtimeFolder() const { return m_home.filePath(u"runtime"_s); }
    QString defaultsFolder() const { return m_home.filePath(u".config/vantrelo"_s); }

    QProcess &startApp() {
        m_apps.push_back(m_desktop.launch(QStringLiteral(VANTRELO_APP), m_home.path()));
        EXPECT_TRUE(m_apps.back()->waitForStarted());
        return *m_apps.back();
    }
    quint32 windowOf(const QProcess &app) const {
        return m_desktop.mappedWindowOf(app.processId());
    }
    bool waitForWindow(const QProcess &app) const {
        return testsupport::waitUntil([&] { return windowOf(app) != 0; });
    }
    static bool waitForExit(const QProcess &app) {
        return testsupport::waitUntil([&] { return app.state() == QProcess::NotRunning; });
    }
    static void expectCleanExit(const QProcess &app) {
        EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(app.exitCode(), 0);
    }
    bool isCentred(quint32 window) const {
        const QPoint offset =
            m_desktop.geometryOf(window).center() - m_desktop.screenGeometry().center();
        return offset.manhattanLength() <= 2;
    }

    QTemporaryDir m_home;
    DesktopSession m_desktop;
    std::vector<std::unique_ptr<QProcess>> m_apps;
};

TEST_F(ApplicationProcessTest, WindowAndTrayIconAppearAndASecondStartBringsTheWindowBack) {
    QProcess &first = startApp();
    ASSERT_TRUE(waitForWindow(first)) << "the main window never appeared";
    const quint32 window = windowOf(first);
    EXPECT_EQ(m_desktop.titleOf(window), u"Vantrelo"_s);
    EXPECT_TRUE(isCentred(window))
        << "at " << m_desktop.geometryOf(window).x() << "," << m_desktop.geometryOf(window).y();
    EXPECT_TRUE(testsupport::waitUntil([&] { return m_desktop.trayIconOf(first.processId()); }))
        << "no icon of the program in the tray";

    // Moved aside and closed, as a person would; the program stays in the tray.
    m_desktop.move(window, {0, 0});
    ASSERT_TRUE(testsupport::waitUntil([&] { return !isCentred(window); }));
    m_desktop.askToClose(window);
    ASSERT_TRUE(testsupport::waitUntil([&] { return windowOf(first) == 0; }))
        << "closing did not hide the window";
    ASSERT_EQ(first.state(), QProcess::Running) << "closing the window ended the program";

    QProcess &second = startApp();
    ASSERT_TRUE(waitForExit(second)) << "the second start kept running";
    expectCleanExit(second);
    ASSERT_TRUE(waitForWindow(first)) << "the first program's window did not come back";
    // Closing destroyed the native window; the one shown again is new.
    const quint32 reopened = windowOf(first);
    EXPECT_EQ(m_desktop.titleOf(reopened), u"Vantrelo"_s);
    EXPECT_TRUE(testsupport::waitUntil([&] { return isCentred(reopened); }))
        << "not centred again, at " << m_desktop.geometryOf(reopened).x() << ","
        << m_desktop.geometryOf(reopened).y();
    EXPECT_EQ(first.state(), QProcess::Running);
}

class WithoutATray : public ApplicationProcessTest {
    bool withTray() const override { return false; }
};

TEST_F(WithoutATray, ClosingTheWindowEndsTheProgram) {
    QProcess &app = startApp();
    ASSERT_TRUE(waitForWindow(app)) << "the main window never appeared";
    m_desktop.askToClose(windowOf(app));
    ASSERT_TRUE(waitForExit(app)) << "the program stayed without a window and without a tray";
    expectCleanExit(app);
}

TEST_F(ApplicationProcessTest, TwoStartsAtOnceLeaveOneProgramWithItsWindow) {
    QProcess &one = startApp();
    QProcess &other = startApp();
    ASSERT_TRUE(testsupport::waitUntil([&] {
        return one.state() == QProcess::NotRunning || other.state() == QProcess::NotRunning;
    })) << "both kept running";
    const bool oneLeft = one.state() == QProcess::NotRunning;
    const QProcess &left = oneLeft ? one : other;
    const QProcess &running = oneLeft ? other : one;
    expectCleanExit(left);
    EXPECT_TRUE(waitForWindow(running)) << "the program left running shows no window";
    EXPECT_EQ(running.state(), QProcess::Running);
}

TEST_F(ApplicationProcessTest, CorruptSettingsAreSetAsideAndTheProgramStartsFromDefaults) {
    const QByteArray damaged = "{\"notfirst_launch\": {\"type\": \"bool\", \"value\": tr\xff";
    ASSERT_TRUE(QDir().mkpath(defaultsFolder()));
    QFile file(defaultsFolder() + u"/defaults.json"_s);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(damaged);
    file.close();

    QProcess &app = startApp();
    ASSERT_TRUE(waitForWindow(app)) << "the main window never appeared";
    const QStringList aside =
        QDir(defaultsFolder()).entryList({u"defaults.json.corrupt-*"_s}, QDir::Files);
    ASSERT_EQ(aside.size(), 1) << "the damaged file was not kept aside";
    QFile kept(defaultsFolder() + u'/' + aside.first());
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), damaged);
    // Started as a first launch, whose record is in a readable file again.
    EXPECT_TRUE(UserDefaults(file.fileName()).boolForKey(u"notfirst_launch"_s));
}

} // namespace
