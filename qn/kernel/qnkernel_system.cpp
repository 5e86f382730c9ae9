#include "qn/kernel/qnkernel.h"
