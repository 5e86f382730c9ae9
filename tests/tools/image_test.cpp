// qnimage: pictures against what other programs read and write, known colours, and hostile files.
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

namespace fs = std::filesystem;

class Image : public ToolTest {
 protected:
  void Expect(const std::vector<std::string>& words, int exit = 0, const std::string& said = "") const {
    const ToolRun run = Qnimage(words, "cd " + Path(";"));
    EXPECT_EQ(run.exit, exit) << run.command << run.err;
    EXPECT_NE((run.out + run.err).find(said), std::string::npos) << run.command << said << run.out << run.err;
  }
  Pixels Card(const std::string& kind, const std::string& size, const std::string& level = "75") const {
    const std::string name = Path(kind + level + ".png");
    Expect({"card", name, "--kind", kind, "--size", size, "--level", level, "--force"});
    return Decode(name, static_cast<size_t>(std::atoi(size.c_str())));
  }
};

// Pixels of a picture: "x,y rrggbb" and so on.
void ExpectColours(const Pixels& pixels, const std::string& colours) {
  std::istringstream words(colours);
  for (std::string place, expected; words >> place >> expected;) {
    size_t x = 0, y = 0;
    std::sscanf(place.c_str(), "%zu,%zu", &x, &y);
    char found[8];
    std::snprintf(found, sizeof(found), "%06x", pixels.Colour(x, y));
    EXPECT_EQ(found, expected) << place;
  }
}

TEST_F(Image, CardsHaveTheirColours) {
  ExpectColours(Card("bars", "80x20"),
                "0,0 bfbfbf 9,19 bfbfbf 10,0 bfbf00 29,5 00bfbf 30,0 00bf00 45,9 bf00bf 55,9 bf0000 65,9 "
                "0000bf 79,19 000000");
  ExpectColours(Card("bars", "80x20", "100"), "0,0 ffffff 15,0 ffff00 65,0 0000ff");
  ExpectColours(Card("ramp", "256x16"),
                "0,0 000000 255,3 ffffff 100,1 646464 100,4 640000 7,8 000700 255,15 0000ff");
  ExpectColours(Card("grid", "121x61"),
                "0,30 ffffff 120,7 ffffff 60,7 ffffff 7,30 ffffff 65,7 ffffff 55,7 ffffff 62,32 000000");
  // A pixel of the zone plate on the axis is at a square number of steps from the middle.
  const Pixels zone = Card("zone", "65x33");
  for (size_t i = 0; i <= 32; ++i) {
    const double value = 127.5 * (1 + std::cos(M_PI * static_cast<double>(i * i) / 65));
    EXPECT_NEAR(zone.Red(32 + i, 16), value, 0.51) << i;
    EXPECT_EQ(zone.Red(32 + i, 16), zone.Red(32 - i, 16));
  }
}

// Each type stays what it is on its way through both kinds of file, and reading is what others read.
TEST_F(Image, TypesSurviveFilesAndOthersReadThem) {
  const auto name = Path("in.png"), bmp = Path("a.bmp"), png = Path("a.png");
  Expect({"card", name, "--kind=ramp", "--size=131x16", "--type=rgba64"});
  struct Row {
    const char* type;
    bool inPng, knownBmp;
  };
  const Row kRows[] = {{"palette1", true, true}, {"palette4", true, true},   {"palette8", true, true},
                       {"gray1", true, false},   {"gray2", true, false},     {"gray4", true, false},
                       {"gray8", true, false},   {"gray16", true, false},    {"gray32", false, false},
                       {"rgb555", false, false}, {"rgb565", false, false},   {"rgb24", true, true},
                       {"rgb32", false, true},   {"rgba32", true, true},     {"rgb30", false, false},
                       {"rgba64", true, false},  {"rgbafloat", false, false}};
  for (const Row& row : kRows) {
    const std::string type = std::string("--type=") + row.type;
    Expect({"convert", name, bmp, type, "--force"}, 0, row.type);
    Expect({"info", bmp, "--json"}, 0, std::string("\"type\": \"") + row.type);
    Expect({"convert", bmp, Path("b.bmp"), type, "--force"});
    // Work is done in floats, which have fewer bits.
    if (row.type != std::string("gray32")) {
      EXPECT_EQ(ReadFileBytes(bmp), Read("b.bmp")) << row.type;
    }
    Expect({"convert", name, png, type, "--force"}, row.inPng ? 0 : 2, row.type);
    if (!row.inPng) continue;
    Expect({"info", png, "--json"}, 0, std::string("\"type\": \"") + row.type);
    Expect({"convert", png, Path("b.bmp"), type, "--force"});
    EXPECT_EQ(ReadFileBytes(bmp), Read("b.bmp")) << row.type;
    if (row.knownBmp) {
      EXPECT_TRUE(PixelsOf(bmp, "rgba") == PixelsOf(png, "rgba")) << row.type;
    }
  }
}

