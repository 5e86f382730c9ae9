// The messages in all languages: each there, with what must survive a translation, and short where it must
// be.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "qn/platform/text.h"
#include "qn/text/messages_internal.h"

namespace {

// What a translation keeps: conversions in their order, for they take the arguments in turn, and in any order
// inserts, tokens, "&" and line ends.
struct Kept {
  std::vector<std::string> conversions;
  std::multiset<std::string> others;
  bool operator==(const Kept&) const = default;
};

Kept KeptIn(const std::string& text) {
  static const std::regex kPattern(
      R"(%[1-9][0-9]?|([$%](?:[!&][:.,]|[-+# .0-9*]*(?:I64|I32|ll?)?[diuxXofgGeEzsc%$*,:]))|\$\([^)]*\)|[&\r\n])");
  Kept kept;
  for (auto match = std::sregex_iterator(text.begin(), text.end(), kPattern); match != std::sregex_iterator();
       ++match) {
    if ((*match)[1].matched) {
      kept.conversions.push_back(match->str());
    } else {
      kept.others.insert(match->str());
    }
  }
  return kept;
}

// The most characters of a text, a separator in place of each conversion.
size_t MostCharacters(const qnlang_t* record) {
  using namespace qn::messages;
  const std::pair<const qnlang_t*, size_t> kLimits[] = {{&ValueError, 5},      {&MinusInfinity, 8},
                                                        {&TimecodeLabel, 63},  {&TimecodeLabelFull, 63},
                                                        {&MusicTimeLabel, 63}, {&MusicTimeLabelFull, 63}};
  for (const auto& [limited, most] : kLimits) {
    if (record == limited) return most;
  }
  return SIZE_MAX;
}

TEST(Messages, EachLanguageKeepsWhatATextCarries) {
  const Kept sample = KeptIn("$d Hz%s%1: $!:$.2f&$(AppName) %2EB %% %I64d\n");
  EXPECT_EQ(sample.conversions, (std::vector<std::string>{"$d", "%s", "$!:", "$.2f", "%%", "%I64d"}));
  EXPECT_EQ(sample.others, (std::multiset<std::string>{"\n", "$(AppName)", "%1", "%2", "&"}));
  for (const qnlang_t* record : qn::messages::kAll) {
    ASSERT_EQ(record->marker, QNLANG_MARKER);
    ASSERT_EQ(record->count, QNLANG_COUNT);
    const Kept english = KeptIn(qn::ToUtf8(record->text[0]));
    for (const WCHAR* text : record->text) {
      const std::string shown = qn::ToUtf8(text);
      SCOPED_TRACE(shown);
      EXPECT_FALSE(shown.empty());
      EXPECT_TRUE(KeptIn(shown) == english);
      EXPECT_LE(std::u16string_view(text).size() - english.conversions.size(), MostCharacters(record));
    }
  }
  // The order of the languages.
  EXPECT_EQ(qn::ToUtf8(qn::messages::SizeKB.text[4]), "%1 Ko");
  EXPECT_EQ(qn::ToUtf8(qn::messages::SizeKB.text[15]), "%1 КБ");
  EXPECT_EQ(qn::ToUtf8(qn::messages::ValueError.text[17]), "Błąd");
}

}  // namespace
