#pragma once

#include <QLockFile>
#include <QProcess>
#include <QString>

namespace testsupport {

// udevd for a test: the one already running, else one of its own in the foreground, stopped by pid
// when the object goes away. One user at a time, so no run stops the udevd another still uses.
class Udevd {
public:
    Udevd() = default;
    Udevd(const Udevd &) = delete;
    Udevd &operator=(const Udevd &) = delete;
    ~Udevd();

    // Empty once udevd answers, else why not.
    QString start();
    // Has udevd read `device` again, so its database holds what is on it now. Empty or why not.
    static QString refresh(const QString &device);

private:
    QLockFile m_lock{QStringLiteral("/tmp/vantrelo-udevd.lock")};
    QProcess m_process;
};

} // namespace testsupport
