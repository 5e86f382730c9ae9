#include "qn/media/qnaudiostream.h"

#include "tests/media/media_file.h"

namespace {

using namespace qntest;

constexpr HRESULT kSeekFault = MakeStatus(0x80030019);
constexpr HRESULT kDenied = MakeStatus(0x80030005);

// Records what it is told, and reads from the stream meanwhile, as real ones do.
struct FakePeak final : IQnAudioPeak {
  HRESULT QueryInterface(const IID&, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }
  BOOL IsValid(DWORD) override { return 1; }
  HRESULT GetPeakFileName(WCHAR*, LONG) override { return 0; }
  HRESULT Build(DWORD, IQnAudioPeakProgress*) override { return 0; }
  HRESULT WriteAudio(const void*, LONGLONG start, DWORD frames, QNSAMPLETYPE type) override {
    calls.push_back({start, frames, type});
    return QnAudioStream_Seek(stream, 3, 0, nullptr);
  }
  HRESULT Truncate(LONGLONG frames) override { return calls.push_back({-1, frames, 0}), 0; }
  HRESULT Sync(DWORD) override { return 0; }
  HRESULT GetReader(CQnAudioPeakStreamReader**) override { return 0; }
  HRESULT GetHeader(void* out, DWORD size) override {
    std::memset(out, 0, size);
    std::memcpy(static_cast<char*>(out) + 24, &framesPerPeak, 4);
    return 0;
  }
  HRESULT SetKeepOpen(DWORD, LONG) override { return 0; }
  HRESULT GetInfo(DWORD*, DWORD*, DWORD*, DWORD*, DWORD*) override { return 0; }
  HRESULT GetPeaks(LONGLONG, LONGLONG, void*, LONG, DWORD*) override { return 0; }
  HRESULT GetPeaksEx(LONGLONG, LONGLONG, QNSAMPLETYPE, void*, LONG, DWORD*) override { return 0; }
  HRESULT GetPeaksAligned(LONGLONG, LONGLONG, QNSAMPLETYPE, void*, LONG, DWORD*) override { return 0; }
  HRESULT ReadSamples(LONGLONG, DWORD, void*, DWORD, DWORD*) override { return 0; }
  HRESULT NotImplemented() override { return 0; }
  HRESULT UpdateHeader() override { return 0; }

