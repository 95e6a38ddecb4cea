#include "system/MuLanguage.h"

#include "resources/TranslationFiles.h"
#include "system/BundleSub.h"
#include "system/SystemLogging.h"
#include "system/UserDefaults.h"

#include <QLocale>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

QString g_language;
QMutex g_languageMutex;

} // namespace

void MuLanguage::setLanguage(const QString &language) {
    BundleSub *bundle = BundleSub::mainBundle();
    std::shared_ptr<QTranslator> table;
    const QString path = TranslationFiles::tablePath(language);
    if (!path.isEmpty()) {
        table = std::make_shared<QTranslator>();
        if (!table->load(path)) {
            qCWarning(lcSystem) << "no string table for language" << language;
            table.reset();
        }
    }
    QMutexLocker lock(&g_languageMutex);
    g_language = table ? language : QString();
    bundle->setLanguageBundle(std::move(table));
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
    QStringList tags;
    const QStringList uiLanguages = QLocale::system().uiLanguages();
    for (const QString &name : uiLanguages) {
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
