#pragma once

#include <QString>
#include <QStringList>

// Where the compiled string tables are embedded.
class TranslationFiles {
public:
    TranslationFiles() = delete;

    // The interface languages, as language folder codes: "en", "zh-Hans", "ja", "de", "fr".
    static QStringList languages();
    // The embedded table of a language code ("zh-Hans" -> ":/i18n/vantrelo_zh_Hans.qm"), or ""
    // for a code that is not one of languages().
    static QString tablePath(const QString &language);
};
