#include "resources/TranslationFiles.h"

using namespace Qt::StringLiterals;

QStringList TranslationFiles::languages() {
    return {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s};
}

QString TranslationFiles::tablePath(const QString &language) {
    if (!languages().contains(language))
        return {};
    QString file = language;
    file.replace(u'-', u'_');
    return u":/i18n/vantrelo_"_s + file + u".qm"_s;
}
