#include "system/SystemLogging.h"

Q_LOGGING_CATEGORY(lcSystem, "vantrelo.system")
