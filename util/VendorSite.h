#pragma once

#include <QString>
#include <QUrl>

// The vendor's web site and the addresses the program sends people to there. The base is a
// setting of the build (VANTRELO_VENDOR_SITE).
class VendorSite {
public:
    VendorSite() = delete;

    static QUrl base();
    // The helper guide in a guide language ("zh", "ja", "de", "fr", "en"); invalid when no
    // address can be formed.
    static QUrl helperGuideUrl(const QString &language);
    // The helper installer package, for the browser to download; invalid when no address can be
    // formed.
    static QUrl helperInstallerUrl();
    // The guide language for an interface table ("zh-Hans" -> "zh"; others keep their code).
    static QString guideLanguage(const QString &tableLanguage);
};
