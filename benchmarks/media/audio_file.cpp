#include "benchmarks/media/audio_file.h"

#include <unistd.h>

#include <cstdlib>

#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"

namespace qnbench {

AudioFile::AudioFile(QNSAMPLETYPE type, int seconds)
    : path_(std::filesystem::temp_directory_path() /
            ("qnbench-" + std::to_string(getpid()) + "-" + std::to_string(type) + "-" +
             std::to_string(seconds) + ".wav")),
      frames_(int64_t{kRate} * seconds) {
  QnAudio_InitWfx(&format_, kRate, type, kChannels);
  QnInitializeWav(Name().c_str(), &format_, CREATE_ALWAYS);
  const HANDLE file =
      CreateFileW(Name().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  SetFilePointer(file, 0, nullptr, FILE_END);
  std::vector<uint8_t> block(size_t{kRate} * format_.nBlockAlign);
  uint32_t state = 1;
  for (int second = 0; second < seconds; ++second) {
    for (size_t i = 0; i < block.size() / format_.nBlockAlign * kChannels; ++i) {
      const auto value = static_cast<int16_t>((state = state * 1664525 + 1013904223) >> 16);
      if (type == QNST_PCM16) {
        reinterpret_cast<int16_t*>(block.data())[i] = value;
      } else {
        reinterpret_cast<float*>(block.data())[i] = static_cast<float>(value) / 32768;
      }
    }
    DWORD put = 0;
    WriteFile(file, block.data(), static_cast<DWORD>(block.size()), &put, nullptr);
  }
  QnInsertWavHeader(file, &format_, static_cast<DWORD>(Bytes()), 46);
  CloseHandle(file);
  uint64_t frames = 0;
  std::free(QnGetFileWfx(Name().c_str(), &frames, &dataStart_));
}

AudioFile::~AudioFile() {
  std::filesystem::remove(path_);
}

std::u16string AudioFile::Name() const {
  return qn::PathFromNative(path_.string());
}

const AudioFile& TenMinutes(QNSAMPLETYPE type) {
  static const AudioFile integers(QNST_PCM16, 600);
  static const AudioFile floats(QNST_FLOAT32, 600);
  return type == QNST_PCM16 ? integers : floats;
}

}  // namespace qnbench
