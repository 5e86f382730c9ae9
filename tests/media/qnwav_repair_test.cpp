#include "tests/media/media_file.h"

namespace {

using namespace qntest;

// Either container through one door.
HRESULT Fix(bool wave64, HANDLE file, const WAVEFORMATEX* format, int64_t limit) {
  return wave64 ? QnFixTrashedW64(file, format, limit)
                : QnFixTrashedWav(file, format, static_cast<uint32_t>(limit));
}

// The repaired file is the undamaged one, byte for byte, and a second repair changes nothing.
TEST(QnWavRepair, BringsBackDamagedRecordings) {
  const std::string name = "/usr/share/sounds/alsa/Noise.wav";
  if (!std::filesystem::exists(name)) GTEST_SKIP() << "needs the recordings of alsa-utils";
  const Bytes recording = ReadFileBytes(name);
  const Bytes samples(recording.begin() + 44, recording.end());
  const WAVEFORMATEX format = MakeFormat(1, 1, 48000, 16);
  for (const bool wave64 : {false, true}) {
    for (const int end : {wave64 ? 112 : 46, 136, 512, 8192}) {
      TestFile reference(Bytes(static_cast<size_t>(end)) + samples + Bytes(end == 512 ? 1 : 0));
      ASSERT_EQ(Fix(wave64, reference, &format, end), S_OK);
      const Bytes whole = reference.Content();
      // From the ids and sizes of the file, its format and its samples' chunk to one another.
      const int riff[] = {0, 4, 8, 12, 20, 38, end - 8, end - 4, end};
      const int riff64[] = {0, 4, 16, 24, 64, 88, end - 24, end - 8, end};
      const int* const places = wave64 ? riff64 : riff;
      for (int i = 0; i < 9 * 9 * 2; ++i) {
        const int from = places[i % 9], to = places[i / 9 % 9];
        SCOPED_TRACE(std::to_string(end) + ": " + std::to_string(from) + " to " + std::to_string(to));
        Bytes spoilt = whole;
        std::fill(spoilt.begin() + from, spoilt.begin() + std::max(from, to), i < 9 * 9 ? 0 : 0xFF);
        TestFile damaged(spoilt);
        damaged.Go(5);
        for (const WAVEFORMATEX* defaults : {&format, static_cast<const WAVEFORMATEX*>(nullptr)}) {
          ASSERT_EQ(Fix(wave64, damaged, defaults, end), S_OK);
          ASSERT_TRUE(damaged.Content() == whole && damaged.At() == 5);
        }
      }
    }
  }
}

// What stands at the record's place, and what is made of it.
TEST(QnWavRepair, SanitisesFieldByField) {
  const WAVEFORMATEX integer = MakeFormat(1, 6, 96000, 64), floating = MakeFormat(3, 4, 1000, 64);
  const WAVEFORMATEX eight = MakeFormat(0xFE01, 1, 8000, 8);
  std::tuple<WAVEFORMATEX, const WAVEFORMATEX*, WAVEFORMATEX> cases[] = {
      {MakeFormat(1, 2, 48000, 16), nullptr, MakeFormat(1, 2, 48000, 16)},
      {MakeFormat(0, 0, 0, 0), nullptr, MakeFormat(1, 2, 44100, 16)},
      {MakeFormat(1, 1, 2000, 24), &integer, MakeFormat(1, 1, 2000, 24)},
      {MakeFormat(3, 2, 192000, 64), &integer, MakeFormat(3, 2, 192000, 64)},
      {MakeFormat(2, 3, 1999, 20), &integer, MakeFormat(1, 6, 96000, 32)},
      {MakeFormat(2, 3, 192001, 20), &floating, MakeFormat(3, 4, 1000, 64)},
      {MakeFormat(1, 2, 44100, 64), &floating, MakeFormat(1, 2, 44100, 32)},
      {MakeFormat(3, 2, 44100, 16), &eight, MakeFormat(3, 2, 44100, 32)},
      {MakeFormat(0xFFFE, 9, 1, 9), &eight, eight}};
  for (auto [stored, defaults, expected] : cases) {
    stored.cbSize = 22;
    stored.nBlockAlign = 1;
    for (const bool wave64 : {false, true}) {
      const int at = wave64 ? 64 : 20;
      TestFile file(Bytes(static_cast<size_t>(at)) + BytesOf(stored) + Bytes(900));
      EXPECT_EQ(Fix(wave64, file, defaults, 200), S_OK);
      const Bytes content = file.Content();
      EXPECT_EQ(Bytes(content.begin() + at, content.begin() + at + 18), BytesOf(expected));
    }
  }
  const WAVEFORMATEX useless = MakeFormat(1, 0, 44100, 16);
  TestFile file(Bytes(1000));
  EXPECT_EQ(Fix(true, file, &useless, 200), QN_E_MEDIA_TYPE);
}

// Where the samples are found to start, in files of 0x01 (a walk over which fails) with text put in.
TEST(QnWavRepair, FindsTheSamples) {
  // Where which text is, and the limit; a start of 0 is one that no header can end at. In turn: across the
  // first block's end; at an odd place; in the block that reaches the limit; behind it; one block more; none
  // at all; before the record's end; in the file's last bytes; behind a chunk that the walk passes, and that
  // it has no budget for.
  using Row = std::tuple<bool, uint64_t, std::string, int64_t, uint64_t>;
  const std::string tag = "'data'", guid = tag + " F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A",
                    chunks = "'JUNK' 08 00 00 00 'dataxxxx' 'data'";
  for (const auto& [wave64, place, text, limit, start] :
       {Row(false, 4132, tag, 9000, 4140), Row(false, 4131, tag, 9000, 0), Row(false, 400, tag, 100, 408),
        Row(false, 5000, tag, 4134, 4134), Row(false, 5000, tag, 4136, 5008),
        Row(false, 0, "", 1 << 20, 9000), Row(false, 34, tag, 60, 60), Row(false, 8996, tag, 9000, 9004),
        Row(false, 38, chunks, 100, 62), Row(false, 38, chunks, 23, 54), Row(true, 4176, guid, 9000, 4200),
        Row(true, 4170, guid, 9000, 0), Row(true, 88, "*16 1A *7 *8 " + guid, 4096, 144),
        Row(true, 400, tag, 4095, 4088), Row(true, 0, "", -9, 0)}) {
    SCOPED_TRACE(std::to_string(place) + " " + std::to_string(limit));
    TestFile file(Bytes(9000, 1));
    file.Put(place, Hex(text));
    const Bytes before = file.Content();
    file.Go(3);
    EXPECT_EQ(Fix(wave64, file, nullptr, limit), start ? S_OK : QN_E_CHUNK_SIZE);
    EXPECT_EQ(std::tuple(file.At(), file.Content() == before), std::tuple(3, !start));
    file.Close();
    const AudioFile found(file.Path());
    const uint64_t frames = start ? (9000 - std::min<uint64_t>(start, 9000)) / 4 : 77;
    EXPECT_EQ(std::tuple(found.start, found.frames), std::tuple(start ? start : 77, frames));
  }
  for (size_t length : {37, 38, 81, 82}) {
    TestFile file{Bytes(length)};
    EXPECT_EQ(Fix(length > 80, file, nullptr, 100), length % 2 ? kShort : QN_E_CHUNK_SIZE) << length;
  }
}

TEST(QnWavRepair, CountsWholeFramesOfFilesOfAnySize) {
  constexpr uint64_t kGiB = uint64_t{1} << 30;
  for (uint64_t length : {uint64_t{5099}, 2 * kGiB + 1, 4 * kGiB - 1, 4 * kGiB, 4 * kGiB + 5, 5 * kGiB}) {
    for (const bool wave64 : {false, true}) {
      TestFile file;
      file.Put(length - 1, {0});
      EXPECT_EQ(Fix(wave64, file, nullptr, 4096), S_OK);
      file.Close();
      const AudioFile found(file.Path());
      // As many as the RIFF size can count.
      const uint64_t counted = wave64 ? length : std::min(length, 4 * kGiB + 7);
      EXPECT_EQ(std::tuple(found.start, found.frames, file.Length()),
                std::tuple(4096, (counted - 4096) / 4, length));
    }
  }
}

}  // namespace
