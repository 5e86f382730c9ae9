// BMP files, and bitmaps in a file without its header.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/report.h"
#include "tools/qnimage/source.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

namespace messages = qntool::messages;
using qntool::Message;

constexpr size_t kFileHeader = 14;
constexpr size_t kLongestHeader = 124;  // the fifth version of it
constexpr size_t kAlphaMask = 52;       // where headers from 56 bytes on have it
constexpr DWORD kOpaqueMask = 0xFF000000;

DWORD Word(const uint8_t* bytes) {
  DWORD word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

// A header with the masks that may stand behind it.
struct Header {
  union {
    BITMAPINFOHEADER fields;
    uint8_t bytes[kLongestHeader + 3 * sizeof(DWORD)] = {};
  };
  uint64_t end = 0;  // offset in the file
  uint64_t bits = 0;
};

bool FailField(const InputFile& file, const char* field, int64_t value) {
  return file.Fail(QN_E_FILE_FORMAT,
                   {messages::PictureField, {Message(std::string(field) + " = " + std::to_string(value))}});
}

bool FailPixels(const InputFile& file, const BITMAPINFOHEADER& header) {
  WCHAR name[64];
  QnVideo_GetFormatText(header.biCompression, name, 64);
  const DWORD kind = header.biCompression;
  constexpr const char* kKinds[] = {nullptr, "RLE", "RLE", nullptr, "JPEG", "PNG"};
  constexpr DWORD kFirstFourcc = 1 << 8;
  const std::string text = kind < std::size(kKinds) && kKinds[kind] ? kKinds[kind]
                           : kind < kFirstFourcc && kind >= std::size(kKinds)
                               ? "biCompression = " + std::to_string(kind)
                               : qn::ToUtf8(name);
  return file.Fail(QN_E_FILE_UNSUPPORTED,
                   {messages::PixelsUnreadable, {Message(text), Message(std::to_string(header.biBitCount))}});
}

// Bit fields in the order of the type; or with red and blue exchanged, which `*isSwapped` tells.
bool HasMasksOf(const Header& header, int type, bool* isSwapped) {
  *isSwapped = false;
  if (header.fields.biCompression != BI_BITFIELDS) return true;
  unsigned usual[3];
  QnPixelTypeToBitAttribs(type, nullptr, usual);
  if (type == QNPIXEL_RGB32 || type == QNPIXEL_RGB555) {
    // The library has these without masks.
    const int bits = type == QNPIXEL_RGB32 ? 8 : 5;
    for (int i = 0; i < 3; ++i) usual[i] = QnCreateBitMask((2 - i) * bits, bits);
  }
  const DWORD masks[3] = {Word(header.bytes + 40), Word(header.bytes + 44), Word(header.bytes + 48)};
  if (std::equal(masks, masks + 3, usual)) return true;
  *isSwapped = masks[0] == usual[2] && masks[1] == usual[1] && masks[2] == usual[0];
  return *isSwapped;
}

bool ReadHeader(const InputFile& file, Kind kind, Header* header) {
  const uint64_t start = kind == Kind::kBmp ? kFileHeader : 0;
  const BITMAPINFOHEADER& fields = header->fields;
  const uint64_t there =
      std::min<uint64_t>(sizeof(header->bytes), file.Size() - std::min(start, file.Size()));
  if (there < sizeof(fields.biSize)) return file.Fail(QN_E_FILE_FORMAT, messages::HeaderCut);
  if (!file.ReadAt(start, header->bytes, there)) return false;
  // Those of systems that nobody has any more.
  if (fields.biSize == 12 || fields.biSize == 16)
    return file.Fail(QN_E_FILE_UNSUPPORTED, {messages::HeaderUnreadable, {Message::Bytes(fields.biSize)}});
  const bool hasMasksBehind =
      fields.biSize == sizeof(BITMAPINFOHEADER) && fields.biCompression == BI_BITFIELDS;
  const uint64_t length = uint64_t{fields.biSize} + (hasMasksBehind ? 3 * sizeof(DWORD) : 0);
  if (fields.biSize < sizeof(BITMAPINFOHEADER) || fields.biSize > kLongestHeader)
    return FailField(file, "biSize", fields.biSize);
  if (length > there) return file.Fail(QN_E_FILE_FORMAT, messages::HeaderCut);
  header->end = start + length;
  if (fields.biPlanes != 1) return FailField(file, "biPlanes", fields.biPlanes);
  if (fields.biWidth < 1) return FailField(file, "biWidth", fields.biWidth);
  if (fields.biHeight == 0) return FailField(file, "biHeight", fields.biHeight);
  // Deeper pixels may have a table too, of colours that a screen of few colours should show.
  const uint64_t most = fields.biBitCount <= 8 ? uint64_t{1} << fields.biBitCount : 1 << 16;
  if (fields.biClrUsed > most) return FailField(file, "biClrUsed", fields.biClrUsed);
  const uint64_t colours = fields.biClrUsed == 0 && fields.biBitCount <= 8 ? most : fields.biClrUsed;
  header->bits = header->end + colours * sizeof(RGBQUAD);
  if (kind == Kind::kBmp) {
    uint8_t offset[4];
    if (!file.ReadAt(10, offset, sizeof(offset))) return false;
    header->bits = Word(offset);
    if (header->bits < header->end || header->bits > file.Size())
      return FailField(file, "bfOffBits", static_cast<int64_t>(header->bits));
  }
  return true;
}

// The colours in front of the bits, and black for pixels that name one beyond them.
bool ReadPalette(const InputFile& file, const Header& header, Source* source) {
  const size_t most = size_t{1} << header.fields.biBitCount;
  const size_t count = std::min<size_t>(header.fields.biClrUsed ? header.fields.biClrUsed : most,
                                        (std::min(header.bits, file.Size()) - header.end) / sizeof(RGBQUAD));
  source->palette.assign(most, RGBQUAD{});
  source->colours = count;
  return count == 0 || file.ReadAt(header.end, source->palette.data(), count * sizeof(RGBQUAD));
}

// Pixels whose colour the file does not have are no failure, but may be a surprise. Without such the palette
// needs no others than those of the file.
void CheckColours(const InputFile& file, const Image& stored, Source* source) {
  const int bits = QnGetPixelBitsPerChannel(source->type, nullptr);
  uint64_t missing = 0;
  for (uint32_t y = 0; y < stored.Height() && source->colours < source->palette.size(); ++y) {
    const uint8_t* const row = stored.Row(y);
    for (uint64_t x = 0; x < stored.Width(); ++x) {
      const uint64_t at = x * static_cast<uint64_t>(bits);
      const int shift = 8 - bits - static_cast<int>(at % 8);
      missing += static_cast<size_t>(row[at / 8] >> shift & ((1 << bits) - 1)) >= source->colours;
    }
  }
  if (missing == 0) {
    source->palette.resize(source->colours);
  } else {
    qntool::ReportWarning(file.Name(), {messages::ColoursMissing, {Message::Number(missing)}});
  }
}

}  // namespace

