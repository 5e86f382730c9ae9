// PNG files, by libpng. It leaves a failed call with a jump: what stands between the call and the jump has
// nothing to clean up.
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/report.h"
#include "tools/qnimage/pixel_types.h"
#include "tools/qnimage/source.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

namespace messages = qntool::messages;
using qntool::Message;

// The longest that a byte of compressed data can become.
constexpr uint64_t kMostDeflated = 1032;

// What the calls leave behind.
struct Outcome {
  char reason[128] = "";  // libpng's, in English
  HRESULT status = S_OK;
  qntool::OutputFile* file = nullptr;
};

[[noreturn]] void Leave(png_structp png, png_const_charp reason) {
  auto* const outcome = static_cast<Outcome*>(png_get_error_ptr(png));
  std::snprintf(outcome->reason, sizeof(outcome->reason), "%s", reason);
  png_longjmp(png, 1);
}

void Ignore(png_structp, png_const_charp) {}

void Write(png_structp png, png_bytep bytes, size_t count) {
  auto* const outcome = static_cast<Outcome*>(png_get_io_ptr(png));
  outcome->status = outcome->file->Write(bytes, count);
  if (outcome->status != S_OK || qntool::InterruptSignal() != 0) Leave(png, "");
}

void Flush(png_structp) {}

// Runs steps that may be left by a jump; true if they were not.
template <class Steps>
bool Run(png_structp png, const Steps& steps) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  steps();
  return true;
}

class Reader {
 public:
  explicit Reader(Outcome* outcome)
      : png(png_create_read_struct(PNG_LIBPNG_VER_STRING, outcome, Leave, Ignore)) {
    if (png) info = png_create_info_struct(png);
  }
  ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  png_structp png;
  png_infop info = nullptr;
};

class Writer {
 public:
  explicit Writer(Outcome* outcome)
      : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, outcome, Leave, Ignore)) {
    if (png) info = png_create_info_struct(png);
  }
  ~Writer() { png_destroy_write_struct(&png, &info); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  png_structp png;
  png_infop info = nullptr;
};

int TypeOf(int colours, int depth) {
  switch (colours) {
    case PNG_COLOR_TYPE_GRAY:
      return depth == 16  ? QNPIXEL_GRAY16
             : depth == 8 ? QNPIXEL_GRAY8
             : depth == 4 ? QNPIXEL_GRAY4
             : depth == 2 ? QNPIXEL_GRAY2
                          : QNPIXEL_GRAY1;
    case PNG_COLOR_TYPE_PALETTE:
      // The library has no palette of 2 bits.
      return depth == 1 ? QNPIXEL_PALETTE1 : depth == 4 ? QNPIXEL_PALETTE4 : QNPIXEL_PALETTE8;
    default:
      return depth == 16 ? QNPIXEL_RGBA64 : colours == PNG_COLOR_TYPE_RGB ? QNPIXEL_RGB24 : QNPIXEL_RGBA32;
  }
}

// The palette, black behind its end.
void ReadPalette(const Reader& reader, Source* source) {
  png_colorp colours = nullptr;
  int count = 0;
  Palette& palette = source->palette;
  palette.assign(UsualPalette(source->type).size(), RGBQUAD{});
  png_get_PLTE(reader.png, reader.info, &colours, &count);
  source->colours = std::min(palette.size(), static_cast<size_t>(count));
  for (size_t i = 0; i < source->colours; ++i)
    palette[i] = {colours[i].blue, colours[i].green, colours[i].red, 0};
}

// All pixels as blue, green, red and alpha of 8 or 16 bits.
void ReadRows(const Reader& reader, const Image& image) {
  const png_structp png = reader.png;
  png_set_expand(png);
  png_set_gray_to_rgb(png);
  png_set_bgr(png);
  png_set_swap(png);
  png_set_add_alpha(png, 0xFFFF, PNG_FILLER_AFTER);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, reader.info);
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < image.Height() && qntool::InterruptSignal() == 0; ++y)
      png_read_row(png, image.Row(y), nullptr);
  }
  if (qntool::InterruptSignal() == 0) png_read_end(png, nullptr);
}

struct Form {
  int colours;
  int depth;
};

