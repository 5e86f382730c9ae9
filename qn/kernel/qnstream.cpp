#include "qn/kernel/qnstream.h"
