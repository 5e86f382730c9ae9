// `qnwave tags`: texts listed, set and deleted, with all else byte for byte.
#include <sys/stat.h>

#include <filesystem>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

// "title=Text artist=..." of a file, in its order, from the JSON.
std::string TagsOf(const std::string& path, const std::string& field = ".text", int exit = 0) {
  const ToolRun run = Qnwave({"tags", "--json", path});
  EXPECT_EQ(run.exit, exit) << run.err;
  return Jq(run.out, "[.[0].tags[] | (.name // .id) + \"=\" + " + field + "] | join(\" \")");
}

ToolRun Change(const std::string& path, std::vector<std::string> words, const std::string& before = "") {
  words.insert(words.begin(), {"tags", path});
  return Qnwave(words, before);
}

// What ffprobe knows of a file's tags, and the checksum of the samples that ffmpeg reads.
std::string Probed(const std::string& path, const std::string& key) {
  std::string text;
  RunCommand("ffprobe -v error -of default=nk=1:nw=1 -show_entries format_tags=" + key + " " + path, &text);
  return text.substr(0, text.find('\n'));
}

std::string AudioSum(const std::string& path) {
  std::string sum;
  EXPECT_EQ(RunCommand("ffmpeg -v error -i " + path + " -f md5 -", &sum), 0) << path;
  return sum;
}

ino_t Inode(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_ino;
}

class TagsOfPrograms : public ToolTest, public testing::WithParamInterface<const char*> {};

TEST_P(TagsOfPrograms, AreSetAndDeletedAndOtherProgramsSeeIt) {
  const std::string command = GetParam();
  const std::string path = Path(command.find("w64") != std::string::npos ? "x.w64" : "x.wav");
  Make(command, kRecording, path);
  const std::string sum = AudioSum(path);
  const std::string before = TagsOf(path);
  // Longer and shorter than what is there, in scripts of all sizes.
  for (const char* title : {"x", "Grüße", "録音 №1 🎵, ein langer Titel für alle", "kürzer", ""}) {
    const ToolRun run =
        Change(path, {"--set", std::string("title=") + title, "--set=ZZ 1=odd", "--delete", "artist"});
    ASSERT_EQ(run.exit, 0) << run.err;
    EXPECT_EQ(Probed(path, "title"), title);
    EXPECT_EQ(AudioSum(path), sum);
    EXPECT_EQ(Jq(Qnwave({"info", "--json", path}).out, ".[0] | .damaged, (.notes | length)"), "false\n0");
    const std::string now = TagsOf(path);
    EXPECT_EQ(now.find(std::string("title=") + title) == std::string::npos, *title == 0) << now;
    EXPECT_EQ(now.find("artist"), std::string::npos) << now;
    EXPECT_NE(now.find("ZZ 1=odd"), std::string::npos) << now;
    // What nobody named is still there.
    EXPECT_EQ(now.find("software=Lavf") != std::string::npos,
              before.find("software=Lavf") != std::string::npos);
  }
  EXPECT_EQ(Change(path, {"--clear", "--set", "genre=Test"}).exit, 0);
  EXPECT_EQ(TagsOf(path), "genre=Test");
  EXPECT_EQ(AudioSum(path), sum);
}

INSTANTIATE_TEST_SUITE_P(Programs, TagsOfPrograms,
                         testing::Values("sox %i %o", "sox %i -b 24 -c 1 %o trim 0 4801s", "sox %i %o # w64",
                                         "ffmpeg -v error -i %i -metadata artist=A -metadata title=Alt %o",
                                         "ffmpeg -v error -i %i %o # w64"));

template <class Kind>
Bytes Form(const Bytes& front, const Bytes& back, size_t samples = 201) {
  return Kind::Form(Kind::Chunk("fmt ", Record(1, 1, 8000, 8)) + front +
                    Kind::Chunk("data", Bytes(samples, 0x90)) + back);
}

