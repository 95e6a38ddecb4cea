#pragma once

#include <QMutex>
#include <QTranslator>

#include <atomic>

// The one translator installed in the application. Every qtTrId() lookup passes through it: with
// a language table attached, the answer comes from that table only (a key it lacks shows as the
// key, never as another language's text); without one, from the table of the system's own
// language choice. Switching languages is then a pointer swap, safe while other threads look up.
class BundleSub : public QTranslator {
    Q_OBJECT

public:
    // Created on the first call and installed as soon as an application object exists.
    static BundleSub *mainBundle();

    // The table must outlive every lookup: tables are loaded once and never destroyed, since a
    // translator's destructor takes the application's translation lock.
    void setLanguageBundle(const QTranslator *bundle) { m_languageBundle = bundle; }
    const QTranslator *languageBundle() const { return m_languageBundle; }

    // The text of key in the attached language (else the system's choice); a key the table lacks
    // gives value, or the key itself when value is empty. Only the default table exists: table
    // must be empty or "Localizable".
    QString localizedStringForKey(const QString &key, const QString &value = {},
                                  const QString &table = {}) const;

    QString translate(const char *context, const char *sourceText,
                      const char *disambiguation = nullptr, int n = -1) const override;
    bool isEmpty() const override { return false; }

private:
    BundleSub();
    void installOnce();

    QMutex m_installMutex;
    std::atomic<const QTranslator *> m_languageBundle{nullptr};
    bool m_installed = false;
};
