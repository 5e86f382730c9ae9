#include "qn/settings/qnmetric.h"
