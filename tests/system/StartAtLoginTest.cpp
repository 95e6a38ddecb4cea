#include "ScratchHome.h"
#include "system/LLSettingConfig.h"
#include "system/LLStartUpItemConfig.h"
#include "system/TLStartAtLoginController.h"
#include "system/UserDefaults.h"
#include "system/XdgAutostart.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// Each test gets its own XDG_CONFIG_HOME, so its autostart folder starts empty.
class AutostartTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_config.isValid());
        m_saved = qgetenv("XDG_CONFIG_HOME");
        scratchhome::setConfigHome(m_config.path());
    }
    void TearDown() override { qputenv("XDG_CONFIG_HOME", m_saved); }
    QString autostart() const { return m_config.path() + u"/autostart"_s; }
    QString entry(const QString &name) const { return autostart() + u'/' + name; }
    QTemporaryDir m_config;
    QByteArray m_saved;
};

QVariantMap job(const QString &label, bool onDemand) {
    return {{u"Label"_s, label}, {u"OnDemand"_s, onDemand}};
}

TEST_F(AutostartTest, JobListFollowsTheEntries) {
    XdgAutostart service;
    EXPECT_TRUE(service.copyAllJobDictionaries().isEmpty()); // no folder yet

    writeFile(entry(u"b.desktop"_s), "[Desktop Entry]\nType=Application\nExec=b\n");
    writeFile(entry(u"a.desktop"_s), "[Desktop Entry]\nHidden = true\nExec=a\n");
    writeFile(entry(u"c.desktop"_s), "[Desktop Entry]\nX-GNOME-Autostart-enabled=false\n");
    // Hidden in another group does not count; the first occurrence of a key does.
    writeFile(entry(u"d.desktop"_s),
              "# comment\n[Desktop Entry]\nHidden=false\nHidden=true\n[Desktop Action x]\n"
              "Hidden=true\n");
    writeFile(entry(u"notes.txt"_s), "[Desktop Entry]\n");
    writeFile(entry(u"empty.desktop"_s), "");

    const QList<QVariantMap> expected = {job(u"a"_s, false), job(u"b"_s, true), job(u"c"_s, false),
                                         job(u"d"_s, true), job(u"empty"_s, true)};
    EXPECT_EQ(service.copyAllJobDictionaries(), expected);
}

TEST_F(AutostartTest, EnablingWritesAnEntryThatStartsTheProgram) {
    for (const QString &program : {u"/usr/bin/vantrelo"_s, u"/opt/My Apps/vantrelo"_s,
                                   u"/opt/a\"b$c`d\\e/vantrelo"_s, u"/opt/100%/vantrelo"_s}) {
        XdgAutostart service({}, program);
        ASSERT_TRUE(service.setLoginItemEnabled(u"com.corvin.VantreloLaunch"_s, true))
            << program.toStdString();
        bool ok = false;
        const auto fields =
            XdgAutostart::readDesktopEntry(entry(u"com.corvin.VantreloLaunch.desktop"_s), &ok);
        ASSERT_TRUE(ok);
        EXPECT_EQ(fields.value(u"Type"_s), u"Application"_s);
        QString exec = fields.value(u"Exec"_s);
        EXPECT_EQ(XdgAutostart::execProgram(exec.replace(u"%%"_s, u"%"_s)), program);
    }
    EXPECT_EQ(XdgAutostart().copyAllJobDictionaries(),
              QList<QVariantMap>{job(u"com.corvin.VantreloLaunch"_s, true)});

    // Disabling removes the entry, and succeeds when there is none.
    XdgAutostart service;
    EXPECT_TRUE(service.setLoginItemEnabled(u"com.corvin.VantreloLaunch"_s, false));
    EXPECT_FALSE(QFile::exists(entry(u"com.corvin.VantreloLaunch.desktop"_s)));
    EXPECT_TRUE(service.setLoginItemEnabled(u"com.corvin.VantreloLaunch"_s, false));
}

TEST_F(AutostartTest, RefusesIdentifiersThatLeaveTheFolderAndUnwritableFolders) {
    XdgAutostart service({}, u"/usr/bin/vantrelo"_s);
    EXPECT_FALSE(service.setLoginItemEnabled(u"../evil"_s, true));
    EXPECT_FALSE(service.setLoginItemEnabled(u".."_s, true));
    EXPECT_FALSE(service.setLoginItemEnabled(QString(), true));
    EXPECT_FALSE(QFileInfo::exists(m_config.path() + u"/evil.desktop"_s));

    writeFile(autostart(), "a file where the folder should be");
    EXPECT_FALSE(service.setLoginItemEnabled(u"x"_s, true));
}