// The chunk of texts of a Wave64 file.
Bytes Summary(const std::string& items) {
  return Wave64Shape::Chunk(Hex("BC 94 5F 92 5A 52 D2 11 86 DC 00 C0 4F 8E DB 8A"), Hex(items));
}

const Bytes kOdd = Wav::Chunk("abcd", {1, 2, 3});
Bytes Item(const std::string& id, const std::string& text) {
  return Wav::Chunk(id, Wav::Name(text) + Bytes(1));
}

struct Tags : ToolTest {
  const std::string path = Path("x.wav");
};

TEST_F(Tags, KeepEverythingElseByteForByte) {
  const Bytes adtl = Wav::List("adtl", Noise(9)), latin = Wav::Chunk("IART", Hex("4D FC 00 00 00"));
  const Bytes list = Wav::List("INFO", Item("INAM", "Title") + latin), junk = Wav::Chunk("JUNK", Bytes(100));
  const auto info = [&](const std::string& title) { return Wav::List("INFO", Item("INAM", title) + latin); };
  // What is given to --set, the file before and after it, and whether that is done in place.
  const std::tuple<std::string, Bytes, Bytes, bool> kRows[] = {
      {"other", Form<Wav>(kOdd + list + adtl, kOdd), Form<Wav>(kOdd + info("other") + adtl, kOdd), true},
      {"longer one", Form<Wav>(kOdd + list + adtl, kOdd), Form<Wav>(kOdd + info("longer one") + adtl, kOdd),
       false},
      {"longer one", Form<Wav>(list + junk, kOdd),
       Form<Wav>(info("longer one") + Wav::Chunk("JUNK", Bytes(94)), kOdd), true},
      {"longer one", Form<Wav>(adtl, kOdd + list), Form<Wav>(adtl, kOdd + info("longer one")), true},
      {"longer one", Form<Wav>(adtl, list + kOdd), Form<Wav>(adtl, info("longer one") + kOdd), false},
      {"new", Form<Wav>(junk, kOdd), Form<Wav>(junk, kOdd + Wav::List("INFO", Item("INAM", "new"))), true},
      {"Title", Form<Wav>(list, {}), Form<Wav>(list, {}), true}};
  for (const auto& [title, before, after, inPlace] : kRows) {
    SCOPED_TRACE(title);
    WriteFileBytes(path, before);
    const ino_t inode = Inode(path);
    ExpectRun(Change(path, {"--set", "title=" + title}), 0, "");
    EXPECT_EQ(ReadFileBytes(path), after);
    EXPECT_EQ(Inode(path) == inode, inPlace);
    // The same into another file, which it overwrites only when told to.
    WriteFileBytes(path, before);
    const std::string out = Path("out.wav");
    EXPECT_EQ(Change(path, {"--set", "title=" + title, "--output", out, "--force"}).exit, 0);
    EXPECT_EQ(ReadFileBytes(path), before);
    EXPECT_EQ(TagsOf(out).find("title=" + title), 0u);
    EXPECT_EQ(Change(path, {"--clear", "--output", out}).exit, 1);
    EXPECT_EQ(Names(), (std::vector<std::string>{"out.wav", "x.wav"}));
  }
}

