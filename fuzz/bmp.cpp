// A BMP file of any bytes, as qnimage reads it. What is read can be described, and keeps its pixels when it
// is written, as 8 bits a component and in its own type, and read again.
#include <algorithm>

#include "fuzz/fuzz_file.h"
#include "qn/settings/qnmsgbox.h"
#include "tools/common/report.h"
#include "tools/qnimage/source.h"
#include "tools/qnimage/target.h"

using qnfuzz::Check;
using namespace qnimage;

const char qntool::kProgram[] = "fuzz_bmp";

namespace {

bool Read(const std::string& name, Source* source, Image* image) {
  InputFile file;
  Check(file.Open(name), "a file that does not open");
  return ReadBmp(file, source, image);
}

Image WrittenAndRead(const Image& stored) {
  const qnfuzz::FuzzFile place(nullptr, 0);
  qntool::OutputFile file;
  Check(file.Create(place.Native(), true) && WriteBmp(stored, &file) == S_OK && file.Commit(),
        "a picture that is not written");
  Source source;
  Image image;
  Check(Read(place.Native(), &source, &image) && source.type == stored.Type(), "a picture that is not read");
  return image;
}

void CheckSame(const Image& one, const Image& other) {
  Check(one.Type() == other.Type() && std::ranges::equal(one.Bits(), other.Bits()), "pixels that change");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // What is wrong with a file need not be told.
  QnMsgBoxSetNoUIHook([](const WCHAR*) {});
  const qnfuzz::FuzzFile file(data, size);
  Source source, described;
  Image image;
  if (!Read(file.Native(), &source, &image)) return 0;
  Check(Read(file.Native(), &described, nullptr) && described.type == source.type &&
            described.colours == source.colours,
        "a picture that is not described");
  const Image plain = image.ConvertedTo(QNPIXEL_RGBA32, false);
  CheckSame(WrittenAndRead(plain), plain.ConvertedTo(QNPIXEL_RGBA32, true));
  // Floats have fewer bits than this gray.
  if (source.type == QNPIXEL_GRAY32) return 0;
  CheckSame(WrittenAndRead(image.ConvertedTo(source.type, source.fromTop, source.palette)), image);
  return 0;
}
