// Requests for peaks, and the peak file while its media is written.
#include <atomic>
#include <cmath>
#include <thread>

#include "qn/media/peak_scratch_internal.h"
#include "qn/media/qnaudiostream.h"
#include "tests/media/peak_media.h"

namespace {

using namespace qntest;
using Values = std::vector<double>;

constexpr int64_t kFile = 64, kTable = 256;

size_t Width(int type) {
  return static_cast<size_t>(QnAudio_BytesFromSampleType(QNSAMPLETYPE(type)));
}

Bytes Convert(int to, int from, const void* samples, size_t count) {
  Bytes out(count * Width(to));
  QnAudio_GetCopyFunction2(QNSAMPLETYPE(to), QNSAMPLETYPE(from))(out.data(), samples, LONG(count), 1.0f);
  return out;
}

Values Decode(int type, const Bytes& samples) {
  Values values(samples.size() / Width(type));
  const auto decode = QnAudio_GetCopyFunction2(QNST_FLOAT64, QNSAMPLETYPE(type));
  decode(values.data(), samples.data(), LONG(values.size()), 1.0f);
  return values;
}

Bytes RandomSamples(int type, size_t count) {
  Values values(count);
  for (double& value : values) value = double(Random()() % 2001) / 1000 - 1;
  return Convert(type, 33, values.data(), count);
}

int64_t Below(int64_t limit) {
  return int64_t(Random()() % uint64_t(limit));
}

// A media in memory, and a peak object on it.
struct Media final : PeakMedia {
  Media(int sourceType, int channelCount, size_t frames, bool hasTable, bool isThreadSafe, bool is16Bit)
      : type(sourceType), channels(channelCount), is16(is16Bit) {
    samples = RandomSamples(type, frames * channels);
    most = 777;
    QnAudio_InitWfx(&format, 44100, QNSAMPLETYPE(type), DWORD(channels));
    const LONG flags = isThreadSafe ? QNAUDIOPEAK_THREADSAFE : 0;
    EXPECT_EQ(QnAudioPeak_CreateInstance(&peak, this, {}, {}, kFile, hasTable ? kTable : ~0u, flags), 1);
    EXPECT_EQ(peak->Build(is16, nullptr), S_OK);
  }
  ~Media() override { peak->Release(); }

  std::string PeakFile() const { return folder.Native("m.qnk"); }
  // The stored pairs, as parts of full scale.
  Values Stored() const {
    const Bytes bytes = ReadFileBytes(PeakFile());
    return Decode(is16 ? 17 : 49, Bytes(bytes.begin() + 64, bytes.end()));
  }
  // A request, and what must come of it.
  Values Ask(bool isAligned, int64_t start, int64_t frames, int to, LONG pixels, HRESULT status = S_OK) {
    const size_t pixelBytes = size_t(channels) * 2 * Width(to);
    Bytes out(pixelBytes * size_t(std::max(pixels, 0)) + 1, 0xA5);
    DWORD got = 77;
    EXPECT_EQ(isAligned ? peak->GetPeaksAligned(start, frames, QNSAMPLETYPE(to), out.data(), pixels, &got)
                        : peak->GetPeaksEx(start, frames, QNSAMPLETYPE(to), out.data(), pixels, &got),
              status);
    EXPECT_EQ(out.back(), 0xA5);
    out.resize(got * pixelBytes);
    return Decode(to, out);
  }

  HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) override {
    ++reads;
    return PeakMedia::Read(position, limit, buffer, frames, got);
  }
  LONGLONG GetLength() override { return std::ssize(samples) / format.nBlockAlign; }

  const int type, channels;
  const bool is16;
  std::atomic<int> reads = 0;
};

// What pixels must hold, in a peak type.
struct Expected {
  int type;
  bool isCut;
  int channels;
  Values out;

