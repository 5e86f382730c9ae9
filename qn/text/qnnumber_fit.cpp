// Texts made to fit: into a width by an ellipsis, into a name by cleaning.
#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "qn/platform/wingdi.h"
#include "qn/platform/winuser.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnnumber_internal.h"

namespace {

using Traits = std::char_traits<WCHAR>;

constexpr WCHAR kDots[] = W("...");
constexpr int kDotsLength = 3;

int LengthOf(const WCHAR* text) {
  return static_cast<int>(Traits::length(text));
}

// The width in pixels, or -1 when it cannot be measured. No characters take none.
int64_t WidthOf(HDC dc, const WCHAR* text, int length) {
  if (length == 0) return 0;
  SIZE extent{};
  return GetTextExtentPoint32W(dc, text, length, &extent) ? extent.cx : -1;
}

// Whether a cut in front of `place` would tear a surrogate pair apart.
bool SplitsPair(const WCHAR* text, int place) {
  return place > 0 && (text[place - 1] & 0xFC00) == 0xD800 && (text[place] & 0xFC00) == 0xDC00;
}

// How many characters of a text are left when it is shortened, from its end or its start, until it and the
// dots fit; -1 when the text stays as it is.
int FittingLength(HDC dc, const WCHAR* text, int length, int size, int width, bool fromEnd) {
  const int64_t room = int64_t{width} - 2;
  const int64_t whole = WidthOf(dc, text, length);
  if (whole < 0 || whole <= room) return -1;
  const int64_t dots = WidthOf(dc, kDots, kDotsLength);
  if (dots < 0) return -1;
  for (int left = std::min(length, size - 1 - kDotsLength); left > 0; --left) {
    const int start = fromEnd ? length - left : 0;
    if (SplitsPair(text, fromEnd ? start : left)) continue;
    const int64_t shortened = WidthOf(dc, text + start, left);
    if (shortened < 0) return -1;
    if (shortened + dots <= room) return left;
  }
  return -1;
}

// The characters of the folder part that stay in front of the dots; -1 when the path stays as it is.
int FittingFolder(HDC dc, const WCHAR* path, int length, int nameStart, int size, int width) {
  const int64_t whole = WidthOf(dc, path, length);
  if (whole < width) return -1;
  const int nameLength = length - nameStart;
  const int64_t name = WidthOf(dc, path + nameStart, nameLength);
  const int64_t dots = WidthOf(dc, kDots, kDotsLength);
  if (name < 0 || dots < 0 || name + dots > width) return -1;
  const int room = size - 1 - kDotsLength - nameLength;
  for (int left = std::min(nameStart, room); left > 0; --left) {
    if (SplitsPair(path, left)) continue;
    const int64_t folder = WidthOf(dc, path, left);
    if (folder < 0) return -1;
    if (folder + dots + name <= width) return left;
  }
  return room < 0 ? -1 : 0;
}

int ReplaceAll(auto* text, auto from, auto to) {
  if (!text) return 0;
  int length = 0;
  for (; text[length]; ++length) {
    if (text[length] == from) text[length] = to;
  }
  return length;
}

}  // namespace

BOOL QnCalcStringEllipsis(HDC dc, WCHAR* text, int size, int width) {
  if (!text || size < 1) return 0;
  const int left = FittingLength(dc, text, LengthOf(text), size, width, false);
  if (left < 0) return 0;
  Traits::copy(text + left, kDots, std::size(kDots));
  return 1;
}

BOOL QnCalcStringEllipsisFromEnd(HDC dc, WCHAR* text, int size, int width) {
  if (!text || size < 1) return 0;
  const int length = LengthOf(text);
  const int left = FittingLength(dc, text, length, size, width, true);
  if (left < 0) return 0;
  Traits::move(text + kDotsLength, text + length - left, static_cast<size_t>(left) + 1);
  Traits::copy(text, kDots, kDotsLength);
  return 1;
}

BOOL QnCalcPathEllipsis(HDC dc, WCHAR* text, int size, int width) {
  return QnCalcPathEllipsisEx(dc, text, text, size, width);
}

BOOL QnCalcPathEllipsisEx(HDC dc, const WCHAR* source, WCHAR* text, int size, int width) {
  if (!text || size < 1) return 0;
  const std::u16string_view path(source ? source : W(""));
  const int length = static_cast<int>(path.size());
  const size_t separator = path.find_last_of(W("\\/"));
  const int nameStart = separator == path.npos ? 0 : static_cast<int>(separator);
  const int left = FittingFolder(dc, path.data(), length, nameStart, size, width);
  if (left < 0) {
    const size_t copied = std::min(path.size(), static_cast<size_t>(size) - 1);
    Traits::move(text, path.data(), copied);
    text[copied] = 0;
    return 0;
  }
  // The name goes first: the path may be fitted in place.
  const int nameLength = length - nameStart;
  Traits::move(text + left + kDotsLength, path.data() + nameStart, static_cast<size_t>(nameLength) + 1);
  Traits::copy(text + left, kDots, kDotsLength);
  Traits::move(text, path.data(), static_cast<size_t>(left));
  return 1;
}

BOOL QnCalcPathEllipsisExCtl(HWND control, const WCHAR* source, WCHAR* text, int size, int width) {
  const HDC dc = GetDC(control);
  const auto font = dc ? reinterpret_cast<HGDIOBJ>(SendMessageW(control, WM_GETFONT, 0, 0)) : nullptr;
  const HGDIOBJ previous = font ? SelectObject(dc, font) : nullptr;
  const BOOL shortened = QnCalcPathEllipsisEx(dc, source, text, size, width);
  if (previous) SelectObject(dc, previous);
  if (dc) ReleaseDC(control, dc);
  return shortened;
}

int QnStripWhiteSpace(WCHAR* text) {
  if (!text) return 0;
  const WCHAR* const start = qn::SkipWhiteSpace(text);
  int length = LengthOf(start);
  while (length > 0 && qn::IsWhiteSpace(start[length - 1])) --length;
  Traits::move(text, start, static_cast<size_t>(length));
  text[length] = 0;
  return length;
}

WCHAR* QnPrepareName(const WCHAR* source, WCHAR* text, int size) {
  if (!text || size < 1) return nullptr;
  const std::u16string_view name(source ? qn::SkipWhiteSpace(source) : W(""));
  const size_t copied = std::min(name.size(), static_cast<size_t>(size) - 1);
  Traits::move(text, name.data(), copied);
  text[copied] = 0;
  return QnStripWhiteSpace(text) > 0 ? text : nullptr;
}

int QnFixNameForMenu(WCHAR* text, const WCHAR* source, int size) {
  if (!text || size < 1) return 0;
  int length = 0;
  for (; source && *source; ++source) {
    const int needed = *source == '&' ? 2 : 1;
    if (length + needed >= size) break;
    for (int i = 0; i < needed; ++i) text[length++] = *source;
  }
  text[length] = 0;
  return length;
}

int QnStringReplaceChars(char* text, char from, char to) {
  return ReplaceAll(text, from, to);
}

int QnStringReplaceCharsW(WCHAR* text, WCHAR from, WCHAR to) {
  return ReplaceAll(text, from, to);
}
