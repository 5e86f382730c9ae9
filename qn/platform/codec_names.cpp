// The module that knows the names of codecs. It stands apart from the library, so that only who asks for such
// a name loads the libraries under it, and uses nothing of the library, which may be unloaded before it.
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

}  // namespace

extern "C" [[gnu::visibility("default")]] const char* qnkernel_codec_name(unsigned int tag);

const char* qnkernel_codec_name(unsigned int tag) {
  const AVCodecTag* const tables[] = {avformat_get_riff_audio_tags(), nullptr};
  const AVCodecID id = av_codec_get_id(tables, tag);
  // The table is searched without regard to case, as if tags were letters: 0x70 would find 0x50.
  const unsigned int first = av_codec_get_tag(tables, id);
  if (first != tag && IsSameButForCase(first, tag)) return nullptr;
  const AVCodecDescriptor* const codec = avcodec_descriptor_get(id);
  return codec ? codec->long_name : nullptr;
}
