#include "ui/mainwindow/NTFullAccessWindowController.h"

#include "system/NTFullDiskAccessAuthorizer.h"
#include "system/UserDefaults.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/support/Wait.h"
#include "ui/controls/LLButton.h"
#include "ui/controls/LLImage.h"
#include "ui/mainwindow/HelperSocketUnit.h"
#include "ui/mainwindow/NTImageView.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QImage pictureOf(const QIcon &icon) {
    return icon.pixmap(64, 48).toImage();
}

class NTFullAccessWindowControllerTest : public ::testing::Test {
protected:
    void TearDown() override {
        UserDefaults::standard().setObject(QVariant(), u"AppleLanguages"_s);
    }
};

TEST_F(NTFullAccessWindowControllerTest, PictureFollowsTheFirstLanguageAndHowTheHelperStarts) {
    const std::pair<QVariant, const char *> cases[] = {{QStringList{u"zh-Hans-CN"_s}, "zh"},
                                                       {QStringList{u"zh-Hant-TW"_s}, "en"},
                                                       {QStringList{u"ja-JP"_s, u"de"_s}, "ja"},
                                                       {QStringList{u"de-AT"_s}, "de"},
                                                       {QStringList{u"fr-CA"_s}, "fr"},
                                                       {QStringList{}, "en"},
                                                       {QVariant(u"fr"_s), "en"}};
    for (const auto &[languages, code] : cases) {
        UserDefaults::standard().setObject(languages, u"AppleLanguages"_s);
        for (const bool socketUnit : {false, true}) {
            const QString expected =
                u"fullaccess_"_s % QLatin1String(code) % (socketUnit ? u"_13"_s : u"_12"_s);
            ASSERT_TRUE(LLImage::hasBundledImage(expected)) << expected.toStdString();
            NTFullAccessWindowController guide(nullptr, [socketUnit] { return socketUnit; });
            EXPECT_EQ(pictureOf(guide.imageView()->image()),
                      pictureOf(LLImage::imageNamed(expected)))
                << expected.toStdString();
        }
    }
    UserDefaults::standard().setObject(QStringList{u"de-DE"_s}, u"AppleLanguages"_s);
    NTFullAccessWindowController guide(nullptr, [] { return false; });
    EXPECT_EQ(guide.titleField()->text(), qtTrId("permission_accessibility_title"));
    EXPECT_EQ(guide.subTitleField()->text(), qtTrId("permission_accessibility_subtitle"));
    EXPECT_EQ(guide.authButton()->text(), qtTrId("permission_accessibility_startAuth"));
    EXPECT_FALSE(guide.imageView()->accessibleName().isEmpty());
}

TEST_F(NTFullAccessWindowControllerTest, SocketUnitCountsWhenSystemdRunsAndWantsIt) {
    struct Case {
        const char *what;
        QStringList folders;
        QStringList wantedIn;
        bool masked;
        bool enabled;
    };
    const Case cases[] = {
        {"enabled", {u"run/systemd/system"_s}, {u"etc/systemd/system"_s}, false, true},
        {"vendor preset", {u"run/systemd/system"_s}, {u"usr/lib/systemd/system"_s}, false, true},
        {"no systemd", {}, {u"etc/systemd/system"_s}, false, false},
        {"disabled", {u"run/systemd/system"_s, u"etc/systemd/system"_s}, {}, false, false},
        {"masked", {u"run/systemd/system"_s}, {u"etc/systemd/system"_s}, true, false},
    };
    for (const Case &c : cases) {
        QTemporaryDir root;
        QDir base(root.path());
        for (const QString &folder : c.folders)
            base.mkpath(folder);
        for (const QString &folder : c.wantedIn) {
            base.mkpath(folder % u"/sockets.target.wants"_s);
            QFile::link(u"/usr/local/lib/systemd/system/vantrelo-helper.socket"_s,
                        base.filePath(folder % u"/sockets.target.wants/vantrelo-helper.socket"_s));
        }
        if (c.masked)
            QFile::link(u"/dev/null"_s,
                        base.filePath(u"etc/systemd/system/vantrelo-helper.socket"_s));
        EXPECT_EQ(HelperSocketUnit::isEnabled(root.path()), c.enabled) << c.what;
    }
}

TEST_F(NTFullAccessWindowControllerTest, StartAuthClosesThenOpensTheGuidePageAfterADelay) {
    RecordingInteraction interaction;
    QWidget parent;
    parent.setGeometry(100, 80, 1000, 760);
    parent.show();
    interaction.onModal = [&](QDialog *dialog) {
        EXPECT_LE(
            (dialog->frameGeometry().center() - parent.frameGeometry().center()).manhattanLength(),
            2);
        QTest::mouseClick(qobject_cast<NTFullAccessWindowController *>(dialog)->authButton(),
                          Qt::LeftButton);
        EXPECT_FALSE(dialog->isVisible());
        EXPECT_TRUE(interaction.openedUrls.isEmpty()) << "opened before the session unwound";
    };
    NTFullAccessWindowController::present(&parent);
    // Events already due run here: an open without the delay would show now.
    QCoreApplication::processEvents();
    EXPECT_TRUE(interaction.openedUrls.isEmpty());
    EXPECT_TRUE(testsupport::waitUntil([&] { return !interaction.openedUrls.isEmpty(); }));
    EXPECT_EQ(interaction.openedUrls, QList<QUrl>{NTFullDiskAccessAuthorizer::preferencesUrl()});
}

} // namespace
