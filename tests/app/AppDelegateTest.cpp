#include "app/AppDelegate.h"

#include "FakeDisks.h"
#include "app/StatusMenu.h"
#include "disk/NTDiskManager.h"
#include "helperclient/CommandDelegate.h"
#include "system/LLSettingConfig.h"
#include "system/LLStartUpItemConfig.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/LogRecord.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/support/Wait.h"
#include "ui/mainwindow/NTMainWindowController.h"
#include "util/InstallPaths.h"

#include <QAction>
#include <QCoreApplication>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QThreadPool>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

// Takes the bundled pictures out of this process, as if the build had left them out.
static void removeBundledImages() {
    Q_CLEANUP_RESOURCE(vantrelo_images);
}

namespace {

using Event = LogRecord::Event;

class RecordingHelper final : public CommandDelegate {
public:
    void sendCommand(quint64 code, const wire::Dictionary &parameter, ReplyHandler) override {
        QMutexLocker lock(&m_mutex);
        m_sent.append({code, parameter});
    }
    QList<std::pair<quint64, wire::Dictionary>> sent() const {
        QMutexLocker lock(&m_mutex);
        return m_sent;
    }

private:
    mutable QMutex m_mutex;
    QList<std::pair<quint64, wire::Dictionary>> m_sent;
};

class AppDelegateTest : public testing::Test {
protected:
    void SetUp() override {
        m_disks->add({u"sda2"_s, u"/"_s, u"root"_s, u"ext4"_s});
        m_disks->add({u"sdb1"_s, u"/media/u/Stick"_s, u"Stick"_s, u"ntfs"_s, true, true});
        UserDefaults::standard().setStringArray({u"de-DE"_s}, u"AppleLanguages"_s);
    }
    void TearDown() override {
        UserDefaults::standard().removeObjectForKey(u"AppleLanguages"_s);
        InstallPaths::clearOverrides();
        MuLanguage::setLanguage({});
    }
    std::unique_ptr<AppDelegate> launch() {
        auto app = std::make_unique<AppDelegate>(&m_manager, &m_helper);
        app->applicationDidFinishLaunching();
        return app;
    }

    // Exits with 0 when only the pictures are gone, else with 1 and the faults.
    [[noreturn]] void launchWithoutPicturesThenExit() {
        removeBundledImages();
        auto app = launch();
        const StatusMenu &menu = *app->mainMenu();
        QStringList faults;
        const auto check = [&faults](bool holds, const QString &fault) {
            if (!holds)
                faults << fault;
        };
        check(app->statusItem()->icon().isNull(), u"the tray item has a picture"_s);
        check(menu.showMainPage()->icon().isNull(), u"the first entry has a picture"_s);
        check(app->statusItem()->contextMenu() == &menu, u"the tray item has no menu"_s);
        check(menu.actions().size() == 8, u"entries are missing"_s);
        check(app->statusItem()->isVisible() == QSystemTrayIcon::isSystemTrayAvailable(),
              u"the tray item's visibility changed"_s);
        check(app->mainWindowVC()->isVisible(), u"the window is not shown"_s);
        std::fputs(qPrintable(faults.join(u"; "_s)), stderr);
        std::fflush(stderr);
        std::_Exit(faults.isEmpty() ? 0 : 1);
    }

