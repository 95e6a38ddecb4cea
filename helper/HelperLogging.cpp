#include "helper/HelperLogging.h"

Q_LOGGING_CATEGORY(lcHelper, "vantrelo.helper", QtInfoMsg)
