// What the tests of texts share: the user's locale, which they set and put back.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <utility>
#include <vector>

#include "qn/platform/locale.h"
#include "qn/text/qnprint.h"

namespace qntest {

// Makes a locale the user's, with some of its items replaced.
inline void UseLocale(LCID locale, const std::vector<std::pair<LCTYPE, const WCHAR*>>& items = {}) {
  EXPECT_TRUE(SetUserDefaultLCID(locale));
  for (const auto& [item, text] : items) EXPECT_TRUE(SetUserLocaleItem(item, text));
  EXPECT_EQ(QnLang_GetInternationals(nullptr, 0), 0);
}

// Runs a test in English under a German C locale, which plays no part, and leaves the process in the locale
// of its environment.
struct EnglishTest : testing::Test {
  EnglishTest() {
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    UseLocale(0x0409);
  }
  ~EnglishTest() override {
    UseLocale(0);
    std::setlocale(LC_ALL, "C");
  }
};

}  // namespace qntest
