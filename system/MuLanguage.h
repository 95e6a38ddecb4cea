#pragma once

#include <QString>
#include <QVariant>

// The interface language. At start the application picks one of the five tables from the user's
// first preferred language and attaches it; every later qtTrId() lookup answers from it.
class MuLanguage {
public:
    MuLanguage() = delete;

    // Attaches the table of a language code ("en", "zh-Hans", "ja", "de", "fr"). A null, empty
    // or unknown code removes the override, and lookups return to the system's choice.
    static void setLanguage(const QString &language);
    // The code of the attached table, "" when there is none.
    static QString language();

    // "zh-Hans", "ja", "de", "fr" or "en" from the first entry of a list of language tags, by
    // prefix after lower-casing. Anything but a non-empty list of strings gives "en".
    static QString languageForPreferredLanguages(const QVariant &preferred);
    // The user default "AppleLanguages" when set, else the system's languages.
    static QVariant preferredLanguages();
    // The system's languages as language-script-territory tags ("zh-Hans-CN", "de-Latn-CH"), so
    // that Simplified Chinese is recognisable from the locale "zh_CN" alone.
    static QStringList systemPreferredLanguages();
    // "zh-CN" -> "zh-Hans-CN", "de" -> "de-Latn-DE"; names that are no language pass unchanged.
    static QStringList languageTags(const QStringList &localeNames);
    // Run once at start, before any window is built.
    static void applyPreferredLanguage();
};
