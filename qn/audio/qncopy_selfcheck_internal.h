// What the self-check of the copy kernels needs of layers above it, and what a test replaces.
#pragma once

#include <cstddef>

#include "qn/audio/qncopy.h"

namespace qn {

struct CopySelfCheckHooks {
  // Shows the wait cursor and returns what stood there before; puts that back.
  void* (*showWaitCursor)();
  void (*restoreCursor)(void* before);

  // Records a failure: a status and a format with one %d, the row. Returns the status that stands recorded.
  HRESULT (*record)(HRESULT status, const WCHAR* format, int row);

  // Shows a text in a message box over a window.
  void (*show)(HWND window, const WCHAR* text);

  void* (*allocate)(size_t bytes);  // null when there is no memory
  void (*release)(void* block);

  // The kernel under test; with `vector` the vector kernel of the pair.
  QNCOPYFUNCTION (*findKernel)(QNSAMPLETYPE dst, QNSAMPLETYPE src, bool vector);
};

// The hooks in use. At first they record in the details log, show message boxes, allocate and find the
// library's own kernels, and leave the cursor alone; upper layers and tests put their own in place.
CopySelfCheckHooks& SelfCheckHooks();

}  // namespace qn
