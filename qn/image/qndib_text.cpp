#include <algorithm>

#include "qn/image/qndib.h"
#include "qn/text/messages_internal.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnprint.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

struct FormatName {
  DWORD compression;
  const qnlang_t& name;
};

const FormatName kFormatNames[] = {{BI_RGB, messages::PictureRgb},
                                   {BI_BITFIELDS, messages::PictureRgbBitfields},
                                   {QNBI_DEEP, messages::PictureRgba},
                                   {QNBI_GRAY, messages::PictureGrayscale}};

// A text that is cut is no failure here.
template <class... Arguments>
HRESULT Print(WCHAR* text, int size, const WCHAR* format, Arguments... arguments) {
  if (!text || size < 1) return E_INVALIDARG;
  QnCchPrintF(text, size, nullptr, format, arguments...);
  return S_OK;
}

}  // namespace
}  // namespace qn

HRESULT QnVideo_GetFormatText(DWORD compression, WCHAR* text, int size) {
  for (const qn::FormatName& row : qn::kFormatNames) {
    if (row.compression == compression) {
      return qn::Print(text, size, W("%s"), QnGetString(qn::KernelLanguage(), row.name));
    }
  }
  WCHAR fourcc[5];
  return qn::Print(text, size, W("%s"), QnFourCCToString(compression, fourcc));
}

HRESULT QnVideo_GetAttribsText(const BITMAPINFOHEADER* header, WCHAR* text, int size) {
  if (!header) return E_INVALIDARG;
  WCHAR whole[40];  // which a text that is cut begins as
  QnCchPrintF(whole, 40, nullptr, W("%dx%dx%d"), header->biWidth, header->biHeight, int{header->biBitCount});
  return qn::Print(text, size, W("%s"), whole);
}

HRESULT QnVideo_GetAttribsTextEx(const BITMAPINFOHEADER* header, DWORD, WCHAR* text, int size) {
  return QnVideo_GetAttribsText(header, text, size);
}
