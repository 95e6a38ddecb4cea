#include "helperclient/HelperClientLogging.h"

Q_LOGGING_CATEGORY(lcHelperClient, "vantrelo.helperclient")
