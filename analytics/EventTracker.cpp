#include "analytics/EventTracker.h"

#include "analytics/MeasurementUploader.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

EventTracker::EventTracker(AnalyticsConfiguration config)
    : m_uploader(new MeasurementUploader(std::move(config))) {
    m_thread.setObjectName(u"analytics"_s);
    m_uploader->moveToThread(&m_thread);
    m_thread.start(QThread::LowPriority);
    QMetaObject::invokeMethod(m_uploader, &MeasurementUploader::start, Qt::QueuedConnection);
}

EventTracker::~EventTracker() {
    stop();
    delete m_uploader;
}

void EventTracker::track(const QString &name, const EventParameters &parameters) {
    {
        std::lock_guard lock(m_mutex);
        if (m_stopped)
            return;
        m_pending.push_back({name, parameters});
    }
    // One wake-up per burst: the worker takes everything that piled up in one go.
    if (!m_drainScheduled.exchange(true))
        QMetaObject::invokeMethod(
            m_uploader, [this] { drain(); }, Qt::QueuedConnection);
}

void EventTracker::flush() {
    if (!m_thread.isRunning())
        return;
    QMetaObject::invokeMethod(
        m_uploader, [this] { drain(); }, Qt::BlockingQueuedConnection);
}

void EventTracker::stop() {
    {
        std::lock_guard lock(m_mutex);
        if (m_stopped)
            return;
        m_stopped = true;
    }
    if (!m_thread.isRunning())
        return;
    QMetaObject::invokeMethod(
        m_uploader,
        [this] {
            drain();
            m_uploader->stop();
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

void EventTracker::drain() {
    m_drainScheduled = false;
    std::vector<PendingEvent> taken;
    {
        std::lock_guard lock(m_mutex);
        taken.swap(m_pending);
    }
    if (taken.empty())
        return;
    QList<QByteArray> events;
    events.reserve(qsizetype(taken.size()));
    for (const PendingEvent &event : taken)
        events.append(eventJson(event.name, event.parameters));
    m_uploader->enqueue(events);
}

QByteArray EventTracker::eventJson(const QString &name, const EventParameters &parameters) {
    QJsonObject params;
    for (const auto &[key, value] : parameters)
        params.insert(key, value.left(100));
    return QJsonDocument(QJsonObject{{u"name"_s, name.left(40)}, {u"params"_s, params}})
        .toJson(QJsonDocument::Compact);
}
