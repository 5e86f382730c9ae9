#include "qn/platform/types.h"