  void Add(double value) {
    const double scale = type == 49 ? 128 : 32768;
    if (isCut && type != 32) value = std::floor(value * scale) / scale;
    out.push_back(Decode(type, Convert(type, 33, &value, 1))[0]);
  }
  // The frames, or with a `stride` of 2 the pairs, from `first` to `end`.
  void AddWidest(const Values& from, int64_t first, int64_t end, int stride) {
    for (int channel = 0; channel < channels; ++channel) {
      double low = 2, high = -2;
      for (int64_t i = first; i < end; ++i) {
        const auto at = size_t((i * channels + channel) * stride);
        low = std::min(low, from[at]);
        high = std::max(high, from[at + size_t(stride) - 1]);
      }
      Add(low);
      Add(high);
    }
  }
  void AddFromFile(const Values& stored, int64_t length, int64_t start, int64_t frames, int64_t pixels) {
    const int64_t blocks = std::ssize(stored) / 2 / channels;
    for (int64_t i = 0; i < pixels; ++i) {
      const int64_t first = (start + i * frames / pixels) / kFile;
      const bool isLast = i + 1 == pixels && start + frames >= length;
      const int64_t end = isLast ? blocks : (start + (i + 1) * frames / pixels) / kFile;
      if (first < blocks) AddWidest(stored, first, std::min(end, blocks), 2);
    }
  }
  // As the kernel gives it, which can find more pixels than are asked for.
  void AddResampled(const Values& stored, int64_t first, int64_t end, int64_t src, int64_t dst, int64_t phase,
                    int64_t pixels) {
    std::vector<float> pairs(stored.begin() + first * channels * 2, stored.begin() + end * channels * 2);
    if (end - first != pixels) {
      QnAudioPeak_Resample(32, pairs.data(), LONG(src), LONG(dst), DWORD(phase), pairs.data(),
                           DWORD(end - first), DWORD(channels));
    }
    for (int64_t i = 0; i < pixels * channels * 2; ++i) Add(pairs[size_t(i)]);
  }
  void AddFromAudio(const Values& samples, int64_t start, int64_t frames, int64_t pixels) {
    const int64_t end = std::min(start + frames, std::ssize(samples) / channels);
    const auto step = int64_t((double(pixels / 2) + double(frames) * 16384.0) / double(pixels));
    // With all of its frames a request has all of its pixels: the step is rounded.
    const bool isWhole = frames > pixels && end == start + frames;
    for (int64_t i = 0, at = start; i < pixels && (at < end || isWhole); ++i) {
      const int64_t next = frames > pixels ? start + ((i + 1) * step + 16383) / 16384 : at + 1;
      AddWidest(samples, frames > pixels && i > 0 ? at - 1 : at, std::min(next, end), 1);
      at = std::min(next, end);
    }
  }
};

