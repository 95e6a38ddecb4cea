#pragma once

#include "analytics/AnalyticsConfiguration.h"
#include "analytics/EventTracker.h"

#include <QString>

// The one entry for usage events. Each event carries six fixed parameters: the program's name
// and version, the action and label given by the caller, the kernel version and the machine's
// serial number.
class GoogleAnalytics {
public:
    GoogleAnalytics() = delete;

    // One-time set-up at start; later calls change nothing. Without a measurement id and an API
    // secret, events only go to the debug log and nothing leaves the machine.
    static void configure();
    static void configure(const AnalyticsConfiguration &config);

    // Returns at once from any thread; a null action or param is sent as "".
    static void trackEventName(const QString &name, const QString &action = {},
                               const QString &param = {});

    // The six parameters of an event, in a fixed order.
    static EventParameters eventParameters(const QString &action, const QString &param);

    // Writes pending events to the queue file and stops uploading; called when the program quits.
    static void shutdown();
};
