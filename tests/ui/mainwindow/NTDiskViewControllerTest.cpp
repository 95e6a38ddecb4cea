#include "ui/mainwindow/NTDiskViewController.h"

#include "helperclient/NTCommandHelper.h"
#include "system/LLShareBookmark.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/helperclient/StandInHelper.h"
#include "tests/support/LogRecord.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/support/Wait.h"
#include "ui/controls/LLButton.h"
#include "ui/controls/LLDrakMode.h"
#include "ui/controls/LLLineProgressView.h"
#include "ui/controls/LLTextFieldCell.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "util/InstallPaths.h"
#include "util/VendorSite.h"

#include <QAccessible>
#include <QDesktopServices>
#include <QLabel>
#include <QTemporaryDir>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using testsupport::waitUntil;
using Component = InstallPaths::Component;
using Response = StandInHelper::Response;
using Event = QStringList; // action, parameter

namespace {

// One stand-in for the program: the shared channel keeps the address it first connected to.
StandInHelper *g_standIn = nullptr;

class StandInEnvironment : public testing::Environment {
public:
    void SetUp() override {
        g_standIn = new StandInHelper;
        ASSERT_TRUE(g_standIn->listen());
        InstallPaths::setOverride(Component::HelperSocket, g_standIn->socketPath());
    }
    void TearDown() override { delete g_standIn; }
};
const auto *const kEnvironment = testing::AddGlobalTestEnvironment(new StandInEnvironment);

// The panel's usage events, all of the one name.
QList<Event> events() {
    QList<Event> panel;
    for (const LogRecord::Event &event : LogRecord::events())
        if (event.first() == u"DiskOperation"_s)
            panel << event.mid(1);
    return panel;
}

bool hasEvent(const Event &event) {
    return events().contains(event);
}

// Folders QDesktopServices was asked to show, in place of the file manager.
class FolderOpener : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
    Q_INVOKABLE void open(const QUrl &url) { opened.append(url); }
};

struct DriveSpec {
    QString format = u"Windows NTFS"_s;
    bool writable = false;
    bool ejectable = true;
    qint64 total = 64'000'000'000;
    qint64 free = 16'000'000'000;
};

class DiskPanel : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_scratch.isValid());
        MuLanguage::setLanguage(u"en"_s);
        for (const auto &[component, name] : {std::pair{Component::HelperExecutable, "helper"},
                                              std::pair{Component::Ntfs3gDriver, "ntfs-3g"},
                                              std::pair{Component::FuseDevice, "fuse"}})
            install(component, QString::fromLatin1(name));
        g_standIn->setHandler(StandInHelper::defaultResponse);
        QDesktopServices::setUrlHandler(u"file"_s, &m_folders, "open");
    }
    void TearDown() override {
        QDesktopServices::unsetUrlHandler(u"file"_s);
        for (const Component installed :
             {Component::HelperExecutable, Component::Ntfs3gDriver, Component::FuseDevice})
            InstallPaths::setOverride(installed, {});
        MuLanguage::setLanguage({});
    }

    void install(Component component, const QString &name) {
        const QString path = m_scratch.filePath(name);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        InstallPaths::setOverride(component, path);
    }
    void uninstall(Component component) {
        InstallPaths::setOverride(component, m_scratch.filePath(u"missing"_s));
    }

    std::unique_ptr<NTDiskViewController> panel(const DriveSpec &spec) {
        auto drive = std::make_shared<NTDiskDrive>();
        drive->setName(u"Backup"_s);
        drive->setBsdName(u"sdb1"_s);
        drive->setMountPath(m_scratch.path());
        drive->setFormatDescription(spec.format);
        drive->setIsWritable(spec.writable);
        drive->setIsEjectable(spec.ejectable);
        drive->setTotalSize(spec.total);
        drive->setFreeSize(spec.free);
        auto shown = std::make_unique<NTDiskViewController>(drive);
        shown->resize(620, 420);
        shown->show();
        return shown;
    }

    qsizetype requestCount() const { return g_standIn->record().requests.size(); }
    // Requests sent since `from`.
    QList<wire::Request> requestsFrom(qsizetype from) const {
        return g_standIn->record().requests.mid(from);
    }
    // Every reply sent so far has been handled and its hop to this thread run.
    // A command dropped with a broken connection is sent again over the next one.
    void drainChannel() {
        for (int attempt = 0; attempt < 2; ++attempt) {
            auto answered = std::make_shared<std::atomic_int>(0); // 1 replied, 2 dropped
            NTCommandHelper::shared()->sendCommand(
                7, {}, [answered](const auto &) { *answered = 1; },
                [answered](const QString &) { *answered = 2; });
            ASSERT_TRUE(waitUntil([&] { return *answered != 0; }));
            if (*answered == 1)
                break;
        }
        QCoreApplication::processEvents();
    }
    void answer(quint64 code, const wire::ReplyDictionary &reply) {
        g_standIn->setHandler([code, reply](const wire::Request &request) {
            return request.code == code ? StandInHelper::reply(request, reply)
                                        : StandInHelper::defaultResponse(request);
        });
    }

    QTemporaryDir m_scratch;
    LogRecord m_log;
    RecordingInteraction m_interaction;
    FolderOpener m_folders;
};

