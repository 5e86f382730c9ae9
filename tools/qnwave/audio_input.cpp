#include "tools/qnwave/audio_input.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "qn/media/qnwav.h"
#include "qn/settings/qnstatus.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

struct FreeRecord {
  void operator()(WAVEFORMATEX* record) const { std::free(record); }
};

AudioFormat FormatOf(const WAVEFORMATEX& record) {
  const bool extensible = record.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
  AudioFormat format;
  format.type = QnAudio_GetSampleType(&record);
  format.rate = record.nSamplesPerSec;
  format.channels = record.nChannels;
  if (extensible) {
    format.mask = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(record).dwChannelMask;
    // Other programs keep the valid bits of a container in its high bits, so such a file reads as 32-bit
    // samples. The library's unpacked type, which has them in the low bits, has a format tag of its own.
    if (format.type == QNST_PCM24IN32) format.type = QNST_PCM32;
  }
  return format;
}

// What is wrong with a file, and the command to try.
Message WithHint(const Problem& problem, const qnlang_t& hint, const std::string& name) {
  return Message(problem.text.Shown() + " " + Message(hint, {Message(Quoted(name))}).Shown());
}

OpenResult ReportUnreadable(const std::string& name, const Layout& layout) {
  if (layout.IsDamaged()) {
    ReportOpenError(name, QN_E_FILE_FORMAT, WithHint(layout.problems[0], messages::TryRepair, name));
    return OpenResult::kDamaged;
  } else if (layout.container == Container::kUnknown || layout.container == Container::kOther) {
    ReportOpenError(name, QN_E_FILE_FORMAT, messages::NoKnownFile);
  } else {
    const Message format = layout.hasFormat ? FormatName(layout.record) : messages::FormatAiff;
    ReportOpenError(name, QN_E_FILE_UNSUPPORTED, {messages::FormatUnreadable, {format}});
  }
  return OpenResult::kFailed;
}

// Samples that a wrong size leaves out or invents.
OpenResult JudgeDamage(const std::string& name, const Layout& layout) {
  const auto cannotGo = std::find_if(layout.problems.begin(), layout.problems.end(), [](const Problem& p) {
    return p.damage != Damage::kDataCut && p.damage != Damage::kFormSize;
  });
  if (cannotGo != layout.problems.end()) {
    ReportOpenError(name, QN_E_FILE_FORMAT, WithHint(*cannotGo, messages::TryRepairOrToEnd, name));
    return OpenResult::kDamaged;
  }
  for (const Problem& problem : layout.problems) ReportWarning(name, problem.text);
  return OpenResult::kOk;
}

}  // namespace

bool LocateAudio(const std::string& name, const Layout& layout, AudioSource* source) {
  source->name = name;
  if (layout.container != Container::kAiff) {
    // The layout knows its way around missing padding and wrong sizes, and counts what is there.
    if (!layout.hasFormat || !layout.hasData || QnAudio_IsCompressed(&layout.record.Format)) return false;
    source->format = FormatOf(layout.record.Format);
    source->dataStart = layout.dataStart;
    source->frames = layout.dataBytes / std::max(1u, source->format.FrameBytes());
  } else {
    std::u16string path;
    if (!LibraryPath(name, &path)) return false;
    const std::unique_ptr<WAVEFORMATEX, FreeRecord> record(
        QnGetFileWfx(path.c_str(), &source->frames, &source->dataStart));
    if (!record) return false;
    source->format = FormatOf(*record);
  }
  return source->format.FrameBytes() != 0 && source->format.rate != 0;
}

OpenResult OpenAudio(const std::string& name, bool toEnd, AudioSource* source) {
  const File file = File::ForReading(name);
  if (!file) return OpenResult::kFailed;
  const Layout layout = ReadLayout(file, name);
  if (!LocateAudio(name, layout, source)) return ReportUnreadable(name, layout);
  if (toEnd) {
    source->frames = (layout.fileBytes - source->dataStart) / source->format.FrameBytes();
    return OpenResult::kOk;
  }
  return JudgeDamage(name, layout);
}

OpenResult OpenRawAudio(const std::string& name, const AudioFormat& format, uint64_t offset,
                        AudioSource* source) {
  const File file = File::ForReading(name);
  if (!file) return OpenResult::kFailed;
  const uint64_t size = file.Size();
  if (offset > size) {
    ReportOpenError(name, QN_E_FILE_READ, {messages::OffsetBeyondEnd, {Message::Bytes(size)}});
    return OpenResult::kFailed;
  }
  *source = {name, format, offset, (size - offset) / format.FrameBytes()};
  const uint64_t rest = (size - offset) % format.FrameBytes();
  if (rest != 0) ReportWarning(name, {messages::RestLeftOut, {Message::Bytes(rest)}});
  return OpenResult::kOk;
}

bool IsOtherFile(const AudioSource& source, const std::string& target) {
  std::error_code notThere;
  if (!std::filesystem::equivalent(source.name, target, notThere)) return true;
  ReportError(target, QN_E_FILE_CREATE, messages::TargetIsSource, qntool::kSavingFiles);
  return false;
}

bool AudioReader::Open(const AudioSource& source) {
  file_ = File::ForReading(source.name);
  dataStart_ = source.dataStart;
  frameBytes_ = source.format.FrameBytes();
  return static_cast<bool>(file_);
}

bool AudioReader::Read(uint64_t first, void* buffer, uint32_t frames) const {
  SetLastError(ERROR_SUCCESS);
  return file_.ReadAt(dataStart_ + first * frameBytes_, buffer, frames * frameBytes_);
}

}  // namespace qnwave
