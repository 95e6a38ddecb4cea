#include "analytics/GoogleAnalytics.h"

#include "analytics/AnalyticsLogging.h"
#include "analytics/SystemInfo.h"

#include <QCoreApplication>

#include <atomic>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

std::once_flag g_configured;
// Never destroyed: events may still arrive from other threads while the program exits.
std::atomic<EventTracker *> g_tracker{nullptr};

} // namespace

void GoogleAnalytics::configure() {
    configure(AnalyticsConfiguration::fromEnvironment());
}

void GoogleAnalytics::configure(const AnalyticsConfiguration &config) {
    std::call_once(g_configured, [&config] {
        if (!config.canUpload()) {
            qCDebug(lcAnalytics) << "no measurement id or API secret: events stay in the debug log";
            return;
        }
        g_tracker = new EventTracker(config);
        if (QCoreApplication *app = QCoreApplication::instance())
            QObject::connect(app, &QCoreApplication::aboutToQuit, app, [] { shutdown(); });
    });
}

void GoogleAnalytics::trackEventName(const QString &name, const QString &action,
                                     const QString &param) {
    const EventParameters parameters = eventParameters(action, param);
    if (EventTracker *tracker = g_tracker.load()) {
        tracker->track(name, parameters);
        return;
    }
    qCDebug(lcAnalytics) << "event" << name << parameters;
}

EventParameters GoogleAnalytics::eventParameters(const QString &action, const QString &param) {
    return {
        {u"soft_name"_s, u"Vantrelo"_s},
        {u"track_version"_s, u"1.2.0"_s},
        {u"event_label"_s, param.isNull() ? u""_s : param},
        {u"event_action"_s, action.isNull() ? u""_s : action},
        {u"system_version"_s, SystemInfo::systemVersion()},
        {u"serial"_s, SystemInfo::serialNumber()},
    };
}

void GoogleAnalytics::shutdown() {
    if (EventTracker *tracker = g_tracker.load())
        tracker->stop();
}