struct LoadCase {
    const char *name;
    DriveSpec spec;
    QString openTitle;
    bool ejectShown;
    bool ntfsActionsShown;
    bool repairEnabled;
    QString permission;
};

TEST_F(DiskPanel, LoadShowsTheVolumeAndItsButtonsByKindAndState) {
    const QString ro = u"Read Only"_s, rw = u"Read & Write"_s, open = u"Open"_s;
    const LoadCase cases[] = {
        {"read-only NTFS", {}, u"Open Read/Write"_s, true, true, false, ro},
        {"writable NTFS", {.writable = true}, open, true, true, true, rw},
        {"ext4", {.format = u"ext4"_s, .writable = true}, open, true, false, true, rw},
        {"NTFS alone", {.format = u"NTFS"_s}, open, true, false, true, ro},
        {"upper-case, fixed", {u"WINDOWS NTFS"_s, true, false}, open, false, true, true, rw},
    };
    for (const LoadCase &c : cases) {
        SCOPED_TRACE(c.name);
        const auto shown = panel(c.spec);
        EXPECT_EQ(shown->openButton()->text(), c.openTitle);
        EXPECT_EQ(shown->ejectButton()->isVisibleTo(shown.get()), c.ejectShown);
        EXPECT_EQ(shown->repairButton()->isVisibleTo(shown.get()), c.ntfsActionsShown);
        EXPECT_EQ(shown->eraseButton()->isVisibleTo(shown.get()), c.ntfsActionsShown);
        EXPECT_EQ(shown->reNameButton()->isVisibleTo(shown.get()), c.ntfsActionsShown);
        EXPECT_EQ(shown->repairButton()->isEnabled(), c.repairEnabled);
        EXPECT_EQ(shown->eraseButton()->isEnabled(), c.repairEnabled);
        EXPECT_EQ(shown->permissionValueField()->text(), c.permission);
        EXPECT_EQ(shown->freetotalSize()->text(), u"16.0 GB free of 64.0 GB"_s);
        EXPECT_DOUBLE_EQ(shown->progressView()->maxProgressValue(), 1.0);
        EXPECT_DOUBLE_EQ(shown->progressView()->displayedPercent(), 75.0);
        EXPECT_EQ(shown->bsdNameValueField()->text(), u"sdb1"_s);
        EXPECT_EQ(shown->mountPathValueField()->text(), m_scratch.path());
        EXPECT_EQ(shown->formatValueField()->text(), c.spec.format);
    }
}

