#include "qn/kernel/qnpath.h"
#include "qn/platform/text.h"
#include "tests/media/peak_media.h"

namespace {

using namespace qntest;
using Calls = std::vector<LONGLONG>;

// A media, a progress, and a peak object that starts anew when that is asked for.
struct PeakTest : testing::Test, PeakMedia, IQnAudioPeakProgress {
  PeakTest() { samples.assign(60000, 7); }
  ~PeakTest() { Release(); }
  void Release() {
    if (peak) std::exchange(peak, nullptr)->Release();
  }
  HRESULT Create(LONG flags = 0, size_t resolution = 256) {
    Release();
    return QnAudioPeak_CreateInstance(&peak, this, nullptr, temp.c_str(), DWORD(resolution), ~0u, flags);
  }
  bool Exists(const std::u16string& path) { return QnDoesFileExist(path.c_str(), FALSE); }
  std::u16string PeakName() {
    WCHAR text[260];
    EXPECT_EQ(peak->GetPeakFileName(text, 260), S_OK);
    return text;
  }
  std::vector<DWORD> Header() {
    std::vector<DWORD> words(16);
    peak->GetHeader(words.data(), 64);
    return words;
  }

  HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) override {
    EXPECT_EQ(limit, std::min<LONGLONG>(length - position, 0x10000000));
    return PeakMedia::Read(position, limit, buffer, frames, got);
  }
  LONGLONG GetLength() override { return length; }
  HRESULT Rename(const WCHAR* to) override { return name = to, S_OK; }

  void Reserved() override {}
  LONG Begin(const WCHAR*, LONGLONG total) override { return calls = {total}, cancelAt != 1; }
  LONG Update(LONGLONG done) override {
    unfinished = ReadFileBytes(folder.Native("m.qnk"));
    peak->GetPeaks(0, 512, painted, 1, &pixels);  // as a host that paints meanwhile
    return calls.push_back(done), cancelAt != calls.size();
  }
  void End(HRESULT status) override { calls.push_back(status); }

  std::u16string temp = folder.Path("");
  LONGLONG length = 30000;
  Bytes unfinished;
  Calls calls;
  size_t cancelAt = 0;
  int16_t painted[2];
  DWORD pixels;
};

TEST_F(PeakTest, Names) {
  const std::u16string n(300, W('n'));
  const std::tuple<std::u16string, LONG, std::u16string> kRows[] = {
      {W("\\a.wav\\t1.wav"), -1, W("\\a.wav\\t1.qnk")},
      {W("C:take.WaV"), 2, W("C:take.qnk2")},
      {W("t.wav.bak"), -1, W("t.wav.bak.qnk")},
      {n, 12, n.substr(0, 253) + W(".qnk12")}};
  for (const auto& [media, number, expected] : kRows) {
    name = media, stream = number;
    EXPECT_TRUE(Create() == S_FALSE && PeakName() == expected) << qn::ToUtf8(media);
  }
  // Temporary names count on; one that a file has is passed over, that of a directory counts as free.
  Create(QNAUDIOPEAK_ALWAYSTEMP);
  const auto first = 10000 + std::stoi(qn::PathToNative(PeakName()).substr(folder.Native("QNK").size()));
  const auto tempName = [&](int i) { return "QNK" + std::to_string(first + i).substr(1) + ".TMP"; };
  WriteFileBytes(folder.Native(tempName(1)), {});
  std::filesystem::create_directory(folder.Native(tempName(2)));
  temp.pop_back();
  for (int i : {2, 3}) {
    Create(QNAUDIOPEAK_ALWAYSTEMP);
    EXPECT_EQ(PeakName(), folder.Path(tempName(i)));
  }
  EXPECT_TRUE(peak->Build(0, nullptr) == S_OK && Exists(folder.Path(tempName(3))));
  Release();
  EXPECT_FALSE(Exists(folder.Path(tempName(3))));
}