TEST_F(Image, ReadsWhatOthersWrite) {
  const std::string out = Path("out.png");
  for (const std::string row : {"bmp bgr24", "bmp bgra", "bmp rgb565le", "bmp rgb555le", "bmp pal8",
                                "bmp monob", "png rgb24", "png rgba", "png gray", "png ya8", "png monob",
                                "png pal8", "png gray16be", "png ya16be", "png rgb48be", "png rgba64be"}) {
    const std::string form = row.substr(4), in = Path("in." + row.substr(0, 3));
    Make(
        "ffmpeg -v error -y -f lavfi -i testsrc=s=67x45:d=1 -frames:v 1 -vf "
        "format=rgba,colorchannelmixer=aa=0.5 -pix_fmt " +
        form + " " + in);
    Expect({"convert", in, out, "--force"});
    const std::string read = form.ends_with("be") ? "rgba64le" : "rgba";
    const std::string expected = PixelsOf(in, read), found = PixelsOf(out, read);
    ASSERT_EQ(expected.size(), found.size()) << row;
    // 5 and 6 bits become 8 in more than one way; 32 bits of a plain BMP have no alpha.
    const int most = form.starts_with("rgb5") ? 7 : 0;
    for (size_t i = 0; i < found.size(); ++i) {
      if (form == "bgra" && i % 4 == 3) continue;
      ASSERT_NEAR(static_cast<uint8_t>(found[i]), static_cast<uint8_t>(expected[i]), most) << row << " " << i;
    }
  }
  // What has no room for alpha.
  Expect({"convert", out, Path("out.bmp"), "--type=gray8"}, 0, "left out: gray8 has none");
  Expect({"convert", out, Path("out.yuv"), "--fourcc=P010"}, 0, "left out: P010 has none");
  EXPECT_EQ(Qnimage({"convert", out, Path("out.yuv"), "--fourcc=A410", "--force"}).err, "");
  EXPECT_EQ(Qnimage({"convert", out, Path("b.yuv"), "--fourcc=NV16"}).err.find("left out"),
            std::string::npos);
  // A warning that nobody reads, or that has nowhere to go, leaves the file alone.
  const std::string whole = Path("a.bmp");
  for (const std::string where : {"2>&1 >/dev/null | true", "<&- 2>&-"}) {
    RunCommand("{ sleep 0.1; " QNIMAGE " convert " + out + " " + whole + " --type=rgb24; } " + where);
    EXPECT_EQ(ReadFileBytes(whole).size(), 54u + 45 * 204) << where;
    fs::remove(whole);
  }
  EXPECT_NE(Names().front()[0], '.');
}

