#include "system/LLSettingConfig.h"
#include "system/LLStartUpItemConfig.h"
#include "system/TLStartAtLoginController.h"
#include "system/UserDefaults.h"
#include "system/XdgAutostart.h"
#include "tests/support/QtPrinters.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Each test gets its own XDG_CONFIG_HOME, so its autostart folder starts empty.
class AutostartTest : public ::testing::Test {
protected:
    void SetUp() override { qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_config.path())); }
    void TearDown() override { qputenv("XDG_CONFIG_HOME", m_saved); }
    QString entry(const QString &name) const { return m_config.path() + u"/autostart/"_s + name; }
    void write(const QString &name, const QByteArray &bytes) {
        QDir().mkpath(entry({}));
        QFile file(entry(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
    QTemporaryDir m_config;
    QByteArray m_saved = qgetenv("XDG_CONFIG_HOME");
};

QVariantMap job(const QString &label, bool onDemand) {
    return {{u"Label"_s, label}, {u"OnDemand"_s, onDemand}};
}

TEST_F(AutostartTest, JobListFollowsTheEntries) {
    XdgAutostart service;
    EXPECT_TRUE(service.copyAllJobDictionaries().isEmpty()); // no folder yet
    write(u"b.desktop"_s, "[Desktop Entry]\nType=Application\nExec=b\n");
    write(u"a.desktop"_s, "[Desktop Entry]\nHidden = true\nExec=a\n");
    // Only Hidden switches an entry off.
    write(u"c.desktop"_s, "[Desktop Entry]\nX-GNOME-Autostart-enabled=false\n");
    write(u"notes.txt"_s, "[Desktop Entry]\n");
    EXPECT_EQ(service.copyAllJobDictionaries(),
              (QList<QVariantMap>{job(u"a"_s, false), job(u"b"_s, true), job(u"c"_s, true)}));
}

// Every entry starting a program of this file name goes, whoever wrote it and wherever the
// program lives; the others stay.
TEST_F(AutostartTest, DeleteStartUpRemovesEveryEntryOfThisProgram) {
    const QByteArray name = QFileInfo(QCoreApplication::applicationFilePath()).fileName().toUtf8();
    LLStartUpItemConfig::setStartUpState(true);
    ASSERT_TRUE(QFile::exists(entry(QString::fromUtf8(name + ".desktop"))));
    const std::pair<QString, QByteArray> entries[] = {
        {u"copy.desktop"_s, "Exec=\"/opt/old copy/" + name + "\" --quiet\n"},
        {u"hidden.desktop"_s, "Hidden=true\nExec=" + name + "\n"},
        {u"similar.desktop"_s, "Exec=/usr/bin/" + name + "-old\n"},
        {u"folder.desktop"_s, "Exec=/opt/" + name + "/other\n"},
        {u"none.desktop"_s, "Name=" + name + "\n"}};
    for (const auto &[file, body] : entries)
        write(file, "[Desktop Entry]\n" + body);
    LLStartUpItemConfig::setStartUpState(false);
    EXPECT_EQ(QDir(entry(QString())).entryList(QDir::Files, QDir::Name),
              (QStringList{u"folder.desktop"_s, u"none.desktop"_s, u"similar.desktop"_s}));
}

// The fixture is the controller's login item service; one log holds calls and announcements.
class ControllerTest : public ::testing::Test, public LoginItemService {
protected:
    QList<QVariantMap> copyAllJobDictionaries() override { return jobs; }
    bool setLoginItemEnabled(const QString &identifier, bool enabled) override {
        log.append(identifier + (enabled ? u"=on"_s : u"=off"_s));
        return accept;
    }
    void watch(TLStartAtLoginController &controller) {
        QObject::connect(&controller, &TLStartAtLoginController::enabledChanged, &controller,
                         [this](bool on) { log.append(on ? u"enabled:1"_s : u"enabled:0"_s); });
        QObject::connect(&controller, &TLStartAtLoginController::startAtLoginChanged, &controller,
                         [this] { log.append(u"startAtLogin"_s); });
    }
    QList<QVariantMap> jobs;
    QStringList log;
    bool accept = true;
    // Not owning: the fixture outlives every controller.
    std::shared_ptr<LoginItemService> service{std::shared_ptr<void>(), this};
};

TEST_F(ControllerTest, ReadsTheFirstMatchingJobAndWritesReportTheRequestNotTheState) {
    jobs = {job(u"other"_s, false), job(u"id"_s, true), job(u"id"_s, false)};
    TLStartAtLoginController controller(u"id"_s, service);
    watch(controller);
    EXPECT_TRUE(controller.enabled()); // setting the identifier read the job list
    EXPECT_TRUE(controller.startAtLogin());
    // Switching off succeeds, so `enabled` stays true until the next read.
    controller.setStartAtLogin(false);
    jobs = {QVariantMap{{u"Label"_s, u"id"_s}}}; // no OnDemand entry
    EXPECT_TRUE(controller.enabled());
    EXPECT_FALSE(controller.startAtLogin());
    // A refused request shows as false even when the item was asked to start.
    accept = false;
    controller.setEnabled(true);
    EXPECT_FALSE(controller.enabled());
    // Without an identifier: no, whatever the jobs, and writes are ignored.
    jobs = {job(QString(), true)};
    TLStartAtLoginController anonymous(service);
    watch(anonymous);
    anonymous.setStartAtLogin(true);
    EXPECT_FALSE(anonymous.startAtLogin() || anonymous.enabled());
    EXPECT_EQ(log, (QStringList{u"id=off"_s, u"enabled:1"_s, u"startAtLogin"_s, u"enabled:0"_s,
                                u"id=on"_s, u"enabled:0"_s, u"startAtLogin"_s}));
}

TEST_F(AutostartTest, FacadeRegistersTheLaunchItemForThisProgram) {
    const QString launchItem = entry(u"com.corvin.VantreloLaunch.desktop"_s);
    EXPECT_FALSE(LLStartUpItemConfig::isStartAtLogin());
    EXPECT_TRUE(LLStartUpItemConfig::setStartAtLogin(true));
    EXPECT_TRUE(LLStartUpItemConfig::isStartAtLogin());
    EXPECT_EQ(XdgAutostart::execProgram(XdgAutostart::readDesktopEntry(launchItem)[u"Exec"_s]),
              QCoreApplication::applicationFilePath());
    // The system accepted switching off: the facade says true, the item no longer starts.
    EXPECT_TRUE(LLStartUpItemConfig::setStartAtLogin(false));
    EXPECT_FALSE(LLStartUpItemConfig::isStartAtLogin());
    EXPECT_FALSE(QFile::exists(launchItem));
    // An odd install path survives the Exec line's quoting; identifiers stay in the folder.
    const QString odd = u"/opt/My Apps/a\"b$c`d\\e/100%/vantrelo"_s;
    ASSERT_TRUE(XdgAutostart({}, odd).setLoginItemEnabled(u"odd"_s, true));
    QString exec = XdgAutostart::readDesktopEntry(entry(u"odd.desktop"_s))[u"Exec"_s];
    EXPECT_EQ(XdgAutostart::execProgram(exec.replace(u"%%"_s, u"%"_s)), odd);
    for (const QString &identifier : {u"../evil"_s, u".."_s, QString()})
        EXPECT_FALSE(XdgAutostart().setLoginItemEnabled(identifier, true));
    EXPECT_FALSE(QFileInfo::exists(m_config.path() + u"/evil.desktop"_s));
}

TEST(SettingConfig, LoadsTheStoredChoiceSavesAnIntegerAtOnce) {
    QTemporaryDir dir;
    UserDefaults defaults(dir.filePath(u"defaults.json"_s));
    const std::pair<QVariant, bool> cases[] = {{QVariant(), false},
                                               {qint64(1), true},
                                               {qint64(0), false},
                                               {u"YES"_s, true},
                                               {u"abc"_s, false}};
    for (const auto &[stored, expected] : cases) {
        defaults.setObject(stored, u"enableBootKey"_s);
        EXPECT_EQ(LLSettingConfig(defaults).enableBoot(), expected)
            << stored.toString().toStdString();
    }
    // The shared instance, on the standard defaults (in ScratchHome's folder).
    LLSettingConfig &config = LLSettingConfig::sharedConfig();
    const QString file = UserDefaults::standard().filePath();
    ASSERT_TRUE(file.startsWith(QFile::decodeName(qgetenv("XDG_CONFIG_HOME"))));
    config.setEnableBoot(true);
    EXPECT_FALSE(UserDefaults(file).objectForKey(u"enableBootKey"_s).isValid()); // not saved yet
    for (const bool on : {true, false}) {
        config.setEnableBoot(on);
        config.save();
        EXPECT_EQ(UserDefaults(file).objectForKey(u"enableBootKey"_s), QVariant(qint64(on)));
    }
    config.clear();
    EXPECT_FALSE(UserDefaults(file).objectForKey(u"enableBootKey"_s).isValid());
}

} // namespace
