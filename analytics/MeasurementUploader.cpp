#include "analytics/MeasurementUploader.h"

#include "analytics/AnalyticsLogging.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QTimer>
#include <QUrlQuery>
#include <QUuid>

#include <algorithm>

using namespace Qt::StringLiterals;

MeasurementUploader::MeasurementUploader(AnalyticsConfiguration config, QObject *parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_queue(m_config.queueFilePath, m_config.maxQueuedEvents)
    , m_retryTimer(new QTimer(this))
    , m_retryDelay(m_config.initialRetryDelay) {
    m_config.batchSize = std::clamp(m_config.batchSize, 1, 25);
    m_retryTimer->setSingleShot(true);
    connect(m_retryTimer, &QTimer::timeout, this, &MeasurementUploader::sendNextBatch);
}

MeasurementUploader::~MeasurementUploader() {
    stop();
}

void MeasurementUploader::start() {
    if (m_started)
        return;
    m_started = true;
    m_queue.open();
    m_clientId = m_config.clientId.isEmpty() ? loadClientId() : m_config.clientId;
    QByteArray prefix =
        QJsonDocument(QJsonObject{{u"client_id"_s, m_clientId}}).toJson(QJsonDocument::Compact);
    prefix.chop(1);
    m_bodyPrefix = prefix + ",\"events\":[";
    // Created here so that it belongs to the thread the uploader runs on.
    m_network = new QNetworkAccessManager(this);
    m_network->setAutoDeleteReplies(true);
    if (!m_queue.isEmpty())
        qCInfo(lcAnalytics) << m_queue.size() << "analytics events left from an earlier run";
    sendNextBatch();
}

void MeasurementUploader::enqueue(const QList<QByteArray> &events) {
    if (m_stopped)
        return;
    m_queue.append(events);
    if (m_started && !m_inFlight && !m_retryTimer->isActive())
        sendNextBatch();
}

void MeasurementUploader::stop() {
    m_stopped = true;
    m_retryTimer->stop();
    if (m_inFlight) {
        QNetworkReply *reply = m_inFlight;
        m_inFlight = nullptr;
        reply->disconnect(this);
        reply->abort();
    }
    m_queue.close();
}

QUrl MeasurementUploader::collectUrl() const {
    QUrl url = m_config.endpoint;
    QUrlQuery query(url);
    query.addQueryItem(u"measurement_id"_s, m_config.measurementId);
    query.addQueryItem(u"api_secret"_s, m_config.apiSecret);
    url.setQuery(query);
    return url;
}

void MeasurementUploader::sendNextBatch() {
    if (m_stopped || m_inFlight || !m_network)
        return;
    const QList<EventQueueFile::Entry> batch = m_queue.front(m_config.batchSize);
    if (batch.isEmpty()) {
        Q_EMIT queueEmptied();
        return;
    }
    // The stored events are already compact JSON, so the body is put together without a
    // round trip through QJsonDocument.
    QByteArray body = m_bodyPrefix;
    for (qsizetype i = 0; i < batch.size(); ++i) {
        if (i > 0)
            body += ',';
        body += batch[i].event;
    }
    body += "]}";

    QNetworkRequest request(collectUrl());
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setTransferTimeout(int(m_config.requestTimeout.count()));
    QNetworkReply *reply = m_network->post(request, body);
    m_inFlight = reply;
    const quint64 lastSequence = batch.last().sequence;
    const int count = int(batch.size());
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, lastSequence, count] { finishBatch(reply, lastSequence, count); });
}

void MeasurementUploader::finishBatch(QNetworkReply *reply, quint64 lastSequence, int count) {
    if (reply != m_inFlight)
        return;
    m_inFlight = nullptr;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool delivered =
        status >= 200 && status < 300 && reply->error() == QNetworkReply::NoError;
    // A 4xx other than a timeout or rate limit means this batch will never be accepted; keeping
    // it would block everything queued behind it.
    const bool rejected = status >= 400 && status < 500 && status != 408 && status != 429;
    if (delivered || rejected) {
        m_queue.removeThrough(lastSequence);
        m_retryDelay = m_config.initialRetryDelay;
        if (delivered) {
            qCDebug(lcAnalytics) << "delivered" << count << "analytics events";
            Q_EMIT batchDelivered(count);
        } else {
            qCWarning(lcAnalytics) << "analytics server rejected" << count << "events with HTTP"
                                   << status << "- dropped";
        }
        sendNextBatch();
        return;
    }
    qCInfo(lcAnalytics) << "analytics upload failed:"
                        << (status != 0 ? u"HTTP %1"_s.arg(status) : reply->errorString())
                        << "- retrying in" << m_retryDelay.count() << "ms";
    scheduleRetry();
}

void MeasurementUploader::scheduleRetry() {
    m_retryTimer->start(m_retryDelay);
    m_retryDelay = std::min(m_retryDelay * 2, m_config.maxRetryDelay);
}

QString MeasurementUploader::loadClientId() const {
    const QString path =
        QFileInfo(m_config.queueFilePath).absolutePath() + u"/analytics-client-id"_s;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        const QString stored = QString::fromLatin1(file.read(64)).trimmed();
        if (!stored.isEmpty())
            return stored;
    }
    const QString created = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QSaveFile out(path);
    if (!out.open(QIODevice::WriteOnly) || out.write(created.toLatin1() + '\n') < 0 ||
        !out.commit())
        qCWarning(lcAnalytics) << "cannot store the analytics client id in" << path;
    return created;
}
