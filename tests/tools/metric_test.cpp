// qnmetric: what goes in comes out, nothing is replaced unasked; and the language that is saved for a tool.
#include <array>
#include <cstring>
#include <filesystem>
#include <map>

#include "qn/platform/registry.h"
#include "tests/tools/tool.h"

namespace qntest {
namespace {

class MetricTool : public ToolTest {
 protected:
  ToolRun Run(std::vector<std::string> words) const { return Qnmetric(words, registry_); }
  std::string Out(std::vector<std::string> words) const {
    const ToolRun run = Run(std::move(words));
    EXPECT_EQ(run.exit, 0) << run.err;
    return run.out;
  }

  const std::string registry_ = "QNKERNEL_USER_REGISTRY=" + Path("user.sqlite");
};

TEST_F(MetricTool, StoresWhatItShowsAndReadsBack) {
  using Row = std::tuple<std::vector<std::string>, const char*, const char*>;
  for (const auto& [values, name, shown] :
       {Row({"100"}, "5", "number 100"), Row({"0xFFFFFFFF"}, "6", "number -1"),
        Row({"-2147483648"}, "7", "number -2147483648"),
        Row({"\"Käse\"\t\\"}, "S5", "string \"\\\"Käse\\\"\\t\\\\\""), Row({""}, "S6", "string \"\""),
        Row({"00", "ff1A"}, "B5", "binary 00 ff 1a"),
        Row({"a", "b c"}, "Z5", "multi-string \"a\" \"b c\"")}) {
    std::vector<std::string> words = {"set", "Studio", "2026.0", "--key", "Kernel", name, "--"};
    words.insert(words.end(), values.begin(), values.end());
    Out(words);
    EXPECT_EQ(Out({"get", "Studio", "2026.0", "--key", "Kernel", name}), std::string(shown) + "\n");
  }
  Out({"set", "Studio", "none", "--type", "number", "Show = Tips", "1"});
  EXPECT_EQ(Out({"list"}), "'Studio' 2026.0\n'Studio' none\n");
  EXPECT_EQ(Out({"list", "Studio", "none"}), "\"Show = Tips\" = number 1\n");

  const std::string file = Path("settings.txt");
  Out({"export", "Studio", "2026.0", file});
  EXPECT_EQ(Run({"export", "Studio", "2026.0", file}).exit, 1);
  Out({"import", "Copy", "1.15", file});
  EXPECT_EQ(Out({"list", "Copy", "1.15"}), Out({"list", "Studio", "2026.0"}));
  Out({"delete", "Copy", "1.15", "--key", "Kernel", "5", "B5"});
  EXPECT_EQ(Run({"get", "Copy", "1.15", "--key", "Kernel", "5"}).exit, 1);
}

// Values of all kinds, well-formed or not, are the same bytes behind an export, through a link to a file with
// a long name and permissions of its own, and an import.
TEST_F(MetricTool, KeepsEveryValueByteByByte) {
  SetRegistryFile(HKEY_CURRENT_USER, folder.Path("user.sqlite").c_str());
  HKEY from, to;
  RegCreateKeyW(HKEY_CURRENT_USER, W("Software\\Marlow Creative Works\\A\\Metrics\\\"\xD800"), &from);
  RegCreateKeyW(HKEY_CURRENT_USER, W("Software\\Marlow Creative Works\\B\\Metrics\\\"\xD800"), &to);
  std::map<std::u16string, std::pair<DWORD, Bytes>> values;
  for (int i = 0; i < 300; ++i) {
    constexpr uint8_t kBytes[] = {0, 0, 0, 0, 'a', 'a', '"', '\\', '\n', 0xD8, 0xDC, 0xFF};
    auto& [type, bytes] = values[u"\" =\\\xD800" + std::u16string(1, static_cast<WCHAR>(0x4E00 + i))];
    type = std::array{REG_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD}[Random()() % 5];
    bytes.resize(Random()() % 10);
    for (uint8_t& byte : bytes) byte = kBytes[Random()() % sizeof(kBytes)];
  }
  for (const auto& [name, value] : values)
    RegSetValueExW(from, name.c_str(), 0, value.first, value.second.data(), DWORD(value.second.size()));
  const std::string file = Path(std::string(255, 'n')), link = Path("link");
  WriteFileBytes(file, {});
  std::filesystem::permissions(file, std::filesystem::perms(0640));
  std::filesystem::create_symlink(file, link);
  Out({"export", "A", "none", link, "--force"});
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(Out({"import", "B", "none", file, "--lang", "de"}), "Importierte Einstellungen: 300.\n");
  for (const auto& [name, value] : values) {
    BYTE data[16];
    DWORD type = 0, size = sizeof(data);
    EXPECT_EQ(RegQueryValueExW(to, name.c_str(), nullptr, &type, data, &size), LSTATUS{});
    EXPECT_EQ(std::pair(type, Bytes(data, data + size)), value);
  }
  RegCloseKey(from);
  RegCloseKey(to);
  SetRegistryFile(HKEY_CURRENT_USER, nullptr);
}

TEST_F(MetricTool, ReplacesNothingOfAnotherTypeUnasked) {
  Out({"set", "Studio", "1.0", "5", "100"});
  EXPECT_NE(Run({"set", "Studio", "1.0", "5", "x", "--type", "string"}).err.find("it is number; --force"),
            std::string::npos);
  const std::string file = Path("settings.txt");
  for (const char* text :
       {"4 = number 1\n5 = string \"x\"\n", "4 = number 1\n5 = number x\n", "4 = number 1\n[\"\\\\\"]\n",
        "4 = number 1\nS5 = string \"\\u0000\"\n", "4 = number 1\nS5 = string \"\xFF\"\n",
        "[\"a\"]\n4 = number 1\n[\"\"]\n4 = number 1\n[\"A\\\\\"]\n4 = number 2\n"}) {
    WriteFileBytes(file, Bytes(text, text + std::strlen(text)));
    EXPECT_EQ(Run({"import", "Studio", "1.0", file}).exit, 1) << text;
    EXPECT_EQ(Out({"list", "Studio", "1.0"}), "5 = number 100\n");
  }
  Out({"set", "Studio", "1.0", "5", "x", "--type", "string", "--force"});
  EXPECT_EQ(Out({"get", "Studio", "1.0", "5"}), "string \"x\"\n");
}

TEST_F(MetricTool, RefusesMistakes) {
  using Row = std::pair<std::vector<std::string>, const char*>;
  for (const auto& [words, message] :
       {Row({}, "no command"), Row({"list", "Studio"}, "give an application"),
        Row({"get", "a\\b", "1.0", "5"}, "'a\\b' is no name"), Row({"get", "a", "1.16", "5"}, "no version"),
        Row({"set", "a", "1.0", "x", "5"}, "--type tells"),
        Row({"set", "a", "1.0", "5", "x"}, "'x' is no number"),
        Row({"set", "a", "1.0", "B5", "0"}, "'0' is no binary"),
        Row({"set", "a", "1.0", "5", "1", "2"}, "a number takes one VALUE"),
        Row({"set", "a", "1.0", "Z5", ""}, "cannot be empty"), Row({"get", "a", "01.0", "5"}, "no version"),
        Row({"get", "a", "1.0", "\xFF"}, "not valid UTF-8"),
        Row({"list", "a", "1.0", "--key", "\\"}, "no name of a key"),
        Row({"list", "a", "1.0", "--key", std::string(250, 'x')}, "too long"),
        Row({"set", "a", "1.0", "5", "5", "--type", "text"}, "'text' is no type")}) {
    ExpectRun(Run(words), 2, message);
  }
  EXPECT_EQ(Names(), std::vector<std::string>());  // a look makes no file
}

TEST_F(MetricTool, GivesToolsTheirLanguageAndTellsOfDamage) {
  const auto failure = [&](const std::vector<std::string>& words) { return Qnwave(words, registry_).err; };
  const std::vector<std::string> words = {"info", Path("nothing.wav")};
  EXPECT_NE(failure(words).find("The file could not be opened."), std::string::npos);
  Out({"language", "qnwave", "none", "de"});
  EXPECT_EQ(Out({"language", "qnwave", "none"}), "de\n");
  const std::string german = failure(words);
  EXPECT_NE(german.find("Datei"), std::string::npos) << german;
  EXPECT_NE(german.find("(0x8004E007)"), std::string::npos) << german;
  EXPECT_NE(failure({"info", "--lang", "en", words[1]}).find("The file could not"), std::string::npos);
  Out({"language", "qnwave", "none", "none"});
  EXPECT_NE(failure(words).find("The file could not"), std::string::npos);
  WriteFileBytes(Path("user.sqlite"), Noise(5000));
  EXPECT_NE(Qnwave({"--version"}, registry_).err.find("user.sqlite.damaged-1'"), std::string::npos);
}

}  // namespace
}  // namespace qntest