TEST_F(PeakTest, BuildsLikeTheRule) {
  // A source type, and what it is reduced as: 0 is the peak type.
  const int kRows[][2] = {{16, 16}, {17, 17}, {18, 18}, {19, 19}, {32, 32}, {33, 33},
                          {49, 49}, {64, 17}, {65, 18}, {66, 19}, {48, 0}};
  for (const auto& [sourceType, reducedAs] : kRows) {
    const auto type = QNSAMPLETYPE(sourceType);
    for (const uint64_t frames : {0, 1, 64, 65, 1000, 4099, 70001}) {
      const DWORD peakType = frames % 2 ? 17 : 49, channels = frames == 1000 ? 40 : 1 + Random()() % 3;
      const uint64_t resolution = 64 + Random()() % 200, blocks = (frames + resolution - 1) / resolution;
      QnAudio_InitWfx(&format, 48000, type, channels);
      length = LONGLONG(frames);
      ended = frames == 1000 ? MakeStatus(0x800A0026) : frames == 4099 ? S_OK : S_FALSE;
      samples.resize((frames - frames / 50) * format.nBlockAlign);
      for (auto& byte : samples) byte = static_cast<uint8_t>(Random()() % 120);
      Create(0, resolution);
      EXPECT_EQ(peak->Build(QNAUDIOPEAK_BUILD_FORCE | (peakType == 17), nullptr), S_OK);

      // All in one go, the missing frames silent.
      samples.resize(frames * format.nBlockAlign, type == 16 ? 0x80 : 0);
      const auto reduced = QNSAMPLETYPE(reducedAs ? reducedAs : int(peakType));
      const auto copy = QnAudio_GetCopyFunction2(reduced, type);
      copy(samples.data(), samples.data(), LONG(frames * channels), 1.0f);
      tQNAUDIOPEAK_SAMPLESMINMAX state[2];
      QnAudioPeak_InitMinMaxArray(reduced, channels, state);
      const DWORD step = blocks ? DWORD((blocks / 2 + frames * 16384) / blocks) : 0;
      DWORD left = DWORD(frames), phase = 0;
      const void* from = samples.data();
      Bytes pairs(blocks * channels * (peakType == 17 ? 4 : 2)), expected;
      for (DWORD b = 0; b < blocks; phase = left ? phase : step) {
        b += DWORD(QnAudioPeak_CalcMinMax(reduced, peakType, pairs.data(), b * channels * 2, step, &from,
                                          &left, &phase, channels, state));
      }
      const DWORD local = QnDosGetDateTime(name.c_str()), utc = QnDosGetDateTimeUTC(name.c_str());
      const uint64_t kHeader[] = {0x4B504E51, 1,          64,     local, peakType == 17 ? 16u : 8,
                                  channels,   resolution, frames, 0,     utc};
      for (uint64_t word : kHeader) expected = expected + Le(word, 4);
      EXPECT_EQ(ReadFileBytes(folder.Native("m.qnk")), expected + Bytes(24) + pairs)
          << type << " " << frames << " " << channels << " " << resolution;
      EXPECT_EQ(Create(), S_OK);
    }
  }
}

