// The picture that a command makes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/common/options.h"
#include "tools/common/output_file.h"
#include "tools/qnimage/image.h"
#include "tools/qnimage/source.h"

namespace qnimage {

constexpr qntool::Option kTypeOption = {"type", "TYPE",
                                        "pixel type of a BMP or PNG file (default: rgb24, rgba32 for what is "
                                        "not opaque, and 16 bits a component in a "
                                        "PNG file where there were more than 8)"};
constexpr qntool::Option kForceOption = {
    "force", nullptr, "overwrite OUT, unless it is IN itself; until the end it stays as it was"};
constexpr qntool::Option kQuietOption = {"quiet", nullptr, "no last line"};
constexpr qntool::Option kTargetFourccOption = {
    "fourcc", "CODE", "layout of OUT if that ends in .raw or .yuv, such as UYVY, NV12 or v210"};
constexpr qntool::Option kOutFourccOption = {
    "out-fourcc", "CODE", "layout of OUT if that ends in .raw or .yuv (default: that of --fourcc)"};

struct Target {
  std::string name;
  Kind kind = Kind::kBmp;
  int type = 0;  // 0: as the picture needs
  RawFormat raw;
  bool overwrite = false;
  bool quiet = false;
};

// Takes the kind from the name and all else from the options; false with the mistake reported.
bool ReadTarget(const char* command, const qntool::Arguments& arguments, const std::string& name,
                Target* target);

// The depth of a new picture for the target: a type to work on.
int WorkingTypeFor(const Target& target);

// Looks at the picture as one reads it that opens the target.
using Inspection = std::function<void(const Image& held)>;

// Writes a picture of a type to work on and tells of it; the palette, where the target needs one, is that of
// a source of its type. An exit code.
int WritePicture(const Target& target, const Image& image, const Source& source, qntool::OutputFile* file,
                 const Inspection& inspect = {});

// The exit code of an interrupted run, which is reported about the file that is not there then.
int ReportInterrupt(const std::string& target);

// Changes the picture that is read; `output` is there to report failures about, which end the command. Ends
// at once when a signal has come.
using Work = std::function<bool(const qntool::OutputFile& output, Image* image)>;

// Reads IN, lets `work` change it and writes OUT; an exit code. Without work a raw frame whose layout stays
// is copied as it is.
int RunOnPicture(const char* command, const qntool::Arguments& arguments, const Work& work,
                 const Inspection& inspect = {});

// Write a picture behind each other; the status of a failure. Their types are the target's.
HRESULT WriteBmp(const Image& image, qntool::OutputFile* file);
HRESULT WritePng(const Image& image, bool isOpaque, qntool::OutputFile* file);

// The frame of a picture of a type to work on; the status of a failure, which `details` explain.
HRESULT EncodeRaw(const RawFormat& format, const Image& image, std::vector<uint8_t>* frame,
                  qntool::Message* details);

}  // namespace qnimage
