#include "qn/kernel/qnkernel_internal.h"
