#include "tools/qnimage/target.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

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

bool HasAlpha(int type) {
  constexpr int kTypes[] = {QNPIXEL_RGBA32, QNPIXEL_RGBA64, QNPIXEL_RGBAFLOAT,
                            QNPIXEL_A46B,   QNPIXEL_F32I,   QNPIXEL_A410};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

// What a file gets: the picture in its type or as a frame.
struct Stored {
  int type = 0;
  std::string typeName;
  BITMAPINFOHEADER rawHeader = {};
};

Stored Describe(const Target& target, const Image& image, bool isOpaque) {
  Stored stored;
  if (target.kind == Kind::kRaw) {
    stored.rawHeader = RawHeader(target.raw, image.Width(), image.Height());
    stored.type = QnGetPixelType(&stored.rawHeader);
    stored.typeName = FourccText(target.raw.fourcc);
  } else {
    stored.type = StoredType(target, image, isOpaque);
    stored.typeName = FindPixelType(stored.type)->name;
  }
  return stored;
}

// Ends the writing, the status of which may be a failure, and tells of it; an exit code.
int Finish(const Target& target, uint32_t width, uint32_t height, const std::string& type, OutputFile* file,
           HRESULT status, const Message& details) {
  if (InterruptSignal() != 0) return ReportInterrupt(target.name);
  if (status != S_OK) file->Fail(status, details);
  if (status != S_OK || !file->Commit()) return kExitFailed;
  if (!target.quiet) {
    std::printf("%s: %ux%u pixels, %s, %s\n", Shown(target.name).c_str(), width, height,
                KindName(target.kind), type.c_str());
  }
  return kExitOk;
}

// Copies a frame whose layout stays.
int CopyFrame(const InputFile& input, const RawFormat& format, const Target& target, OutputFile* output) {
  Source source;
  std::vector<uint8_t> frame;
  if (!ReadRaw(input, format, &source, nullptr) || !ReadRawFrame(input, format, source, &frame))
    return kExitFailed;
  return Finish(target, format.width, format.height, FourccText(format.fourcc), output,
                output->Write(frame.data(), frame.size()), {});
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
  if (arguments.Has("out-fourcc"))
    return Mistaken(command, "--out-fourcc is for raw frames, and OUT is none: end it in .raw or .yuv");
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
  return target.kind == Kind::kRaw ? WorkingTypeOf(target.raw) : WorkingType(target.type);
}

int ReportInterrupt(const std::string& target) {
  ReportFailure(target, kDuringOperation, QN_E_CANCELLED, messages::NothingWritten);
  return kExitInterruptedBase + InterruptSignal();
}

int WritePicture(const Target& target, const Image& image, const Source& source, OutputFile* file,
                 const Inspection& inspect) {
  const bool isOpaque = image.IsOpaque();
  const Stored stored = Describe(target, image, isOpaque);
  const int widest = target.kind == Kind::kRaw ? WorkingTypeOf(target.raw) : stored.type;
  if (!CheckSides(*file, widest, image.Width(), image.Height())) return kExitFailed;
  HRESULT status = S_OK;
  Message details;
  Image held;
  std::vector<uint8_t> frame;
  if (target.kind == Kind::kRaw) status = EncodeRaw(target.raw, image, &frame, &details);
  if (status == S_OK && !isOpaque && !HasAlpha(stored.type))
    ReportWarning(target.name, {messages::AlphaLeftOut, {Message(stored.typeName)}});
  if (target.kind == Kind::kRaw) {
    if (status == S_OK) status = file->Write(frame.data(), frame.size());
    if (status == S_OK && inspect) status = DecodeRaw(target.raw, stored.rawHeader, frame, &held, &details);
  } else {
    held = image.ConvertedTo(stored.type, target.kind == Kind::kPng,
                             source.type == stored.type ? source.palette : UsualPalette(stored.type));
    status =
        target.kind == Kind::kPng ? WritePng(held, isOpaque && target.type == 0, file) : WriteBmp(held, file);
    if (inspect) held = held.ConvertedTo(WorkingType(stored.type), true);
  }
  if (status == S_OK && inspect && InterruptSignal() == 0) inspect(held);
  return Finish(target, image.Width(), image.Height(), stored.typeName, file, status, details);
}

int RunOnPicture(const char* command, const Arguments& arguments, const Work& work,
                 const Inspection& inspect) {
  const auto& operands = arguments.Operands();
  if (operands.size() != 2) {
    ReportUsage(command, "two files are needed: IN and OUT");
    return kExitUsage;
  }
  RawFormat format;
  Target target;
  if (!ReadTarget(command, arguments, operands[1], &target)) return kExitUsage;
  // The size that scale takes is that of OUT.
  const bool takesRaw = std::string_view(command) != kScaleCommand.name;
  if (takesRaw && !ReadRawSource(command, arguments, &format)) return kExitUsage;
  if (format.width == 0 && arguments.Has("fourcc") && arguments.Has("out-fourcc")) {
    Mistaken(command, "--fourcc is for raw frames in IN, which need --size");
    return kExitUsage;
  }
  const bool isCopy =
      !work && target.kind == Kind::kRaw && format.width != 0 && format.fourcc == target.raw.fourcc;
  if (!HasRawForItsOptions(command, arguments, target.kind == Kind::kRaw || format.width != 0,
                           !isCopy && (IsYuv(format) || IsYuv(target.raw))))
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
  if (!output.Create(target.name, target.overwrite)) return kExitFailed;
  if (isCopy) return CopyFrame(input, format, target, &output);
  if (!ReadSource(input, takesRaw ? &format : nullptr, &source, &image)) return kExitFailed;
  if (InterruptSignal() == 0 && work && !work(output, &image)) return kExitFailed;
  return InterruptSignal() != 0 ? ReportInterrupt(target.name)
                                : WritePicture(target, image, source, &output, inspect);
}

}  // namespace qnimage
