// Case of single characters.

#include <unicode/uchar.h>

#include "qn/platform/locale_internal.h"

namespace qn {

WCHAR ToUpper(WCHAR character) {
  return static_cast<WCHAR>(u_toupper(character));
}

}  // namespace qn
