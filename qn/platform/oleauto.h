// Counted wide strings that change owner across the border.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

// Points at the first character; the length in bytes stands in front, a terminator behind.
using BSTR = WCHAR*;

// A copy of a text, or of `length` characters (null text: not filled). Null for a null text, and when there
// is no memory. Free it with SysFreeString.
QN_API BSTR SysAllocString(const WCHAR* text);
QN_API BSTR SysAllocStringLen(const WCHAR* text, UINT length);

// The length in characters; 0 for null.
QN_API UINT SysStringLen(BSTR text);

// Frees a string; null is allowed.
QN_API void SysFreeString(BSTR text);

}  // namespace qnplatform
