#include "qn/platform/exception.h"
