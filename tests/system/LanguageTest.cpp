#include "resources/TranslationFiles.h"
#include "system/BundleSub.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/QtPrinters.h"

#include <QCoreApplication>
#include <QMap>
#include <QProcess>
#include <QTranslator>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

TEST(LanguageChoice, FirstPreferredLanguageByPrefix) {
    const struct {
        QVariant preferred;
        QString expected;
    } cases[] = {
        {QStringList{u"zh-Hans-CN"_s, u"en"_s}, u"zh-Hans"_s},
        {QStringList{u"ZH-HANS"_s}, u"zh-Hans"_s},
        {QStringList{u"ZH-HANT"_s}, u"en"_s},
        {QStringList{u"ja-JP"_s}, u"ja"_s},
        {QStringList{u"de-CH"_s}, u"de"_s},
        {QStringList{u"fr-CA"_s}, u"fr"_s},
        {QStringList{u"pt-BR"_s, u"fr"_s}, u"en"_s},
        {QStringList{}, u"en"_s},
        {QVariant(), u"en"_s},
        {QVariant(u"fr"_s), u"en"_s},
        {QVariantList{u"de-AT"_s, u"en"_s}, u"de"_s},
        {QVariantList{7, u"fr"_s}, u"en"_s},
        {QVariantList{u"fr"_s, true}, u"en"_s},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(MuLanguage::languageForPreferredLanguages(c.preferred), c.expected)
            << c.preferred.toStringList().join(u',').toStdString();
    }
}

// The table the system's own languages pick, as a lookup with no override would answer.
QString systemChoiceText(const char *key) {
    QTranslator table;
    const QString language =
        MuLanguage::languageForPreferredLanguages(MuLanguage::systemPreferredLanguages());
    const QString text = table.load(TranslationFiles::tablePath(language))
                             ? table.translate(nullptr, key)
                             : QString();
    return text.isEmpty() ? QString::fromUtf8(key) : text;
}

// ScratchHome keeps the defaults written here in a temporary folder.
class LanguageSwitchTest : public ::testing::Test {
protected:
    void TearDown() override {
        MuLanguage::setLanguage({});
        UserDefaults::standard().setObject(QVariant(), u"AppleLanguages"_s);
        UserDefaults::globalDomain().setObject(QVariant(), u"AppleLanguages"_s);
    }
};

const QMap<QString, QString> kEject = {
    {u"en"_s, u"Eject"_s},     {u"zh-Hans"_s, u"推出"_s}, {u"ja"_s, u"取り出す"_s},
    {u"de"_s, u"Auswerfen"_s}, {u"fr"_s, u"Éjecter"_s},
};

TEST_F(LanguageSwitchTest, EachLanguageAnswersEveryLaterLookup) {
    for (const auto &[language, eject] : kEject.asKeyValueRange()) {
        MuLanguage::setLanguage(language);
        EXPECT_EQ(MuLanguage::language(), language);
        EXPECT_EQ(qtTrId("disk_action_eject"), eject);
        EXPECT_EQ(QCoreApplication::translate(nullptr, "disk_action_eject"), eject);
        EXPECT_EQ(qtTrId("no_such_key_anywhere"), u"no_such_key_anywhere"_s);
    }
}

TEST_F(LanguageSwitchTest, LocalizedStringForKeyFallsBackToValueThenKey) {
    MuLanguage::setLanguage(u"de"_s);
    const BundleSub *bundle = BundleSub::mainBundle();
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_erase_ok"_s, u"x"_s, u"Localizable"_s),
              u"Löschen"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u"fallback"_s), u"fallback"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u""_s), u"nope_key"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_erase_ok"_s, {}, u"Other"_s),
              u"disk_erase_ok"_s);
}

TEST_F(LanguageSwitchTest, NullEmptyOrUnknownCodeReturnsToSystemChoice) {
    for (const QString &code : {QString(), u""_s, u"zh-Hant"_s, u"../en"_s}) {
        MuLanguage::setLanguage(u"ja"_s);
        ASSERT_EQ(qtTrId("menu_quit"), u"Vantrelo を終了"_s);
        MuLanguage::setLanguage(code);
        EXPECT_EQ(MuLanguage::language(), QString()) << code.toStdString();
        EXPECT_EQ(qtTrId("menu_quit"), systemChoiceText("menu_quit"));
    }
}

// The app's own AppleLanguages first, then the global domain's, then the system's languages.
TEST_F(LanguageSwitchTest, StartupChoiceFollowsAppleLanguages) {
    UserDefaults::globalDomain().setObject(QStringList{u"zh-Hans-CN"_s}, u"AppleLanguages"_s);
    UserDefaults::standard().setObject(QStringList{u"fr-CA"_s, u"de"_s}, u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"fr"_s);
    EXPECT_EQ(qtTrId("menu_quit"), u"Quitter Vantrelo"_s);

    // A malformed value set by the user gives English, not the other sources.
    UserDefaults::standard().setObject(u"de"_s, u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"en"_s);

    UserDefaults::standard().setObject(QVariant(), u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"zh-Hans"_s);

    UserDefaults::globalDomain().setObject(QVariant(), u"AppleLanguages"_s);
    EXPECT_EQ(MuLanguage::preferredLanguages().toStringList(),
              MuLanguage::systemPreferredLanguages());
}

// A fresh process: a language set before the application object exists still applies, and
// without one the system locale decides, Simplified Chinese included.
TEST(LanguageFreshProcess, ChosenLanguageOrSystemLocale) {
    const struct {
        const char *language; // nullptr: none chosen
        const char *locale;
        QString expected;
    } cases[] = {
        {"de", "C.UTF-8", u"Auswerfen"_s},
        {nullptr, "fr_FR.UTF-8", u"Éjecter"_s},
        {nullptr, "zh_CN.UTF-8", u"推出"_s},
        {nullptr, "zh_TW.UTF-8", u"Eject"_s},
    };
    for (const auto &c : cases) {
        QProcess probe;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"LANGUAGE"_s);
        environment.insert(u"LC_ALL"_s, QString::fromUtf8(c.locale));
        environment.insert(u"LANG"_s, QString::fromUtf8(c.locale));
        probe.setProcessEnvironment(environment);
        probe.start(QStringLiteral(VANTRELO_LANGUAGE_PROBE),
                    c.language ? QStringList{QString::fromUtf8(c.language)} : QStringList());
        ASSERT_TRUE(probe.waitForFinished(30000));
        EXPECT_EQ(QString::fromUtf8(probe.readAllStandardOutput()), c.expected) << c.locale;
    }
}

TEST_F(LanguageSwitchTest, LookupsFromOtherThreadsWhileSwitching) {
    // The system's choice is one of the five tables too.
    const QStringList valid = kEject.values();
    const QStringList codes = kEject.keys() + QStringList{QString()};
    MuLanguage::setLanguage(u"en"_s); // installed before the readers start, as at program start
    std::atomic_bool done{false};
    std::atomic_int bad{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!done)
                bad += !valid.contains(qtTrId("disk_action_eject"));
        });
    }
    for (int round = 0; round < 3000; ++round)
        MuLanguage::setLanguage(codes[round % codes.size()]);
    done = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(bad.load(), 0);
}

} // namespace
