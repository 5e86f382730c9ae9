#include "qn/platform/tree_internal.h"
