#include "helper/CommandLog.h"

#include "helper/HelperLogging.h"

namespace helper {

namespace {

constexpr std::chrono::minutes kWindow{1};
// Past this many uids, windows that have ended are forgotten.
constexpr qsizetype kMaxWindows = 4096;

} // namespace

CommandLog::CommandLog(int refusalsPerMinute, Clock clock)
    : m_refusalsPerMinute(refusalsPerMinute)
    , m_clock(std::move(clock)) {}

void CommandLog::done(uid_t uid, const QString &line) const {
    qCInfo(lcHelper).noquote() << "uid" << uid << line;
}

void CommandLog::refused(uid_t uid, const QString &line) {
    const auto now = m_clock();
    std::lock_guard lock(m_mutex);
    if (m_windows.size() > kMaxWindows)
        m_windows.removeIf(
            [now](const auto &entry) { return now - entry.value().start >= kWindow; });
    Window &window = m_windows[uid];
    if (window.logged == 0 || now - window.start >= kWindow) {
        if (window.suppressed > 0)
            qCWarning(lcHelper).noquote()
                << "uid" << uid << ":" << window.suppressed << "more refusals were not logged";
        window = {now, 0, 0};
    }
    if (window.logged >= m_refusalsPerMinute) {
        ++window.suppressed;
        return;
    }
    ++window.logged;
    qCWarning(lcHelper).noquote() << "uid" << uid << line;
}

} // namespace helper