TEST_F(PeakTest, Validity) {
  Create();
  peak->Build(0, nullptr);
  const Bytes good = ReadFileBytes(folder.Native("m.qnk"));
  // The word that is written and where, the length of the file and of the media, and whether that is valid.
  const LONGLONG kRows[][5] = {
      {12, 0, 63, 30000, 0},          {12, 0x1234, 300, 30000, 1},     {36, 0x1234, 300, 30000, 0},
      {0, 0x4B504E50, 300, 30000, 0}, {4, 0, 300, 30000, 1},           {4, 2, 300, 30000, 0},
      {8, 63, 300, 30000, 0},         {8, 0xFFFFFFFF, 300, 30000, 0},  {16, 16, 300, 30000, 0},
      {16, 12, 300, 30000, 0},        {20, 2, 300, 30000, 0},          {24, 63, 300, 30000, 0},
      {24, 0x1000001, 300, 30000, 0}, {60, 0, 300, 30999, 1},          {60, 0, 300, 31000, 0},
      {60, 0, 300, 29001, 1},         {60, 0, 300, 29000, 0},          {60, 0, 298, 29696, 1},
      {60, 0, 299, 30000, 0},         {32, 0x80000000, 300, 30000, 0}, {36, 0, 300, 30000, 1}};
  for (const auto& [place, word, size, frames, valid] : kRows) {
    Release();
    Bytes file = good;
    std::ranges::copy(Le(uint64_t(word), 4), file.begin() + place);
    file.resize(size_t(size));
    WriteFileBytes(folder.Native("m.qnk"), file);
    length = frames;
    EXPECT_EQ(Create(QNAUDIOPEAK_READONLY), valid ? S_OK : S_FALSE) << place << " " << size << " " << frames;
    EXPECT_EQ(peak->IsValid(0), valid);
  }
  // The media has changed; the header follows though the object may only read.
  std::filesystem::last_write_time(folder.Native("m.wav"), std::filesystem::file_time_type());
  EXPECT_TRUE(!peak->IsValid(0) && peak->UpdateHeader() == S_OK && Create() == S_OK);
}

TEST_F(PeakTest, Builds) {
  constexpr DWORD kRefine = QNAUDIOPEAK_BUILD_REFINE, kForce = QNAUDIOPEAK_BUILD_FORCE;
  constexpr DWORD kDiscard = QNAUDIOPEAK_BUILD_DISCARD | kForce;
  constexpr LONGLONG kCancel = QN_E_CANCELLED, kAll = 100000;
  samples.resize(200000, 7);
  length = kAll;
  // Flags, the call that cancels, the status, the calls, and what the header says then.
  const std::tuple<DWORD, size_t, HRESULT, Calls, DWORD, DWORD, DWORD> kRows[] = {
      {kForce | 2, 1, QN_E_CANCELLED, {kAll, kCancel}, 0, 256, 8},
      {kForce | 2, 2, QN_E_CANCELLED, {kAll, 30000, kCancel}, 0, 256, 8},
      {kDiscard, 2, QN_E_CANCELLED, {10000, 3000, kCancel}, 0, 0x200000, 8},
      {0, 0, S_OK, {10000, 3000, 6000, 9000, 10000, 0}, kAll, 256, 8},
      {kRefine, 0, QN_S_PEAKS_VALID, {}, kAll, 256, 8},
      {kRefine | 3, 0, S_OK, {kAll, 30000, 60000, 90000, kAll, 0}, kAll, 256, 16},
      {kDiscard | 6, 2, S_OK, {kAll, 30000, kCancel}, 30000, 256, 8}};
  for (const auto& [flags, call, status, expected, covered, resolution, bits] : kRows) {
    cancelAt = call, calls = {};
    Create();
    peak->SetKeepOpen(0, 0);
    EXPECT_EQ(peak->Build(flags, this), status);
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(std::tuple(Header()[7], Header()[6], Header()[4]), std::tuple(covered, resolution, bits));
    EXPECT_EQ(Exists(PeakName()), status != QN_E_CANCELLED);
  }
  // The finished blocks are in the file that was kept, and no older ones.
  const Bytes kept = ReadFileBytes(folder.Native("m.qnk"));
  EXPECT_EQ(std::count(kept.begin() + 64, kept.end(), 7), 117 * 2);
}