// An empty or impossible size shows an empty bar, and both panes follow the theme.
TEST_F(DiskPanel, EmptyVolumeAndThemeChanges) {
    const auto shown = panel({.total = 0, .free = 0});
    EXPECT_EQ(shown->progressView()->displayedPercent(), 0.0);
    EXPECT_EQ(shown->freetotalSize()->text(), u"0B free of 0B"_s);
    for (const auto &[style, grey] : {std::pair{u"Dark"_s, 90}, std::pair{u"Light"_s, 245}}) {
        UserDefaults::globalDomain().setObject(style, u"AppleInterfaceStyle"_s);
        Q_EMIT LLDrakMode::shared()->themeChanged();
        EXPECT_EQ(shown->bgView1()->backgroundColor(), QColor(grey, grey, grey));
        EXPECT_EQ(shown->bgView2()->backgroundColor(), QColor(grey, grey, grey));
    }
    UserDefaults::globalDomain().removeObjectForKey(u"AppleInterfaceStyle"_s);
    const QAccessibleInterface *value =
        QAccessible::queryAccessibleInterface(shown->mountPathValueField());
    const auto labels = value->relations(QAccessible::Label);
    ASSERT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.first().first->text(QAccessible::Name), u"Mount Point"_s);
}

TEST_F(DiskPanel, OpenMountsReadOnlyNtfsAndAsksToShowOtherVolumes) {
    const qsizetype before = requestCount();
    const auto readOnly = panel({});
    const auto writable = panel({.writable = true});
    const auto ext4 = panel({.format = u"ext4"_s});
    for (NTDiskViewController *shown : {readOnly.get(), writable.get(), ext4.get()})
        shown->openDisk();
    drainChannel();
    const QList<wire::Request> sent = requestsFrom(before);
    ASSERT_GE(sent.size(), 3);
    EXPECT_EQ(sent[0].code, 1u);
    EXPECT_EQ(sent[0].parameter,
              (wire::Dictionary{{u"name"_s, u"Backup"_s}, {u"bsdName"_s, u"sdb1"_s}}));
    EXPECT_EQ(sent[1].code, 0u);
    EXPECT_EQ(sent[1].parameter, (wire::Dictionary{{u"mountPath"_s, m_scratch.path()}}));
    EXPECT_EQ(sent[2].code, 0u);
    EXPECT_TRUE(hasEvent({u"open"_s, u"ntfs read&write"_s}));
    EXPECT_TRUE(hasEvent({u"open"_s, u"driveinstall"_s}));
    // Both open answers were empty: each folder is shown, by this program, not the helper.
    EXPECT_EQ(m_interaction.openedUrls, (QList<QUrl>{QUrl::fromLocalFile(m_scratch.path()),
                                                     QUrl::fromLocalFile(m_scratch.path())}));
}

TEST_F(DiskPanel, OpenShowsNothingWhenTheHelperDoesNotAllowIt) {
    const auto shown = panel({.writable = true});
    answer(0, {{u"result"_s, u"not a mount point"_s}});
    shown->openDisk();
    answer(0, {});
    shown->openDisk();
    drainChannel();
    EXPECT_TRUE(m_interaction.openedUrls.isEmpty());
}

TEST_F(DiskPanel, MissingHelperOrDriverOffersTheInstallerForNtfs) {
    for (const Component missing : {Component::HelperExecutable, Component::Ntfs3gDriver}) {
        install(Component::HelperExecutable, u"helper"_s);
        install(Component::Ntfs3gDriver, u"ntfs-3g"_s);
        uninstall(missing);
        LogRecord::clear();
        m_interaction.alertAnswers.enqueue(Interaction::kFirstButtonReturn);
        m_interaction.openedUrls.clear();
        const qsizetype before = requestCount();
        panel({})->openDisk();
        ASSERT_EQ(m_interaction.alerts.size(), 1);
        EXPECT_EQ(m_interaction.alerts.last().text, qtTrId("disk_installhelper_tip"));
        EXPECT_EQ(m_interaction.alerts.last().buttons,
                  (QStringList{qtTrId("disk_installhelper_install"),
                               qtTrId("disk_installhelper_cancel")}));
        EXPECT_EQ(m_interaction.openedUrls, QList<QUrl>{VendorSite::helperInstallerUrl()});
        EXPECT_EQ(events(),
                  (QList<Event>{{u"download"_s, u"pop"_s}, {u"download"_s, u"start download"_s}}));
        EXPECT_EQ(requestCount(), before);
        m_interaction.alerts.clear();
    }
    panel({})->openDisk();
    EXPECT_EQ(events().last(), (Event{u"download"_s, u"cancel download"_s}));
}