TEST(PeakRequest, AnswersLikeTheRule) {
  for (int turn = 0; turn < 66; ++turn) {
    const int source = std::array{16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66}[size_t(turn % 11)];
    const bool isWide = source == 18 || source == 19 || source > 64;
    const int channels = std::array{1, 2, 3, 6, 40}[size_t(turn % 5)];
    Media media(source, channels, size_t(4000 + Below(2000)), turn % 4 > 1, turn % 3, turn % 2);
    const int64_t length = media.GetLength(), tableBlocks = turn % 4 > 1 ? length / kTable : 0;
    const Values stored = media.Stored(), samples = Decode(source, media.samples);
    Expected table{17, false, channels, {}};
    table.AddFromFile(stored, length, 0, length, tableBlocks);
    for (int i = 0; i < 120; ++i) {
      const bool isAligned = i % 2;
      const int64_t each = 1 + Below(i % 5 ? 600 : 90), cut = isAligned ? 0 : Below(each);
      int64_t pixels = 1 + Below(length / each), start = Below(length - length / 9);
      const int64_t frames = each * pixels - cut, size = frames / pixels;
      const int type = std::array{17, 49, 32}[size_t(i % 3)];
      const Values got = media.Ask(isAligned, start, isAligned ? each : frames, type, LONG(pixels));
      if (isAligned) start -= start % each;
      const bool fromTable = tableBlocks && size >= kTable;
      Expected expected{type, size < kFile ? isWide && frames > pixels : !isAligned, channels, {}};
      if (size < kFile) {
        if (channels <= 32) expected.AddFromAudio(samples, start, frames, pixels);
      } else if (!isAligned && !fromTable) {
        expected.AddFromFile(stored, length, start, frames, pixels);
      } else {
        const Values& pairs = fromTable ? table.out : stored;
        const int64_t p = fromTable ? kTable : kFile, blocks = std::ssize(pairs) / 2 / channels;
        const int64_t past = isAligned ? p - 1 : 0, wanted = (start + frames + past) / p - start / p;
        const int64_t first = std::min(start / p, blocks - 1), count = std::min(wanted, blocks - first);
        // At the end of what is stored the last block may be in two pixels, which the kernel does not know.
        if (isAligned && count < wanted) continue;
        pixels = count * pixels / wanted;
        if (pixels == 0) continue;
        expected.AddResampled(pairs, first, first + count, isAligned ? each : count, isAligned ? p : pixels,
                              isAligned ? first * p % each : 0, pixels);
      }
      ASSERT_EQ(got, expected.out) << source << " to " << type << ": " << start << " + " << frames << ", "
                                   << pixels;
    }
    Bytes read(size_t(length) * size_t(channels) * 4);
    DWORD got = 0;
    EXPECT_EQ(media.peak->ReadSamples(0, 32, read.data(), DWORD(length) + 9, &got), S_OK);
    EXPECT_EQ(read, Convert(32, source, media.samples.data(), samples.size()));
  }
}

// What has no answer, and files that are not what they were.
TEST(PeakRequest, Refuses) {
  for (bool isThreadSafe : {false, true}) {
    Media media(17, 2, 100000, false, isThreadSafe, false);
    constexpr int64_t kMost = INT64_MAX;
    const std::tuple<bool, int64_t, int64_t, int, LONG, HRESULT, size_t> kRows[] = {
        {0, 0, 640, 18, 0, S_OK, 0},        {0, 0, 640, 18, 1, E_UNEXPECTED, 0},  //
        {0, 0, 0, 17, 5, S_OK, 0},          {0, -64, 640, 17, 10, E_FAIL, 0},     //
        {0, 99990, 20, 17, 20, S_OK, 10},   {0, kMost, 640, 17, 10, E_FAIL, 0},   //
        {0, 0, kMost, 17, 1, S_OK, 1},      {0, 99968, 640, 17, 10, S_OK, 1},     //
        {1, 0, 0, 18, 0, E_INVALIDARG, 0},  {1, 0, 64, 18, -1, E_INVALIDARG, 0},  //
        {1, 0, 64, 18, 1, E_UNEXPECTED, 0}, {1, 0, kMost, 17, 2, E_INVALIDARG, 0},
        {1, 1 << 20, 64, 17, 2, E_FAIL, 0}, {1, 100, 64, 17, 2, S_OK, 2}};
    for (const auto& [aligned, start, frames, type, pixels, status, got] : kRows) {
      EXPECT_EQ(media.Ask(aligned, start, frames, type, pixels, status).size(), got * 4)
          << start << " + " << frames;
    }
    // A file that is cut under the object's view, and scratch blocks that went with a detach.
    qn::ReleasePeakScratch();
    for (size_t blocks : {10, 0}) {
      std::filesystem::resize_file(media.PeakFile(), blocks * 4 + 67);
      EXPECT_EQ(media.Ask(false, 0, 640 * 2, 17, 20).size(), blocks * 4);
    }
  }
}

