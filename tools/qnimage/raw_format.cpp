#include "tools/qnimage/raw_format.h"

#include "qn/image/qndib.h"
#include "tools/common/option_values.h"
#include "tools/qnimage/image.h"

namespace qnimage {

using qntool::Mistaken;
using qntool::Quoted;

namespace {

constexpr DWORD kIyuv = QnMakeFourCC('I', 'Y', 'U', 'V');  // another name of I420
constexpr int kFirstType = QNPIXEL_A46B;
constexpr int kLastType = QNPIXEL_NV16;

struct MatrixRow {
  const char* name;
  DWORD matrix;
};
constexpr MatrixRow kMatrices[] = {{"auto", 0}, {"601", QNYUV_601}, {"709", QNYUV_709}, {"2020", QNYUV_2020}};

// The FourCC of a pixel type, or 0.
DWORD FourccOf(int type) {
  unsigned fourcc = 0;
  const bool hasOne = type >= QNPIXEL_UYVY || type == QNPIXEL_A46B || type == QNPIXEL_F32I;
  return hasOne && QnPixelTypeToBitAttribs(type, &fourcc, nullptr) != 0 ? fourcc : 0;
}

bool ReadFourcc(const char* command, const qntool::Arguments& arguments, const char* option, DWORD* found) {
  const auto text = arguments.Value(option);
  if (!text) return true;
  std::string names;
  for (int type = kFirstType; type <= kLastType; ++type) {
    const DWORD fourcc = FourccOf(type);
    if (fourcc == 0) continue;
    const std::string name = FourccText(fourcc);
    if (name == *text || (*text == "IYUV" && type == QNPIXEL_I420)) *found = fourcc;
    names += (names.empty() ? "" : ", ") + name;
  }
  return *found != 0 ||
         Mistaken(command, "unknown layout " + Quoted(*text) + " (one of " + names + ", IYUV)");
}

bool ReadFrameNumber(const char* command, const qntool::Arguments& arguments, uint64_t* frame) {
  const auto text = arguments.Value("frame");
  if (!text) return true;
  const auto number = qntool::ParseNumber<uint64_t>(*text, 0, UINT64_MAX);
  if (number) *frame = *number;
  return number || qntool::ReportBadValue(command, "frame", *text, "a number from 0 on");
}

}  // namespace

bool ReadSize(const char* command, std::string_view text, uint32_t* width, uint32_t* height) {
  const auto sides = qntool::Split(text, 'x');
  const auto first = qntool::ParseNumber<uint32_t>(sides[0], 1, kMostSide);
  const auto second = qntool::ParseNumber<uint32_t>(sides.size() == 2 ? sides[1] : "", 1, kMostSide);
  if (!first || !second || !IsPossible(QNPIXEL_RGBA32, *first, *second)) {
    return Mistaken(command, "bad size " + Quoted(text) + " (such as 720x576, up to " +
                                 std::to_string(kMostSide) + " a side and " + std::to_string(kMostBytes / 4) +
                                 " pixels)");
  }
  *width = *first;
  *height = *second;
  return true;
}

bool ReadRawTarget(const char* command, const qntool::Arguments& arguments, RawFormat* format) {
  if (!ReadFourcc(command, arguments, "fourcc", &format->fourcc)) return false;
  if (const auto other = arguments.Value("out-fourcc")) {
    format->fourcc = 0;
    if (!ReadFourcc(command, arguments, "out-fourcc", &format->fourcc)) return false;
  }
  const auto matrix = arguments.Value("matrix").value_or("auto");
  const MatrixRow* const row = qntool::FindByName(kMatrices, matrix);
  if (!row)
    return Mistaken(command,
                    "unknown matrix " + Quoted(matrix) + " (one of " + qntool::NamesOf(kMatrices) + ")");
  format->colour.matrix = row->matrix;
  const auto range = arguments.Value("range").value_or("studio");
  if (range != "studio" && range != "full")
    return Mistaken(command, "unknown range " + Quoted(range) + " (studio or full)");
  format->range = range == "full" ? 0 : 1;
  return true;
}

bool ReadRawSource(const char* command, const qntool::Arguments& arguments, RawFormat* format) {
  if (!ReadRawTarget(command, arguments, format)) return false;
  const auto size = arguments.Value("size");
  if (!size)
    return !arguments.Has("frame") || Mistaken(command, "--frame is for raw frames, which need --size");
  format->fourcc = 0;
  return ReadSize(command, *size, &format->width, &format->height) &&
         ReadFourcc(command, arguments, "fourcc", &format->fourcc) &&
         (format->fourcc != 0 || Mistaken(command, "raw frames need --fourcc")) &&
         ReadFrameNumber(command, arguments, &format->frame);
}

bool HasRawForItsOptions(const char* command, const qntool::Arguments& arguments, bool hasRaw,
                         bool convertsYuv) {
  if (!hasRaw && arguments.Has("fourcc"))
    return Mistaken(command, "--fourcc is for raw frames, and there are none");
  for (const char* const option : {"matrix", "range"}) {
    if (!convertsYuv && arguments.Has(option))
      return Mistaken(command, "--" + std::string(option) +
                                   " is for raw frames of YUV that are converted, and there are none");
  }
  return true;
}

bool IsYuv(const RawFormat& format) {
  const BITMAPINFOHEADER header = RawHeader(format, 2, 2);
  return QnGetPixelType(&header) >= QNPIXEL_UYVY;
}

std::string FourccText(DWORD fourcc) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(fourcc >> shift & 0xFF);
  return text;
}

namespace {

// Whether samples have more than 8 bits.
bool IsDeep(int yuvType) {
  for (const int plain : {QNPIXEL_UYVY, QNPIXEL_YUYV, QNPIXEL_Y41B, QNPIXEL_I420, QNPIXEL_NV12, QNPIXEL_YV12,
                          QNPIXEL_YV16, QNPIXEL_YV24, QNPIXEL_NV16}) {
    if (yuvType == plain) return false;
  }
  return true;
}

}  // namespace

int WorkingTypeOf(const RawFormat& format) {
  const BITMAPINFOHEADER header = RawHeader(format, 2, 2);
  const int type = QnGetPixelType(&header);
  return type < QNPIXEL_UYVY ? WorkingType(type) : IsDeep(type) ? QNPIXEL_RGBAFLOAT : QNPIXEL_RGBA32;
}

BITMAPINFOHEADER RawHeader(const RawFormat& format, uint32_t width, uint32_t height) {
  BITMAPINFOHEADER sought = {};
  sought.biCompression = format.fourcc;
  BITMAPINFO info = {};
  // Rows from the top, as raw frames have them.
  QnDibInfo(nullptr, nullptr, &info, QnGetPixelType(&sought), static_cast<LONG>(width),
            -static_cast<LONG>(height), nullptr, 0);
  return info.bmiHeader;
}

}  // namespace qnimage
