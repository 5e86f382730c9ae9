#include "qn/platform/filetime.h"