TEST_F(PeakTest, FailuresLeaveNoFile) {
  constexpr LONGLONG kHuge = std::numeric_limits<LONGLONG>::max();
  std::filesystem::create_symlink("/dev/full", folder.Native("full.qnk"));
  // The media, the folder of temporary files, length, bits, what opening gives, and the status of a build.
  const std::tuple<const char*, const char*, LONGLONG, WORD, HRESULT, HRESULT> kRows[] = {
      {"m.wav", "", 30000, 16, QN_E_FILE_OPEN, QN_E_FILE_OPEN}, {"m.wav", "", 30000, 12, S_OK, E_INVALIDARG},
      {"m.wav", "", kHuge, 16, S_OK, QN_E_FILE_WRITE},          {"m.wav", "", kHuge >> 20, 16, S_OK, E_FAIL},
      {"full.wav", "", 30000, 16, S_OK, QN_E_FILE_WRITE},       {"no/m.wav", "", 30000, 16, S_OK, S_OK},
      {"no/m.wav", "no/", 30000, 16, S_OK, QN_E_FILE_CREATE},   {"m.wav", "", -5, 16, S_OK, S_OK}};
  for (const auto& [media, tempFolder, frames, bits, opening, status] : kRows) {
    name = folder.Path(media), temp = folder.Path(tempFolder);
    length = frames, opens = opening, format.wBitsPerSample = bits;
    Create();
    EXPECT_EQ(peak->Build(0, nullptr), status) << media << " " << frames << " " << bits;
    EXPECT_TRUE(Exists(PeakName()) == SUCCEEDED(status) && peak->IsValid(0) == SUCCEEDED(status));
  }
  // A media of a long name, which is that of its own peak file when it is cut.
  name = folder.Path("");
  name = name.append(255 - name.size(), W('n')) + W(".qnk");
  WriteFileBytes(qn::PathToNative(name), {1});
  Create();
  EXPECT_TRUE(peak->Build(0, nullptr) == S_OK && ReadFileBytes(qn::PathToNative(name)) == Bytes{1});
}

TEST_F(PeakTest, Life) {
  // What a killed build leaves is not valid, even for a media that is no file and has no time.
  name = folder.Path("m");
  Create(QNAUDIOPEAK_HIDDEN);
  EXPECT_TRUE(peak->Build(0, this) == S_OK && peak->IsValid(0));
  const auto old = PeakName(), made = folder.Path("new.qnk");
  EXPECT_EQ(QnAudioPeak_HandleMediaRename(peak, folder.Path("new").c_str()), S_OK);
  EXPECT_TRUE(GetFileAttributesW(made.c_str()) & FILE_ATTRIBUTE_HIDDEN && !Exists(old));
  WriteFileBytes(folder.Native("m.qnk"), unfinished);
  EXPECT_EQ(QnAudioPeak_HandleMediaRename(peak, folder.Path("m").c_str()), QN_E_FILE_WRITE);
  EXPECT_EQ(PeakName(), made);
  EXPECT_TRUE(Create(QNAUDIOPEAK_TEMPFALLBACK) == S_FALSE && PeakName() == old && !peak->IsValid(0));
  Release();
  EXPECT_TRUE(Exists(old));

  const auto create = [&](const WAVEFORMATEX* as) {
    return QnAudioPeak_CreateMemoryInstance(&peak, nullptr, as, samples.data(), length, 100, 0);
  };
  EXPECT_TRUE(create(nullptr) == QN_E_FILE_OPEN && !peak);
  EXPECT_TRUE(create(&format) == S_FALSE && peak->SetKeepOpen(1, 1) == QN_E_FILE_OPEN);
  EXPECT_TRUE(peak->Build(1, this) == S_OK && peak->Build(1, this) == QN_S_PEAKS_VALID);
  DWORD info[5];
  peak->GetInfo(&info[0], &info[1], &info[2], &info[3], &info[4]);
  EXPECT_EQ(std::vector(info, info + 5), std::vector<DWORD>({17, 100, 17, 100, 17}));
  EXPECT_TRUE(peak->UpdateHeader() == S_FALSE && peak->IsValid(0));
  Release();
  length = 0x20001 * 100;
  EXPECT_TRUE(create(&format) == S_FALSE && peak->Build(1, this) == E_INVALIDARG);
}

}  // namespace
