#include "util/TLUtility.h"
