#include "tools/qnwave/picture_file.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr char kDot[] = "  \u00B7  ";

bool ReadSize(const char* command, std::string_view text, PictureSize* size) {
  const size_t at = text.find('@');
  const auto sides = Split(text.substr(0, at), 'x');
  constexpr double kMost = 1e6;
  const auto width = ParseNumber<double>(sides[0], 1, kMost);
  const auto height = ParseNumber<double>(sides.size() == 2 ? sides[1] : "", 1, kMost);
  const auto factor =
      at == std::string_view::npos ? std::optional(1.0) : ParseNumber<double>(text.substr(at + 1), 0.5, 16);
  if (!width || !height || !factor)
    return Mistaken(command, "bad size " + Quoted(text) + " (such as 1200x400, or 1200x400@2)");
  *size = {std::round(*width), std::round(*height), *factor};
  if (std::max(size->width, size->height) * size->factor > kMostPixels)
    return Mistaken(command, "a picture has up to " + std::to_string(kMostPixels) + " pixels a side");
  return true;
}

bool EndsIn(const std::string& name, std::string_view extension) {
  if (name.size() < extension.size()) return false;
  return std::equal(extension.begin(), extension.end(), name.end() - static_cast<ptrdiff_t>(extension.size()),
                    [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

}  // namespace

bool ReadPictureTarget(const char* command, const Arguments& arguments, PictureTarget* target) {
  target->kind = arguments.Has("svg") || EndsIn(target->name, ".svg") ? PictureKind::kSvg : PictureKind::kPng;
  if (target->kind == PictureKind::kPng && !EndsIn(target->name, ".png"))
    return Mistaken(command,
                    "the name " + Quoted(target->name) + " tells no picture: end it in .png or .svg");
  if (const auto text = arguments.Value("size")) {
    if (!ReadSize(command, *text, &target->size)) return false;
  }
  const std::string_view theme = arguments.Value("theme").value_or("light");
  target->theme = FindTheme(theme);
  return target->theme ||
         Mistaken(command, "unknown theme " + Quoted(theme) + " (one of " + ThemeNames() + ")");
}

bool FitPicture(const char* command, PictureSize* size, double wantedHeight, double leastWidth,
                double leastHeight, size_t lanes) {
  if (size->height == 0) size->height = std::round(wantedHeight);
  if (size->width >= leastWidth && size->height >= leastHeight) return true;
  const auto text = [](double side) { return Message(std::to_string(std::lround(std::ceil(side)))); };
  const Message width = text(leastWidth), height = text(leastHeight);
  const Message mistake =
      lanes == 0 ? Message(messages::CurveNeedsRoom, {width, height})
                 : Message(messages::LanesNeedRoom, {text(static_cast<double>(lanes)), width, height});
  return Mistaken(command, mistake.Shown());
}

uint32_t ColumnsOf(const PictureSize& size, double margins) {
  return static_cast<uint32_t>(std::floor((size.width - margins) * size.factor));
}

bool ChooseLanes(const AudioSource& source, ChannelMap* channels) {
  if (channels->empty()) {
    channels->resize(source.format.channels);
    std::iota(channels->begin(), channels->end(), 0);
  }
  return HasChannels(source, *channels);
}

bool AreFewEnough(const AudioSource& source, size_t channels, const qnlang_t& sentence) {
  if (channels <= kMostPictureChannels) return true;
  ReportError(source.name, QN_E_FILE_UNSUPPORTED,
              {sentence, {Message(std::to_string(kMostPictureChannels))}});
  return false;
}

std::vector<std::string> LaneNames(const AudioFormat& format, const ChannelMap& channels) {
  const std::string speakers = DescribeSpeakers(format.mask);
  const auto names = Split(speakers, ' ');
  std::vector<std::string> lanes;
  for (const int channel : channels) {
    const auto index = static_cast<size_t>(channel);
    lanes.push_back(format.channels == 1                                  ? std::string()
                    : format.mask != 0 && names.size() == format.channels ? std::string(names[index])
                    : format.channels == 2                                ? (index == 0 ? "L" : "R")
                                                                          : std::to_string(channel));
  }
  return lanes;
}

int ReadRange(const char* command, const Arguments& arguments, const AudioSource& source, uint64_t* start,
              uint64_t* frames) {
  std::optional<uint64_t> first, length;
  if (!ReadPosition(command, arguments, "start", false, source.format.rate, &first) ||
      !ReadPosition(command, arguments, "length", true, source.format.rate, &length)) {
    return kExitUsage;
  }
  *start = first.value_or(0);
  *frames = length.value_or(source.frames);
  if (*start >= source.frames || *frames == 0) {
    ReportError(source.name, {messages::RangeEmpty, {Message::Number(source.frames)}});
    return kExitFailed;
  }
  *frames = std::min(*frames, source.frames - *start);
  return kExitOk;
}

std::string TitleOf(const AudioSource& source) {
  const size_t slash = source.name.rfind('/');
  return Shown(source.name.substr(slash == std::string::npos ? 0 : slash + 1));
}

std::string DescribeRange(const AudioSource& source, const _qnposfmt& format, uint64_t start,
                          uint64_t frames) {
  const auto text = [&](uint64_t count, bool isLength) {
    _qnposfmt shown = format;
    if (isLength) shown.offset = 0;
    return DescribeDuration(count, source.format.rate, &shown);
  };
  const std::string all = text(source.frames, true);
  if (frames == source.frames) return all;
  return text(start, false) + " to " + text(start + frames, false) + " of " + all;
}

std::string DescribeSamples(const AudioFormat& format) {
  return std::string(FindSampleType(format.type)->words) + kDot + Grouped(format.rate) + " Hz" + kDot +
         DescribeChannels(format.channels) + kDot;
}

void TellPicture(const PictureTarget& target, const std::string& details, bool quiet) {
  if (quiet) return;
  const PictureSize& size = target.size;
  std::printf("%s: %.0fx%.0f pixels, %s\n", Shown(target.name).c_str(), size.width * size.factor,
              size.height * size.factor, details.c_str());
}

bool PictureFile::Create(const PictureTarget& target, bool overwrite) {
  if (!file_.Create(target.name, overwrite)) return false;
  const PictureSize& size = target.size;
  canvas_ = MakeCanvas(target.kind, size.width, size.height, size.factor, this);
  return canvas_ && (canvas_->Status() == S_OK || file_.Fail(canvas_->Status()));
}

bool PictureFile::Finish() {
  const HRESULT status = canvas_->Finish();
  return status == S_OK || file_.Fail(status);
}

HRESULT PictureFile::Write(const uint8_t* bytes, size_t count) {
  return file_.Write(bytes, count);
}

}  // namespace qnwave
