#include "tools/qnwave/stream_copy.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include "qn/audio/qncopy.h"
#include "qn/media/qnaudiostream.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"

namespace qnwave {
namespace {

// Bytes of a block, in the cache of the processor.
constexpr uint32_t kBlockBytes = 512 << 10;

struct CloseStream {
  void operator()(HQNAUDIOSTREAM stream) const { QnAudioStream_Close(stream); }
};
using Stream = std::unique_ptr<QnAudioStreamRecord, CloseStream>;

// Opens a stream on an open file; null with the failure reported, about `subject`.
Stream OpenStream(int descriptor, const std::string& subject, const AudioFormat& format, uint64_t dataStart,
                  uint64_t frames, DWORD flags) {
  // A stream keeps its file's name and refuses one of 260 characters, which this one has in no folder.
  const std::u16string path = qn::PathFromNative("/proc/self/fd/" + std::to_string(descriptor));
  WAVEFORMATEX record{};
  QnAudio_InitWfx(&record, format.rate, format.type, format.channels);
  HQNAUDIOSTREAM stream;
  SetLastError(ERROR_SUCCESS);
  const HRESULT status = QnAudioStream_OpenFile(&stream, path.c_str(), static_cast<DWORD>(dataStart), frames,
                                                &record, nullptr, nullptr, flags);
  if (status != S_OK) ReportOpenError(subject, status == E_FAIL ? SystemStatus(QN_E_FILE_OPEN) : status);
  return Stream(stream);
}

class StreamInput {
 public:
  bool Open(const AudioSource& source) {
    // A stream's offset has 32 bits: whole frames in front of the samples count as frames.
    const uint32_t frameBytes = source.format.FrameBytes();
    before_ = source.dataStart / frameBytes;
    const int file = open(source.name.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
      ReportOpenError(source.name, qntool::StatusFromErrno(QN_E_FILE_OPEN));
      return false;
    }
    stream_ = OpenStream(file, source.name, source.format, source.dataStart % frameBytes,
                         before_ + source.frames, QNAUDIOSTREAM_READ_ONLY);
    close(file);
    return stream_ != nullptr;
  }

  HRESULT Read(uint64_t first, void* buffer, uint32_t frames, QNSAMPLETYPE type) const {
    DWORD got = 0;
    SetLastError(ERROR_SUCCESS);
    const HRESULT status =
        QnAudioStream_Read(stream_.get(), buffer, frames, &got, static_cast<LONGLONG>(before_ + first), type);
    return status == S_OK && got == frames ? S_OK : SystemStatus(QN_E_FILE_READ);
  }

 private:
  Stream stream_;
  uint64_t before_ = 0;
};

// A stream on the samples of a file that is not there yet.
class StreamOutput {
 public:
  bool Create(const Target& target, bool overwrite) {
    if (!file_.Create(target.name, target.container, target.format, target.frames, overwrite)) return false;
    // Open to nobody else meanwhile; all other flags would create it anew or forbid something.
    constexpr DWORD kFlags = 0;
    stream_ = OpenStream(file_.Descriptor(), target.name, target.format, file_.OffsetOf(0), 0, kFlags);
    return stream_ != nullptr;
  }

  HRESULT Write(const void* buffer, uint32_t frames, QNSAMPLETYPE type) const {
    DWORD put = 0;
    SetLastError(ERROR_SUCCESS);
    const HRESULT status = QnAudioStream_WriteEx(stream_.get(), buffer, frames, &put, type);
    return status == S_OK && put == frames ? S_OK : SystemStatus(QN_E_FILE_WRITE);
  }

  std::string Resolved() const { return file_.Resolved(); }

  bool Commit() {
    stream_.reset();
    return file_.Commit();
  }

 private:
  AudioOutput file_;
  Stream stream_;
};

class PieceWriter {
 public:
  PieceWriter(std::span<const Target> targets, bool quiet)
      : targets_(targets), outputs_(targets.size()), quiet_(quiet) {}

  int Write(std::span<const Piece> pieces, bool overwrite);

 private:
  bool CreateOutputs(bool overwrite);
  int Publish();
  int WritePiece(const Piece& piece);
  HRESULT WriteBlock(const std::vector<uint8_t>& block, uint32_t frames, uint32_t channels,
                     QNSAMPLETYPE type);
  int Fail(const std::string& file, HRESULT status);

