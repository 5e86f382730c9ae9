// The module that knows the names of codecs. It stands apart from the library, so that only who asks for such
// a name loads the libraries under it, and uses nothing of the library, which may be unloaded before it.
#include <algorithm>
#include <iterator>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

bool IsSameButForCase(unsigned int a, unsigned int b) {
  const auto isLetter = [](unsigned int byte) { return (byte | 0x20) >= 'a' && (byte | 0x20) <= 'z'; };
  for (unsigned int shift = 0; shift < 16; shift += 8) {
    const unsigned int x = (a >> shift) & 0xFF, y = (b >> shift) & 0xFF;
    if (x != y && !(isLetter(x) && (x ^ y) == 0x20)) return false;
  }
  return true;
}

// What finds a codec by another than its first tag, without regard to case.
constexpr unsigned int kFound[] = {0x44,   0x49,   0x77,   0x4163, 0x4C55, 0x4C75, 0x504D,
                                   0x506D, 0x529A, 0x6143, 0x6163, 0x6C55, 0x704D};

}  // namespace

extern "C" [[gnu::visibility("default")]] const char* qnkernel_codec_name(unsigned int tag);

const char* qnkernel_codec_name(unsigned int tag) {
  const AVCodecTag* const tables[] = {avformat_get_riff_audio_tags(), nullptr};
  const AVCodecID id = av_codec_get_id(tables, tag);
  // The table is searched without regard to case, as if tags were letters: 0x70 would find 0x50.
  const unsigned int first = av_codec_get_tag(tables, id);
  if (first != tag && IsSameButForCase(first, tag)) return nullptr;
  if (std::ranges::find(kFound, tag) != std::end(kFound)) return nullptr;
  const AVCodecDescriptor* const codec = avcodec_descriptor_get(id);
  return codec ? codec->long_name : nullptr;
}
