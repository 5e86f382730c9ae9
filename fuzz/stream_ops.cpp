// A sequence of operations on an audio stream, beside a plain model of the file's samples.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/media/qnaudiostream.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

namespace {

constexpr DWORD kChannels = 2;
constexpr size_t kMostFrames = 5000;

// One number after the other from the input; 0 behind its end.
class Numbers {
 public:
  Numbers(const uint8_t* data, size_t size) : data_(data), end_(data + size) {}

  bool AtEnd() const { return data_ == end_; }
  int Next(int limit) {
    int value = 0;
    for (int i = 0; i < 2 && data_ != end_; ++i) value = value << 8 | *data_++;
    return value % limit;
  }

 private:
  const uint8_t* data_;
  const uint8_t* end_;
};

struct Model {
  std::vector<int16_t> samples;
  size_t position = 0;

  size_t Frames() const { return samples.size() / kChannels; }
};

void Read(HQNAUDIOSTREAM stream, Model* model, int frames) {
  std::vector<int16_t> got(static_cast<size_t>(frames) * kChannels);
  DWORD count = 0;
  const HRESULT status =
      QnAudioStream_ReadEx(stream, got.data(), static_cast<DWORD>(frames), &count, QNST_PCM16);
  Check(SUCCEEDED(status), "a read within the file works");
  const size_t left = model->Frames() - std::min(model->position, model->Frames());
  Check(count == std::min<size_t>(left, static_cast<size_t>(frames)), "all frames that there are");
  Check(std::equal(got.begin(), got.begin() + count * kChannels,
                   model->samples.begin() + static_cast<ptrdiff_t>(model->position * kChannels)),
        "the samples of the file");
  model->position += count;
}

void Write(HQNAUDIOSTREAM stream, Model* model, int frames, int first) {
  std::vector<int16_t> samples(static_cast<size_t>(frames) * kChannels);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(first + static_cast<int>(i));
  DWORD written = 0;
  const HRESULT status =
      QnAudioStream_WriteEx(stream, samples.data(), static_cast<DWORD>(frames), &written, QNST_PCM16);
  Check(status == S_OK && written == static_cast<DWORD>(frames), "a write works");
  const size_t end = model->position + static_cast<size_t>(frames);
  if (model->samples.size() < end * kChannels) model->samples.resize(end * kChannels);
  std::copy(samples.begin(), samples.end(),
            model->samples.begin() + static_cast<ptrdiff_t>(model->position * kChannels));
  model->position = end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Numbers numbers(data, size);
  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, 8000, QNST_PCM16, kChannels);
  const qnfuzz::FuzzFile file(nullptr, 0);
  QnInitializeWav(file.Path(), &format, OPEN_EXISTING);
  HQNAUDIOSTREAM stream;
  constexpr DWORD kDataStart = 46;
  Check(QnAudioStream_OpenFile(&stream, file.Path(), kDataStart, 0, &format, nullptr, nullptr, 0) == S_OK,
        "the file opens");
  Model model;
  while (!numbers.AtEnd()) {
    switch (numbers.Next(6)) {
      case 0:
        model.position = static_cast<size_t>(numbers.Next(static_cast<int>(model.Frames()) + 1));
        QnAudioStream_Seek(stream, static_cast<LONGLONG>(model.position), 0, nullptr);
        break;
      case 1:
        Read(stream, &model, numbers.Next(600));
        break;
      case 2:
        if (model.position < kMostFrames) Write(stream, &model, numbers.Next(600), numbers.Next(30000));
        break;
      case 3: {
        const auto frames = static_cast<size_t>(numbers.Next(kMostFrames));
        Check(QnAudioStream_SetSize(stream, frames) == S_OK, "a size can be set");
        if (frames < model.Frames()) model.position = frames;
        model.samples.resize(frames * kChannels);
        break;
      }
      case 4: {
        std::vector<int16_t> channel(static_cast<size_t>(numbers.Next(300)), 77);
        const auto place = static_cast<DWORD>(numbers.Next(kChannels));
        const size_t end = model.position + channel.size();
        if (channel.empty() || end > model.Frames()) break;
        Check(QnAudioStream_WriteChannelEx(stream, place, channel.data(), static_cast<DWORD>(channel.size()),
                                           nullptr, QNST_PCM16) == S_OK,
              "a channel can be written");
        for (size_t i = 0; i < channel.size(); ++i) {
          model.samples[(model.position + i) * kChannels + place] = channel[i];
        }
        model.position = end;
        break;
      }
      default: {
        ULONGLONG length = 0;
        QnAudioStream_GetLength(stream, &length);
        Check(length == model.Frames(), "the length of the file");
      }
    }
  }
  QnAudioStream_Close(stream);
  return 0;
}