TEST_F(Image, FlipsAndScales) {
  const std::string in = Path("in.bmp"), out = Path("out.png");
  Make("ffmpeg -v error -f lavfi -i testsrc=s=61x46:d=1 -frames:v 1 " + in);
  for (const auto& [words, filter] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"flip", "--horizontal"}, "hflip"},
           {{"flip", "--vertical"}, "vflip"},
           {{"flip", "--vertical", "--horizontal"}, "hflip,vflip"},
           {{"scale", "--size=183x92", "--filter=nearest"}, "scale=183:92:flags=neighbor"},
           {{"scale", "--size=61x46"}, "null"}}) {
    std::vector<std::string> line = words;
    line.insert(line.end(), {in, out, "--force"});
    Expect(line);
    Make("ffmpeg -v error -y -i " + in + " -vf " + filter + " " + Path("expected.png"));
    EXPECT_TRUE(PixelsOf(out, "rgb24") == PixelsOf(Path("expected.png"), "rgb24")) << filter;
  }
  // Between two columns bilinear goes straight; the outer quarters are the pixels themselves.
  Expect({"card", in, "--kind=ramp", "--size=2x4", "--force"});
  Expect({"scale", in, out, "--size=8x4", "--force"});
  const Pixels pixels = Decode(out, 8);
  for (size_t x = 0; x < 8; ++x)
    EXPECT_NEAR(pixels.Red(x, 0), std::clamp((2.0 * static_cast<double>(x) - 3) / 8, 0.0, 1.0) * 255, 0.51)
        << x;
  // The rows of a bitmap of negative height are the other way round.
  Bytes bytes = With(ReadFileBytes(in), 22, static_cast<uint32_t>(-4), 4);
  WriteFileBytes(in, bytes);
  Expect({"convert", in, out, "--force"});
  ExpectColours(Decode(out, 2), "1,0 0000ff 1,1 00ff00 1,3 ffffff");
  // One without the file's header.
  bytes.erase(bytes.begin(), bytes.begin() + 14);
  WriteFileBytes(in, bytes);
  Expect({"info", in}, 0, "DIB");
  Expect({"convert", in, out, "--force"});
  ExpectColours(Decode(out, 2), "1,0 0000ff 1,3 ffffff");
}

TEST_F(Image, KnowsLegalColours) {
  const std::string full = Path("bars100.png"), out = Path("out.png");
  Card("bars", "80x4", "75");
  Card("bars", "80x4", "100");
  Make("ffmpeg -v error -i " + full + " -vf lutrgb=r=val*0.82:g=val*0.82:b=val*0.82 " + out);
  // At 82 per cent cyan is legal to the first standard alone, yellow to all but the last.
  for (const std::string answer : {"ntsc-yiq: 0 of", "ntsc-yuv: 40 of", "pal: 80 of"})
    Expect({"legal", out, out + ".png", "--force", "--standard", answer.substr(0, answer.find(':'))}, 0,
           answer);
  for (const std::string standard : {"ntsc-yiq", "ntsc-yuv", "pal"}) {
    const std::string option = "--standard=" + standard;
    Expect({"legal", Path("bars75.png"), out, option, "--force"}, 0, standard + ": 0 of 320 pixels");
    Expect({"legal", full, out, option, "--force"}, 0, ": 80 of 320 pixels are not legal (25.00 %)\n");
    // Yellow and cyan are too strong; half the luma of the others.
    ExpectColours(Decode(out, 80), "5,0 808080 15,3 ff0000 25,0 ff0000 35,0 4b4b4b 55,0 262626 75,0 000000");
    Expect({"legal", full, out, option, "--correct", "--force"}, 0,
           standard == "pal" ? "40 after" : ", 0 after");
    const Pixels corrected = Decode(out, 80);
    ExpectColours(corrected, "5,0 ffffff 35,0 00ff00 55,0 ff0000 75,0 000000");
    // Paler: less of what there was most of, more of the other.
    EXPECT_LT(corrected.Red(15, 0), 255);
    EXPECT_GT(corrected.rgb.at(15 * 3 + 2), 0);
  }
  // What few colours, and chroma that pixels share, make of the correction: 40 and 44 in the picture itself.
  Expect({"legal", full, out, "--correct", "--force", "--type=palette8"}, 0, ", 80 after");
  Card("bars", "84x4", "100");
  Expect({"legal", full, out + ".yuv", "--correct", "--fourcc=I420"}, 0, ", 40 after");
  Expect({"legal", out + ".yuv", out, "--size=84x4", "--fourcc=I420", "--force"}, 0, ": 40 of 336");
  Bytes noise(96 * 48 * 2);
  std::generate(noise.begin(), noise.end(), std::ref(Random()));
  WriteFileBytes(out + ".yuv", noise);
  const std::string said = Qnimage({"legal", out + ".yuv", out + ".bmp", "--correct", "--type=rgb555",
                                    "--quiet", "--size=96x48", "--fourcc=UYVY"})
                               .out;
  const size_t at = said.find("%), ") + 4;
  Expect({"legal", out + ".bmp", out, "--force"}, 0,
         ": " + said.substr(at, said.find(" after") - at) + " of");
}

