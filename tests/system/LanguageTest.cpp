#include "resources/TranslationFiles.h"
#include "system/BundleSub.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/QtPrinters.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// clang-format off
TEST(LanguageChoice, FirstPreferredLanguageByPrefix) {
    const std::pair<QVariant, const char *> cases[] = {
        {QStringList{u"zh-Hans-CN"_s, u"en"_s}, "zh-Hans"}, {QStringList{u"ZH-HANS"_s}, "zh-Hans"},
        {QStringList{u"ZH-HANT"_s}, "en"}, {QStringList{u"ja-JP"_s}, "ja"},
        {QStringList{u"de-CH"_s}, "de"}, {QStringList{u"fr-CA"_s}, "fr"},
        {QStringList{u"pt-BR"_s, u"fr"_s}, "en"}, {QStringList{}, "en"}, {QVariant(), "en"},
        {QVariant(u"fr"_s), "en"}, {QVariantList{u"de-AT"_s, u"en"_s}, "de"},
        {QVariantList{7, u"fr"_s}, "en"}, {QVariantList{u"fr"_s, true}, "en"}};
    for (const auto &[preferred, expected] : cases)
        EXPECT_EQ(MuLanguage::languageForPreferredLanguages(preferred), QLatin1String(expected))
            << preferred.toStringList().join(u',').toStdString();
    // System locales become language-script-territory tags: Simplified Chinese from "zh_CN".
    const QStringList tags = MuLanguage::languageTags({u"zh_CN"_s, u"zh-TW"_s, u"de-CH"_s, u"C"_s});
    EXPECT_EQ(tags, (QStringList{u"zh-Hans-CN"_s, u"zh-Hant-TW"_s, u"de-Latn-CH"_s, u"C"_s}));
    EXPECT_EQ(MuLanguage::languageForPreferredLanguages(tags), u"zh-Hans"_s);
}
// clang-format on

// ScratchHome keeps the defaults written here in a temporary folder.
class LanguageSwitchTest : public ::testing::Test {
protected:
    void TearDown() override {
        MuLanguage::setLanguage({});
        UserDefaults::standard().setObject(QVariant(), u"AppleLanguages"_s);
        UserDefaults::globalDomain().setObject(QVariant(), u"AppleLanguages"_s);
    }
};

// Every later lookup answers from the chosen table; a null, empty or unknown code returns to the
// system's choice.
TEST_F(LanguageSwitchTest, EachLanguageAnswersEveryLaterLookup) {
    MuLanguage::setLanguage(
        MuLanguage::languageForPreferredLanguages(MuLanguage::systemPreferredLanguages()));
    const QString systemChoice = qtTrId("disk_action_eject");
    const std::pair<QString, QString> expected[] = {
        {u"en"_s, u"Eject"_s},     {u"zh-Hans"_s, u"推出"_s}, {u"ja"_s, u"取り出す"_s},
        {u"de"_s, u"Auswerfen"_s}, {u"fr"_s, u"Éjecter"_s},
    };
    for (const auto &[language, eject] : expected) {
        MuLanguage::setLanguage(language);
        EXPECT_EQ(MuLanguage::language(), language);
        EXPECT_EQ(qtTrId("disk_action_eject"), eject);
        EXPECT_EQ(QCoreApplication::translate(nullptr, "disk_action_eject"), eject);
    }
    const BundleSub *bundle = BundleSub::mainBundle();
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u"fallback"_s), u"fallback"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"nope_key"_s, u""_s), u"nope_key"_s);
    EXPECT_EQ(bundle->localizedStringForKey(u"disk_action_eject"_s, {}, u"Other"_s),
              u"disk_action_eject"_s);
    for (const QString &code : {QString(), u""_s, u"zh-Hant"_s, u"../en"_s}) {
        MuLanguage::setLanguage(u"ja"_s);
        MuLanguage::setLanguage(code);
        EXPECT_EQ(MuLanguage::language(), QString()) << code.toStdString();
        EXPECT_EQ(qtTrId("disk_action_eject"), systemChoice);
    }
}

