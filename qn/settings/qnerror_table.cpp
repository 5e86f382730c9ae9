#include "qn/settings/qnerror.h"
