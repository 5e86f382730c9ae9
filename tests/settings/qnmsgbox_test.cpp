#include "qn/settings/qnmsgbox.h"
