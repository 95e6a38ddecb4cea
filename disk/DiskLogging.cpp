#include "disk/DiskLogging.h"

Q_LOGGING_CATEGORY(lcDisk, "vantrelo.disk")
