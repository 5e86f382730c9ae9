// Raw frames: files that hold the samples of pictures one after the other, and nothing else.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tools/common/report.h"
#include "tools/qnimage/source.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

namespace messages = qntool::messages;
using qntool::Message;

std::string SizeText(const BITMAPINFOHEADER& header) {
  return std::to_string(header.biWidth) + "x" + std::to_string(std::abs(header.biHeight));
}

// What a conversion's failure means for the user.
Message Explain(HRESULT status, const BITMAPINFOHEADER& header) {
  const Message layout(FourccText(header.biCompression));
  if (status == E_FAIL) return {messages::LayoutNotConverted, {layout}};
  return {messages::LayoutSize, {layout, Message(SizeText(header))}};
}

// The alpha plane, which the library's converter leaves out: 10 bits in the high ones of words.
void TakeAlpha(const tQNYUVOFFSETS& planes, const std::vector<uint8_t>& frame, const Image& image) {
  for (uint32_t y = 0; y < image.Height(); ++y) {
    const uint8_t* const row = &frame[planes.alphaOffset + size_t{planes.alphaStride} * y];
    for (uint32_t x = 0; x < image.Width(); ++x) {
      uint16_t word;
      std::memcpy(&word, row + size_t{x} * sizeof(word), sizeof(word));
      const float alpha = static_cast<float>(word >> 6) / 1023;
      std::memcpy(image.Row(y) + sizeof(QNRGBAFLOAT) * x + offsetof(QNRGBAFLOAT, alpha), &alpha,
                  sizeof(alpha));
    }
  }
}

}  // namespace

bool ReadRawFrame(const InputFile& file, const RawFormat& format, const Source& source,
                  std::vector<uint8_t>* frame) {
  if (format.frame >= source.frames) {
    return file.Fail(QN_E_FILE_FORMAT, {messages::NoFrame,
                                        {Message::Number(format.frame), Message::Number(source.frames),
                                         Message::Bytes(source.frameBytes)}});
  }
  if (source.restBytes != 0)
    qntool::ReportWarning(file.Name(), {messages::RestLeftOut, {Message::Bytes(source.restBytes)}});
  frame->resize(source.frameBytes);
  return file.ReadAt(format.frame * source.frameBytes, frame->data(), frame->size());
}

HRESULT DecodeRaw(const RawFormat& format, const BITMAPINFOHEADER& header, const std::vector<uint8_t>& frame,
                  Image* image, Message* details) {
  Image made(WorkingTypeOf(format), header.biWidth, header.biHeight);
  tQNYUVOFFSETS planes = {};
  const bool isYuv = QnYUVImageBytesAndOffsets(&header, &planes) != 0;
  const HRESULT status = isYuv ? QnYUV_YUVToRGB(made.Header(), format.range, nullptr, 0, &header,
                                                frame.data(), &planes, &format.colour)
                               : QnDibCopy(made.Header(), nullptr, nullptr, 0, &header, frame.data(), nullptr,
                                           0, QNDIBFILTER_NEAREST);
  if (status == S_OK) {
    if (planes.alphaStride != 0) TakeAlpha(planes, frame, made);
    *image = std::move(made);
    return status;
  }
  *details = Explain(status, header);
  return QN_E_FILE_UNSUPPORTED;
}

bool ReadRaw(const InputFile& file, const RawFormat& format, Source* source, Image* image) {
  if (!CheckSides(file, WorkingTypeOf(format), format.width, format.height)) return false;
  source->kind = Kind::kRaw;
  source->header = RawHeader(format, format.width, format.height);
  source->type = QnGetPixelType(&source->header);
  source->fromTop = true;
  source->frameBytes = source->header.biSizeImage;
  source->frames = file.Size() / source->frameBytes;
  source->restBytes = file.Size() % source->frameBytes;
  QnYUVImageBytesAndOffsets(&source->header, &source->planes);
  if (!image) return true;
  std::vector<uint8_t> frame;
  if (!ReadRawFrame(file, format, *source, &frame)) return false;
  Message details;
  const HRESULT status = DecodeRaw(format, source->header, frame, image, &details);
  return status == S_OK || file.Fail(status, details);
}

HRESULT EncodeRaw(const RawFormat& format, const Image& image, std::vector<uint8_t>* frame,
                  Message* details) {
  const BITMAPINFOHEADER header = RawHeader(format, image.Width(), image.Height());
  frame->resize(header.biSizeImage);
  tQNYUVOFFSETS planes = {};
  HRESULT status = S_OK;
  if (QnYUVImageBytesAndOffsets(&header, &planes) == 0) {
    status = QnDibCopy(&header, frame->data(), nullptr, 0, image.Header(), nullptr, nullptr, 0,
                       QNDIBFILTER_NEAREST);
  } else {
    // Of the types to work on, the converter takes one of four bytes and one of four floats.
    const bool isDeep = image.Type() != QNPIXEL_RGBA32 && WorkingTypeOf(format) != QNPIXEL_RGBA32;
    const Image pixels = image.ConvertedTo(isDeep ? QNPIXEL_RGBAFLOAT : QNPIXEL_RGBA32, true);
    status = QnYUV_RGBToYUV(&header, frame->data(), &planes, &format.colour, pixels.Header(), nullptr,
                            format.range, 0, QNYUV_CHROMA_MEAN);
  }
  if (status == S_OK) return status;
  *details = Explain(status, header);
  return QN_E_FILE_UNSUPPORTED;
}

}  // namespace qnimage
