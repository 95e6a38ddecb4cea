#include "system/MuLanguage.h"

#include "resources/TranslationFiles.h"
#include "system/BundleSub.h"
#include "system/SystemLogging.h"
#include "system/UserDefaults.h"

#include <QHash>
#include <QLocale>
#include <QMutex>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {

QMutex g_languageMutex;
QString g_language;
// Loaded once per language and kept, never destroyed: lookups on other threads may still be
// reading a table that was just replaced.
QHash<QString, const QTranslator *> &tables() {
    static auto *const loaded = new QHash<QString, const QTranslator *>;
    return *loaded;
}

const QTranslator *tableFor(const QString &language) {
    const QString path = TranslationFiles::tablePath(language);
    if (path.isEmpty())
        return nullptr;
    if (const auto it = tables().constFind(language); it != tables().constEnd())
        return *it;
    auto *table = new QTranslator;
    if (!table->load(path)) {
        qCWarning(lcSystem) << "no string table for language" << language;
        delete table;
        table = nullptr;
    }
    tables().insert(language, table);
    return table;
}

} // namespace

void MuLanguage::setLanguage(const QString &language) {
    BundleSub *bundle = BundleSub::mainBundle();
    QMutexLocker lock(&g_languageMutex);
    const QTranslator *table = tableFor(language);
    g_language = table ? language : QString();
    bundle->setLanguageBundle(table);
}

QString MuLanguage::language() {
    QMutexLocker lock(&g_languageMutex);
    return g_language;
}

QString MuLanguage::languageForPreferredLanguages(const QVariant &preferred) {
    QString first;
    if (preferred.typeId() == QMetaType::QStringList) {
        const QStringList list = preferred.toStringList();
        if (!list.isEmpty())
            first = list.first();
    } else if (preferred.typeId() == QMetaType::QVariantList) {
        const QVariantList list = preferred.toList();
        for (const QVariant &entry : list) {
            if (entry.typeId() != QMetaType::QString)
                return u"en"_s;
        }
        if (!list.isEmpty())
            first = list.first().toString();
    }
    first = first.toLower();
    if (first.startsWith(u"zh-hans"))
        return u"zh-Hans"_s;
    for (const QString &code : {u"ja"_s, u"de"_s, u"fr"_s}) {
        if (first.startsWith(code))
            return code;
    }
    return u"en"_s;
}

QVariant MuLanguage::preferredLanguages() {
    const QVariant stored = UserDefaults::standard().objectForKey(u"AppleLanguages"_s);
    if (stored.isValid())
        return stored;
    return systemPreferredLanguages();
}

QStringList MuLanguage::systemPreferredLanguages() {
    return languageTags(QLocale::system().uiLanguages());
}

QStringList MuLanguage::languageTags(const QStringList &localeNames) {
    QStringList tags;
    for (const QString &name : localeNames) {
        const QLocale locale(name);
        if (locale.language() == QLocale::C) {
            tags.append(name);
            continue;
        }
        QString tag = QLocale::languageToCode(locale.language());
        if (locale.script() != QLocale::AnyScript)
            tag += u'-' + QLocale::scriptToCode(locale.script());
        if (locale.territory() != QLocale::AnyTerritory)
            tag += u'-' + QLocale::territoryToCode(locale.territory());
        tags.append(tag);
    }
    return tags;
}

void MuLanguage::applyPreferredLanguage() {
    setLanguage(languageForPreferredLanguages(preferredLanguages()));
}