TEST_F(Tags, ReadAndWriteTheCodePageAndWideText) {
  const Bytes wide =
      Wav::List("UNFO", Wav::Chunk("ICMT", Hex("E5 65 00 00")) + Wav::Chunk("INAM", Hex("41 00 00 00")));
  WriteFileBytes(path, Form<Wav>(Wav::List("INFO", Wav::Chunk("IART", Hex("80 DC 00")) + Item("INAM", "A") +
                                                       Item("ICOP", "\xC3\x9C")) +
                                     wide,
                                 {}));
  EXPECT_EQ(TagsOf(path), "artist=€Ü title=A copyright=Ü comment=日");
  EXPECT_EQ(TagsOf(path, ".encoding"), "artist=1252 title=UTF-16 copyright=UTF-8 comment=UTF-16");
  EXPECT_EQ(TagsOf(path, ".list"), "artist=INFO title=INFO+UNFO copyright=INFO comment=UNFO");
  EXPECT_EQ(Jq(Qnwave({"tags", "--json", "--code-page=1251", path}).out, ".[0].tags[0].text"),
            "Ђ"
            "Ь");
  // The code page holds the first, lacks the second, and would read the third as UTF-8.
  const ToolRun run =
      Change(path, {"--code-page", "1252", "--set", "artist=Éé", "--set", "title=Ωé", "--set", "album=Ã©"});
  ExpectRun(run, 0, "title");
  EXPECT_NE(run.err.find("album"), std::string::npos) << run.err;
  EXPECT_EQ(TagsOf(path), "artist=Éé copyright=Ü comment=日 title=Ωé album=Ã©");
  EXPECT_EQ(TagsOf(path, ".list"), "artist=INFO copyright=INFO comment=UNFO title=UNFO album=UNFO");
  EXPECT_EQ(Change(path, {"--set", "title=Ωé"}).exit, 0);
  EXPECT_EQ(TagsOf(path, ".list"), "artist=INFO copyright=INFO title=INFO+UNFO comment=UNFO album=UNFO");
  // A text that another program has changed in one list alone.
  WriteFileBytes(path, Form<Wav>(Wav::List("INFO", Item("INAM", "B")) + wide, {}));
  EXPECT_NE(Qnwave({"tags", path}).err.find("title"), std::string::npos);
}

TEST_F(Tags, ListDamagedListsAsFarAsTheyGoAndLeaveThem) {
  const Bytes item = Item("IART", "A"), lie = Hex("'INAM' F0 FF FF FF 'abc'"), zeros(400000);
  Bytes empty;
  for (int i = 0; i < 200000; ++i) empty.insert(empty.end(), {'I', 'C', 'M', 'T', 0, 0, 0, 0});
  const std::tuple<Bytes, const char*, int> kRows[] = {
      {Form<Wav>(Wav::List("INFO", item + lie), {}), "artist=A title=abc", 3},
      {Form<Wav>(Wav::List("INFO", item + Hex("01 02 03 04 *9")), {}), "artist=A", 3},
      {Form<Wav>({}, Hex("'LIST' FF 00 00 00 'INFO'") + item + lie), "artist=A title=abc", 3},
      {Form<Wav>(Wav::List("INFO", item + Bytes(5'000'000, 'x')), {}), nullptr, 3},
      {Wav::Form(Wav::List("INFO", item) + Wav::Chunk("data", Noise(9))), "artist=A", 3},
      {Form<Wav>(Wav::List("INFO", zeros) + Wav::Chunk("LIST", zeros), {}), "", 0},
      {Form<Wav>(Wav::List("INFO", item + empty), {}), nullptr, 0},
      {Form<Wave64Shape>(Summary("FF FF FF 7F 'IART' 04 00 00 00 41 00 00 00"), {}), "artist=A", 3}};
  for (const auto& [bytes, tags, exit] : kRows) {
    WriteFileBytes(path, bytes);
    EXPECT_EQ(Qnwave({"tags", path}).exit, exit);
    EXPECT_EQ(tags ? TagsOf(path, ".text", exit) : "", tags ? tags : "");
    const ToolRun run = Change(path, {"--set", "title=x"});
    EXPECT_EQ(run.exit, exit) << run.err;
    if (exit == 0) continue;
    EXPECT_EQ(ReadFileBytes(path), bytes);
    const bool isList = run.err.find("--clear") != std::string::npos;
    EXPECT_NE(isList, run.err.find("qnwave repair") != std::string::npos) << run.err;
    if (!isList) continue;
    EXPECT_EQ(Change(path, {"--clear", "--set", "title=x"}).exit, 0);
    EXPECT_EQ(TagsOf(path), "title=x");
  }
  const std::string rf64 = Path("rf64.wav"), aiff = Path("x.aiff");
  Make("ffmpeg -v error -i %i -metadata title=T -rf64 always %o", kRecording, rf64);
  Make("sox %i %o", kRecording, aiff);
  EXPECT_EQ(TagsOf(rf64).find("title=T"), 0u);
  EXPECT_NE(Change(rf64, {"--clear"}).err.find("RF64"), std::string::npos);
  EXPECT_EQ(Change(aiff, {}).exit, 1);
}

