#pragma once

#include "analytics/AnalyticsConfiguration.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QThread>

#include <atomic>
#include <mutex>
#include <vector>

class MeasurementUploader;

using EventParameters = QList<QPair<QString, QString>>;

// Takes events from any thread without making the caller wait: track() only appends to an
// in-memory list; a worker thread writes the events to the queue file and uploads them.
class EventTracker {
public:
    explicit EventTracker(AnalyticsConfiguration config);
    // Writes every tracked event to the queue file before the worker stops.
    ~EventTracker();

    EventTracker(const EventTracker &) = delete;
    EventTracker &operator=(const EventTracker &) = delete;

    void track(const QString &name, const EventParameters &parameters);
    // Blocks until every event tracked so far is in the queue file. Not for the worker thread.
    void flush();
    // Persists what is pending and stops the worker; later events are ignored.
    void stop();

    // For connecting to its signals; it lives on the worker thread.
    MeasurementUploader *uploader() const { return m_uploader; }

    // GA4 caps parameter values at 100 characters and event names at 40.
    static QByteArray eventJson(const QString &name, const EventParameters &parameters);

private:
    struct PendingEvent {
        QString name;
        EventParameters parameters;
    };

    void drain();

    QThread m_thread;
    MeasurementUploader *m_uploader;
    std::mutex m_mutex;
    std::vector<PendingEvent> m_pending;
    bool m_stopped = false;
    std::atomic_bool m_drainScheduled{false};
};