  const std::span<const Target> targets_;
  std::vector<StreamOutput> outputs_;
  const bool quiet_;
  std::optional<Progress> progress_;
  uint64_t done_ = 0;
  uint64_t notNumbers_ = 0;
  size_t failed_ = 0;             // the target that WriteBlock failed at
  std::vector<uint8_t> channel_;  // one channel of a block
};

int PieceWriter::Fail(const std::string& file, HRESULT status) {
  progress_.reset();
  ReportError(file, status);
  return kExitFailed;
}

// The type between two streams, each of which converts to or from it: the target's, or double, in which every
// integer is exact, where no conversion leads there. Floats are looked at before they become integers.
QNSAMPLETYPE TypeBetween(QNSAMPLETYPE source, QNSAMPLETYPE target) {
  if (!QnAudio_GetCopyFunction2(target, source)) return QNST_FLOAT64;
  return IsFloat(source) && !IsFloat(target) ? source : target;
}

HRESULT PieceWriter::WriteBlock(const std::vector<uint8_t>& block, uint32_t frames, uint32_t channels,
                                QNSAMPLETYPE type) {
  failed_ = 0;
  if (outputs_.size() == 1) return outputs_[0].Write(block.data(), frames, type);
  const QNCOPYCHANNELSFUNCTION take = QnAudio_GetCopyChannelsFunction2(type, type);
  channel_.resize(block.size() / channels);
  for (uint32_t i = 0; i < channels; ++i) {
    failed_ = i;
    take(channel_.data(), 1, 0, block.data(), channels, i, static_cast<LONG>(frames));
    const HRESULT status = outputs_[i].Write(channel_.data(), frames, type);
    if (status != S_OK) return status;
  }
  return S_OK;
}

int PieceWriter::WritePiece(const Piece& piece) {
  StreamInput input;
  if (!input.Open(*piece.source)) return kExitFailed;
  AudioFormat between = piece.source->format;
  between.type = TypeBetween(between.type, targets_[0].format.type);
  const uint32_t blockFrames = std::max(1u, kBlockBytes / between.FrameBytes());
  std::vector<uint8_t> block(size_t{blockFrames} * between.FrameBytes());
  uint32_t count = 0;
  for (uint64_t at = 0; at < piece.frames; at += count) {
    if (InterruptSignal() != 0) {
      progress_.reset();
      return ReportInterrupt(targets_[0].name);
    }
    count = static_cast<uint32_t>(std::min<uint64_t>(blockFrames, piece.frames - at));
    HRESULT status = input.Read(piece.first + at, block.data(), count, between.type);
    if (status != S_OK) return Fail(piece.source->name, status);
    if (!IsFloat(targets_[0].format.type))
      notNumbers_ +=
          LimitSamples(block.data(), size_t{count} * between.channels, between.type, kBeyondIntegers);
    status = WriteBlock(block, count, between.channels, between.type);
    if (status != S_OK) return Fail(targets_[failed_].name, status);
    done_ += count;
    progress_->Show(done_);
  }
  return kExitOk;
}

// False with the failure reported.
bool PieceWriter::CreateOutputs(bool overwrite) {
  std::map<std::string, const Target*> resolved;
  for (size_t i = 0; i < targets_.size(); ++i) {
    const Target& target = targets_[i];
    if (!outputs_[i].Create(target, overwrite)) return false;
    // Links may lead two names to one file, where the second would take the place of the first.
    const auto [twin, isNew] = resolved.emplace(outputs_[i].Resolved(), &target);
    if (!isNew) {
      ReportError(target.name, QN_E_FILE_EXISTS,
                  {messages::SameTarget, {Message(Quoted(twin->second->name))}}, qntool::kSavingFiles);
      return false;
    }
  }
  return true;
}

int PieceWriter::Publish() {
  for (size_t i = 0; i < targets_.size(); ++i) {
    if (!outputs_[i].Commit()) {
      if (targets_.size() > 1) {
        ReportWarning(targets_[i].name,
                      {messages::TargetsStand, {Message::Number(i), Message::Number(targets_.size())}});
      }
      return kExitFailed;
    }
    TellWritten(targets_[i], quiet_);
  }
  return kExitOk;
}

int PieceWriter::Write(std::span<const Piece> pieces, bool overwrite) {
  if (!CreateOutputs(overwrite)) return kExitFailed;
  progress_.emplace(targets_[0].name, std::max<uint64_t>(1, targets_[0].frames), quiet_);
  for (const Piece& piece : pieces) {
    const int exitCode = WritePiece(piece);
    if (exitCode != kExitOk) return exitCode;
  }
  progress_.reset();
  const int exitCode = Publish();
  if (exitCode == kExitOk) WarnOfSamples(targets_[0].name, notNumbers_);
  return exitCode;
}

// Lets the process open more files than it is given at first, where the system allows that.
void RaiseFileLimit(rlim_t count) {
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= count) return;
  limit.rlim_cur = std::min(count, limit.rlim_max);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int OpenSource(const Arguments& arguments, const std::string& name, AudioSource* source) {
  const OpenResult result = OpenAudio(name, arguments.Has("to-end"), source);
  return result == OpenResult::kOk ? kExitOk : result == OpenResult::kDamaged ? kExitDamaged : kExitFailed;
}

AudioFormat KeptFormat(const AudioFormat& format) {
  AudioFormat kept = format;
  kept.type = FindSampleType(format.type)->common;
  return kept;
}

int WritePieces(std::span<const Piece> pieces, std::span<const Target> targets, const Arguments& arguments) {
  if (!std::all_of(targets.begin(), targets.end(), CheckSize)) return kExitFailed;
  WatchInterrupts();
  constexpr rlim_t kForOthers = 64;
  RaiseFileLimit(2 * targets.size() + kForOthers);  // a file and its stream
  return PieceWriter(targets, arguments.Has("quiet")).Write(pieces, arguments.Has("force"));
}

}  // namespace qnwave