  HQNAUDIOSTREAM stream = nullptr;
  DWORD framesPerPeak = 64;
  std::vector<std::tuple<LONGLONG, LONGLONG, int>> calls;
};

LONGLONG At(HQNAUDIOSTREAM stream) {
  LONGLONG position;
  QnAudioStream_Seek(stream, 0, 1, &position);
  return position;
}

// Random edits of a stereo stream against a vector of its 16-bit samples, over files and clients of every
// kind.
TEST(QnAudioStream, KeepsToAModel) {
  auto& random = Random();
  for (const auto& [fileBits, clientBits] :
       {std::pair(16, 16), {16, 8}, {16, 32}, {24, 16}, {32, 24}, {24, 24}}) {
    TestFile file(Bytes(100, 0xEE));
    WAVEFORMATEX inFile = MakeFormat(1, 2, 44100, fileBits), client = MakeFormat(1, 2, 44100, clientBits);
    HQNAUDIOSTREAM stream;
    ASSERT_EQ(QnAudioStream_OpenFile(&stream, file.Path(), 50, 0, &inFile, &client, nullptr, 0x10000), S_OK);
    FakePeak peak;
    peak.stream = stream;
    EXPECT_EQ(QnAudioStream_SetPeak(stream, &peak), 1);
    std::vector<int16_t> model;
    for (int step = 0; step < 300; ++step) {
      const size_t length = model.size() / 2, at = random() % (length + 1);
      const DWORD frames = random() % 3 ? random() % 200 : random() % 70000;
      std::vector<int16_t> data(size_t{frames} * 2);
      for (auto& sample : data) sample = static_cast<int16_t>(random());
      const auto type = QNST_PCM16;
      DWORD count = 77;
      QnAudioStream_Seek(stream, static_cast<LONGLONG>(at), 0, nullptr);
      peak.calls.clear();
      switch (random() % 4) {
        case 0:
          ASSERT_EQ(QnAudioStream_WriteEx(stream, data.data(), frames, &count, type), S_OK);
          model.resize(std::max(model.size(), (at + frames) * 2));
          std::copy(data.begin(), data.end(), model.begin() + static_cast<ptrdiff_t>(at * 2));
          ASSERT_EQ(std::tuple(count, At(stream)), std::tuple(frames, at + frames));
          if (frames) {
            EXPECT_EQ(peak.calls.at(0), std::tuple(at, frames, int{type}));
          }
          break;
        case 1:
          ASSERT_EQ(QnAudioStream_WriteChannelEx(stream, 1, data.data(), frames, &count, type), S_OK);
          model.resize(std::max(model.size(), (at + frames) * 2));
          for (size_t i = 0; i < frames; ++i) model[(at + i) * 2 + 1] = data[i];
          break;
        case 2: {
          const size_t size = random() % 8 ? length : random() % 90000;
          ASSERT_EQ(QnAudioStream_SetSize(stream, size), S_OK);
          if (size < length) {
            EXPECT_EQ(peak.calls.at(0), std::tuple(-1, size, 0));
            ASSERT_EQ(peak.calls.size(), size ? 2 : 1);
            EXPECT_EQ(std::get<1>(peak.calls.back()), std::min<size_t>(64, size));
          }
          ASSERT_EQ(At(stream), size < length ? size : at);
          model.resize(size * 2);
          break;
        }
        default: {
          const size_t left = std::min<size_t>(frames, length - at);
          const auto start = model.begin() + static_cast<ptrdiff_t>(at * 2);
          ASSERT_EQ(QnAudioStream_ReadEx(stream, data.data(), frames, &count, type), S_OK);
          ASSERT_EQ(std::tuple(count, At(stream)), std::tuple(left, at + left));
          ASSERT_TRUE(std::equal(data.begin(), data.begin() + count * 2, start)) << fileBits << clientBits;
          QnAudioStream_Seek(stream, static_cast<LONGLONG>(at), 0, nullptr);
          ASSERT_EQ(QnAudioStream_ReadChannelEx(stream, 1, data.data(), frames, &count, type), S_OK);
          for (size_t i = 0; i < count; ++i) ASSERT_EQ(data[i], model[(at + i) * 2 + 1]);
        }
      }
    }
    EXPECT_EQ(QnAudioStream_Close(stream), S_OK);
    const Bytes content = file.Content();
    EXPECT_EQ(Bytes(content.begin(), content.begin() + 50), Bytes(50));
  }
}

TEST(QnAudioStream, OddEndsThatHostsRelyOn) {
  const Bytes samples = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  TestFile file(Bytes(46) + samples);
  WAVEFORMATEX format = MakeFormat(1, 1, 8000, 8), wrong = format;
  HQNAUDIOSTREAM stream;
  ULONGLONG length;
  LONGLONG place;
  DWORD count;
  Bytes got(20);
  wrong.nBlockAlign = 0;
  EXPECT_EQ(QnAudioStream_OpenFile(&stream, file.Path(), 0, 0, &wrong, nullptr, nullptr, 3), E_NOTIMPL);
  EXPECT_EQ(QnAudioStream_OpenFile(&stream, file.Path(), 0, 0, &format, nullptr, nullptr, 0x10001),
            E_INVALIDARG);
  ASSERT_EQ(QnAudioStream_OpenFile(&stream, file.Path(), 46, 10, &format, nullptr, nullptr, 0x20003), S_OK);
  EXPECT_EQ(QnAudioStream_Seek(stream, 0, 2, &place), S_OK);
  EXPECT_EQ(place, 10);
  EXPECT_EQ(QnAudioStream_Seek(stream, 4, 0x100, &place), S_OK);
  EXPECT_EQ(place, 4);
  EXPECT_EQ(QnAudioStream_Seek(stream, -1, 0x102, &place), S_OK);
  EXPECT_EQ(place, 55);
  EXPECT_EQ(QnAudioStream_Seek(stream, -47, 0x100, &place), kSeekFault);
  EXPECT_EQ(place, -1);
  QnAudioStream_Seek(stream, -5, 0, nullptr);
  EXPECT_EQ(QnAudioStream_WriteEx(stream, got.data(), 1, &count, QNST_NONE), kSeekFault);
  QnAudioStream_SetLength(stream, 15, nullptr);  // more than there is
  EXPECT_EQ(QnAudioStream_Read(stream, got.data(), 20, &count, 8, QNST_NONE), S_OK);
  EXPECT_EQ(std::tuple(count, got[1]), std::tuple(2, 9));
  EXPECT_EQ(QnAudioStream_Read(stream, got.data(), 1, &count, 0, QNSAMPLETYPE(7)), E_UNEXPECTED);
  QnAudioStream_SetLength(stream, 10, nullptr);
  EXPECT_EQ(QnAudioStream_Delete(stream, 11, 1), 1);
  EXPECT_EQ(QnAudioStream_Delete(stream, 5, -3), S_OK);
  QnAudioStream_GetLength(stream, &length);
  EXPECT_EQ(length, 8u);
  EXPECT_EQ(QnAudioStream_Read(stream, got.data(), 20, &count, 0, QNST_NONE), S_OK);
  EXPECT_EQ(Bytes(got.begin(), got.begin() + count), Bytes({0, 1, 5, 6, 7, 8, 9, 7}));
  QnAudioStream_AbsSeek(stream, 2, 2, &place);
  EXPECT_EQ(QnAudioStream_AbsWrite(stream, "\x11\x22", 2, &count), S_OK);
  for (const auto& [channels, left] : {std::pair(2u, 6u), {3u, 12u}, {2u, 6u}, {2u, 6u}, {1u, 12u}}) {
    EXPECT_EQ(QnAudioStream_PrestoChangoChannels(stream, channels), S_OK);
    QnAudioStream_GetLength(stream, &length);
    EXPECT_EQ(length, left);
  }
  void* blocks[9];
  EXPECT_EQ(QnAudioStream_FreeBuffer(stream, QnAudioStream_GetBuffer(stream, 5)), nullptr);
  EXPECT_EQ(QnAudioStream_GetBuffers(stream, blocks, 9, 5, QNST_NONE), E_OUTOFMEMORY);
  EXPECT_NE(blocks[7], nullptr);
  EXPECT_EQ(QnAudioStream_SetSize(stream, ~0ull), E_OUTOFMEMORY);
  EXPECT_EQ(QnAudioStream_ReleaseBuffers(stream, blocks, 9), 1);
  EXPECT_EQ(QnAudioStream_SetSize(stream, ~0ull), kSeekFault);
  void* const own = QnAudioStream_AllocBuffer(stream, 5);
  EXPECT_EQ(QnAudioStream_ReleaseBuffer(stream, own), own);
  EXPECT_EQ(QnAudioStream_FreeBuffer(stream, own), nullptr);

  // A stream that was open on other frames has nothing left of them to work with.
  HQNAUDIOSTREAM clone;
  ASSERT_EQ(QnAudioStream_OpenFile(&clone, file.Path(), 0, 9, &format, nullptr, nullptr, 3), S_OK);
  EXPECT_EQ(QnAudioStream_Clone(stream, clone, &format, 1, 99), S_OK);
  QnAudioStream_GetLength(clone, &length);
  EXPECT_EQ(std::tuple(length, QnAudioStream_GetMetric(clone, 1), QnAudioStream_GetMetric(clone, 2)),
            std::tuple(0, 0, 0));
  QnAudioStream_SetLength(clone, 9, nullptr);
  EXPECT_EQ(QnAudioStream_Read(clone, got.data(), 9, &count), E_UNEXPECTED);
  EXPECT_EQ(QnAudioStream_ReopenFiles(clone), S_OK);
  QnAudioStream_GetLength(clone, &length);
  EXPECT_EQ(length, 11u);
  EXPECT_EQ(QnAudioStream_Seek(stream, 0, 2, nullptr), S_OK);
  DWORD written;
  EXPECT_EQ(QnAudioStream_CopyTo(clone, stream, 4, &count, &written), S_OK);
  EXPECT_EQ(std::tuple(count, written), std::tuple(4, 4));
  EXPECT_EQ(QnAudioStream_Close(clone), S_OK);
  EXPECT_EQ(QnAudioStream_Close(stream), S_OK);
  EXPECT_FALSE(std::filesystem::exists(file.Native()));

  // Frames of other channels than the client's: none can be moved, and a write fills them with silence.
  TestFile other(samples);
  WAVEFORMATEX inFile = MakeFormat(1, 2, 8000, 8), client = MakeFormat(1, 1, 8000, 16);
  ASSERT_EQ(QnAudioStream_OpenFile(&stream, other.Path(), 0, 5, &inFile, &client, nullptr, 3), S_OK);
  FakePeak peak;
  QnAudioStream_SetPeak(stream, &peak);
  EXPECT_EQ(QnAudioStream_SetSize(stream, 3), E_NOTIMPL);
  EXPECT_EQ(QnAudioStream_Delete(stream, 0, 1), E_NOTIMPL);
  EXPECT_EQ(other.Content(), samples);
  EXPECT_EQ(QnAudioStream_Write(stream, Bytes(4).data(), 2, nullptr), S_OK);
  EXPECT_EQ(other.Content(), Bytes(samples.begin(), samples.begin() + 6) + Bytes(4, 0x80));
  QnAudioStream_Close(stream);

  std::u16string name = other.Path();
  for (const auto& [size, status] : {std::pair(259u, S_OK), {260u, E_FAIL}}) {
    name.insert(name.rfind(u'\\'), size - name.size(), u'\\');
    EXPECT_EQ(QnAudioStream_OpenFile(&stream, name.c_str(), 0, 9, &format, nullptr, nullptr, 3), status);
    QnAudioStream_Close(stream);
    QnAudioStream_Allocate(&stream);
    EXPECT_EQ(QnAudioStream_Initialize(stream, &format, name.c_str(), 0x10003), status);
    EXPECT_EQ(QnAudioStream_Close(stream), S_OK);
  }
  ASSERT_EQ(QnAudioStream_OpenFile(&stream, other.Path(), 0, 10, &format, nullptr, nullptr, 1), S_OK);
  EXPECT_EQ(QnAudioStream_SetSize(stream, 3), kDenied);
  EXPECT_EQ(QnAudioStream_CloseFiles(stream), S_OK);
  EXPECT_EQ(QnAudioStream_Initialize(stream, &format, other.Path(), 3), QN_E_FILE_OPEN);
  EXPECT_EQ(QnAudioStream_Initialize(stream, &format, other.Path(), 0x10003), S_OK);
  EXPECT_EQ(other.Content(), Bytes(46));
  EXPECT_EQ(QnAudioStream_Free(stream), S_OK);

  // A closed stream that converts: its buffer is gone with the file.
  client = MakeFormat(3, 1, 8000, 32);
  ASSERT_EQ(QnAudioStream_OpenFile(&stream, other.Path(), 0, 46, &format, &client, nullptr, 0x40000), S_OK);
  std::vector<float> floats(50);
  EXPECT_EQ(QnAudioStream_Read(stream, floats.data(), 50, &count), S_OK);
  EXPECT_EQ(std::tuple(count, floats[45], floats[46]), std::tuple(46, -1.0f, 0.0f));
  EXPECT_EQ(QnAudioStream_GetWfx(stream, &format, QNST_PCM24), S_OK);
  EXPECT_EQ(BytesOf(format), BytesOf(MakeFormat(1, 1, 8000, 24)));
  EXPECT_EQ(QnAudioStream_GetMetric(stream, 2), 24576u);
  EXPECT_EQ(QnAudioStream_Write(stream, floats.data(), 1, &count), MakeStatus(0x8003001D));
  EXPECT_EQ(QnAudioStream_CloseFiles(stream), S_OK);
  EXPECT_EQ(QnAudioStream_Read(stream, floats.data(), 50, &count, 0, QNST_NONE), kSeekFault);
  EXPECT_EQ(QnAudioStream_Free(stream), S_OK);
}

TEST(QnAudioStream, KnowsTypesThatAPlainFormatDoesNotSay) {
  WAVEFORMATEXTENSIBLE record{MakeFormat(0xFFFE, 1, 8000, 32), {24}, 0, KSDATAFORMAT_SUBTYPE_PCM};
  record.Format.cbSize = 22;
  TestFile file(RiffShape::Form(RiffShape::Chunk("fmt ", BytesOf(record)) +
                                RiffShape::Chunk("data", Le(0x400000, 4) + Bytes(400, 0xFF))));
  WAVEFORMATEX format, other = MakeFormat(QNWAVETAG_BIGENDIAN, 1, 8000, 16);
  HQNAUDIOSTREAM named, given, clone;
  QnAudioStream_Allocate(&named);
  ASSERT_EQ(QnAudioStream_Initialize(named, &format, file.Path(), 0x20003), S_OK);
  EXPECT_EQ(BytesOf(format), BytesOf(MakeFormat(1, 1, 8000, 32)));
  ASSERT_EQ(QnAudioStream_OpenFile(&given, file.Path(), 68, 101, &record.Format, nullptr, nullptr, 3), S_OK);
  QnAudioStream_Allocate(&clone);
  ASSERT_EQ(QnAudioStream_Clone(named, clone, &format, 0, 9), S_OK);
  float sample = 0;
  DWORD count;
  EXPECT_EQ(QnAudioStream_ReopenFiles(clone), S_OK);
  for (const auto stream : {named, given, clone}) {
    EXPECT_EQ(QnAudioStream_Read(stream, &sample, 1, &count, 0, QNST_FLOAT32), S_OK);
    EXPECT_EQ(sample, 0.5f);
  }
  EXPECT_EQ(QnAudioStream_Close(clone), S_OK);

  // No copy leads to the other type: nothing is written, not what lies in memory.
  TestFile target;
  ASSERT_EQ(QnAudioStream_OpenFile(&clone, target.Path(), 0, 0, &other, nullptr, nullptr, 0x10000), S_OK);
  QnAudioStream_FreeBuffer(clone, std::memset(QnAudioStream_GetBuffer(clone, 99), 0xEE, 198));
  EXPECT_EQ(QnAudioStream_CopyTo(given, clone, 99, &count, nullptr), S_OK);
  EXPECT_EQ(target.Content(), Bytes(198));
  for (const auto stream : {named, given, clone}) QnAudioStream_Close(stream);
}

}  // namespace
