// qnimage scale: a picture in another size.
#include "tools/common/option_values.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/target.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {
    {"size", "WxH", "the size of OUT"},
    {"filter", "nearest|bilinear", "how colours between pixels are found (default: bilinear)"},
    kTypeOption,
    kTargetFourccOption,
    kMatrixOption,
    kRangeOption,
    kForceOption,
    kQuietOption};

struct FilterRow {
  const char* name;
  int filter;
};
constexpr FilterRow kFilters[] = {{"nearest", QNDIBFILTER_NEAREST}, {"bilinear", QNDIBFILTER_BILINEAR}};

int Run(const Arguments& arguments) {
  uint32_t width = 0, height = 0;
  const auto name = arguments.Value("filter").value_or("bilinear");
  const FilterRow* const filter = FindByName(kFilters, name);
  if (!filter) {
    ReportUsage("scale", "unknown filter " + Quoted(name) + " (one of " + NamesOf(kFilters) + ")");
    return kExitUsage;
  }
  const auto size = arguments.Value("size");
  if (!size) {
    ReportUsage("scale", "--size is needed");
    return kExitUsage;
  }
  if (!ReadSize("scale", *size, &width, &height)) return kExitUsage;
  return RunOnPicture("scale", arguments, [&](const OutputFile& output, Image* image) {
    if (!CheckSides(output, image->Type(), width, height)) return false;
    Image scaled(image->Type(), static_cast<LONG>(width), -static_cast<LONG>(height));
    QnDibCopy(scaled.Header(), nullptr, nullptr, 0, image->Header(), nullptr, nullptr, 0, filter->filter);
    *image = std::move(scaled);
    return true;
  });
}

}  // namespace

const Command kScaleCommand = {
    "scale",
    "IN OUT",
    "Scale a picture.",
    "IN is a BMP, DIB or PNG file, OUT as for convert. Bilinear weighs four pixels: to halve a size more "
    "than once, "
    "go in steps.",
    kOptions,
    Run,
};

}  // namespace qnimage
