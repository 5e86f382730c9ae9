// Raw frames: files that hold the samples of pictures one after the other, and nothing else.
#include <algorithm>
#include <cstring>
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

}  // namespace

bool ReadRaw(const InputFile& file, const RawFormat& format, Source* source, Image* image) {
  source->kind = Kind::kRaw;
  source->header = RawHeader(format, format.width, format.height);
  const BITMAPINFOHEADER& header = source->header;
  source->type = QnGetPixelType(&header);
  source->fromTop = true;
  source->frameBytes = header.biSizeImage;
  if (source->frameBytes == 0) return file.Fail(QN_E_FILE_UNSUPPORTED, Explain(E_INVALIDARG, header));
  source->frames = file.Size() / source->frameBytes;
  source->restBytes = file.Size() % source->frameBytes;
  const bool isYuv = source->type >= QNPIXEL_UYVY;
  if (isYuv) QnYUVImageBytesAndOffsets(&header, &source->planes);
  if (!image) return true;
  if (format.frame >= source->frames) {
    return file.Fail(QN_E_FILE_FORMAT, {messages::NoFrame,
                                        {Message::Number(format.frame), Message::Number(source->frames),
                                         Message::Bytes(source->frameBytes)}});
  }
  const int working = !isYuv                 ? WorkingType(source->type)
                      : IsDeep(source->type) ? QNPIXEL_RGBAFLOAT
                                             : QNPIXEL_RGBA32;
  if (!CheckSides(file, working, format.width, format.height)) return false;
  if (source->restBytes != 0)
    qntool::ReportWarning(file.Name(), {messages::RestLeftOut, {Message::Bytes(source->restBytes)}});
  std::vector<uint8_t> frame(source->frameBytes);
  if (!file.ReadAt(format.frame * source->frameBytes, frame.data(), frame.size())) return false;
  Image made(working, header.biWidth, header.biHeight);
  const HRESULT status = isYuv ? QnYUV_YUVToRGB(made.Header(), format.range, nullptr, 0, &header,
                                                frame.data(), &source->planes, &format.colour)
                               : QnDibCopy(made.Header(), nullptr, nullptr, 0, &header, frame.data(), nullptr,
                                           0, QNDIBFILTER_NEAREST);
  if (status != S_OK) return file.Fail(QN_E_FILE_UNSUPPORTED, Explain(status, header));
  *image = std::move(made);
  return true;
}

HRESULT WriteRaw(const RawFormat& format, const Image& image, qntool::OutputFile* file, Message* details) {
  const BITMAPINFOHEADER header = RawHeader(format, image.Width(), image.Height());
  const int type = QnGetPixelType(&header);
  std::vector<uint8_t> frame(header.biSizeImage);
  HRESULT status = frame.empty() ? E_INVALIDARG : S_OK;
  if (status == S_OK && type < QNPIXEL_UYVY) {
    status = QnDibCopy(&header, frame.data(), nullptr, 0, image.Header(), nullptr, nullptr, 0,
                       QNDIBFILTER_NEAREST);
  } else if (status == S_OK) {
    // Of these types the converter takes one of four bytes and one of four floats.
    const bool isDeep = IsDeep(type) && image.Type() != QNPIXEL_RGBA32;
    const Image pixels = image.ConvertedTo(isDeep ? QNPIXEL_RGBAFLOAT : QNPIXEL_RGBA32, true);
    tQNYUVOFFSETS planes = {};
    QnYUVImageBytesAndOffsets(&header, &planes);
    status = QnYUV_RGBToYUV(&header, frame.data(), &planes, &format.colour, pixels.Header(), nullptr,
                            format.range, 0, QNYUV_CHROMA_MEAN);
  }
  if (status == S_OK) return file->Write(frame.data(), frame.size());
  *details = Explain(status, header);
  return QN_E_FILE_UNSUPPORTED;
}

}  // namespace qnimage