TEST(ExecLines, ProgramIsTheFirstArgument) {
    EXPECT_EQ(XdgAutostart::execProgram(u"vantrelo --hidden"_s), u"vantrelo"_s);
    EXPECT_EQ(XdgAutostart::execProgram(u"  /usr/bin/vantrelo"_s), u"/usr/bin/vantrelo"_s);
    EXPECT_EQ(XdgAutostart::execProgram(u"\"/opt/my app/v\" %U"_s), u"/opt/my app/v"_s);
    EXPECT_EQ(XdgAutostart::execProgram(u"\"/opt/a\\\"b\""_s), u"/opt/a\"b"_s);
    EXPECT_EQ(XdgAutostart::execProgram(QString()), QString());
    EXPECT_EQ(XdgAutostart::quoteExecArgument(u"/usr/bin/v"_s), u"/usr/bin/v"_s);
    EXPECT_EQ(XdgAutostart::quoteExecArgument(u"/a b/$v"_s), u"\"/a b/\\$v\""_s);
}

// Drives the controller through a fake job list to reach the states files cannot show
// (a failing registration, a job listed with OnDemand false).
class FakeLoginItems : public LoginItemService {
public:
    QList<QVariantMap> copyAllJobDictionaries() override { return jobs; }
    bool setLoginItemEnabled(const QString &identifier, bool enabled) override {
        calls.append(identifier + (enabled ? u"=on"_s : u"=off"_s));
        return accept;
    }
    QList<QVariantMap> jobs;
    QStringList calls;
    bool accept = true;
};

class SignalLog : public QObject {
public:
    explicit SignalLog(TLStartAtLoginController *controller) {
        connect(controller, &TLStartAtLoginController::enabledChanged, this,
                [this](bool value) { events.append(value ? u"enabled:1"_s : u"enabled:0"_s); });
        connect(controller, &TLStartAtLoginController::startAtLoginChanged, this,
                [this] { events.append(u"startAtLogin"_s); });
    }
    QStringList events;
};

std::shared_ptr<FakeLoginItems> fakeWith(const QList<QVariantMap> &jobs) {
    auto fake = std::make_shared<FakeLoginItems>();
    fake->jobs = jobs;
    return fake;
}

TEST(StartAtLoginController, WithoutIdentifierAnswersNoAndIgnoresWrites) {
    auto fake = fakeWith({job(QString(), true)});
    TLStartAtLoginController controller(fake);
    SignalLog log(&controller);
    EXPECT_FALSE(controller.startAtLogin());
    controller.setStartAtLogin(true);
    controller.setEnabled(true);
    EXPECT_FALSE(controller.enabled());
    EXPECT_TRUE(fake->calls.isEmpty());
    EXPECT_TRUE(log.events.isEmpty());
}

TEST(StartAtLoginController, ReadsTheFirstMatchingJob) {
    auto fake = fakeWith({job(u"other"_s, true), job(u"id"_s, false), job(u"id"_s, true)});
    TLStartAtLoginController controller(u"id"_s, fake);
    EXPECT_FALSE(controller.startAtLogin());
    EXPECT_FALSE(controller.enabled());

    fake->jobs = {QVariantMap{{u"Label"_s, u"id"_s}}}; // no OnDemand entry
    EXPECT_FALSE(controller.startAtLogin());
}

TEST(StartAtLoginController, ReadAnnouncesOnlyRealChanges) {
    auto fake = fakeWith({job(u"id"_s, true)});
    TLStartAtLoginController controller(u"id"_s, fake);
    EXPECT_TRUE(controller.enabled()); // setIdentifier read the job list
    SignalLog log(&controller);
    EXPECT_TRUE(controller.startAtLogin());
    EXPECT_TRUE(log.events.isEmpty());
    fake->jobs.clear();
    EXPECT_FALSE(controller.startAtLogin());
    EXPECT_FALSE(controller.startAtLogin());
    EXPECT_EQ(log.events, QStringList{u"enabled:0"_s});
}

TEST(StartAtLoginController, WriteReportsTheRequestNotTheState) {
    auto fake = fakeWith({job(u"id"_s, true)});
    TLStartAtLoginController controller(u"id"_s, fake);
    SignalLog log(&controller);

    // Switching off succeeds, so `enabled` stays true until the next read.
    controller.setStartAtLogin(false);
    fake->jobs.clear();
    EXPECT_TRUE(controller.enabled());
    EXPECT_EQ(log.events, (QStringList{u"enabled:1"_s, u"startAtLogin"_s}));
    EXPECT_FALSE(controller.startAtLogin());
    EXPECT_FALSE(controller.enabled());

    // A refused request shows as false even when the item was asked to start.
    fake->accept = false;
    log.events.clear();
    controller.setEnabled(true);
    EXPECT_FALSE(controller.enabled());
    EXPECT_EQ(fake->calls, (QStringList{u"id=off"_s, u"id=on"_s}));
    EXPECT_EQ(log.events, (QStringList{u"enabled:0"_s, u"startAtLogin"_s}));
}

TEST(StartAtLoginController, PropertiesAreReachableByName) {
    auto fake = fakeWith({});
    TLStartAtLoginController controller(u"id"_s, fake);
    EXPECT_TRUE(controller.setProperty("startAtLogin", true));
    EXPECT_EQ(fake->calls, QStringList{u"id=on"_s});
    EXPECT_TRUE(controller.property("enabled").toBool());
    EXPECT_EQ(controller.property("identifier").toString(), u"id"_s);
}

