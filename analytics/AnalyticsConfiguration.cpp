#include "analytics/AnalyticsConfiguration.h"

#include <QStandardPaths>

using namespace Qt::StringLiterals;

#ifndef VANTRELO_GA_MEASUREMENT_ID
#define VANTRELO_GA_MEASUREMENT_ID ""
#endif
#ifndef VANTRELO_GA_API_SECRET
#define VANTRELO_GA_API_SECRET ""
#endif

namespace {

QString valueOf(const char *variable, const char *builtIn) {
    if (qEnvironmentVariableIsSet(variable))
        return qEnvironmentVariable(variable).trimmed();
    return QString::fromUtf8(builtIn);
}

} // namespace

QUrl AnalyticsConfiguration::defaultEndpoint() {
    return QUrl(u"https://www.google-analytics.com/mp/collect"_s);
}

QString AnalyticsConfiguration::defaultQueueFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) %
           u"/vantrelo/analytics-queue"_s;
}

AnalyticsConfiguration AnalyticsConfiguration::fromEnvironment() {
    AnalyticsConfiguration config;
    config.measurementId = valueOf("VANTRELO_GA_MEASUREMENT_ID", VANTRELO_GA_MEASUREMENT_ID);
    config.apiSecret = valueOf("VANTRELO_GA_API_SECRET", VANTRELO_GA_API_SECRET);
    config.endpoint = defaultEndpoint();
    config.queueFilePath = defaultQueueFilePath();
    return config;
}