Form FormOf(int type, bool isOpaque) {
  switch (type) {
    case QNPIXEL_PALETTE1:
      return {PNG_COLOR_TYPE_PALETTE, 1};
    case QNPIXEL_PALETTE4:
      return {PNG_COLOR_TYPE_PALETTE, 4};
    case QNPIXEL_PALETTE8:
      return {PNG_COLOR_TYPE_PALETTE, 8};
    case QNPIXEL_RGB24:
      return {PNG_COLOR_TYPE_RGB, 8};
    case QNPIXEL_RGBA32:
      return {PNG_COLOR_TYPE_RGB_ALPHA, 8};
    case QNPIXEL_RGBA64:
      return {isOpaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGB_ALPHA, 16};
    default:
      return {PNG_COLOR_TYPE_GRAY, QnGetPixelBitsPerChannel(type, nullptr)};
  }
}

void WriteRows(const Writer& writer, const Image& image, const Form& form,
               std::span<const png_color> colours) {
  const png_structp png = writer.png;
  png_set_IHDR(png, writer.info, image.Width(), image.Height(), form.depth, form.colours, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (form.colours == PNG_COLOR_TYPE_PALETTE)
    png_set_PLTE(png, writer.info, colours.data(), static_cast<int>(colours.size()));
  png_write_info(png, writer.info);
  png_set_bgr(png);
  if (form.depth == 16) png_set_swap(png);
  // Alpha that is not written.
  if (form.depth == 16 && form.colours == PNG_COLOR_TYPE_RGB) png_set_filler(png, 0, PNG_FILLER_AFTER);
  for (uint32_t y = 0; y < image.Height(); ++y) png_write_row(png, image.Row(y));
  png_write_end(png, nullptr);
}

}  // namespace

bool ReadPng(const InputFile& file, Source* source, Image* image) {
  Outcome outcome;
  const Reader reader(&outcome);
  if (!reader.info) return file.Fail(E_OUTOFMEMORY);
  const auto fail = [&] {
    if (std::ferror(file.Get())) return file.Fail(QN_E_FILE_READ);
    return file.Fail(QN_E_FILE_FORMAT, {messages::PngDamaged, {Message(qntool::Shown(outcome.reason))}});
  };
  std::rewind(file.Get());
  const bool hasHeader = Run(reader.png, [&] {
    // The sides are looked at below.
    png_set_user_limits(reader.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_init_io(reader.png, file.Get());
    png_read_info(reader.png, reader.info);
  });
  if (!hasHeader) return fail();
  const uint32_t width = png_get_image_width(reader.png, reader.info);
  const uint32_t height = png_get_image_height(reader.png, reader.info);
  const int type =
      TypeOf(png_get_color_type(reader.png, reader.info), png_get_bit_depth(reader.png, reader.info));
  source->kind = Kind::kPng;
  source->type = type;
  source->fromTop = true;
  ReadPalette(reader, source);
  if (!CheckSides(file, type, width, height)) return false;
  if (uint64_t{png_get_rowbytes(reader.png, reader.info)} * height > file.Size() * kMostDeflated) {
    std::snprintf(outcome.reason, sizeof(outcome.reason), "Not enough image data");
    return fail();
  }
  BITMAPINFO info = {};
  QnVideo_InitBitmapInfo(&info, type, static_cast<LONG>(width), -static_cast<LONG>(height), nullptr, 0,
                         nullptr);
  source->header = info.bmiHeader;
  if (!image) return true;

  Image made(WorkingType(type), static_cast<LONG>(width), -static_cast<LONG>(height));
  if (!Run(reader.png, [&] { ReadRows(reader, made); })) return fail();
  source->palette.resize(source->colours);
  *image = std::move(made);
  return true;
}

HRESULT WritePng(const Image& image, bool isOpaque, qntool::OutputFile* file) {
  std::vector<png_color> colours;
  const std::span<const uint8_t> table = image.HeaderBytes().subspan(sizeof(BITMAPINFOHEADER));
  for (size_t at = 0; at + 4 <= table.size(); at += 4)
    colours.push_back({table[at + 2], table[at + 1], table[at]});
  Outcome outcome;
  outcome.file = file;
  const Writer writer(&outcome);
  if (!writer.info) return E_OUTOFMEMORY;
  png_set_write_fn(writer.png, &outcome, Write, Flush);
  const bool isWritten =
      Run(writer.png, [&] { WriteRows(writer, image, FormOf(image.Type(), isOpaque), colours); });
  return isWritten || outcome.status != S_OK ? outcome.status : E_FAIL;
}

}  // namespace qnimage
