// A host that records: creates a wave file with room for later metadata in front of the samples, appends
// blocks as they come, and writes the final sizes at the end. If the program dies in between, the samples are
// all there and `qnwave repair` brings them back.
//
//   example_record_wave FILE SECONDS
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnwaveformat.h"
#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr DWORD kRate = 48'000;
constexpr DWORD kBlockFrames = 4800;
constexpr DWORD kHeaderBytes = 4096;  // the samples start here; a JUNK chunk fills the room

// Stands for the device that delivers float samples: a tone of 440 Hz.
void Capture(std::vector<float>* block, uint64_t firstFrame) {
  for (size_t i = 0; i < block->size(); ++i) {
    const double seconds = static_cast<double>(firstFrame + i) / kRate;
    (*block)[i] = static_cast<float>(0.5 * std::sin(2 * 3.14159265358979 * 440 * seconds));
  }
}

int Fail(const char* what, HRESULT status) {
  std::fprintf(stderr, "%s failed: 0x%08X\n", what, static_cast<unsigned>(status));
  return 1;
}

}  // namespace

int main(int count, char** words) {
  if (count != 3) {
    std::fprintf(stderr, "usage: %s FILE SECONDS\n", words[0]);
    return 2;
  }
  const std::u16string path = qn::PathFromNative(words[1]);
  const auto blocks = static_cast<uint64_t>(std::strtoul(words[2], nullptr, 10)) * kRate / kBlockFrames;

  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, kRate, QNST_PCM24, 1);
  HRESULT status = QnInitializeWavWithJunk(path.c_str(), &format, CREATE_ALWAYS, kHeaderBytes);
  if (status != S_OK) return Fail("creating", status);

  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return Fail("opening", QN_E_FILE_OPEN);
  SetFilePointer(file, 0, nullptr, FILE_END);

  const QNCOPYFUNCTION toStored = QnAudio_GetCopyFunction2(QNST_PCM24, QNST_FLOAT32);
  std::vector<float> block(kBlockFrames);
  std::vector<uint8_t> stored(size_t{kBlockFrames} * format.nBlockAlign);
  DWORD dataBytes = 0;
  for (uint64_t i = 0; i < blocks && status == S_OK; ++i) {
    Capture(&block, i * kBlockFrames);
    toStored(stored.data(), block.data(), kBlockFrames, 1.0f);
    DWORD put = 0;
    if (!WriteFile(file, stored.data(), static_cast<DWORD>(stored.size()), &put, nullptr)) {
      status = QN_E_FILE_WRITE;
    }
    dataBytes += put;
  }
  // What was recorded until a full disk counts too.
  const HRESULT finished = QnInsertWavHeader(file, &format, dataBytes, kHeaderBytes);
  CloseHandle(file);
  if (status == S_OK) status = finished;
  return status == S_OK ? 0 : Fail("recording", status);
}
