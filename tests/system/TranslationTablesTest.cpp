#include "resources/TranslationFiles.h"

#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTranslator>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct Message {
    QString source;
    QString text;
    QString type; // "" when finished; "unfinished", "vanished", "obsolete" otherwise
};
using Table = QMap<QString, Message>;

const QString kTranslations = QStringLiteral(VANTRELO_SOURCE_DIR "/resources/translations");

// Texts that are the same word in English and in the other language.
const QSet<QString> kSameInEveryLanguage = {u"OK"_s, u"NTFS"_s, u"Vantrelo"_s};

QString tsPath(const QString &language) {
    QString file = language;
    file.replace(u'-', u'_');
    return kTranslations + u"/vantrelo_"_s + file + u".ts"_s;
}

Table readTable(const QString &path, QString *error) {
    Table table;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = u"cannot open "_s + path;
        return table;
    }
    QXmlStreamReader xml(&file);
    QString id;
    Message message;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == u"message") {
            id = xml.attributes().value(u"id"_s).toString();
            message = {};
        } else if (xml.isStartElement() && xml.name() == u"source") {
            message.source = xml.readElementText();
        } else if (xml.isStartElement() && xml.name() == u"translation") {
            message.type = xml.attributes().value(u"type"_s).toString();
            message.text = xml.readElementText();
        } else if (xml.isEndElement() && xml.name() == u"message") {
            if (table.contains(id))
                *error += u"duplicate id "_s + id + u"; "_s;
            table.insert(id, message);
        }
    }
    if (xml.hasError())
        *error += xml.errorString();
    return table;
}

QStringList readKeys(QString *error) {
    QFile file(kTranslations + u"/keys.txt"_s);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = u"cannot open keys.txt"_s;
        return {};
    }
    QStringList keys;
    for (const QByteArray &raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (!line.isEmpty() && !line.startsWith(u'#'))
            keys.append(line);
    }
    return keys;
}

QStringList placeholders(const QString &text) {
    static const QRegularExpression marker(u"%(\\d{1,2})"_s);
    QStringList found;
    for (auto it = marker.globalMatch(text); it.hasNext();)
        found.append(it.next().captured(0));
    found.sort();
    return found;
}

// Everything wrong with one language's table, one line per fault.
QStringList tableProblems(const QString &language, const Table &table, const Table &english,
                          const QStringList &keys) {
    static const QRegularExpression printfStyle(u"%(@|l?[dsuf])"_s);
    static const QRegularExpression unfinishedMarker(u"\\b(TODO|FIXME|TBD|XXX)\\b"_s);
    QStringList problems;
    const auto problem = [&](const QString &key, const QString &what) {
        problems.append(language + u": "_s + key + u": "_s + what);
    };
    for (const QString &key : keys) {
        const auto it = table.constFind(key);
        if (it == table.constEnd()) {
            problem(key, u"missing"_s);
            continue;
        }
        const Message &message = *it;
        if (!message.type.isEmpty() || message.text.trimmed().isEmpty()) {
            problem(key, u"unfinished"_s);
            continue;
        }
        if (message.text.contains(unfinishedMarker) || message.text == key)
            problem(key, u"placeholder text left"_s);
        if (message.text.contains(printfStyle))
            problem(key, u"printf-style placeholder; use %1, %2"_s);
        const QString englishText = english.value(key).text;
        if (placeholders(message.text) != placeholders(englishText))
            problem(key, u"placeholders differ from English"_s);
        if (language != u"en" && message.text == englishText &&
            !kSameInEveryLanguage.contains(message.text))
            problem(key, u"left in English"_s);
    }
    for (auto it = table.constBegin(); it != table.constEnd(); ++it) {
        if (!keys.contains(it.key()))
            problem(it.key(), u"not listed in keys.txt"_s);
    }
    return problems;
}

// Keys the program looks up: qtTrId("...") and QT_TRID_NOOP("...") in the sources, id="..."
// strings in Designer files. Tests are left out: they look up missing keys on purpose.
QSet<QString> keysUsedInCode(const QString &root) {
    static const QRegularExpression call(u"(?:qtTrId|QT_TRID_NOOP)\\(\\s*\"([^\"]+)\""_s);
    static const QRegularExpression uiString(u"<string[^>]*\\bid=\"([^\"]+)\""_s);
    const QSet<QString> skipped = {u"build"_s, u"tests"_s, u"bench"_s, u".git"_s};
    QSet<QString> keys;
    QDirIterator folders(root, QDir::Dirs | QDir::NoDotAndDotDot);
    while (folders.hasNext()) {
        const QString folder = folders.next();
        if (skipped.contains(folders.fileName()))
            continue;
        QDirIterator files(folder, {u"*.cpp"_s, u"*.h"_s, u"*.ui"_s}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QFile file(files.next());
            if (!file.open(QIODevice::ReadOnly))
                continue;
            const QString text = QString::fromUtf8(file.readAll());
            const QRegularExpression &pattern = file.fileName().endsWith(u".ui") ? uiString : call;
            for (auto it = pattern.globalMatch(text); it.hasNext();)
                keys.insert(it.next().captured(1));
        }
    }
    return keys;
}