bool ReadBmp(const InputFile& file, Source* source, Image* image) {
  char start[2];
  if (!file.ReadAt(0, start, sizeof(start))) return false;
  source->kind = std::memcmp(start, "BM", 2) == 0 ? Kind::kBmp : Kind::kDib;
  Header header;
  if (!ReadHeader(file, source->kind, &header)) return false;
  source->header = header.fields;
  source->fromTop = header.fields.biHeight < 0;
  int type = QnGetPixelType(&header.fields);
  bool isSwapped = false;
  if (type == 0 || type >= QNPIXEL_UYVY || !HasMasksOf(header, type, &isSwapped))
    return FailPixels(file, header.fields);
  const bool hasAlpha = header.fields.biCompression == BI_BITFIELDS &&
                        header.fields.biSize >= kAlphaMask + 4 &&
                        Word(header.bytes + kAlphaMask) == kOpaqueMask;
  if (type == QNPIXEL_RGB32 && hasAlpha) type = QNPIXEL_RGBA32;
  source->type = type;
  const auto width = static_cast<uint64_t>(header.fields.biWidth);
  const auto height = static_cast<uint64_t>(std::abs(int64_t{header.fields.biHeight}));
  if (!CheckSides(file, type, width, height)) return false;
  const bool hasPalette = type == QNPIXEL_PALETTE1 || type == QNPIXEL_PALETTE4 || type == QNPIXEL_PALETTE8;
  if (hasPalette && !ReadPalette(file, header, source)) return false;

  const uint64_t bytes = ImageBytes(type, width, height);
  if (header.bits > file.Size() || bytes > file.Size() - header.bits) {
    const uint64_t rest = header.bits > file.Size() ? 0 : file.Size() - header.bits;
    return file.Fail(QN_E_FILE_FORMAT, {messages::PictureCut, {Message::Bytes(bytes), Message::Bytes(rest)}});
  }
  if (!image) return true;
  const Image stored(type, header.fields.biWidth, header.fields.biHeight, source->palette);
  if (!file.ReadAt(header.bits, stored.Bits().data(), bytes)) return false;
  CheckColours(file, stored, source);
  if (isSwapped) QnDibSwapRB(stored.Header(), nullptr, nullptr, 0);
  *image = stored.ConvertedTo(WorkingType(type), true);
  return true;
}

HRESULT WriteBmp(const Image& image, qntool::OutputFile* file) {
  std::vector<uint8_t> header(image.HeaderBytes().begin(), image.HeaderBytes().end());
  if (image.Type() == QNPIXEL_RGBA32) {
    // Other programs know alpha by a mask in a longer header, not by this library's compression.
    constexpr size_t kVersion4 = 108;
    constexpr char kSrgb[] = "BGRs";
    const DWORD masks[] = {0x00FF0000, 0x0000FF00, 0x000000FF, kOpaqueMask};
    BITMAPINFOHEADER fields = *image.Header();
    fields.biSize = kVersion4;
    fields.biCompression = BI_BITFIELDS;
    header.assign(kVersion4, 0);
    std::memcpy(header.data(), &fields, sizeof(fields));
    std::memcpy(&header[sizeof(fields)], masks, sizeof(masks));
    std::memcpy(&header[sizeof(fields) + sizeof(masks)], kSrgb, 4);
  }
  const auto start = static_cast<DWORD>(kFileHeader + header.size());
  const DWORD fields[] = {start + static_cast<DWORD>(image.Bits().size()), 0, start};
  uint8_t fileHeader[kFileHeader] = {'B', 'M'};
  std::memcpy(fileHeader + 2, fields, sizeof(fields));
  header.insert(header.begin(), fileHeader, fileHeader + kFileHeader);
  const HRESULT status = file->Write(header.data(), header.size());
  return status != S_OK ? status : file->Write(image.Bits().data(), image.Bits().size());
}

}  // namespace qnimage
