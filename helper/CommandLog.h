#pragma once

#include <QHash>
#include <QString>

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <mutex>

namespace helper {

// The helper's log of what each command did. Refusals are what a hostile caller can produce at
// will, so each uid gets a share of them per minute; what goes beyond is counted, and the count
// is logged with that uid's first refusal after the minute.
class CommandLog {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    explicit CommandLog(int refusalsPerMinute = 20, Clock clock = &std::chrono::steady_clock::now);

    void done(uid_t uid, const QString &line) const;
    void refused(uid_t uid, const QString &line);

private:
    struct Window {
        std::chrono::steady_clock::time_point start;
        int logged = 0;
        int suppressed = 0;
    };

    int m_refusalsPerMinute;
    Clock m_clock;
    std::mutex m_mutex;
    QHash<uid_t, Window> m_windows;
};

} // namespace helper