// The app's own AppleLanguages first, then the global domain's, then the system's languages.
TEST_F(LanguageSwitchTest, StartupChoiceFollowsAppleLanguages) {
    UserDefaults::globalDomain().setObject(QStringList{u"zh-Hans-CN"_s}, u"AppleLanguages"_s);
    UserDefaults::standard().setObject(QStringList{u"fr-CA"_s, u"de"_s}, u"AppleLanguages"_s);
    MuLanguage::applyPreferredLanguage();
    EXPECT_EQ(MuLanguage::language(), u"fr"_s);
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

// String tables: key -> text, an unfinished or obsolete translation read as an empty text.
using Table = QMap<QString, QString>;

Table readTable(QString language) {
    static const QRegularExpression message(
        uR"re(<message id="([^"]+)">.*?<translation( type="\w+")?>(.*?)</translation>)re"_s,
        QRegularExpression::DotMatchesEverythingOption);
    QFile file(QStringLiteral(VANTRELO_SOURCE_DIR "/resources/translations/vantrelo_") +
               language.replace(u'-', u'_') + u".ts"_s);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    Table table;
    for (auto it = message.globalMatch(QString::fromUtf8(file.readAll())); it.hasNext();) {
        const auto match = it.next();
        table.insert(match.captured(1), match.hasCaptured(2) ? QString() : match.captured(3));
    }
    return table;
}

// Keys the program looks up: qtTrId("...") and QT_TRID_NOOP("...") in the sources, id="..."
// strings in Designer files. Tests are left out: they look up missing keys on purpose.
QSet<QString> keysUsedInCode(const QString &root) {
    static const QRegularExpression use(
        uR"re((?:qtTrId|QT_TRID_NOOP)\(\s*"([^"]+)"|<string[^>]*\bid="([^"]+)")re"_s);
    static const QRegularExpression skipped(u"^(build|tests|bench|\\.git)/"_s);
    QSet<QString> keys;
    QDirIterator files(root, {u"*.cpp"_s, u"*.h"_s, u"*.ui"_s}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (QDir(root).relativeFilePath(file.fileName()).contains(skipped) ||
            !file.open(QIODevice::ReadOnly))
            continue;
        for (auto it = use.globalMatch(QString::fromUtf8(file.readAll())); it.hasNext();) {
            const auto match = it.next();
            keys.insert(match.captured(1) + match.captured(2));
        }
    }
    return keys;
}

QStringList placeholders(const QString &text) {
    static const QRegularExpression marker(u"%\\d{1,2}"_s);
    QStringList found;
    for (auto it = marker.globalMatch(text); it.hasNext();)
        found.append(it.next().captured());
    found.sort();
    return found;
}

// The first fault of each key, one line per key.
QString tableProblems(const QString &language, const Table &table, const Table &english,
                      const QSet<QString> &keys) {
    static const QSet<QString> sameInEveryLanguage = {u"OK"_s, u"NTFS"_s, u"Vantrelo"_s};
    static const QRegularExpression unfinishedMarker(u"\\b(TODO|FIXME|TBD|XXX)\\b"_s);
    QStringList problems;
    for (const QString &key : keys) {
        const QString text = table.value(key);
        const QString englishText = english.value(key);
        QString fault;
        if (!table.contains(key))
            fault = u"missing"_s;
        else if (text.trimmed().isEmpty() || text == key || text.contains(unfinishedMarker))
            fault = u"unfinished"_s;
        else if (placeholders(text) != placeholders(englishText))
            fault = u"placeholders differ"_s;
        else if (language != u"en" && text == englishText && !sameInEveryLanguage.contains(text))
            fault = u"left in English"_s;
        if (!fault.isEmpty())
            problems.append(language + u": "_s + key + u": "_s + fault);
    }
    problems.sort();
    return problems.join(u'\n');
}

// The checker itself must catch each kind of fault, or a clean run below proves nothing.
TEST(TranslationChecker, FindsEachKindOfFault) {
    const QSet<QString> keys = {u"a_title"_s, u"a_format"_s};
    const Table english = {{u"a_title"_s, u"Erase"_s}, {u"a_format"_s, u"%1 free of %2"_s}};
    // Placeholders may change order; a bare percent sign is none.
    const Table german = {{u"a_title"_s, u"Löschen"_s}, {u"a_format"_s, u"100% frei: %2/%1"_s}};
    EXPECT_EQ(tableProblems(u"en"_s, english, english, keys), QString());
    EXPECT_EQ(tableProblems(u"de"_s, german, english, keys), QString());

    // clang-format off
    const struct { QString key, text; const char *fault; } cases[] = { // null text: no entry
        {u"a_title"_s, QString(), "missing"}, {u"a_title"_s, u" "_s, "unfinished"},
        {u"a_title"_s, u"TODO"_s, "unfinished"}, {u"a_title"_s, u"a_title"_s, "unfinished"},
        {u"a_title"_s, u"Erase"_s, "left in English"},
        {u"a_format"_s, u"%1 frei"_s, "placeholders differ"},
        {u"a_format"_s, u"%1 von %2 frei, %1"_s, "placeholders differ"}};
    // clang-format on
    for (const auto &c : cases) {
        Table table = german;
        if (c.text.isNull())
            table.remove(c.key);
        else
            table.insert(c.key, c.text);
        EXPECT_EQ(tableProblems(u"de"_s, table, english, keys),
                  u"de: "_s + c.key + u": "_s + QString::fromUtf8(c.fault));
    }
}

TEST(TranslationChecker, FindsKeysInSourcesAndDesignerFiles) {
    QTemporaryDir root;
    for (const auto &[path, text] :
         {std::pair{"/ui/a/View.cpp", "x = qtTrId( \"k_code\"); QT_TRID_NOOP(\"k_noop\")"},
          {"/ui/View.ui", "<string notr=\"true\" id=\"k_ui\">Text</string>"},
          {"/tests/T.cpp", "qtTrId(\"k_test\")"}}) {
        QFile file(root.path() + QLatin1String(path));
        QDir().mkpath(QFileInfo(file).path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) > 0);
    }
    EXPECT_EQ(keysUsedInCode(root.path()), (QSet<QString>{u"k_code"_s, u"k_noop"_s, u"k_ui"_s}));
}

TEST(StringTables, EveryKeyInEveryLanguageWithTheSamePlaceholders) {
    // The English table holds the texts of screens not built yet as well.
    const Table english = readTable(u"en"_s);
    const QSet<QString> keys = keysUsedInCode(QStringLiteral(VANTRELO_SOURCE_DIR)) +
                               QSet<QString>(english.keyBegin(), english.keyEnd());
    ASSERT_EQ(TranslationFiles::languages().size(), 5);
    for (const QString &language : TranslationFiles::languages()) {
        const QString problems = tableProblems(language, readTable(language), english, keys);
        EXPECT_TRUE(problems.isEmpty()) << problems.toStdString();
    }
}

} // namespace
