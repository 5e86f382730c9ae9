#include "qn/platform/oleauto.h"
