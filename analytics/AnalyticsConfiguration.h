#pragma once

#include <QString>
#include <QUrl>

#include <chrono>

// Where and how usage events are sent. Without a measurement id and an API secret nothing is
// sent anywhere.
struct AnalyticsConfiguration {
    QString measurementId;
    QString apiSecret;
    // GA4 Measurement Protocol collection address; tests point it at a local server.
    QUrl endpoint;
    // Events waiting to be sent; created when missing.
    QString queueFilePath;
    // Pseudonymous installation id; read from (or created in) a file beside the queue when empty.
    QString clientId;
    int batchSize = 25;
    int maxQueuedEvents = 10000;
    std::chrono::milliseconds requestTimeout{std::chrono::seconds(30)};
    std::chrono::milliseconds initialRetryDelay{std::chrono::seconds(2)};
    std::chrono::milliseconds maxRetryDelay{std::chrono::minutes(10)};

    bool canUpload() const { return !measurementId.isEmpty() && !apiSecret.isEmpty(); }

    static QUrl defaultEndpoint();
    // $XDG_DATA_HOME/vantrelo/analytics-queue
    static QString defaultQueueFilePath();
    // Values from the build (VANTRELO_GA_MEASUREMENT_ID, VANTRELO_GA_API_SECRET), overridden by
    // the environment variables of the same names; default endpoint and queue file.
    static AnalyticsConfiguration fromEnvironment();
};