// Without the helper another volume opens here, once "/" may be read: the folder chooser asks
// for it the first time only.
TEST_F(DiskPanel, OpenWithoutHelperAsksForAccessOnceThenOpensTheFolder) {
    uninstall(Component::HelperExecutable);
    LLShareBookmark::defaultShareBookmark().removeFileBookmarkInfoWithFilePath(u"/"_s);
    const auto shown = panel({.format = u"ext4"_s});
    shown->openDisk();
    ASSERT_EQ(m_interaction.folderRequests.size(), 1);
    EXPECT_EQ(m_interaction.folderRequests[0].title, qtTrId("disk_fullaccess_tip"));
    EXPECT_EQ(m_interaction.folderRequests[0].startFolder, u"/"_s);
    EXPECT_TRUE(m_folders.opened.isEmpty());

    m_interaction.folderAnswers.enqueue(u"/"_s);
    shown->openDisk();
    shown->openDisk();
    EXPECT_EQ(m_interaction.folderRequests.size(), 2);
    EXPECT_EQ(m_folders.opened, (QList<QUrl>{QUrl::fromLocalFile(m_scratch.path()),
                                             QUrl::fromLocalFile(m_scratch.path())}));
    EXPECT_EQ(events().first(), (Event{u"open"_s, u"drivenotinstall"_s}));
}