// Random writes and cuts of a stream with peaks, against the peaks of a model.
TEST(PeakWrite, KeepsToAModel) {
  for (int turn = 0; turn < 12; ++turn) {
    const int channels = 1 + turn % 3, type = turn % 2 ? 32 : 17;
    Media media(17, channels, 1500, turn % 5 > 2, turn % 4 > 1, true);
    media.peak->SetKeepOpen(turn % 5 > 0, 0);
    Values model = media.Stored();
    TestFile file(media.samples);
    HQNAUDIOSTREAM stream;
    ASSERT_EQ(QnAudioStream_OpenFile(&stream, file.Path(), 0, 1500, &media.format, {}, {}, 0), S_OK);
    QnAudioStream_SetPeak(stream, media.peak);
    // The last frame of a block is in the next one of the same write too, and stays there if a write goes on.
    int64_t start = 0, lastEnd = -1;
    bool isSeeded = false;
    const auto modelWrite = [&](int64_t from, int64_t end) {
      const Values samples = Decode(17, media.samples);
      const int64_t first = from / kFile * kFile;
      isSeeded = isSeeded && lastEnd == from && from % kFile;
      model.resize(std::max(model.size(), size_t((end + kFile - 1) / kFile * channels * 2)));
      for (int64_t at = first; at < end; at += kFile) {
        isSeeded = isSeeded || at > first;
        Expected block{17, false, channels, {}};
        block.AddWidest(samples, at - isSeeded, std::min(at + kFile, media.GetLength()), 1);
        std::copy(block.out.begin(), block.out.end(), model.begin() + at / kFile * channels * 2);
      }
      start = lastEnd = end;
    };
    for (int i = 0; i < 150; ++i) {
      const int64_t length = media.GetLength();
      if (Below(8) == 0) {
        const int64_t to = 1 + Below(length);
        media.samples.resize(size_t(to * channels * 2));
        QnAudioStream_SetSize(stream, uint64_t(to));
        model.resize(size_t((to + kFile - 1) / kFile * channels * 2));
        if (to < length) modelWrite(std::max<int64_t>(to - kFile, 0), to);
      } else {
        const int64_t frames = 1 + Below(Below(3) ? 40 : 900);
        if (start > length || Below(2)) start = Below(length + 1);
        const Bytes written = RandomSamples(17, size_t(frames * channels));
        const auto at = size_t(start * channels * 2);
        media.samples.resize(std::max(media.samples.size(), at + written.size()));
        std::copy(written.begin(), written.end(), media.samples.begin() + std::ptrdiff_t(at));
        media.reads = 0;
        QnAudioStream_Seek(stream, start, 0, nullptr);
        const Bytes given = Convert(type, 17, written.data(), size_t(frames * channels));
        QnAudioStream_WriteEx(stream, given.data(), DWORD(frames), nullptr, QNSAMPLETYPE(type));
        EXPECT_TRUE(media.reads == 0 || lastEnd != start || start + frames < length);
        modelWrite(start, start + frames);
      }
      ASSERT_EQ(media.Stored(), model) << "turn " << turn << ", " << i;
      const int64_t now = media.GetLength(), pixels = now / kFile;
      Expected all{17, false, channels, {}};
      all.AddFromFile(model, now, 0, now, pixels);
      ASSERT_EQ(media.Ask(false, 0, now, 17, LONG(pixels)), all.out);
    }
    QnAudioStream_Close(stream);
  }
}

// One writer and readers at every zoom.
TEST(PeakThreads, WriterBesideReaders) {
  Media media(17, 2, 40000, false, true, true);
  std::atomic<bool> isDone = false;
  const auto read = [&](uint64_t seed) {
    for (std::mt19937_64 random(seed); !isDone;) {
      const auto start = int64_t(random() % 30000), frames = int64_t(50 + random() % 9999);
      const Values got = media.Ask(false, start, frames, 17, 50);
      EXPECT_EQ(got.size(), 200u);
      for (size_t i = 0; i < got.size(); i += 2) EXPECT_LE(got[i], got[i + 1]);
    }
  };
  std::thread readers[] = {std::thread(read, 1), std::thread(read, 2), std::thread(read, 3)};
  for (size_t i = 0; i < 400; ++i) {
    const size_t start = i * 97 % 39000;
    media.peak->WriteAudio(&media.samples[start * 4], LONGLONG(start), DWORD(1 + i * 31 % 900), QNST_NONE);
  }
  isDone = true;
  for (auto& reader : readers) reader.join();
}

}  // namespace
