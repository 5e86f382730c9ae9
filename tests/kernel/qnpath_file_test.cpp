#include "qn/kernel/qnpath.h"
