// qnimage card: test cards.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include "tools/common/interrupt.h"
#include "tools/common/option_values.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {{"kind", "NAME", "bars, ramp, zone or grid (default: bars)"},
                               {"size", "WxH", "the size of OUT (default: 1920x1080)"},
                               {"level", "75|100", "per cent of full colour of the bars (default: 75)"},
                               kTypeOption,
                               kTargetFourccOption,
                               kMatrixOption,
                               kRangeOption,
                               kForceOption,
                               kQuietOption};

struct Card {
  int64_t width;
  int64_t height;
  float level;
};

// White, yellow, cyan, green, magenta, red, blue, black.
QNRGBAFLOAT Bars(const Card& card, int64_t x, int64_t) {
  const int64_t bar = 8 * x / card.width;
  return {bar & 1 ? 0 : card.level, bar & 4 ? 0 : card.level, bar & 2 ? 0 : card.level, 1};
}

// From black on the left to gray, red, green and blue at full level on the right, one below the other.
QNRGBAFLOAT Ramp(const Card& card, int64_t x, int64_t y) {
  const float value = card.width == 1 ? 1 : static_cast<float>(x) / static_cast<float>(card.width - 1);
  const int64_t strip = 4 * y / card.height;
  const auto part = [&](int64_t own) { return strip == 0 || strip == own ? value : 0; };
  return {part(3), part(2), part(1), 1};
}

// Rings whose frequency rises from the middle to half a cycle a pixel at the edges of the longer side.
QNRGBAFLOAT Zone(const Card& card, int64_t x, int64_t y) {
  const int64_t across = 2 * x + 1 - card.width, down = 2 * y + 1 - card.height;
  const double square = static_cast<double>(across * across + down * down) / 4;
  const double phase = std::numbers::pi * square / static_cast<double>(std::max(card.width, card.height));
  const auto value = static_cast<float>((1 + std::cos(phase)) / 2);
  return {value, value, value, 1};
}

// White lines on black: the border, the middle and squares from there on, 12 on the shorter side.
QNRGBAFLOAT Grid(const Card& card, int64_t x, int64_t y) {
  const int64_t cell = std::max<int64_t>(4, std::min(card.width, card.height) / 12);
  const auto isOnLine = [cell](int64_t at, int64_t length) {
    return at == 0 || at == length - 1 || std::abs(2 * at + 1 - length) / 2 % cell == 0;
  };
  const float value = isOnLine(x, card.width) || isOnLine(y, card.height) ? 1 : 0;
  return {value, value, value, 1};
}

struct KindRow {
  const char* name;
  QNRGBAFLOAT (*colour)(const Card& card, int64_t x, int64_t y);
};
constexpr KindRow kKinds[] = {{"bars", Bars}, {"ramp", Ramp}, {"zone", Zone}, {"grid", Grid}};

void Paint(const Card& card, const KindRow& kind, const Image& image) {
  const FloatRow row(image.Width());
  for (uint32_t y = 0; y < image.Height() && InterruptSignal() == 0; ++y) {
    int64_t x = 0;
    for (QNRGBAFLOAT& pixel : row.Pixels()) pixel = kind.colour(card, x++, y);
    row.Put(image, y);
  }
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().size() != 1) {
    ReportUsage("card", "one file is needed: OUT");
    return kExitUsage;
  }
  const auto name = arguments.Value("kind").value_or("bars");
  const KindRow* const kind = FindByName(kKinds, name);
  if (!kind) {
    ReportUsage("card", "unknown kind " + Quoted(name) + " (one of " + NamesOf(kKinds) + ")");
    return kExitUsage;
  }
  const auto level = arguments.Value("level").value_or("75");
  if (level != "75" && level != "100") {
    ReportUsage("card", "bad level " + Quoted(level) + " (75 or 100)");
    return kExitUsage;
  }
  Target target;
  uint32_t width = 0, height = 0;
  if (!ReadSize("card", arguments.Value("size").value_or("1920x1080"), &width, &height) ||
      !ReadTarget("card", arguments, arguments.Operands()[0], &target) ||
      !HasRawForItsOptions("card", arguments, target.kind == Kind::kRaw, IsYuv(target.raw)))
    return kExitUsage;
  WatchInterrupts();
  OutputFile output;
  if (!output.Create(target.name, target.overwrite)) return kExitFailed;
  const int type = WorkingTypeFor(target);
  if (!CheckSides(output, type, width, height)) return kExitFailed;
  const Image image(type, static_cast<LONG>(width), -static_cast<LONG>(height));
  Paint({width, height, level == "100" ? 1.0f : 0.75f}, *kind, image);
  return InterruptSignal() != 0 ? ReportInterrupt(target.name) : WritePicture(target, image, {}, &output);
}

}  // namespace

const Command kCardCommand = {
    "card",
    "OUT",
    "Write a test card.",
    "Colour bars, ramps of gray and the primary colours, a zone plate or a grid. OUT is as for convert.",
    kOptions,
    Run,
};

}  // namespace qnimage
