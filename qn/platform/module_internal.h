// What the resource functions need of modules.
#pragma once

#include <string>

#include "qn/platform/module.h"
#include "qn/platform/resource_internal.h"

namespace qn {

// The image that a module (null: the executable) has registered; an empty one when it has none.
ResourceImage FindModuleImage(HMODULE module);

// The registered image that an address lies in; an empty one when it lies in none.
ResourceImage FindImageOf(const void* address);

// The loaded module of a native path, or of a name without folder; null when none is. Links are followed.
HMODULE FindModuleByPath(const std::string& path);

}  // namespace qn
