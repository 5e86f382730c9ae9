#include "qn/platform/shell.h"
