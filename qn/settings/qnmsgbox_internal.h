// The request of a custom box, its buttons and its layout, apart from any drawing.
#pragma once

#include <cstddef>
#include <span>

#include "qn/platform/wingdi.h"
#include "qn/settings/qnmsgbox.h"

namespace qn {

// One per call; the order of the fields is public.
struct MsgBoxRequest {
  DWORD flags;
  const WCHAR* text;
  const WCHAR* details;
  DWORD detailsOpen;
  DWORD detailsExtra;
  DWORD noCancel;
  const WCHAR* checkText;
  DWORD* checkValue;
  const WCHAR* caption;
  const WCHAR* linkTarget;
  const WCHAR* linkText;
};

// The application's name as the default caption; never null.
const WCHAR* MsgBoxAppName();

// Shows a custom box: the result, or -1 when it cannot be made. The window layer puts its function here;
// until then there is none and the result is -1.
using OpenMsgBox = int (*)(HWND owner, MsgBoxRequest* request);
void SetOpenMsgBox(OpenMsgBox open);

}  // namespace qn