TEST_F(Image, ConvertsRawFramesAsOthersDo) {
  const std::string in = Path("in.bmp"), raw = Path("a.yuv"), out = Path("out.bmp");
  Expect({"card", in, "--size=96x48"});
  struct Row {
    const char* fourcc;
    const char* form;  // ffmpeg's; null where it has none
  };
  const Row kRows[] = {{"UYVY", "uyvy422"}, {"YUYV", "yuyv422"}, {"I420", "yuv420p"}, {"IYUV", "yuv420p"},
                       {"NV12", "nv12"},    {"YV12", nullptr},   {"YV16", nullptr},   {"YV24", nullptr},
                       {"v210", nullptr},   {"P010", "p010le"},  {"P210", "p210le"},  {"P216", "p216le"},
                       {"Y210", "y210le"},  {"P410", nullptr},   {"P012", nullptr},   {"P212", nullptr},
                       {"P412", nullptr},   {"PL10", nullptr},   {"A410", nullptr},   {"A46B", nullptr},
                       {"F32I", nullptr}};
  const auto expectNear = [](const auto& found, const auto& expected, double most, const std::string& what) {
    ASSERT_EQ(found.size(), expected.size()) << what;
    double sum = 0;
    for (size_t i = 0; i < found.size(); ++i)
      sum += std::abs(static_cast<uint8_t>(found[i]) - static_cast<uint8_t>(expected[i]));
    EXPECT_LT(sum / static_cast<double>(found.size()), most) << what;
  };
  for (const Row& row : kRows) {
    const bool isRgb = std::end(kRows) - &row <= 2;  // which takes no options of YUV
    for (const std::string matrix : {"601", "709", "2020"}) {
      const std::string layout = std::string("--fourcc=") + row.fourcc,
                        colours = isRgb ? "--quiet" : "--matrix=" + matrix,
                        range = isRgb             ? "--quiet"
                                : matrix == "709" ? "--range=full"
                                                  : "--range=studio";
      Expect({"convert", in, raw, layout, colours, range, "--force"});
      Expect({"convert", raw, out, "--size=96x48", layout, colours, range, "--force"});
      expectNear(ReadFileBytes(out), ReadFileBytes(in), 0.7, row.fourcc + matrix);
      if (!row.form || matrix != "601") continue;
      Make("ffmpeg -v error -y -f rawvideo -s 96x48 -pix_fmt " + std::string(row.form) + " -i " + raw +
           " -vf scale=in_color_matrix=bt601:flags=neighbor " + out);
      expectNear(PixelsOf(out, "rgb24"), PixelsOf(in, "rgb24"), 1.5, row.form);
    }
  }
  // Luma of yellow.
  Card("bars", "80x4", "100");
  constexpr std::pair<const char*, int> kLuma[] = {{"601 --range=studio", 210},  {"601 --range=full", 226},
                                                   {"709 --range=studio", 219},  {"709 --range=full", 237},
                                                   {"2020 --range=studio", 222}, {"2020 --range=full", 240}};
  for (const auto& [options, luma] : kLuma) {
    Make(QNIMAGE " convert --force --fourcc=YV24 " + Path("bars100.png") + " " + raw +
         " --matrix=" + options);
    EXPECT_EQ(ReadFileBytes(raw)[15], luma) << options;
  }
  // All four planes keep their samples, a row of two each; alpha too.
  const auto frameOf = [](std::initializer_list<uint64_t> rows) {
    Bytes all;
    for (const uint64_t row : rows) all = all + Le(row * 0x400040, 4);
    return all;
  };
  WriteFileBytes(raw, frameOf({400, 800, 512, 512, 512, 512, 1, 700}));
  Expect({"flip", "--vertical", raw, out + ".raw", "--size=2x2", "--fourcc=A410"});
  EXPECT_EQ(ReadFileBytes(out + ".raw"), frameOf({800, 400, 512, 512, 512, 512, 700, 1}));
  // The second of two frames and a rest.
  const Bytes frame(96 * 48 * 2, 128);
  WriteFileBytes(raw, frame + Bytes(96 * 48 * 2, 16) + Bytes{1, 2, 3});
  Expect({"info", raw, "--size=96x48", "--fourcc=UYVY"}, 0, "Frames      2 of 9,216 bytes");
  Expect({"convert", raw, out, "--size=96x48", "--fourcc=UYVY", "--force"}, 0, "3 bytes at the end");
  ExpectColours(Decode(out, 96), "0,0 828282");
  Expect({"convert", raw, out, "--size=96x48", "--fourcc=UYVY", "--frame=2", "--force"}, 1, "no frame 2");
  Expect({"convert", raw, out, "--size=5x5", "--fourcc=UYVY", "--force"}, 1, "cannot have the size 5x5");
  Expect({"convert", raw, out, "--size=8x8", "--fourcc=NV16", "--force"}, 1, "NV16 cannot be converted");
  EXPECT_EQ(
      Jq(Qnimage({"info", raw, "--size=96x48", "--fourcc=NV12", "--json"}).out, ".[0].planes[1].offset"),
      "4608");
  // As it is, whatever it is; and from one layout to another.
  Expect({"convert", raw, out + ".yuv", "--size=96x48", "--fourcc=UYVY", "--frame=1"});
  EXPECT_EQ(ReadFileBytes(out + ".yuv"), Bytes(96 * 48 * 2, 16));
  Expect({"convert", raw, Path("b.yuv"), "--size=96x48", "--fourcc=UYVY", "--out-fourcc=NV12"});
  EXPECT_EQ(Read("b.yuv"), Bytes(96 * 48 * 3 / 2, 128));
}

