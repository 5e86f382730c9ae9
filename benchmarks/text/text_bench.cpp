// Text: the formatter, numbers, times and lookups beside snprintf, {fmt} and ICU doing the same work. Each
// call takes the next of 256 values, so that no branch learns them by heart. The peers write narrow text, but
// for ICU; only ours, ICU's and the "grouped" cases of the others dress the numbers for a locale.
#include <benchmark/benchmark.h>
#include <fmt/compile.h>
#include <fmt/format.h>
#include <unicode/umsg.h>
#include <unicode/unum.h>

#include <array>
#include <clocale>
#include <cstdio>
#include <locale>
#include <random>
#include <string>
#include <unordered_map>

#include "benchmarks/support/allocations.h"
#include "qn/platform/locale.h"
#include "qn/platform/module.h"
#include "qn/text/qnlang.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnprint.h"
#include "qn/text/qntimetext.h"

namespace {

// Values of all lengths: as many of one digit as of nine.
std::array<int32_t, 256> MakeIntegers() {
  std::array<int32_t, 256> values;
  std::mt19937 random(1);
  for (size_t i = 0; i < values.size(); ++i) {
    int64_t limit = 10;
    for (size_t digit = 0; digit < i % 9; ++digit) limit *= 10;
    values[i] = static_cast<int32_t>(random() % limit) * (i % 16 < 8 ? 1 : -1);
  }
  return values;
}
const std::array<int32_t, 256> kIntegers = MakeIntegers();

template <typename Work>
void Run(benchmark::State& state, Work work) {
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(work(kIntegers[next++ % kIntegers.size()]));
    benchmark::ClobberMemory();
  }
  const int64_t before = qnbench::Allocations();
  for (const int32_t value : kIntegers) benchmark::DoNotOptimize(work(value));
  const auto made = static_cast<double>(qnbench::Allocations() - before);
  state.counters["allocations"] = made / static_cast<double>(kIntegers.size());
}

double Fraction(int32_t value) {
  return value / 1000.0;
}
int32_t Rate(int32_t value) {
  return 8000 + (value & 0xFFFF);
}

struct Case {
  const char* name;
  void (*run)(benchmark::State&);
};

// Not constants, since the compiler knows standard formats alone.
const char* groupedInteger = "%'d";
const char* groupedDouble = "%'.2f";

WCHAR wide[128];
char narrow[128];

// Three grouped digits with a comma, as {fmt} takes them from a C++ locale.
struct Groups : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};
const std::locale kGroupedLocale(std::locale::classic(), new Groups);

// ICU's formatters, made once as its users do.
UMessageFormat* StatusMessage() {
  static UMessageFormat* const message = [] {
    UErrorCode error = U_ZERO_ERROR;
    return umsg_open(u"{0,number,integer} Hz, {1,number,integer} Bit, {2}", -1, "en_US", nullptr, &error);
  }();
  return message;
}
UNumberFormat* Numbers(int32_t decimals) {
  UErrorCode error = U_ZERO_ERROR;
  UNumberFormat* const format = unum_open(UNUM_DECIMAL, nullptr, 0, "en_US", nullptr, &error);
  unum_setAttribute(format, UNUM_MIN_FRACTION_DIGITS, decimals);
  unum_setAttribute(format, UNUM_MAX_FRACTION_DIGITS, decimals);
  return format;
}
int32_t IcuNumber(double value, int32_t decimals) {
  static UNumberFormat* const whole = Numbers(0);
  static UNumberFormat* const fraction = Numbers(2);
  UErrorCode error = U_ZERO_ERROR;
  return unum_formatDouble(decimals ? fraction : whole, value, wide, 128, nullptr, &error);
}

const _qnposfmt kClock = {1, 48000, 25.0, 120.0, 0, 4, 4, 960};

// This program's resources: 256 strings with the ids from 16 on, in the compiled form.
std::u16string MakeStrings() {
  std::u16string image;
  for (char16_t block = 2; block < 18; ++block) {
    std::u16string data;
    for (int i = 0; i < 16; ++i)
      data +=
          u"\x000A"
          u"Text 12345";
    const auto bytes = static_cast<char16_t>(2 * data.size());
    image += {bytes, 0, 32, 0, 0xFFFF, 6, 0xFFFF, block, 0, 0, 0, 0x409, 0, 0, 0, 0};
    image += data;
  }
  return image;
}

HQNLANG Language() {
  static const HQNLANG language = [] {
    static const std::u16string strings = MakeStrings();
    RegisterModuleResources(GetModuleHandleW(nullptr), strings.data(), 2 * strings.size());
    HQNLANG opened = nullptr;
    QnLang_Open(&opened, GetModuleHandleW(nullptr), 0, 0);
    QnLang_UpdateLCID(opened, 0x409);
    return opened;
  }();
  return language;
}
std::unordered_map<UINT, std::u16string> MakeMap() {
  std::unordered_map<UINT, std::u16string> map;
  for (UINT id = 16; id < 272; ++id) map[id] = QnGetString(Language(), id);
  return map;
}
qnlang_t record = {QNLANG_MARKER, 2, {}, {W("Stereo"), W("ステレオ")}};

