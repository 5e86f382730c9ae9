// What the commands that make pictures share: the picture's file, size and colours, and what of the audio it
// shows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qn/text/qntimetext.h"
#include "tools/common/options.h"
#include "tools/common/output_file.h"
#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/canvas.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/theme.h"

namespace qnwave {

constexpr qntool::Option kThemeOption = {"theme", "NAME", "light, dark or contrast (default light)"};
constexpr qntool::Option kSvgOption = {
    "svg", nullptr, "make an SVG picture whatever the name of OUT (default: by its extension, .png or .svg)"};

constexpr uint32_t kMostPictureChannels = 32;

// The part of the file that a picture shows, and its ruler.
constexpr qntool::Option kPictureStartOption = {
    "start", "POS", "where the picture begins (default: the start): a frame, or a time such as 1:30.5"};
constexpr qntool::Option kPictureLengthOption = {
    "length", "POS", "how much it shows (default: up to the end); it ends where the file does"};
constexpr qntool::Option kRulerFormatOption = {
    "format", "FORMAT",
    "the time format of the ruler, by name or number (default time); POS is read in it too"};
constexpr qntool::Option kPictureForceOption = {
    "force", nullptr, "overwrite OUT, unless it is FILE itself; until the end it stays as it was"};

struct PictureSize {
  double width = 1200;
  double height = 0;  // 0: as the content needs
  double factor = 1;
};

struct PictureTarget {
  std::string name;
  PictureKind kind = PictureKind::kPng;
  PictureSize size;
  const Theme* theme = nullptr;
};

// Takes kind, size and theme from the name and the options; false with the mistake reported.
bool ReadPictureTarget(const char* command, const qntool::Arguments& arguments, PictureTarget* target);

// Takes the wanted height where none was asked for; false, and that is reported, for a picture in which
// lanes, or the curve of a picture without any, do not fit.
bool FitPicture(const char* command, PictureSize* size, double wantedHeight, double leastWidth,
                double leastHeight, size_t lanes);

// The columns of a picture between its margins.
uint32_t ColumnsOf(const PictureSize& size, double margins);

// Completes an empty list of channels with all; false, with the reason reported, for channels that are not
// there.
bool ChooseLanes(const AudioSource& source, ChannelMap* channels);

// False, and that is reported with a sentence, for more channels than pictures are made of.
bool AreFewEnough(const AudioSource& source, size_t channels, const qnlang_t& sentence);

// The names of lanes: those that the file names, or L and R, or numbers.
std::vector<std::string> LaneNames(const AudioFormat& format, const ChannelMap& channels);

// The range of --start and --length, up to the end of the file; an exit code.
int ReadRange(const char* command, const qntool::Arguments& arguments, const AudioSource& source,
              uint64_t* start, uint64_t* frames);

// The name without its folders.
std::string TitleOf(const AudioSource& source);

// "00:00:01.000 to 00:00:02.000 of 00:10:00.000", or the length where all is shown.
std::string DescribeRange(const AudioSource& source, const _qnposfmt& format, uint64_t start,
                          uint64_t frames);

// "16-bit integer . 48,000 Hz . stereo . ": what stands in front of that.
std::string DescribeSamples(const AudioFormat& format);

// What is said of a picture that is written: its size and `details`.
void TellPicture(const PictureTarget& target, const std::string& details, bool quiet);

// A new picture that appears under its name only when it is whole. Its functions report their failures.
class PictureFile final : private PictureWriter {
 public:
  // The room for the picture is asked for here, before the work.
  bool Create(const PictureTarget& target, bool overwrite);

  Canvas* GetCanvas() const { return canvas_.get(); }
  // As that of an OutputFile.
  std::string Resolved() const { return file_.Resolved(); }

  // Writes what was drawn.
  bool Finish();

  // Moves it to its place, when it is finished.
  bool Commit() { return file_.Commit(); }

 private:
  HRESULT Write(const uint8_t* bytes, size_t count) override;

  qntool::OutputFile file_;
  std::unique_ptr<Canvas> canvas_;
};

}  // namespace qnwave
