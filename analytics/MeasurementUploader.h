#pragma once

#include "analytics/AnalyticsConfiguration.h"
#include "analytics/EventQueueFile.h"

#include <QObject>
#include <QPointer>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// Sends queued events to the GA4 Measurement Protocol in batches. Lives on one thread (the
// tracker's worker); every call and signal stays on it. A batch leaves the queue file only after
// the server answered 2xx, so an event is neither lost nor sent again after a success; failures
// are retried with a delay that doubles up to a limit.
class MeasurementUploader : public QObject {
    Q_OBJECT

public:
    explicit MeasurementUploader(AnalyticsConfiguration config, QObject *parent = nullptr);
    ~MeasurementUploader() override;

    // Opens the queue file and sends what an earlier run left behind.
    void start();
    // Each event is one compact JSON object {"name": ..., "params": {...}}.
    void enqueue(const QList<QByteArray> &events);
    // Aborts a request in flight (its batch stays queued for the next run) and stops retrying.
    void stop();

    qsizetype queuedCount() const { return m_queue.size(); }
    QString clientId() const { return m_clientId; }

Q_SIGNALS:
    void batchDelivered(int count);
    void queueEmptied();

private:
    void sendNextBatch();
    void finishBatch(QNetworkReply *reply, quint64 lastSequence, int count);
    void scheduleRetry();
    QString loadClientId() const;
    QUrl collectUrl() const;

    AnalyticsConfiguration m_config;
    EventQueueFile m_queue;
    QString m_clientId;
    QByteArray m_bodyPrefix;
    QNetworkAccessManager *m_network = nullptr;
    QTimer *m_retryTimer = nullptr;
    QPointer<QNetworkReply> m_inFlight;
    std::chrono::milliseconds m_retryDelay;
    bool m_started = false;
    bool m_stopped = false;
};