TEST_F(Tags, AreOldOrNewWhenTheDiskIsFull) {
  const Bytes list = Wav::List("INFO", Item("INAM", "Title"));
  // In front of the samples, behind them, none; the limits are hit by the first write or by a later one.
  for (const Bytes& before :
       {Form<Wav>(list, {}, 9000), Form<Wav>({}, list, 9000), Form<Wav>({}, {}, 9000)}) {
    for (const char* limit : {"ulimit -f 1;", "ulimit -f 9;"}) {
      WriteFileBytes(path, before);
      ExpectRun(Change(path, {"--set", "title=" + std::string(5000, 'x')}, limit), 1, "(0x8004E0");
      EXPECT_EQ(ReadFileBytes(path), before);
      EXPECT_EQ(Names(), std::vector<std::string>{"x.wav"});
    }
  }
}

TEST_F(Tags, AreOldWhenTheDiskFailsAtTheEnd) {
  const std::string w64 = Path("x.w64");
  const Bytes list = Wav::List("INFO", Item("INAM", "Title")), junk = Wav::Chunk("JUNK", Bytes(40));
  const Bytes summary = Summary("01 00 00 00 'IART' 04 00 00 00 41 00 00 00");
  for (const auto& [name, before] :
       {std::pair(path, Form<Wav>({}, {})), std::pair(path, Form<Wav>({}, list)),
        std::pair(path, Form<Wav>({}, list + junk)), std::pair(w64, Form<Wave64Shape>({}, {}, 200)),
        std::pair(w64, Form<Wave64Shape>({}, summary, 200))}) {
    WriteFileBytes(name, before);
    ExpectRun(Change(name, {"--set", "title=" + std::string(99, 'x')},
                     "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" FAILING_FLUSH " "),
              1, "as they were");
    EXPECT_EQ(ReadFileBytes(name), before);
  }
}

TEST_F(Tags, AreNotWrittenBeyondWhatIsRead) {
  const Bytes list = Wav::List("INFO", Item("ICMT", std::string((4 << 20) - 60, 'x')));
  Bytes lists;
  const Bytes empty = Wav::List("INFO", {});
  for (int i = 0; i < 4096; ++i) lists.insert(lists.end(), empty.begin(), empty.end());
  for (const Bytes& before : {Form<Wav>({}, list), Form<Wav>({}, lists)}) {
    WriteFileBytes(path, before);
    EXPECT_EQ(
        Change(path, {"--set=title=" + std::string(99, 'x'), "--set=album=日", "--code-page=1252"}).exit, 1);
    EXPECT_TRUE(ReadFileBytes(path) == before);
    EXPECT_EQ(Change(path, {"--set=title=x"}).exit, 0);
    EXPECT_EQ(Qnwave({"tags", path}).exit, 0);
  }
  lists.insert(lists.end(), empty.begin(), empty.end());
  WriteFileBytes(path, Form<Wav>({}, lists));
  ExpectRun(Change(path, {"--clear"}), 3, "qnwave convert");
}

