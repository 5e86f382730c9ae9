#include "qn/settings/qnmsgbox_internal.h"
