#pragma once

#include <QString>
#include <QUrl>

// The vendor's web site and the addresses the program sends people to. The site, the support
// address and the store id are settings of the build (VANTRELO_VENDOR_SITE,
// VANTRELO_SUPPORT_EMAIL, VANTRELO_STORE_ID).
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
    // A new message to the support address with the subject "Vantrelo"; invalid when the
    // address makes no URL.
    static QUrl feedbackUrl();
    // The application's page in the software centre, where a review can be written.
    static QUrl reviewUrl();
    // The guide language for an interface table ("zh-Hans" -> "zh"; others keep their code).
    static QString guideLanguage(const QString &tableLanguage);
};