TEST_F(Tags, OfHugeFilesTakeNoMemoryAndEndAtFourGigabytes) {
  const std::string wav = Path("x.wav"), w64 = Path("x.w64");
  const uint64_t samples = 0xFFFFFFC0 - 36;
  const Bytes format = Wav::Chunk("fmt ", Record(1, 1, 8000, 8));
  MakeSparse(wav, Wav::Form(format + Hex("'data'") + Le(samples, 4), samples + 36), samples + 44);
  EXPECT_EQ(Change(wav, {"--set", "title=x"}, qntest::MemoryLimit(200000)).exit, 0);
  EXPECT_EQ(TagsOf(wav), "title=x");
  EXPECT_NE(Change(wav, {"--set", "title=" + std::string(99, 'x')}).err.find("4 GiB"), std::string::npos);
  EXPECT_EQ(TagsOf(wav), "title=x");
  // The list stands in front of the samples and grows: five gigabytes are written anew, as a sparse file.
  const uint64_t size = uint64_t{5} << 30;
  const Bytes front = Wave64Shape::Chunk("fmt ", Record(1, 1, 8000, 8)) +
                      Summary("01 00 00 00 'IART' 04 00 00 00 41 00 00 00");
  const Bytes start = Wave64Shape::Form(front + Wave64Shape::Header(Wave64Shape::Name("data"), size),
                                        40 + front.size() + 24 + size);
  MakeSparse(w64, start, start.size() + size);
  EXPECT_EQ(Change(w64, {"--set", "artist=Somebody"}, qntest::MemoryLimit(200000)).exit, 0);
  EXPECT_EQ(TagsOf(w64), "artist=Somebody");
  EXPECT_EQ(std::filesystem::file_size(w64), start.size() + size + 16);
  EXPECT_EQ(Jq(Qnwave({"info", "--json", w64}).out, ".[0] | .damaged, .frames"),
            "false\n" + std::to_string(size));
  struct stat status = {};
  EXPECT_EQ(stat(w64.c_str(), &status), 0);
  EXPECT_LT(status.st_blocks, 2000);
}

TEST_F(Tags, NamesAndIdsAreEitherForm) {
  WriteFileBytes(path, Form<Wav>({}, {}));
  EXPECT_EQ(
      Change(path, {"--set", "INAM=a=b", "--set", "Artist=c\nd", "--set", "date=1", "--set", "q=?1=2"}).exit,
      2);
  EXPECT_EQ(
      Change(path, {"--set", "INAM=a=b", "--set", "Artist=c\nd", "--set", "date=1", "--set", "q ?1=2"}).exit,
      0);
  EXPECT_EQ(TagsOf(path), "title=a=b artist=c\nd date=1 q ?1=2");
  EXPECT_NE(Qnwave({"tags", path}).out.find("artist        IART  c\\x0Ad\n"), std::string::npos);
  const Bytes before = ReadFileBytes(path);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"--delete", "nothing"},
                                                {"--set", "title"},
                                                {"--set", "title=\xE9"},
                                                {"--code-page", "7"},
                                                {"--delete", "id:\xC3\x84xy"},
                                                {"--clear", "--force"},
                                                {"x", "--output", "y"}}) {
    EXPECT_EQ(Change(path, words).exit, 2);
  }
  EXPECT_EQ(Change(path, {"--delete", "genre", "--set", "title=a=b"}).exit, 0);
  EXPECT_EQ(ReadFileBytes(path), before);
  // Ids that a name or a "=" hides.
  const std::vector<std::string> ids = {"--clear", "--set=id:DATE=1", "--set=id:ti=e=x=y", "--set=part=3",
                                        "--set=id:Part=2"};
  EXPECT_EQ(Change(path, ids).exit, 0);
  EXPECT_EQ(TagsOf(path), "DATE=1 ti=e=x=y part=3 Part=2");
  EXPECT_NE(Change(path, ids).out.find("nothing to change"), std::string::npos);
  EXPECT_EQ(Change(path, {"--delete", "id:ti=e", "--delete", "id:Part"}).exit, 0);
  EXPECT_EQ(TagsOf(path), "DATE=1 part=3");
}

}  // namespace
}  // namespace qntest