TEST_F(AutostartTest, FacadeRegistersTheLaunchItemForThisProgram) {
    EXPECT_FALSE(LLStartUpItemConfig::isStartAtLogin());
    EXPECT_TRUE(LLStartUpItemConfig::setStartAtLogin(true));
    EXPECT_TRUE(LLStartUpItemConfig::isStartAtLogin());
    const auto fields =
        XdgAutostart::readDesktopEntry(entry(u"com.corvin.VantreloLaunch.desktop"_s));
    EXPECT_EQ(XdgAutostart::execProgram(fields.value(u"Exec"_s)),
              QCoreApplication::applicationFilePath());

    // The system accepted switching off: the facade says true, the item no longer starts.
    EXPECT_TRUE(LLStartUpItemConfig::setStartAtLogin(false));
    EXPECT_FALSE(LLStartUpItemConfig::isStartAtLogin());
    EXPECT_FALSE(QFile::exists(entry(u"com.corvin.VantreloLaunch.desktop"_s)));

    ASSERT_TRUE(QDir(autostart()).removeRecursively());
    writeFile(autostart(), "blocked");
    EXPECT_FALSE(LLStartUpItemConfig::setStartAtLogin(true));
}

TEST_F(AutostartTest, SessionItemsAreRemovedWhereverTheProgramLives) {
    const QString self = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    LLStartUpItemConfig::setStartUpState(true);
    ASSERT_TRUE(QFile::exists(entry(self + u".desktop"_s)));
    LLStartUpItemConfig::setStartAtLogin(true);

    // A copy of this program elsewhere, another program, and a hand-made entry for this program.
    XdgAutostart({}, u"/elsewhere/"_s + self).addSessionItem(u"/elsewhere/"_s + self);
    writeFile(entry(u"copy.desktop"_s), "[Desktop Entry]\nExec=\"/other place/" + self.toUtf8() +
                                            "\"\nX-Vantrelo-SessionLoginItem=true\n");
    XdgAutostart({}, u"/usr/bin/other"_s).addSessionItem(u"/usr/bin/other"_s);
    writeFile(entry(u"by-hand.desktop"_s), "[Desktop Entry]\nExec=/x/" + self.toUtf8() + "\n");

    LLStartUpItemConfig::setStartUpState(false);
    QStringList left = QDir(autostart()).entryList(QDir::Files, QDir::Name);
    EXPECT_EQ(left, (QStringList{u"by-hand.desktop"_s, u"com.corvin.VantreloLaunch.desktop"_s,
                                 u"other.desktop"_s}));
}

class SettingConfigTest : public ::testing::Test {
protected:
    QString file() const { return m_dir.filePath(u"defaults.json"_s); }
    QTemporaryDir m_dir;
};

TEST_F(SettingConfigTest, LoadsTheStoredChoiceAndFalseOtherwise) {
    struct Case {
        QVariant stored;
        bool expected;
    };
    for (const Case &item : {Case{QVariant(), false}, Case{QVariant(qint64(1)), true},
                             Case{QVariant(qint64(0)), false}, Case{QVariant(true), true},
                             Case{QVariant(u"YES"_s), true}, Case{QVariant(u"abc"_s), false},
                             Case{QVariant(QByteArray("1")), false}}) {
        UserDefaults defaults(file());
        defaults.setObject(item.stored, u"enableBootKey"_s);
        LLSettingConfig config(defaults);
        EXPECT_EQ(config.enableBoot(), item.expected) << item.stored.toString().toStdString();
    }
}

TEST_F(SettingConfigTest, SaveWritesAnIntegerAtOnceAndClearRemovesIt) {
    UserDefaults defaults(file());
    LLSettingConfig config(defaults);
    config.setEnableBoot(true);
    EXPECT_FALSE(UserDefaults(file()).objectForKey(u"enableBootKey"_s).isValid()); // not saved yet
    config.save();
    const QVariant stored = UserDefaults(file()).objectForKey(u"enableBootKey"_s);
    EXPECT_EQ(stored.typeId(), QMetaType::LongLong);
    EXPECT_EQ(stored.toLongLong(), 1);
    config.setEnableBoot(false);
    config.save();
    EXPECT_EQ(UserDefaults(file()).objectForKey(u"enableBootKey"_s), QVariant(qint64(0)));
    EXPECT_FALSE(LLSettingConfig(defaults).enableBoot());

    config.clear();
    EXPECT_FALSE(UserDefaults(file()).objectForKey(u"enableBootKey"_s).isValid());
}

TEST(SettingConfigShared, IsOneInstanceOnTheStandardDefaults) {
    LLSettingConfig &config = LLSettingConfig::sharedConfig();
    EXPECT_EQ(&config, &LLSettingConfig::sharedConfig());
    EXPECT_TRUE(UserDefaults::standard().filePath().startsWith(scratchhome::root()));
    config.setEnableBoot(true);
    config.save();
    EXPECT_TRUE(UserDefaults(UserDefaults::standard().filePath()).boolForKey(u"enableBootKey"_s));
    config.clear();
}

} // namespace
