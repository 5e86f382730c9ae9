// The smallest useful host: opens a wave file, reads its format, converts its samples to float block by block
// and prints the peak.
//
//   example_convert_file FILE
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnwaveformat.h"
#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"

int main(int count, char** words) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", words[0]);
    return 2;
  }
  // The library's paths are UTF-16 and written with backslashes.
  const std::u16string path = qn::PathFromNative(words[1]);

  uint64_t frames = 0;
  uint64_t dataStart = 0;
  const std::unique_ptr<WAVEFORMATEX, decltype(&std::free)> format(
      QnGetFileWfx(path.c_str(), &frames, &dataStart), &std::free);
  if (!format) {
    std::fprintf(stderr, "%s: no readable wave file\n", words[1]);
    return 1;
  }
  std::printf("%u channels, %u Hz, %llu frames\n", unsigned{format->nChannels}, format->nSamplesPerSec,
              static_cast<unsigned long long>(frames));

  // One lookup for the whole file; the kernel is then called on each block.
  const QNCOPYFUNCTION toFloat = QnAudio_GetCopyFunction2(QNST_FLOAT32, QnAudio_GetSampleType(format.get()));
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  LARGE_INTEGER start;
  start.QuadPart = static_cast<LONGLONG>(dataStart);
  if (!toFloat || file == INVALID_HANDLE_VALUE || !SetFilePointerEx(file, start, nullptr, FILE_BEGIN))
    return 1;

  constexpr DWORD kBlockFrames = 4096;
  std::vector<uint8_t> raw(size_t{kBlockFrames} * format->nBlockAlign);
  std::vector<float> samples(size_t{kBlockFrames} * format->nChannels);
  float peak = 0;
  while (frames > 0) {
    // A header may count more frames than the file holds: the loop ends with what there is.
    const auto wanted = static_cast<DWORD>(std::min<uint64_t>(frames, kBlockFrames));
    DWORD got = 0;
    if (!ReadFile(file, raw.data(), wanted * format->nBlockAlign, &got, nullptr) || got < format->nBlockAlign)
      break;
    const DWORD blockSamples = got / format->nBlockAlign * format->nChannels;
    toFloat(samples.data(), raw.data(), static_cast<LONG>(blockSamples), 1.0f);
    for (DWORD i = 0; i < blockSamples; ++i) peak = std::max(peak, std::fabs(samples[i]));
    frames -= got / format->nBlockAlign;
  }
  CloseHandle(file);
  std::printf("peak %.6f\n", static_cast<double>(peak));
  return 0;
}
