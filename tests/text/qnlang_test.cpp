#include "qn/text/qnlang.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>

#include "qn/platform/registry.h"
#include "qn/platform/text.h"
#include "qn/platform/winuser.h"
#include "tests/support/support.h"

namespace {

using Text = std::u16string;

// The executable's resources, as a compiled image.
Text image;

void AddResource(WCHAR type, WCHAR name, WCHAR language, const Text& data) {
  image += {static_cast<WCHAR>(data.size() * 2), 0, 32, 0, 0xFFFF, type, 0xFFFF, name, 0, 0, 0, language};
  image += Text(4, 0) + data + Text(data.size() % 2, 0);
  RegisterModuleResources(GetModuleHandleW(nullptr), image.data(), image.size() * 2);
}

// The strings of the ids from 16 on.
void AddStrings(WCHAR language, std::initializer_list<Text> texts) {
  Text data;
  for (const Text& text : texts) data += static_cast<WCHAR>(text.size()) + text;
  AddResource(6, 2, language, data);
}

// A handle of the executable, which starts without resources.
struct Language : std::unique_ptr<tQNLANG, decltype(&QnLang_Close)> {
  explicit Language(DWORD lcid, LONG ringSize = 0) : unique_ptr(nullptr, QnLang_Close) {
    HQNLANG language = nullptr;
    QnLang_Open(&language, GetModuleHandleW(nullptr), lcid, ringSize);
    reset(language);
    image.clear();
    AddResource(0, 0, 0, {});
  }
  operator HQNLANG() const { return get(); }
};

const WCHAR* Id(uintptr_t id) {
  return reinterpret_cast<const WCHAR*>(id);
}

TEST(Language, EveryLcidIsReducedAndPicksItsEntry) {
  constexpr WCHAR kOrder[] = {0x409, 0x411, 0x407, 0x40A, 0x40C, 0x804, 0x404, 0x406, 0x40B, 0x410,
                              0x412, 0x413, 0x414, 0x416, 0x816, 0x419, 0x41D, 0x415, 0};
  qnlang_t record = {QNLANG_MARKER, QNLANG_COUNT, {}, {}};
  for (int i = 0; i < QNLANG_COUNT; i++) record.text[i] = kOrder + i;
  const Language language(0);
  for (DWORD lcid = 1; lcid <= 0xFFFF; lcid++) {
    const DWORD primary = lcid % 1024;
    DWORD reduced = primary == 22 ? lcid : primary + 1024;
    if (primary == 4) reduced = lcid == 0x404 || lcid == 0xC04 || lcid == 0x1404 ? 0x404 : 0x804;
    const WCHAR* const entry = std::find(kOrder, kOrder + QNLANG_COUNT, reduced);
    ASSERT_EQ(QnLang_GetConditionedLCID(lcid), reduced) << std::hex << lcid;
    DWORD layout = 7;
    ASSERT_TRUE(_QnLang_UpdateKernelLCID(language, lcid) && _QnLang_UpdateKernelOnlyLCID(lcid));
    ASSERT_EQ(QnGetString(language, record), *entry ? entry : kOrder) << std::hex << lcid;
    const BOOL fromTheRight = primary == 1 || primary == 13 || primary == 32 || primary == 41;
    ASSERT_TRUE(GetProcessDefaultLayout(&layout) && static_cast<BOOL>(layout) == fromTheRight) << lcid;
    ASSERT_TRUE(QnLang_UseRTL(language) == fromTheRight && language->useLanguage == (primary != 9)) << lcid;
  }
  EXPECT_FALSE(_QnLang_UpdateKernelLCID(nullptr, 0x407));
  EXPECT_TRUE(_QnLang_UpdateKernelLCID(language, 0x407) && _QnLang_UpdateKernelOnlyLCID(0));
  _QnLang_UpdateThreadLocale(language);
  EXPECT_TRUE(GetThreadLocale() == 0x407 && InitMUILanguage(0) == 0x407);
}

TEST(Language, NamesOfLanguagesAndPeople) {
  const std::tuple<DWORD, Text, Text> rows[] = {
      {0x809, W("ENU"), W("")},      {0x1004, W("CHS"), W("zh-CN")}, {0xC04, W("CHT"), W("zh-CN")},
      {0x807, W("DEU"), W("de-DE")}, {0x40A, W("ESP"), W("es-ES")},  {0xC0C, W("FRA"), W("fr-FR")},
      {0x411, W("JPN"), W("ja-JP")}, {0x412, W("KOR"), W("ko-KR")},  {0x415, W("PLK"), W("pl-PL")},
      {0x816, W("PTG"), W("pt-BR")}, {0x416, W("PTB"), W("pt-BR")},  {0x2FF, W(""), W("")}};
  for (const auto& [lcid, abbreviation, tag] : rows) {
    const Language language(lcid);
    WCHAR text[9] = W("~");
    EXPECT_EQ(QnLang_GetLangAbbrev(language, text, 4), !abbreviation.empty());
    EXPECT_EQ(text, abbreviation);
    EXPECT_TRUE(QnLang_GetLangllCC(language, text, 9) == tag.empty() && text == tag) << std::hex << lcid;
    EXPECT_EQ(QnLang_LocalizeUserName(language, W("Ann"), W("Lee"), text, 7), 6);
    EXPECT_EQ(text, Text(lcid == 0x411 ? W("Lee An") : W("Ann Le")));
  }
}

TEST(Language, RecordsOfIdsTakeTheLanguageBehindAndElseEnglish) {
  const Language language(0x407);
  AddStrings(0x40A, {W("Uno"), Text(W("Dos\0"), 4), Text(W("\0"), 1)});
  AddStrings(0x409, {Text(W("One\0"), 4)});
  AddResource(6, 3, 0x42F, Text(W("\4Any\0"), 5));
  const std::tuple<DWORD, const WCHAR*, const WCHAR*, Text> rows[] = {
      {0x407, W("one"), Id(17), W("Dos")},  // of Spanish, which follows German
      {0x407, W("one"), Id(18), W("")},     {0x407, W("one"), Id(16), W("one")},  // no terminator
      {0x407, W("one"), nullptr, W("one")}, {0x407, Id(16), Id(19), W("One")},
      {0x407, Id(90), Id(90), W("")},       {0x415, W("one"), Id(32), W("Any")}};
  for (const auto& [lcid, first, third, expected] : rows) {
    alignas(8) BYTE packed[4 + sizeof(qnlang_t)];
    qnlang_t record = {QNLANG_MARKER, 3, {}, {first, W("two"), third}};
    std::memcpy(packed + 4, &record, sizeof record);
    QnLang_UpdateLCID(language, lcid);
    const WCHAR* const text = QnGetString(language, record);
    EXPECT_EQ(text, expected);
    EXPECT_EQ(record.text[2] == text, first != Id(90)) << "kept";
    EXPECT_EQ(QnGetStringSmart(language, reinterpret_cast<WCHAR*>(packed + 4)), expected);
  }
}

TEST(Language, StringIdsAreReadOnceAndForgottenWithTheLanguage) {
  const Language language(0x407);
  const Text much(1500, W('x'));
  AddStrings(0x409,
             {W("^*Save"), W("^*"), W(""), Text(W("ab\0cd"), 5), W("only"), much, W(""), W("7"), W("8")});
  AddStrings(0x407, {W("Sichern"), W("zwei"), W("drei"), W("^*"), W("")});
  const auto expect = [&](std::initializer_list<Text> texts) {
    for (auto id = static_cast<UINT>(16 + texts.size()); id-- > 16;) {
      const Text& text = texts.begin()[id - 16];
      WCHAR loaded[2000];
      EXPECT_EQ(QnGetString(language, id), text.substr(0, 1023)) << id;
      EXPECT_EQ(QnGetStringSmart(language, Id(id)), text.substr(0, 1023)) << id;
      for (const int size : {2000, 3}) {
        EXPECT_EQ(Text(loaded, QnLoadString(language, id, loaded, size)), text.substr(0, size - 1)) << id;
      }
    }
  };
  // English until the first update.
  expect({W("Save"), W(""), W(""), W("ab"), W("only"), much, W(""), W("7"), W("8")});
  EXPECT_EQ(language->cache->count, 6) << "empty texts are not kept";
  const WCHAR* const kept = QnGetString(language, 16);
  EXPECT_TRUE(QnLang_UpdateLCID(language, 0x407));
  EXPECT_EQ(QnGetString(language, 16), kept) << "the same language keeps its texts";
  EXPECT_TRUE(QnLang_UpdateLCID(language, 0) && QnLang_UpdateLCID(language, 0x407));
  qnlang_t record = {QNLANG_MARKER, 3, {}, {W("^*one"), W("two"), Id(90)}};
  const auto expectGerman = [&] {
    expect({W("Sichern"), W("zwei"), W("drei"), W(""), W("only")});
    EXPECT_EQ(QnGetString(language, record), record.text[0]);
  };
  std::thread threads[] = {std::thread(expectGerman), std::thread(expectGerman), std::thread(expectGerman)};
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(language->cache->count, 4);
  WCHAR loaded[3];
  EXPECT_TRUE(QnLoadString(language, record, loaded, 3) == 2 && Text(loaded) == W("on"));
  for (const UINT id : {32u, 0xFFFFFu, 0xFFFFFFFFu}) EXPECT_EQ(QnGetString(language, id), Text()) << id;
}

TEST(Language, ResourcesInTheLanguage) {
  const Language language(0x407);
  for (const WCHAR lcid : {0x409, 0x407, 0x40C}) AddResource(16, 1, lcid, W("??"));
  AddResource(10, 1, 0x409, W("??"));
  const WCHAR* const types[] = {MAKEINTRESOURCEW(5), RT_RCDATA, RT_VERSION};
  for (const bool update : {false, true}) {
    int found = -1;
    WCHAR names[50];
    if (update) QnLang_UpdateLCID(language, 0x407);
    EXPECT_NE(QnFindResourceMulti(language, Id(1), types, 3, &found), nullptr);
    EXPECT_EQ(found, update ? 2 : 1) << "the language goes before the order of types";
    EXPECT_EQ(QnEnumResourceLanguages(language, 1, names, 50), update ? 12 : 0);
    EXPECT_EQ(names, Text(update ? W(",ENU,DEU,FRA") : W("")));
  }
}

TEST(Language, PlacesInTheRing) {
  const Language language(0, 100);
  EXPECT_EQ(language->ringSize, 2048u);
  DWORD position = 0;
  std::mt19937_64& random = qntest::Random();
  for (int i = 0; i < 20000; i++) {
    const auto characters = static_cast<LONG>(i % 50 == 0 ? random() : random() % 300);
    if (position > 1024) position = 0;
    ASSERT_EQ(QnGetTempStringBuffer(language, characters), language->ring + position);
    position = (position + 2 + static_cast<DWORD>(characters)) / 2 * 2;
  }
  ASSERT_TRUE(SetAnsiCodePage(CP_UTF8));
  for (const size_t length : {0, 1, 2, 341, 342, 682, 683, 1100, 2047, 2048, 5000}) {
    const Text text = Text(length, W('\u20AC')) + W("x");
    const std::string bytes = qn::ToUtf8(text);
    language->ringPosition = 1024;  // the last place, with no more than the reserve behind it
    EXPECT_EQ(QnGetMultiByteFromPrintString(language, text.c_str()), bytes.size() < 2048 ? bytes : "");
    language->ringPosition = 1024;
    EXPECT_EQ(QnGetPrintFromMultiByteString(language, bytes.c_str()), bytes.size() < 1024 ? text : Text());
  }
}

TEST(Language, CodePagesAreDetected) {
  const std::tuple<UINT, const char*, int, int> rows[] = {
      {932, "ab\x82\xA0", 4, 1},  {932, "ab\x82\xA0", 3, 0}, {932, "\xB1\xB2", 2, 0},
      {932, "a\0\x82\xA0", 4, 0}, {936, "\xC4\xE3", 9, 1},   {1252, "\xC4\xE3", 2, 0}};
  for (const auto& [codePage, bytes, length, expected] : rows) {
    ASSERT_TRUE(SetAnsiCodePage(codePage));
    EXPECT_EQ(QnLang_DetectMultiByteCharacters(bytes, length), expected) << bytes;
  }
  SetAnsiCodePage(0);
  DWORD sure = 7, unsure = 7;
  EXPECT_TRUE(QnLang_DetectPossibleCodepage("plain", 5, &sure) == S_OK && sure == 20127);
  EXPECT_EQ(QnLang_DetectPossibleCodepage("\xE9\xFF\x81", 3, &unsure), MakeStatus(0x8004E1FD));
  EXPECT_EQ(unsure, 0u);
}

TEST(Language, SettingOfTheUser) {
  const qntest::ScratchFolder folder;
  const auto expect = [](DWORD version, DWORD expected) {
    DWORD lcid = 0;
    const WCHAR* const company = W("Marlow Creative Works");
    EXPECT_EQ(QnLang_LoadUserLCIDMetricAppReg(W("App"), version, &lcid, company), expected != 0);
    EXPECT_EQ(lcid, expected);
  };
  SetRegistryFile(HKEY_CURRENT_USER, folder.Path("machine").c_str());
  EXPECT_TRUE(QnLang_SaveUserLCIDMetric(W("App"), 0x7EA30BBD, 0x50411, FALSE));
  SetRegistryFile(HKEY_LOCAL_MACHINE, folder.Path("machine").c_str());
  SetRegistryFile(HKEY_CURRENT_USER, folder.Path("user").c_str());
  expect(0x7EA30000, 0x411);
  EXPECT_TRUE(QnLang_SaveUserLCIDMetric(W("App"), 0x7EA30BBD, 0x407, FALSE));
  EXPECT_TRUE(QnLang_SaveUserLCIDMetric(W("App"), 0x7EA30BBD, 0x40C, TRUE));
  expect(0x7EA30000, 0x407);
  expect(0x7EA40000, 0);
  expect(0xFFFFF, 0x40C);
  for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) SetRegistryFile(hive, nullptr);
}

}  // namespace
