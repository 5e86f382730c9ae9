// File names as they are shown: fitted into a width.

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_internal.h"
#include "qn/platform/winuser.h"
#include "qn/text/qnnumber.h"

namespace {

constexpr int kShownCharacters = 256;
constexpr HRESULT kNoControl = 0x4E001;  // a warning, no failure

enum Mode { kFileName, kFittedPath, kFittedFileName, kNothing, kFittedWholePath };

bool Measures(int mode) {
  return mode == kFittedPath || mode == kFittedFileName || mode == kFittedWholePath;
}

// Formats with a device context of its own and a font, null for the context's own font.
HRESULT FormatFor(HWND window, HFONT font, int width, const WCHAR* path, WCHAR* text, int size, int mode) {
  const HDC dc = GetDC(window);
  if (!dc && Measures(mode)) return E_FAIL;
  const HGDIOBJ previous = dc && font ? SelectObject(dc, font) : nullptr;
  const HRESULT status = QnFilenameFormat(dc, width, path, text, size, mode);
  if (previous) SelectObject(dc, previous);
  if (dc) ReleaseDC(window, dc);
  return status;
}

}  // namespace

HRESULT QnFilenameFormat(HDC dc, int width, const WCHAR* path, WCHAR* text, int size, int mode) {
  if (!path || !text || size < 1 || mode < kFileName || mode > kFittedWholePath) return E_INVALIDARG;
  switch (static_cast<Mode>(mode)) {
    case kFileName:
      qn::CopyCut(QnGetFileNamePtrW(path), text, size);
      break;
    case kFittedPath:
      QnCalcPathEllipsisEx(dc, path, text, size, width);
      break;
    case kFittedFileName:
    case kFittedWholePath: {
      WCHAR shown[kShownCharacters];
      qn::CopyCut(mode == kFittedFileName ? QnGetFileNamePtrW(path) : path, shown, kShownCharacters);
      QnCalcStringEllipsis(dc, shown, kShownCharacters, width);
      qn::CopyCut(shown, text, size);
      break;
    }
    case kNothing:
      text[0] = 0;
      break;
  }
  return S_OK;
}

HRESULT QnFilenameFormatForWidth(HFONT font, int width, const WCHAR* path, WCHAR* text, int size, int mode) {
  if (!path || !text || size < 1) return E_INVALIDARG;
  if (*path) return FormatFor(nullptr, font, width, path, text, size, mode);
  text[0] = 0;
  return S_OK;
}

HRESULT QnFilenameFormatForCtl(HWND control, const WCHAR* path, WCHAR* text, int size, int mode) {
  if (!path || !text || size < 1) return E_INVALIDARG;
  if (!*path) {
    text[0] = 0;
    return S_OK;
  }
  if (!control) return kNoControl;
  RECT client{};
  if (!GetClientRect(control, &client)) return E_FAIL;
  const auto font = reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0));
  return FormatFor(control, font, client.right - client.left, path, text, size, mode);
}
