#include "qn/platform/system_internal.h"
