#pragma once

#include <QMutex>
#include <QTranslator>

#include <memory>

// The one translator installed in the application. Every qtTrId() lookup passes through it: with
// a language table attached, the answer comes from that table only (a key it lacks shows as the
// key, never as another language's text); without one, from the table of the system's own
// language choice. Switching languages is then a pointer swap, safe while other threads look up.
class BundleSub : public QTranslator {
    Q_OBJECT

public:
    // Created on the first call and installed as soon as an application object exists.
    static BundleSub *mainBundle();

    void setLanguageBundle(std::shared_ptr<const QTranslator> bundle);
    std::shared_ptr<const QTranslator> languageBundle() const;

    QString translate(const char *context, const char *sourceText,
                      const char *disambiguation = nullptr, int n = -1) const override;
    bool isEmpty() const override { return false; }

private:
    BundleSub();
    void installOnce();

    mutable QMutex m_mutex;
    std::shared_ptr<const QTranslator> m_languageBundle;
    bool m_installed = false;
};
