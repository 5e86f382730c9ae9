#include "tools/qnwave/dither.h"

#include <algorithm>
#include <iterator>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

// By the number of the type.
constexpr const char* kNames[] = {"none",       "rectangular-half", "rectangular",
                                  "triangular", "highpass",         "gaussian"};

}  // namespace

bool ChooseDither(const char* command, const Arguments& arguments, DitherSettings* dither) {
  if (const auto name = arguments.Value(kDitherOption.name)) {
    const auto found = std::find(std::begin(kNames), std::end(kNames), *name);
    if (found == std::end(kNames)) {
      std::string names;
      for (const char* known : kNames) names += (names.empty() ? "" : ", ") + std::string(known);
      ReportUsage(command, "unknown dither " + Quoted(*name) + " (one of " + names + ")");
      return false;
    }
    dither->type = static_cast<eQNDITHER_DITHERTYPE>(found - std::begin(kNames));
  }
  if (const auto text = arguments.Value(kShapeOption.name)) {
    const auto shape = ParseNumber<LONG>(*text, eQNDITHER_SHAPE_NONE, eQNDITHER_SHAPE_SECOND_LOW);
    if (!shape) {
      ReportUsage(command, "bad value " + Quoted(*text) + " for --shape (0 to 3)");
      return false;
    }
    dither->shape = static_cast<eQNDITHER_NOISESHAPE>(*shape);
  }
  return true;
}

int CheckDither(const char* command, const Arguments& arguments, const DitherSettings& dither,
                const Target& target) {
  const bool isAsked = arguments.Has(kDitherOption.name) || arguments.Has(kShapeOption.name);
  if (isAsked && IsFloat(target.format.type)) {
    ReportUsage(command, "--dither and --shape are for integers, and OUT has the type " +
                             std::string(FindSampleType(target.format.type)->name));
    return kExitUsage;
  }
  // Those behind them would lose their error at the end of each block.
  if (dither.shape != eQNDITHER_SHAPE_NONE && target.format.channels > CQnDither::kMostShaped) {
    ReportError(target.name, E_INVALIDARG,
                {messages::ShapedChannels, {Message::Number(CQnDither::kMostShaped)}});
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace qnwave