const Case kCases[] = {
    {"status_line/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return QnCchPrintF(wide, 128, nullptr, W("$d Hz$, %d Bit$, %s"), Rate(value), 16, W("Stereo"));
       });
     }},
    {"status_line/snprintf",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return std::snprintf(narrow, sizeof narrow, "%d Hz, %d Bit, %s", Rate(value), 16, "Stereo");
       });
     }},
    {"status_line/fmt",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return fmt::format_to_n(narrow, sizeof narrow, "{} Hz, {} Bit, {}", Rate(value), 16, "Stereo").size;
       });
     }},
    {"status_line/fmt_compiled",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return fmt::format_to(narrow, FMT_COMPILE("{} Hz, {} Bit, {}"), Rate(value), 16, "Stereo") - narrow;
       });
     }},
    {"status_line/icu",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         UErrorCode error = U_ZERO_ERROR;
         return umsg_format(StatusMessage(), wide, 128, &error, Rate(value), 16, u"Stereo");
       });
     }},

    {"long/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return QnLongToTextN(value, wide, 128, FALSE); });
     }},
    {"long/snprintf",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return std::snprintf(narrow, sizeof narrow, "%d", value); });
     }},
    {"long/fmt",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return fmt::format_to(narrow, "{}", value) - narrow; });
     }},
    {"long/fmt_compiled",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return fmt::format_to(narrow, FMT_COMPILE("{}"), value) - narrow; });
     }},

    {"long_grouped/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return QnLongToTextN(value, wide, 128, TRUE); });
     }},
    {"long_grouped/snprintf",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return std::snprintf(narrow, sizeof narrow, groupedInteger, value); });
     }},
    {"long_grouped/fmt",
     [](benchmark::State& state) {
       Run(state,
           [](int32_t value) { return fmt::format_to(narrow, kGroupedLocale, "{:L}", value) - narrow; });
     }},
    {"long_grouped/icu",
     [](benchmark::State& state) { Run(state, [](int32_t value) { return IcuNumber(value, 0); }); }},

    {"double/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return QnDoubleToTextN(wide, 128, Fraction(value), 2, FALSE); });
     }},
    {"double/snprintf",
     [](benchmark::State& state) {
       Run(state,
           [](int32_t value) { return std::snprintf(narrow, sizeof narrow, "%.2f", Fraction(value)); });
     }},
    {"double/fmt",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return fmt::format_to(narrow, "{:.2f}", Fraction(value)) - narrow; });
     }},

    {"double_grouped/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return QnDoubleToTextN(wide, 128, Fraction(value), 2, TRUE); });
     }},
    {"double_grouped/snprintf",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return std::snprintf(narrow, sizeof narrow, groupedDouble, Fraction(value));
       });
     }},
    {"double_grouped/fmt",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return fmt::format_to(narrow, kGroupedLocale, "{:.2Lf}", Fraction(value)) - narrow;
       });
     }},
    {"double_grouped/icu",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return IcuNumber(Fraction(value), 2); });
     }},

    {"clock_time/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         return QnNanoTimeToTextN(wide, 128, &kClock, LONGLONG{value & 0x7FFFFFFF} * 1000, FALSE);
       });
     }},
    {"clock_time/snprintf",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         const unsigned time = (value & 0x7FFFFFFFu) / 10;
         return std::snprintf(narrow, sizeof narrow, "%02u:%02u:%02u.%03u", time / 3600000, time / 60000 % 60,
                              time / 1000 % 60, time % 1000);
       });
     }},
    {"clock_time/fmt",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) {
         const unsigned time = (value & 0x7FFFFFFFu) / 10;
         return fmt::format_to(narrow, "{:02}:{:02}:{:02}.{:03}", time / 3600000, time / 60000 % 60,
                               time / 1000 % 60, time % 1000) -
                narrow;
       });
     }},

    {"record/ours",
     [](benchmark::State& state) { Run(state, [](int32_t) { return QnGetString(Language(), record); }); }},
    {"string_id/ours",
     [](benchmark::State& state) {
       Run(state, [](int32_t value) { return QnGetString(Language(), 16 + (value & 0xFFu)); });
     }},
    {"string_id/unordered_map",
     [](benchmark::State& state) {
       static const std::unordered_map<UINT, std::u16string> map = MakeMap();
       Run(state, [](int32_t value) { return map.find(16 + (value & 0xFFu))->second.c_str(); });
     }},
};

[[maybe_unused]] const bool registered = [] {
  // snprintf groups digits only in a locale that does; where the system has none its case measures "%d".
  std::setlocale(LC_NUMERIC, "en_US.UTF-8");
  SetUserDefaultLCID(0x409);
  QnLang_GetInternationals(nullptr, 0);
  for (const Case& row : kCases) {
    benchmark::RegisterBenchmark(("text/" + std::string(row.name)).c_str(), row.run);
  }
  return true;
}();

}  // namespace