// Every answer but "nofulldiskaccess" refreshes the permission a moment later, failures too.
TEST_F(DiskPanel, MountRepliesRefreshAndExplain) {
    const QString hibernated = u"Windows is hibernated: shut it down fully, then try again."_s;
    const QString huge(5'000, u'x');
    const QString failed = u"mount failed"_s;
    const struct {
        wire::ReplyDictionary reply;
        Event outcome; // none for a text too long to compare
        QString informative;
    } cases[] = {
        {{{u"result"_s, u""_s}}, {u"mount success"_s, u"name:Backup&bsdName:sdb1"_s}, {}},
        {{{u"result"_s, hibernated}},
         {failed, u"failed:{\"result\": \"%1\"}"_s.arg(hibernated)},
         hibernated},
        {{}, {failed, u"failed:{}"_s}, {}},
        {{{u"result"_s, 5}}, {failed, u"failed:{\"result\": 5}"_s}, {}},
        {{{u"result"_s, huge}}, {}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.outcome.join(u' ').toStdString());
        LogRecord::clear();
        m_interaction.alerts.clear();
        answer(1, c.reply);
        const auto shown = panel({});
        shown->openDisk();
        ASSERT_TRUE(waitUntil([&] {
            return shown->permissionValueField()->text() == qtTrId("disk_permission_readwrite");
        }));
        EXPECT_EQ(shown->openButton()->text(), qtTrId("disk_action_open"));
        EXPECT_TRUE(shown->eraseButton()->isEnabled());
        if (!c.outcome.isEmpty()) {
            EXPECT_EQ(events(), (QList<Event>{{u"open"_s, u"ntfs read&write"_s}, c.outcome}));
        }
        const bool success = c.outcome.value(0) == u"mount success"_s;
        ASSERT_EQ(m_interaction.alerts.size(), success ? 0 : 1);
        if (success)
            continue;
        const Interaction::Alert &alert = m_interaction.alerts.first();
        EXPECT_EQ(alert.text, qtTrId("mount_failed_title"));
        EXPECT_EQ(alert.buttons, (QStringList{qtTrId("mount_failed_checkdocument"),
                                              qtTrId("disk_installhelper_cancel")}));
        if (c.outcome.isEmpty())
            EXPECT_LT(alert.informativeText.size(), 1000);
        else
            EXPECT_EQ(alert.informativeText, c.informative);
    }
}

TEST_F(DiskPanel, MountFailureLeadsToTheGuideInThePreferredLanguage) {
    answer(1, {{u"result"_s, u"no"_s}});
    const std::pair<QString, QString> languages[] = {
        {u"zh-Hans-CN"_s, u"zh"_s}, {u"de-DE"_s, u"de"_s}, {u"pt-BR"_s, u"en"_s}};
    for (const auto &[preferred, guide] : languages) {
        UserDefaults::standard().setObject(QStringList{preferred}, u"AppleLanguages"_s);
        m_interaction.alertAnswers.enqueue(Interaction::kFirstButtonReturn);
        m_interaction.openedUrls.clear();
        const auto shown = panel({});
        shown->openDisk();
        drainChannel();
        ASSERT_EQ(m_interaction.openedUrls.size(), 1);
        EXPECT_EQ(m_interaction.openedUrls.first(), VendorSite::helperGuideUrl(guide));
        EXPECT_TRUE(m_interaction.openedUrls.first().toString().endsWith(
            u"/vantrelo-guide.html?pdf=vantrelo-helper-guide-"_s + guide + u".pdf"_s));
    }
    UserDefaults::standard().removeObjectForKey(u"AppleLanguages"_s);
    EXPECT_TRUE(hasEvent({u"view document"_s, u""_s}));
}

TEST_F(DiskPanel, NoFullDiskAccessShowsTheGuideWindowAndATransportErrorNothing) {
    answer(1, {{u"result"_s, u"nofulldiskaccess"_s}});
    QStringList shownDialogs;
    m_interaction.onModal = [&](QDialog *dialog) {
        shownDialogs << QString::fromLatin1(dialog->metaObject()->className());
    };
    const auto shown = panel({});
    shown->openDisk();
    drainChannel();
    EXPECT_EQ(shownDialogs, QStringList{u"NTFullAccessWindowController"_s});
    EXPECT_TRUE(m_interaction.alerts.isEmpty());
    EXPECT_EQ(events().last(), (Event{u"open"_s, u"nofulldiskaccess"_s}));

    g_standIn->setHandler([](const wire::Request &request) {
        return request.code == 1 ? Response{Response::Kind::Close, {}}
                                 : StandInHelper::defaultResponse(request);
    });
    LogRecord::clear();
    shown->openDisk();
    drainChannel();
    EXPECT_TRUE(m_interaction.alerts.isEmpty());
    EXPECT_EQ(events(), (QList<Event>{{u"open"_s, u"ntfs read&write"_s}}));
}

// The volume goes away, and its panel with it, while the helper is still mounting.
TEST_F(DiskPanel, AReplyAfterThePanelIsGoneTouchesNothing) {
    g_standIn->setHandler([](const wire::Request &request) {
        if (request.code == 1)
            return Response{Response::Kind::Hold, {}};
        return request.code == 2 ? Response{Response::Kind::Release, {}}
                                 : StandInHelper::defaultResponse(request);
    });
    panel({})->openDisk();
    NTCommandHelper::shared()->sendCommand(2, {}, {});
    ASSERT_TRUE(waitUntil([] {
        return hasEvent({u"mount failed"_s, u"failed:{\"result\": \"sdb1\"}"_s});
    }));
    drainChannel();
    EXPECT_TRUE(m_interaction.alerts.isEmpty());
}

TEST_F(DiskPanel, RepairAndEraseRunUnderASheetOnlyOnWritableVolumes) {
    const qsizetype before = requestCount();
    const auto readOnly = panel({});
    readOnly->repairDisk();
    readOnly->eraseDisk();
    EXPECT_TRUE(m_interaction.sheets.isEmpty());
    EXPECT_TRUE(m_interaction.alerts.isEmpty());

    const auto writable = panel({.writable = true});
    writable->eraseDisk(); // the confirmation is dismissed
    ASSERT_EQ(m_interaction.alerts.size(), 1);
    EXPECT_EQ(m_interaction.alerts.first().text, qtTrId("disk_erase_title"));
    EXPECT_TRUE(m_interaction.sheets.isEmpty());
    drainChannel();
    EXPECT_EQ(requestsFrom(before).size(), 1); // only the drain's own

    g_standIn->setHandler([](const wire::Request &request) {
        return request.code == 7 ? StandInHelper::defaultResponse(request)
                                 : Response{Response::Kind::Hold, {}};
    });
    m_interaction.alertAnswers.enqueue(Interaction::kFirstButtonReturn);
    writable->eraseDisk();
    writable->repairDisk();
    ASSERT_EQ(m_interaction.sheets.size(), 2);
    const QPointer<NTLoadingWindowController> erase =
        qobject_cast<NTLoadingWindowController *>(m_interaction.sheets[0].sheet);
    const QPointer<NTLoadingWindowController> repair =
        qobject_cast<NTLoadingWindowController *>(m_interaction.sheets[1].sheet);
    ASSERT_TRUE(erase && repair);
    EXPECT_EQ(erase->tipTextField()->text(), qtTrId("disk_erase_loading"));
    EXPECT_EQ(repair->tipTextField()->text(), qtTrId("disk_repair_loading"));
    ASSERT_TRUE(waitUntil([&] { return requestsFrom(before + 1).size() == 2; }));
    const QList<wire::Request> sent = requestsFrom(before + 1);
    EXPECT_EQ(sent[0].code, 4u);
    EXPECT_EQ(sent[1].code, 3u);
    EXPECT_EQ(sent[1].parameter, (wire::Dictionary{{u"bsdName"_s, u"sdb1"_s}}));

    g_standIn->setHandler([](const wire::Request &) {
        return Response{Response::Kind::Release, {}};
    });
    NTCommandHelper::shared()->sendCommand(2, {}, {});
    ASSERT_TRUE(waitUntil([&] {
        return erase && erase->tipTextField()->text() == qtTrId("disk_erase_success") && repair &&
               repair->tipTextField()->text() == qtTrId("disk_repair_success");
    }));
    ASSERT_TRUE(waitUntil([&] { return !erase && !repair; }));
    EXPECT_EQ(events(), (QList<Event>{{u"repair"_s, u""_s},
                                      {u"eraseDisk"_s, u""_s},
                                      {u"eraseDisk"_s, u""_s},
                                      {u"eraseDisk"_s, u""_s},
                                      {u"repair"_s, u""_s}}));
}

struct VersionCase {
    const char *name;
    wire::ReplyDictionary reply;
    bool dialog;
};

TEST_F(DiskPanel, RenameAsksForANewEnoughHelperFirst) {
    const VersionCase cases[] = {
        {"no result", {}, false},
        {"1.0.0", {{u"result"_s, u"1.0.0"_s}}, false},
        {"number", {{u"result"_s, 2}}, false},
        {"1.0.1", {{u"result"_s, u"1.0.1"_s}}, true},
    };
    for (const VersionCase &c : cases) {
        SCOPED_TRACE(c.name);
        answer(7, c.reply);
        m_interaction.alerts.clear();
        m_interaction.modalDialogs.clear();
        const auto shown = panel({});
        shown->reName();
        ASSERT_TRUE(waitUntil([&] {
            return !m_interaction.alerts.isEmpty() || !m_interaction.modalDialogs.isEmpty();
        }));
        EXPECT_EQ(m_interaction.modalDialogs.size(), c.dialog ? 1 : 0);
        if (!c.dialog) {
            EXPECT_EQ(m_interaction.alerts.first().text,
                      qtTrId("diskrename_installhelper_updatetip"));
        }
    }
    uninstall(Component::HelperExecutable);
    m_interaction.alerts.clear();
    panel({})->reName();
    ASSERT_EQ(m_interaction.alerts.size(), 1);
    EXPECT_EQ(m_interaction.alerts.first().text, qtTrId("diskrename_installhelper_tip"));
}

struct RenameCase {
    const char *name;
    wire::ReplyDictionary reply;
    QString alert;
    QString outcome;
};

TEST_F(DiskPanel, RenameSendsTheTypedNameAndReportsTheOutcome) {
    const RenameCase cases[] = {
        {"success", {{u"result"_s, u""_s}}, qtTrId("diskrename_success_tip"), u"success"_s},
        {"failure",
         {{u"result"_s, u"label too long"_s}},
         qtTrId("diskrename_failed_tip").arg(u"label too long"_s),
         u"failed"_s},
        {"no result", {}, {}, {}},
    };
    for (const RenameCase &c : cases) {
        SCOPED_TRACE(c.name);
        LogRecord::clear();
        m_interaction.alerts.clear();
        m_interaction.alertAnswers.enqueue(Interaction::kFirstButtonReturn);
        m_interaction.onModal = [](QDialog *dialog) {
            auto *rename = qobject_cast<NTRenameWindowController *>(dialog);
            ASSERT_NE(rename, nullptr);
            rename->inputField()->setText(u"Photos"_s);
            rename->okButton()->click();
        };
        answer(8, c.reply);
        const qsizetype before = requestCount();
        const auto shown = panel({});
        shown->reName();
        ASSERT_TRUE(waitUntil([&] { return requestsFrom(before).size() >= 2; }));
        drainChannel();
        const QList<wire::Request> sent = requestsFrom(before);
        EXPECT_EQ(sent[1].code, 8u);
        EXPECT_EQ(sent[1].parameter,
                  (wire::Dictionary{{u"newName"_s, u"Photos"_s}, {u"bsdName"_s, u"sdb1"_s}}));
        QList<Event> expected{{u"reName"_s, u""_s}, {u"reName"_s, u"ok"_s}};
        if (!c.outcome.isEmpty())
            expected.append({u"reName"_s, c.outcome});
        EXPECT_EQ(events(), expected);
        ASSERT_EQ(m_interaction.alerts.size(), c.alert.isEmpty() ? 0 : 1);
        if (c.alert.isEmpty())
            continue;
        EXPECT_EQ(m_interaction.alerts.first().text, c.alert);
        if (c.outcome == u"success") { // the eject offer was taken
            ASSERT_TRUE(waitUntil([&] {
                const QList<wire::Request> later = requestsFrom(before);
                return std::any_of(later.cbegin(), later.cend(),
                                   [](const wire::Request &r) { return r.code == 2; });
            }));
        }
    }
    m_interaction.onModal = [](QDialog *dialog) { dialog->reject(); };
    LogRecord::clear();
    const auto shown = panel({});
    shown->reName();
    ASSERT_TRUE(waitUntil([] { return hasEvent({u"reName"_s, u"cancel"_s}); }));
}

TEST_F(DiskPanel, EjectGoesThroughTheHelperWhenItIsInstalled) {
    const qsizetype before = requestCount();
    panel({})->ejectDisk();
    ASSERT_TRUE(waitUntil([&] { return !requestsFrom(before).isEmpty(); }));
    EXPECT_EQ(requestsFrom(before).first().code, 2u);
    EXPECT_EQ(requestsFrom(before).first().parameter,
              (wire::Dictionary{{u"name"_s, u"Backup"_s}, {u"bsdName"_s, u"sdb1"_s}}));
    ASSERT_TRUE(waitUntil([] { return hasEvent({u"eject"_s, u"driveinstall"_s}); }));
}

} // namespace

#include "NTDiskViewControllerTest.moc"
