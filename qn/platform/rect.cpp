#include <algorithm>

#include "qn/platform/winuser.h"

inline namespace qnplatform {

BOOL IntersectRect(RECT* shared, const RECT* first, const RECT* second) {
  if (!shared || !first || !second) return FALSE;
  const RECT found = {std::max(first->left, second->left), std::max(first->top, second->top),
                      std::min(first->right, second->right), std::min(first->bottom, second->bottom)};
  const bool any = found.left < found.right && found.top < found.bottom;
  *shared = any ? found : RECT{};
  return any;
}

}  // namespace qnplatform
