#include "system/BundleSub.h"

#include "resources/TranslationFiles.h"
#include "system/MuLanguage.h"

#include <QCoreApplication>

BundleSub::BundleSub() {
    const QString system =
        MuLanguage::languageForPreferredLanguages(MuLanguage::systemPreferredLanguages());
    // The system's choice is what lookups fall back to when no language is attached.
    (void)load(TranslationFiles::tablePath(system));
}

namespace {

// Lookups answer in the system's choice from the start, and a language chosen before the
// application object existed takes effect as soon as it does.
void installAtStartup() {
    (void)BundleSub::mainBundle();
}
Q_COREAPP_STARTUP_FUNCTION(installAtStartup)

} // namespace

BundleSub *BundleSub::mainBundle() {
    // Never destroyed: lookups may come from any thread until the very end of the process.
    static BundleSub *const bundle = new BundleSub;
    bundle->installOnce();
    return bundle;
}

void BundleSub::installOnce() {
    QMutexLocker lock(&m_installMutex);
    if (m_installed || !QCoreApplication::instance())
        return;
    QCoreApplication::installTranslator(this);
    m_installed = true;
}

QString BundleSub::localizedStringForKey(const QString &key, const QString &value,
                                         const QString &table) const {
    QString text;
    if (table.isEmpty() || table == u"Localizable")
        text = translate(nullptr, key.toUtf8().constData());
    if (!text.isEmpty())
        return text;
    return value.isEmpty() ? key : value;
}

QString BundleSub::translate(const char *context, const char *sourceText,
                             const char *disambiguation, int n) const {
    if (const QTranslator *bundle = languageBundle()) {
        const QString text = bundle->translate(context, sourceText, disambiguation, n);
        // A null answer makes qtTrId() show the key; an empty one would show nothing.
        return text.isEmpty() ? QString() : text;
    }
    return QTranslator::translate(context, sourceText, disambiguation, n);
}
