#include "analytics/AnalyticsLogging.h"

Q_LOGGING_CATEGORY(lcAnalytics, "vantrelo.analytics")
