#include "qn/platform/directory.h"
