// Any bytes as the peak file of a small wave file: refused, rebuilt or read, never behind their end.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/kernel/qnpath.h"
#include "qn/media/peak.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

namespace {

constexpr DWORD kFrames = 3000;
constexpr DWORD kChannels = 2;

std::vector<uint8_t> Media() {
  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, 8000, QNST_PCM16, kChannels);
  const qnfuzz::FuzzFile empty(nullptr, 0);
  QnInitializeWav(empty.Path(), &format, OPEN_EXISTING);
  const HANDLE file =
      CreateFileW(empty.Path(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  QnInsertWavHeader(file, &format, kFrames * format.nBlockAlign, 46);
  std::vector<uint8_t> bytes(46 + kFrames * format.nBlockAlign);
  DWORD got;
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  ReadFile(file, bytes.data(), 46, &got, nullptr);
  CloseHandle(file);
  for (size_t i = 46; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
  return bytes;
}

void Put(std::vector<uint8_t>* bytes, size_t offset, uint32_t value) {
  if (bytes->size() >= offset + sizeof value) std::memcpy(bytes->data() + offset, &value, sizeof value);
}

// A request into a block of the exact size, so that the sanitizer sees a write behind it.
void Request(IQnAudioPeak* peak, LONGLONG start, LONGLONG frames, QNSAMPLETYPE type, LONG pixels) {
  const size_t bytes = static_cast<size_t>(pixels) * kChannels * 2 * 4;
  const std::unique_ptr<uint8_t[]> out(new uint8_t[bytes]);
  DWORD got = 0;
  peak->GetPeaksEx(start, frames, type, out.get(), pixels, &got);
  Check(got <= static_cast<DWORD>(pixels), "no more pixels than asked for");
  peak->GetPeaksAligned(start, frames / pixels, type, out.get(), pixels, &got);
  Check(got <= static_cast<DWORD>(pixels), "no more aligned pixels than asked for");
}

void Use(IQnAudioPeak* peak) {
  for (const auto type : {QNST_PCM16, QNST_PCM8S, QNST_FLOAT32}) {
    Request(peak, 0, kFrames, type, 1);
    Request(peak, 0, kFrames, type, 10);
    Request(peak, 700, kFrames - 1000, type, 7);
    Request(peak, kFrames - 1, 5000, type, 3);
    Request(peak, 10, 50, type, 100);
    Request(peak, 0, INT64_MAX, type, 5);
  }
}

}  // namespace

// Bit 0 of the first byte: a peak object with a lock. Bit 1: the peak file's times are the media's, bit 2: so
// are its magic, version and channels.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  static const std::vector<uint8_t> bytes = Media();
  const qnfuzz::FuzzFile media(bytes.data(), bytes.size());
  const std::u16string name = std::u16string(media.Path()) + u".qnk";

  std::vector<uint8_t> peaks(data + 1, data + size);
  if (data[0] & 2) {
    Put(&peaks, 12, QnDosGetDateTime(media.Path()));
    Put(&peaks, 36, QnDosGetDateTimeUTC(media.Path()));
  }
  if (data[0] & 4) {
    Put(&peaks, 0, 0x4B504E51);
    Put(&peaks, 4, 1);
    Put(&peaks, 20, kChannels);
  }
  const HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD put = 0;
  WriteFile(file, peaks.data(), static_cast<DWORD>(peaks.size()), &put, nullptr);
  CloseHandle(file);

  IQnAudioPeak* peak = nullptr;
  const HRESULT status = QnAudioPeak_CreateInstance(&peak, nullptr, media.Path(), nullptr, 256, 512,
                                                    data[0] & 1 ? QNAUDIOPEAK_THREADSAFE : 0);
  Check(status == S_OK || status == S_FALSE, "a peak file's content is no failure");
  // As it stands, also when it is not valid; then told of writes; then as Build makes it.
  Use(peak);
  const int16_t samples[300 * kChannels] = {};
  peak->WriteAudio(samples, 100, 300, QNST_PCM16);
  peak->WriteAudio(samples, 2900, 300, QNST_PCM16);
  peak->Truncate(2000);
  Use(peak);
  Check(SUCCEEDED(peak->Build(QNAUDIOPEAK_BUILD_16BIT, nullptr)), "peaks can be built");
  Check(peak->IsValid(0), "what was built is valid");
  Use(peak);
  peak->Release();
  DeleteFileW(name.c_str());
  return 0;
}
