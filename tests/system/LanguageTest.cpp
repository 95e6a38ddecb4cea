#include "resources/TranslationFiles.h"
#include "system/BundleSub.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct ChoiceCase {
    const char *description;
    QVariant preferred;
    QString expected;
};

void PrintTo(const ChoiceCase &c, std::ostream *os) {
    *os << c.description;
}

class LanguageChoiceTest : public ::testing::TestWithParam<ChoiceCase> {};

TEST_P(LanguageChoiceTest, FirstPreferredLanguageByPrefix) {
    EXPECT_EQ(MuLanguage::languageForPreferredLanguages(GetParam().preferred), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LanguageChoiceTest,
    ::testing::Values(
        ChoiceCase{"simplified Chinese", QStringList{u"zh-Hans-CN"_s, u"en"_s}, u"zh-Hans"_s},
        ChoiceCase{"upper-case simplified", QStringList{u"ZH-HANS"_s}, u"zh-Hans"_s},
        ChoiceCase{"traditional Chinese", QStringList{u"ZH-HANT"_s}, u"en"_s},
        ChoiceCase{"bare zh", QStringList{u"zh"_s}, u"en"_s},
        ChoiceCase{"Japanese", QStringList{u"ja-JP"_s}, u"ja"_s},
        ChoiceCase{"German Switzerland", QStringList{u"de-CH"_s}, u"de"_s},
        ChoiceCase{"French Canada", QStringList{u"fr-CA"_s}, u"fr"_s},
        ChoiceCase{"only the first counts", QStringList{u"pt-BR"_s, u"fr"_s}, u"en"_s},
        ChoiceCase{"empty list", QStringList{}, u"en"_s},
        ChoiceCase{"empty first entry", QStringList{u""_s, u"de"_s}, u"en"_s},
        ChoiceCase{"missing value", QVariant(), u"en"_s},
        ChoiceCase{"a string, not a list", QVariant(u"fr"_s), u"en"_s},
        ChoiceCase{"a number", QVariant(42), u"en"_s},
        ChoiceCase{"list of strings as variants", QVariantList{u"de-AT"_s, u"en"_s}, u"de"_s},
        ChoiceCase{"non-string first entry", QVariantList{7, u"fr"_s}, u"en"_s},
        ChoiceCase{"non-string later entry", QVariantList{u"fr"_s, true}, u"en"_s},
        ChoiceCase{"empty variant list", QVariantList{}, u"en"_s}));

TEST(LanguageTags, LocaleNamesBecomeScriptTags) {
    const QStringList tags =
        MuLanguage::languageTags({u"zh-CN"_s, u"zh-TW"_s, u"ja"_s, u"de-CH"_s, u"C"_s});
    ASSERT_EQ(tags.size(), 5);
    EXPECT_EQ(tags[0], u"zh-Hans-CN"_s);
    EXPECT_EQ(tags[1], u"zh-Hant-TW"_s);
    EXPECT_TRUE(tags[2].startsWith(u"ja-"_s)) << tags[2].toStdString();
    EXPECT_EQ(tags[3], u"de-Latn-CH"_s);
    EXPECT_EQ(tags[4], u"C"_s);
    // The tags feed the same prefix rule: a Simplified Chinese locale picks the Chinese table.
    EXPECT_EQ(MuLanguage::languageForPreferredLanguages(tags), u"zh-Hans"_s);
}

QString systemChoiceText(const char *key) {
    QTranslator table;
    const QString language =
        MuLanguage::languageForPreferredLanguages(MuLanguage::systemPreferredLanguages());
    if (!table.load(TranslationFiles::tablePath(language)))
        return QString::fromUtf8(key);
    const QString text = table.translate(nullptr, key);
    return text.isEmpty() ? QString::fromUtf8(key) : text;
}

class LanguageSwitchTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // UserDefaults reads XDG_CONFIG_HOME once, at its first use, which is in this suite.
        s_config = new QTemporaryDir;
        qputenv("XDG_CONFIG_HOME", s_config->path().toUtf8());
    }
    static void TearDownTestSuite() {
        MuLanguage::setLanguage({});
        delete s_config;
    }
    void TearDown() override {
        UserDefaults::standard().setObject(QVariant(), u"AppleLanguages"_s);
        UserDefaults::globalDomain().setObject(QVariant(), u"AppleLanguages"_s);
    }
    static QTemporaryDir *s_config;
};

QTemporaryDir *LanguageSwitchTest::s_config = nullptr;

TEST_F(LanguageSwitchTest, EachLanguageAnswersEveryLaterLookup) {
    const std::pair<QString, QString> expected[] = {
        {u"en"_s, u"Eject"_s},     {u"zh-Hans"_s, u"推出"_s}, {u"ja"_s, u"取り出す"_s},
        {u"de"_s, u"Auswerfen"_s}, {u"fr"_s, u"Éjecter"_s},
    };
    for (const auto &[language, eject] : expected) {
        MuLanguage::setLanguage(language);
        EXPECT_EQ(MuLanguage::language(), language);
        EXPECT_EQ(qtTrId("disk_action_eject"), eject) << language.toStdString();
        // Also through the plain translate call, not only qtTrId.
        EXPECT_EQ(QCoreApplication::translate(nullptr, "disk_action_eject"), eject);
        EXPECT_EQ(qtTrId("no_such_key_anywhere"), u"no_such_key_anywhere"_s);
    }
}

