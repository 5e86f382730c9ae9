#include <algorithm>
#include <string_view>

#include "qn/settings/qnmetric.h"
#include "qn/settings/qnmetric_internal.h"
#include "qn/text/text_internal.h"

namespace {

int ReadText(HQNMETRIC handle, LONG id, DWORD type, WCHAR* text, DWORD size, const WCHAR* defaultText,
             BOOL emptyIsValue) {
  constexpr DWORD kEnd = sizeof(WCHAR);
  if (!text || size == 0) return 0;
  defaultText = QnGetStringSmart(qn::KernelLanguage(), defaultText);
  size = std::min<DWORD>(size, UINT32_MAX / kEnd);
  const DWORD bytes = qn::ReadMetric(handle, id, type, text, size * kEnd);
  // What was stored without a terminator may fill the room.
  text[size - 1] = 0;
  if (bytes > kEnd) return static_cast<int>(bytes / kEnd - 1);
  if (bytes != 0 && emptyIsValue) return 0;

  *text = 0;
  return defaultText ? static_cast<int>(std::u16string_view(defaultText).copy(text, size - 1)) : 0;
}

}  // namespace

int QnGetMetricStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size, const WCHAR* defaultText,
                        BOOL emptyIsValue) {
  return ReadText(handle, id, REG_SZ, text, size, defaultText, emptyIsValue);
}

HRESULT QnSetMetricString(HQNMETRIC handle, LONG id, const WCHAR* text) {
  const std::u16string_view stored(text ? QnGetStringSmart(qn::KernelLanguage(), text) : W(""));
  return qn::WriteMetric(handle, id, REG_SZ, stored.data(), (stored.size() + 1) * sizeof(WCHAR));
}

int QnGetMetricMultiStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size, const WCHAR* defaultText,
                             BOOL emptyIsValue) {
  return ReadText(handle, id, REG_MULTI_SZ, text, size, defaultText, emptyIsValue);
}

HRESULT QnSetMetricMultiString(HQNMETRIC handle, LONG id, const WCHAR* text, DWORD characters) {
  return qn::WriteMetric(handle, id, REG_MULTI_SZ, text, ULONGLONG{characters} * sizeof(WCHAR));
}
