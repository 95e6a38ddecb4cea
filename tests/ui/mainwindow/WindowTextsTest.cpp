#include "system/MuLanguage.h"
#include "tests/support/LayoutAudit.h"
#include "tests/support/RecordingInteraction.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Every window, in every language, shows translated texts that fit, the error line included.
TEST(WindowTexts, TranslatedAndUnclippedInEveryLanguage) {
    const QStringList keys = testsupport::translationKeys();
    ASSERT_FALSE(keys.isEmpty());
    RecordingInteraction interaction;
    for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
        MuLanguage::setLanguage(language);
        QWidget parent;
        parent.show();
        NTRenameWindowController rename;
        rename.show();
        rename.okAction();
        NTFullAccessWindowController guide(nullptr, [] { return true; });
        guide.show();
        auto *sheet = NTLoadingWindowController::beginSheet(&parent, qtTrId("disk_erase_loading"));
        QCoreApplication::processEvents();
        for (const QWidget *window :
             std::initializer_list<const QWidget *>{&rename, &guide, sheet}) {
            EXPECT_EQ(testsupport::clippedTexts(window), QStringList())
                << language.toStdString() << " " << window->objectName().toStdString();
            EXPECT_EQ(testsupport::untranslatedTexts(window, keys), QStringList())
                << language.toStdString() << " " << window->objectName().toStdString();
        }
    }
    MuLanguage::setLanguage({});
}

} // namespace