// A field of a good file of 24 bits, 4x4, that is not what it should be.
TEST_F(Image, RefusesHostileFiles) {
  const std::string name = Path("in.bmp"), out = Path("out.png");
  Expect({"card", name, "--size=4x4"});
  const Bytes good = ReadFileBytes(name);
  ASSERT_EQ(good.size(), 54u + 48);
  struct Row {
    size_t offset;
    uint64_t value;
    int count;
    const char* said;
  };
  const Row kRows[] = {
      {0, 'X', 1, "no BMP or PNG"},
      {10, 53, 4, "bfOffBits = 53"},
      {10, 0xFFFFFFF0, 4, "bfOffBits = 4294967280"},
      {10, 56, 4, "take 48 bytes, but only 46"},
      {14, 12, 4, "this length cannot be read: 12 bytes"},
      {14, 30, 4, "biSize = 30"},
      {14, 0xFFFFFFFF, 4, "biSize = 4294967295"},
      {18, 0x80000000, 4, "biWidth = -2147483648"},
      {18, 40'000, 4, "picture of 40000x4 "},
      {22, 0, 4, "biHeight = 0"},
      {22, 0x80000000, 4, "picture of 4x2147483648 "},
      {22, 5, 4, "take 60 bytes, but only 48"},
      {18, 0x4000'00007000, 8, "picture of 28672x16384 "},
      {26, 2, 2, "biPlanes = 2"},
      {28, 0, 2, "cannot be read: RGB, 0 bits"},
      {28, 8 | 1ull << 16, 4, "cannot be read: RLE, 8 bits"},
      {30, 7, 4, "cannot be read: biCompression = 7, 24 bits"},
      {30, 0x32315659, 4, "cannot be read: YV12, 24 bits"},
      {46, 100'000, 4, "biClrUsed = 100000"},
  };
  for (const Row& row : kRows) {
    WriteFileBytes(name, With(good, row.offset, row.value, row.count));
    Expect({"convert", name, out}, 1, row.said);
  }
  WriteFileBytes(name, Bytes(good.begin(), good.begin() + 30));
  Expect({"info", name}, 1, "ends within its header");
  // Bit fields that no type has, and such as have red and blue exchanged.
  Expect({"card", name, "--size=4x4", "--type=rgb565", "--level=100", "--force"});
  const Bytes fields = With(ReadFileBytes(name), 62, 0xF800, 4);
  WriteFileBytes(name, With(fields, 54, 0x001F, 4));
  Expect({"convert", name, out});
  // Half a bar a pixel: white, cyan for yellow and so on.
  ExpectColours(Decode(out, 4), "0,0 ffffff 1,0 ffff00");
  WriteFileBytes(name, With(fields, 54, 0x00F8, 4));
  Expect({"convert", name, out, "--force"}, 1, "RGB (bitfields), 16 bits");
  // Pixels beyond a short palette are black.
  Expect({"card", name, "--size=8x4", "--type=palette8", "--level=100", "--force"});
  Bytes palette = With(ReadFileBytes(name), 46, 216, 4);
  WriteFileBytes(name, palette);
  Expect({"convert", name, out, "--type=palette8", "--force"});
  EXPECT_EQ(Jq(Qnimage({"info", out, "--json"}).out, ".[0].palette"), "216");
  Put(&palette, 46, 1, 4);
  WriteFileBytes(name, palette);
  Expect({"convert", name, out, "--force"}, 0, "shown in black: 28.");
  EXPECT_EQ(Jq(Qnimage({"info", name, "--json"}).out, ".[0].colours[]"), "000000");

  // Whatever else is damaged: an answer in little memory and time, and no half of a file.
  Expect({"card", Path("good.png"), "--kind=zone", "--size=40x40"});
  const Bytes png = Read("good.png");
  for (int i = 0; i < 120; ++i) {
    Bytes bytes = i % 3 == 0 ? good : i % 3 == 1 ? palette : png;
    for (int n = 0; n < 3; ++n)
      bytes[Random()() % std::min<size_t>(bytes.size(), i % 3 == 2 ? 200 : 60)] =
          static_cast<uint8_t>(Random()());
    if (i % 4 == 0) bytes.resize(Random()() % bytes.size());
    WriteFileBytes(name, bytes);
    fs::remove(out);
    const ToolRun run = Qnimage({"convert", name, out}, MemoryLimit(400'000));
    EXPECT_TRUE(run.exit == 0 || run.exit == 1) << i << ": " << run.exit << run.err;
    EXPECT_EQ(fs::exists(out), run.exit == 0) << i;
  }
  // A picture of 30,000 by 30,000 in a file of some bytes, with a checksum that is right.
  std::string made;
  EXPECT_EQ(RunCommand("python3 -c 'import zlib,struct as s;c=lambda "
                       "t,d:s.pack(\">I\",len(d))+t+d+s.pack(\">I\",zlib.crc32(t+d));open(\"" +
                       name +
                       "\",\"wb\").write(b\"\\x89PNG\\r\\n\\x1a\\n\"+c(b\"IHDR\",s.pack(\">IIBBBBB\",16000,"
                       "16000,8,6,0,0,0))+c(b\"IDAT\",zlib.compress(b\"\"))+c(b\"IEND\",b\"\"))'"),
            0);
  Expect({"convert", name, out, "--force"}, 1, "Not enough image data");
  Expect({"info", name}, 1, "Not enough image data");
}

TEST_F(Image, SaysWhatIsWrong) {
  Expect({"card", "in.png", "--size=16x16", "--type=rgba64"});
  fs::create_hard_link(Path("in.png"), Path("hard.bmp"));
  fs::create_symlink("in.png", Path("link.png"));
  Write("there.png", {0x28});
  fs::create_directory(Path("folder.png"));
  const Bytes before = Read("in.png");
  struct Row {
    std::vector<std::string> words;
    int exit;
    const char* said;
  };
  const Row kRows[] = {
      {{}, 2, "no command"},
      {{"convert", "in.png"}, 2, "IN and OUT"},
      {{"convert", "in.png", "out.jpg"}, 2, "end it in .bmp"},
      {{"convert", "none.png", "out.bmp"}, 1, "0x8004E007"},
      {{"convert", "folder.png", "out.bmp"}, 1, "It is a directory"},
      {{"convert", "/dev/null", "out.bmp"}, 1, "no regular file"},
      {{"convert", "there.png", "out.bmp"}, 1, "no BMP or PNG"},
      {{"scale", "there.png", "out.bmp", "--size=8x8"}, 1, "PNG file. ("},
      {{"convert", "in.png", "there.png"}, 1, "--force overwrites"},
      {{"convert", "in.png", "link.png", "--force"}, 1, "the picture that is read"},
      {{"convert", "link.png", "hard.bmp", "--force"}, 1, "the picture that is read"},
      {{"convert", "in.png", "out.yuv"}, 2, "need --fourcc"},
      {{"convert", "in.png", "out.yuv", "--fourcc=XXXX"}, 2, "UYVY"},
      {{"convert", "in.png", "out.yuv", "--fourcc=UYVY", "--type=rgb24"}, 2, "--type is for"},
      {{"convert", "in.png", "out.yuv", "--fourcc=UYVY", "--matrix=7"}, 2, "601, 709"},
      {{"convert", "in.png", "out.bmp", "--frame=1"}, 2, "need --size"},
      {{"scale", "in.png", "out.bmp", "--size=8x8", "--fourcc=UYVY"}, 2, "--fourcc is for raw frames"},
      {{"card", "out.bmp", "--range=full"}, 2, "--range is for raw frames"},
      {{"card", "out.yuv", "--fourcc=A46B", "--matrix=601"}, 2, "--matrix is for raw frames"},
      {{"convert", "in.png", "out.bmp", "--size=2x2"}, 2, "need --fourcc"},
      {{"convert", "in.png", "out.bmp", "--type=rgb"}, 2, "rgb24"},
      {{"flip", "in.png", "out.bmp"}, 2, "--horizontal"},
      {{"convert", "in.png", "out.bmp", "--out-fourcc=XXXX"}, 2, "and OUT is none"},
      {{"convert", "in.png", "out.yuv", "--fourcc=UYVY", "--out-fourcc=NV12"}, 2, "need --size"},
      {{"convert", "in.png", "out.yuv", "--size=2x2", "--fourcc=UYVY", "--frame=-1"}, 2, "from 0 on"},
      {{"info", "in.png", "--size=32768x8192", "--fourcc=F32I"}, 1, "picture of 32768x8192 is not possible"},
      {{"convert", "in.png", "out.yuv", "--size=9000x9000", "--fourcc=P010"}, 1, "is not possible"},
      {{"card", "out.bmp", "--size=12000x12000", "--type=rgba64"}, 1, "is not possible"},
      {{"scale", "in.png", "out.bmp", "--size=12000x12000"}, 1, "is not possible"},
      {{"scale", "in.png", "out.bmp"}, 2, "--size is needed"},
      {{"scale", "in.png", "out.bmp", "--size=40000x1"}, 2, "32768"},
      {{"legal", "in.png", "out.bmp", "--map", "--correct"}, 2, "together"},
      {{"convert", "there.png", "out.bmp", "--lang=de"}, 1, "keine BMP- oder PNG-Datei"},
      {{"--version"}, 0, "qnimage 1"},
  };
  for (const Row& row : kRows) Expect(row.words, row.exit, row.said);
  // A full disk.
  EXPECT_EQ(Qnimage({"card", Path("out.png"), "--kind=zone"}, "ulimit -f 100;").exit, 1);
  EXPECT_EQ(Names().size(), 5u);
  EXPECT_EQ(Read("in.png"), before);
}

TEST_F(Image, LeavesNothingWhenInterrupted) {
  const int status = Interrupted({QNIMAGE, "card", Path("out.png"), "--kind=zone", "--size=16000x8000"},
                                 SIGQUIT, false, Path(""), 1);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGQUIT) << status;
  EXPECT_TRUE(Names().empty());
}

}  // namespace
}  // namespace qntest
