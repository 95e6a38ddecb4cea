#include "util/VendorSite.h"

using namespace Qt::StringLiterals;

#ifndef VANTRELO_VENDOR_SITE
#define VANTRELO_VENDOR_SITE "https://vantrelo.app/"
#endif
#ifndef VANTRELO_SUPPORT_EMAIL
#define VANTRELO_SUPPORT_EMAIL "support@vantrelo.app"
#endif
#ifndef VANTRELO_STORE_ID
#define VANTRELO_STORE_ID "com.corvin.Vantrelo"
#endif

namespace {

QUrl onSite(const QString &path) {
    const QUrl site = VendorSite::base();
    if (!site.isValid() || site.isRelative())
        return {};
    const QUrl url = site.resolved(QUrl::fromEncoded(QUrl::toPercentEncoding(path, "/")));
    return url.isValid() ? url : QUrl();
}

} // namespace

QUrl VendorSite::base() {
    return QUrl(QStringLiteral(VANTRELO_VENDOR_SITE), QUrl::StrictMode);
}

QUrl VendorSite::helperGuideUrl(const QString &language) {
    QUrl url = onSite(u"vantrelo-guide.html"_s);
    if (url.isEmpty())
        return {};
    const QByteArray file =
        QUrl::toPercentEncoding(u"vantrelo-helper-guide-"_s + language + u".pdf"_s);
    url.setQuery(u"pdf="_s + QString::fromLatin1(file), QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

QUrl VendorSite::helperInstallerUrl() {
    return onSite(u"installer/Vantrelo Helper Installer.deb"_s);
}

QUrl VendorSite::feedbackUrl() {
    const QUrl url(u"mailto:"_s + QStringLiteral(VANTRELO_SUPPORT_EMAIL) + u"?subject=Vantrelo"_s,
                   QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

QUrl VendorSite::reviewUrl() {
    const QUrl url(u"appstream://"_s + QStringLiteral(VANTRELO_STORE_ID), QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

QString VendorSite::guideLanguage(const QString &tableLanguage) {
    return tableLanguage == u"zh-Hans" ? u"zh"_s : tableLanguage;
}
