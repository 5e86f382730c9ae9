#pragma once

#include "qn/platform/types.h"
