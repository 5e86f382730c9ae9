#include "tools/qnimage/target.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/interrupt.h"
#include "tools/common/report.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/pixel_types.h"

namespace qnimage {
namespace {

struct EndingRow {
  const char* ending;
  Kind kind;
};
constexpr EndingRow kEndings[] = {
    {".bmp", Kind::kBmp}, {".dib", Kind::kBmp}, {".png", Kind::kPng},
    {".raw", Kind::kRaw}, {".yuv", Kind::kRaw},
};

bool Mistaken(const char* command, const std::string& mistake) {
  ReportUsage(command, mistake);
  return false;
}

const EndingRow* FindEnding(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  for (const EndingRow& row : kEndings) {
    if (lower.ends_with(row.ending)) return &row;
  }
  return nullptr;
}

// The type of the file for a picture that is worked on.
int StoredType(const Target& target, const Image& image, bool isOpaque) {
  if (target.type != 0) return target.type;
  if (target.kind == Kind::kPng && image.Type() != QNPIXEL_RGBA32) return QNPIXEL_RGBA64;
  return isOpaque ? QNPIXEL_RGB24 : QNPIXEL_RGBA32;
}

}  // namespace

bool ReadTarget(const char* command, const Arguments& arguments, const std::string& name, Target* target) {
  target->name = name;
  target->overwrite = arguments.Has("force");
  target->quiet = arguments.Has("quiet");
  const EndingRow* const ending = FindEnding(name);
  if (!ending)
    return Mistaken(command,
                    "the name " + Quoted(name) + " tells no kind: end it in .bmp, .dib, .png, .raw or .yuv");
  target->kind = ending->kind;
  const auto type = arguments.Value("type");
  if (target->kind == Kind::kRaw) {
    if (type) return Mistaken(command, "--type is for BMP and PNG files");
    return ReadRawTarget(command, arguments, &target->raw) &&
           (target->raw.fourcc != 0 || Mistaken(command, "raw frames need --fourcc"));
  }
  if (!type) return true;
  const PixelTypeRow* const row = FindPixelType(*type);
  if (!row)
    return Mistaken(command, "unknown pixel type " + Quoted(*type) + " (one of " + PixelTypeNames() + ")");
  if (target->kind == Kind::kPng && !row->isInPng)
    return Mistaken(command, "PNG files have no pixels of the type " + std::string(*type));
  target->type = row->type;
  return true;
}

int WorkingTypeFor(const Target& target) {
  if (target.kind != Kind::kRaw) return WorkingType(target.type);
  const BITMAPINFOHEADER header = RawHeader(target.raw, 2, 2);
  const int type = QnGetPixelType(&header);
  return type < QNPIXEL_UYVY ? WorkingType(type) : IsDeep(type) ? QNPIXEL_RGBA64 : QNPIXEL_RGBA32;
}

int ReportInterrupt(const std::string& target) {
  ReportFailure(target, kDuringOperation, QN_E_CANCELLED, messages::NothingWritten);
  return kExitInterruptedBase + InterruptSignal();
}

int WritePicture(const Target& target, const Image& image, const Palette& palette, OutputFile* file) {
  HRESULT status = S_OK;
  Message details;
  std::string type;
  if (target.kind == Kind::kRaw) {
    status = WriteRaw(target.raw, image, file, &details);
    type = FourccText(target.raw.fourcc);
  } else {
    const bool isOpaque = image.IsOpaque();
    const int stored = StoredType(target, image, isOpaque);
    const Palette usual = UsualPalette(stored);
    const Image pixels = image.ConvertedTo(stored, target.kind == Kind::kPng,
                                           palette.size() == usual.size() ? palette : usual);
    status = target.kind == Kind::kPng ? WritePng(pixels, isOpaque && target.type == 0, file)
                                       : WriteBmp(pixels, file);
    type = FindPixelType(stored)->name;
  }
  if (InterruptSignal() != 0) return ReportInterrupt(target.name);
  if (status != S_OK) file->Fail(status, details);
  if (status != S_OK || !file->Commit()) return kExitFailed;
  if (!target.quiet) {
    std::printf("%s: %ux%u pixels, %s, %s\n", Shown(target.name).c_str(), image.Width(), image.Height(),
                KindName(target.kind), type.c_str());
  }
  return kExitOk;
}

int RunOnPicture(const char* command, const Arguments& arguments, const std::function<void(Image*)>& work) {
  const auto& operands = arguments.Operands();
  if (operands.size() != 2) {
    ReportUsage(command, "two files are needed: IN and OUT");
    return kExitUsage;
  }
  RawFormat format;
  Target target;
  if (!ReadTarget(command, arguments, operands[1], &target)) return kExitUsage;
  // The size that scale takes is that of OUT.
  if (std::string_view(command) != kScaleCommand.name && !ReadRawSource(command, arguments, &format))
    return kExitUsage;
  if (!HasRawForItsOptions(command, arguments, target.kind == Kind::kRaw || format.width != 0))
    return kExitUsage;
  WatchInterrupts();
  InputFile input;
  if (!input.Open(operands[0])) return kExitFailed;
  if (input.IsUnder(target.name)) {
    ReportFailure(target.name, kSavingFiles, QN_E_FILE_EXISTS, messages::TargetIsPicture);
    return kExitFailed;
  }
  OutputFile output;
  Source source;
  Image image;
  if (!output.Create(target.name, target.overwrite) || !ReadSource(input, format, &source, &image))
    return kExitFailed;
  if (InterruptSignal() == 0) work(&image);
  return InterruptSignal() != 0 ? ReportInterrupt(target.name)
                                : WritePicture(target, image, source.palette, &output);
}

}  // namespace qnimage