    std::shared_ptr<FakeDisks> m_disks = std::make_shared<FakeDisks>();
    NTDiskManager m_manager{FakeDisks::system(m_disks)};
    RecordingHelper m_helper;
    RecordingInteraction m_interaction;
    LogRecord m_log;
};

TEST_F(AppDelegateTest, FirstLaunchIsRecordedOnceThenLaterLaunches) {
    UserDefaults::standard().removeObjectForKey(u"notfirst_launch"_s);
    UserDefaults::standard().synchronize();

    auto first = launch();
    EXPECT_EQ(LogRecord::takeEvents(),
              (QList<Event>{{u"LifeCycle"_s, u"soft_launch_first"_s, u""_s},
                            {u"Menu"_s, u"show mainpage"_s, u""_s}}));
    EXPECT_EQ(UserDefaults(UserDefaults::standardFilePath()).objectForKey(u"notfirst_launch"_s),
              QVariant(true));
    EXPECT_EQ(MuLanguage::language(), u"de"_s);
    ASSERT_NE(first->mainWindowVC(), nullptr);
    EXPECT_TRUE(first->mainWindowVC()->isVisible());
    first.reset();

    auto second = launch();
    EXPECT_EQ(LogRecord::takeEvents(), (QList<Event>{{u"LifeCycle"_s, u"soft_launch"_s, u""_s},
                                                     {u"Menu"_s, u"show mainpage"_s, u""_s}}));
}

TEST_F(AppDelegateTest, LogSaysOnceWhenTheFilledListIsDrawn) {
    // A manager made after the disks were added, so it reports none of them as new mounts.
    NTDiskManager manager{FakeDisks::system(m_disks)};
    AppDelegate app(&manager, &m_helper);
    app.applicationDidFinishLaunching();
    const auto listLines = [] { return LogRecord::lines("vantrelo.app").filter(u"Volume list"_s); };
    ASSERT_TRUE(testsupport::waitUntil([&] { return !listLines().isEmpty(); }));
    // Later paints of the list say nothing more.
    app.mainWindowVC()->outlineView()->viewport()->repaint();
    QCoreApplication::processEvents();
    EXPECT_EQ(listLines(), QStringList{u"Volume list on screen: 2 volumes"_s});
}

TEST_F(AppDelegateTest, MenuHoldsTheEntriesInOrder) {
    auto app = launch();
    const StatusMenu &menu = *app->mainMenu();
    const QList<QAction *> entries = menu.actions();
    const QStringList keys =
        u"menu_home,,disk_action_ejectAll,menu_launch,menu_faq,menu_feedback,,menu_quit"_s.split(
            u',');
    ASSERT_EQ(entries.size(), keys.size());
    for (qsizetype i = 0; i < keys.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(entries[i]->isSeparator(), keys[i].isEmpty());
        if (!keys[i].isEmpty()) {
            // The text the menu shows, mnemonic markers taken out.
            EXPECT_EQ(entries[i]->iconText(), qtTrId(keys[i].toLatin1().constData()));
        }
        EXPECT_EQ(entries[i]->shortcut().isEmpty(), i != keys.size() - 1);
    }
    EXPECT_FALSE(entries[0]->icon().isNull());
    EXPECT_EQ(entries[7]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    ASSERT_NE(entries[3]->menu(), nullptr);
    EXPECT_EQ(entries[3]->menu()->actions(), (QList<QAction *>{app->launchOn(), app->launchOff()}));
    EXPECT_FALSE(entries.contains(menu.checkUpdate()));
    EXPECT_GE(menu.minimumWidth(), 120);
    EXPECT_EQ(app->statusItem()->contextMenu(), &menu);
}

// In a process of its own, since a picture once looked up is kept for the process.
TEST_F(AppDelegateTest, MissingTrayImagesLeaveTheItemWithoutAPictureAndNothingElse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(launchWithoutPicturesThenExit(), testing::ExitedWithCode(0), "");
}

// At start the login item follows the stored setting; the entries switch both. Either way
// exactly one entry is checked.
TEST_F(AppDelegateTest, LaunchAtLoginFollowsTheSettingThenTheEntries) {
    for (const bool enableBoot : {false, true}) {
        SCOPED_TRACE(enableBoot);
        LLStartUpItemConfig::setStartAtLogin(!enableBoot);
        LLSettingConfig::sharedConfig().setEnableBoot(enableBoot);
        LLSettingConfig::sharedConfig().save();
        auto app = launch();
        EXPECT_EQ(LLStartUpItemConfig::isStartAtLogin(), enableBoot);
        EXPECT_EQ(app->launchOn()->isChecked(), enableBoot);
        EXPECT_EQ(app->launchOff()->isChecked(), !enableBoot);
    }
    auto app = launch();
    LogRecord::takeEvents();
    for (QAction *entry : {app->launchOn(), app->launchOn(), app->launchOff()}) {
        const bool on = entry == app->launchOn();
        entry->trigger();
        EXPECT_EQ(LogRecord::takeEvents(),
                  (QList<Event>{{u"Menu"_s, u"launch at login"_s, on ? u"on"_s : u"off"_s}}));
        EXPECT_EQ(app->launchOn()->isChecked(), on);
        EXPECT_EQ(app->launchOff()->isChecked(), !on);
        EXPECT_EQ(LLStartUpItemConfig::isStartAtLogin(), on);
        EXPECT_EQ(LLSettingConfig(UserDefaults::standard()).enableBoot(), on);
    }
}

TEST_F(AppDelegateTest, GuideAndFeedbackOpenTheirAddresses) {
    auto app = launch();
    LogRecord::takeEvents();
    app->mainMenu()->faq()->trigger();
    app->mainMenu()->feedback()->trigger();
    EXPECT_EQ(LogRecord::takeEvents(), (QList<Event>{{u"Menu"_s, u"help document"_s, u""_s},
                                                     {u"Menu"_s, u"feedback"_s, u""_s}}));
    ASSERT_EQ(m_interaction.openedUrls.size(), 2);
    EXPECT_TRUE(m_interaction.openedUrls[0].toString().endsWith(
        u"vantrelo-guide.html?pdf=vantrelo-helper-guide-de.pdf"_s));
    EXPECT_EQ(m_interaction.openedUrls[1].scheme(), u"mailto"_s);
    EXPECT_EQ(m_interaction.openedUrls[1].query(), u"subject=Vantrelo"_s);
}

TEST_F(AppDelegateTest, EjectAllAsksTheHelperForEachEjectableVolumeOnly) {
    QTemporaryDir helper;
    ASSERT_TRUE(helper.isValid());
    InstallPaths::setOverride(InstallPaths::Component::HelperExecutable, helper.path());
    auto app = launch();
    LogRecord::takeEvents();
    app->mainMenu()->ejectAll()->trigger();
    EXPECT_EQ(LogRecord::takeEvents(), (QList<Event>{{u"Menu"_s, u"eject all"_s, u""_s}}));
    ASSERT_TRUE(testsupport::waitUntil([&] { return !m_helper.sent().isEmpty(); }));
    QThreadPool::globalInstance()->waitForDone();
    const auto sent = m_helper.sent();
    ASSERT_EQ(sent.size(), 1);
    EXPECT_EQ(sent[0].first, 2u);
    EXPECT_EQ(sent[0].second,
              (wire::Dictionary{{u"name"_s, u"Stick"_s}, {u"bsdName"_s, u"sdb1"_s}}));
}

} // namespace