Table makeTable(std::initializer_list<std::pair<QString, QString>> texts) {
    Table table;
    for (const auto &[key, text] : texts)
        table.insert(key, {text, text, {}});
    return table;
}

// The checker itself must catch each kind of fault, or a clean run below proves nothing.
TEST(TranslationChecker, FindsEachKindOfFault) {
    const Table english =
        makeTable({{u"a_title"_s, u"Erase"_s}, {u"a_format"_s, u"%1 free of %2"_s}});
    // Placeholders may change order; a bare percent sign is none.
    const Table german =
        makeTable({{u"a_title"_s, u"Löschen"_s}, {u"a_format"_s, u"100% frei: %2/%1"_s}});
    const QStringList keys = {u"a_title"_s, u"a_format"_s};
    EXPECT_TRUE(tableProblems(u"en"_s, english, english, keys).isEmpty());
    EXPECT_TRUE(tableProblems(u"de"_s, german, english, keys).isEmpty());

    // Each case changes one entry of the good German table (a null text removes it).
    const struct {
        QString key, text, type;
        const char *expected;
    } cases[] = {
        {u"a_title"_s, QString(), {}, "a_title: missing"},
        {u"a_format"_s, u"%1 frei"_s, {}, "a_format: placeholders differ"},
        {u"a_format"_s, u"%1 von %2 frei, %1"_s, {}, "a_format: placeholders differ"},
        {u"a_format"_s, u"%@ von %@ frei"_s, {}, "a_format: printf-style"},
        {u"a_title"_s, u"Erase"_s, {}, "a_title: left in English"},
        {u"a_title"_s, u"TODO"_s, {}, "a_title: placeholder text left"},
        {u"a_title"_s, u"a_title"_s, {}, "a_title: placeholder text left"},
        {u"a_title"_s, u"Löschen"_s, u"unfinished"_s, "a_title: unfinished"},
        {u"b_old"_s, u"Alt"_s, {}, "b_old: not listed"},
    };
    for (const auto &c : cases) {
        Table table = german;
        if (c.text.isNull())
            table.remove(c.key);
        else
            table[c.key] = {c.text, c.text, c.type};
        const QString problems = tableProblems(u"de"_s, table, english, keys).join(u'\n');
        EXPECT_TRUE(problems.contains(QString::fromUtf8(c.expected)))
            << c.expected << ": " << problems.toStdString();
    }
}

class StringTables : public ::testing::Test {
protected:
    void SetUp() override {
        QString error;
        keys = readKeys(&error);
        ASSERT_TRUE(error.isEmpty()) << error.toStdString();
        english = readTable(tsPath(u"en"_s), &error);
        ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    }
    QStringList keys;
    Table english;
};

TEST_F(StringTables, KeyListHasNoDuplicates) {
    ASSERT_FALSE(keys.isEmpty());
    EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()).size(), keys.size());
}

TEST_F(StringTables, EveryKeyUsedInCodeIsListed) {
    const QSet<QString> listed(keys.begin(), keys.end());
    QStringList unlisted;
    for (const QString &key : keysUsedInCode(QStringLiteral(VANTRELO_SOURCE_DIR))) {
        if (!listed.contains(key))
            unlisted.append(key);
    }
    unlisted.sort();
    EXPECT_TRUE(unlisted.isEmpty())
        << "add to keys.txt and every table: " << unlisted.join(u", "_s).toStdString();
}

// Every table complete and consistent, and the embedded tables built from the current sources.
TEST_F(StringTables, EveryTableIsCompleteAndEmbedded) {
    for (const QString &language : TranslationFiles::languages()) {
        QString error;
        const Table table = readTable(tsPath(language), &error);
        ASSERT_TRUE(error.isEmpty()) << language.toStdString() << ": " << error.toStdString();
        const QStringList problems = tableProblems(language, table, english, keys);
        EXPECT_TRUE(problems.isEmpty()) << problems.join(u'\n').toStdString();
        QTranslator compiled;
        ASSERT_TRUE(compiled.load(TranslationFiles::tablePath(language))) << language.toStdString();
        for (const QString &key : keys) {
            EXPECT_EQ(compiled.translate(nullptr, key.toUtf8().constData()), table.value(key).text)
                << language.toStdString() << " " << key.toStdString();
        }
    }
}

} // namespace