TEST_F(LanguageSwitchTest, FormatTextsTakeTheirValuesInOrder) {
    MuLanguage::setLanguage(u"de"_s);
    EXPECT_EQ(qtTrId("disk_totalsize_freesize").arg(u"1.5 GB"_s, u"32.0 GB"_s),
              u"1.5 GB von 32.0 GB frei"_s);
    MuLanguage::setLanguage(u"en"_s);
    EXPECT_EQ(qtTrId("disk_totalsize_freesize").arg(u"1.5 GB"_s, u"32.0 GB"_s),
              u"1.5 GB free of 32.0 GB"_s);
    MuLanguage::setLanguage(u"fr"_s);
    EXPECT_EQ(qtTrId("diskrename_failed_tip").arg(u"label too long"_s),
              u"Impossible de renommer le disque\u00a0: label too long"_s);
}

TEST_F(LanguageSwitchTest, LocalizedStringForKeyFallsBackToValueThenKey) {
    MuLanguage::setLanguage(u"de"_s);
    const BundleSub *bundle = BundleSub::mainBundle();
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_erase_ok"_s), u"Löschen"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_erase_ok"_s, u"fallback"_s, u"Localizable"_s),
              u"Löschen"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u"fallback"_s), u"fallback"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u""_s), u"nope_key"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_erase_ok"_s, {}, u"Other"_s),
              u"disk_erase_ok"_s);
}

TEST_F(LanguageSwitchTest, NullEmptyOrUnknownCodeReturnsToSystemChoice) {
    for (const QString &code : {QString(), u""_s, u"pt"_s, u"zh-Hant"_s, u"../en"_s}) {
        MuLanguage::setLanguage(u"ja"_s);
        ASSERT_EQ(qtTrId("menu_quit"), u"Vantrelo を終了"_s);
        MuLanguage::setLanguage(code);
        EXPECT_EQ(MuLanguage::language(), QString()) << code.toStdString();
        EXPECT_EQ(qtTrId("menu_quit"), systemChoiceText("menu_quit")) << code.toStdString();
    }
}

TEST_F(LanguageSwitchTest, StartupChoiceFollowsAppleLanguagesDefault) {
    UserDefaults::standard().setObject(QStringList{u"fr-CA"_s, u"de"_s}, u"AppleLanguages"_s);
    EXPECT_EQ(MuLanguage::preferredLanguages().toStringList(), (QStringList{u"fr-CA"_s, u"de"_s}));
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"fr"_s);
    EXPECT_EQ(qtTrId("menu_quit"), u"Quitter Vantrelo"_s);

    // A malformed value set by the user gives English, not the system's languages.
    UserDefaults::standard().setObject(u"de"_s, u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"en"_s);
}

TEST_F(LanguageSwitchTest, GlobalDomainAndSystemLanguagesAreFallbacks) {
    UserDefaults::globalDomain().setObject(QStringList{u"zh-Hans-CN"_s}, u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"zh-Hans"_s);

    UserDefaults::globalDomain().setObject(QVariant(), u"AppleLanguages"_s);
    EXPECT_EQ(MuLanguage::preferredLanguages().toStringList(),
              MuLanguage::systemPreferredLanguages());
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(),
              MuLanguage::languageForPreferredLanguages(MuLanguage::systemPreferredLanguages()));
}

struct ProbeCase {
    const char *language; // nullptr: none chosen
    const char *locale;
    QString expected;
};

// A fresh process: a language set before the application object exists still applies, and
// without one the system locale decides, Simplified Chinese included.
TEST(LanguageFreshProcess, ChosenLanguageOrSystemLocale) {
    const ProbeCase cases[] = {
        {"de", "C.UTF-8", u"Auswerfen"_s},      {"ja", "fr_FR.UTF-8", u"取り出す"_s},
        {nullptr, "fr_FR.UTF-8", u"Éjecter"_s}, {nullptr, "zh_CN.UTF-8", u"推出"_s},
        {nullptr, "zh_TW.UTF-8", u"Eject"_s},   {nullptr, "C.UTF-8", u"Eject"_s},
    };
    for (const ProbeCase &c : cases) {
        QProcess probe;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"LANGUAGE"_s);
        environment.insert(u"LC_ALL"_s, QString::fromUtf8(c.locale));
        environment.insert(u"LANG"_s, QString::fromUtf8(c.locale));
        probe.setProcessEnvironment(environment);
        QStringList arguments;
        if (c.language)
            arguments.append(QString::fromUtf8(c.language));
        probe.start(QStringLiteral(VANTRELO_LANGUAGE_PROBE), arguments);
        ASSERT_TRUE(probe.waitForFinished(30000));
        EXPECT_EQ(QString::fromUtf8(probe.readAllStandardOutput()), c.expected)
            << (c.language ? c.language : "none") << " " << c.locale;
    }
}

TEST_F(LanguageSwitchTest, LookupsFromOtherThreadsWhileSwitching) {
    QStringList valid;
    for (const QString &language : TranslationFiles::languages()) {
        QTranslator table;
        ASSERT_TRUE(table.load(TranslationFiles::tablePath(language)));
        valid.append(table.translate(nullptr, "disk_action_repair"));
    }
    valid.append(systemChoiceText("disk_action_repair"));
    // Installed before the readers start, as at program start.
    MuLanguage::setLanguage(u"en"_s);

    std::atomic_bool done{false};
    std::atomic_int bad{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                if (!valid.contains(qtTrId("disk_action_repair")))
                    ++bad;
            }
        });
    }
    const QStringList codes = TranslationFiles::languages() + QStringList{QString()};
    for (int round = 0; round < 3000; ++round)
        MuLanguage::setLanguage(codes[round % codes.size()]);
    done = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(bad.load(), 0);
}

} // namespace
