// qnwave peaks: the peak files that waveform displays draw from, built or found valid.
#include <cstdio>
#include <filesystem>
#include <string>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/options.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/peak_reader.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

namespace fs = std::filesystem;

// A scan counts the frames of a block in 17 bits: the library builds no file of coarser ones.
constexpr DWORD kMostFramesPerPeak = 0x1FFFF;

constexpr Option kOptions[] = {
    {"force", nullptr, "build again what is valid, and replace a file of the name that is no peak file"},
    {"bits", "8|16", "bits of a value (default 16; a valid file of either is kept unless this is given)"},
    {"frames-per-peak", "N",
     "the resolution, 64 to 131071 frames a peak (default 256; a valid file of any is kept unless this is"
     " given)"},
    {"hidden", nullptr, "give new peak files the hidden attribute"},
    {"to-end", nullptr,
     "take all bytes from the first sample to the end of FILE, whatever its header states"},
    {"quiet", nullptr, "no progress bar and no line for what went well"},
};

struct Wish {
  DWORD bits = 0;           // 0: what there is
  DWORD framesPerPeak = 0;  // 0: what there is
  bool force = false;
  bool hidden = false;
  bool toEnd = false;
  bool quiet = false;
};

// False with the mistake reported.
bool ReadOptions(const Arguments& arguments, Wish* wish) {
  wish->force = arguments.Has("force");
  wish->hidden = arguments.Has("hidden");
  wish->toEnd = arguments.Has("to-end");
  wish->quiet = arguments.Has("quiet");
  if (const auto text = arguments.Value("bits")) {
    wish->bits = *text == "8" ? 8 : *text == "16" ? 16 : 0;
    if (wish->bits == 0) {
      ReportUsage("peaks", "peaks have 8 or 16 bits, not " + Quoted(*text));
      return false;
    }
  }
  if (const auto text = arguments.Value("frames-per-peak")) {
    const auto frames = ParseNumber<DWORD>(*text, 64, kMostFramesPerPeak);
    if (!frames) {
      ReportUsage("peaks", "bad resolution " + Quoted(*text) + " (64 to " +
                               std::to_string(kMostFramesPerPeak) + " frames a peak)");
      return false;
    }
    wish->framesPerPeak = *frames;
  }
  return true;
}

struct Resolution {
  DWORD bits = 0;
  DWORD framesPerPeak = 0;
};

Resolution ResolutionOf(IQnAudioPeak* peaks) {
  DWORD type = 0;
  Resolution resolution;
  peaks->GetInfo(nullptr, &resolution.framesPerPeak, &type, nullptr, nullptr);
  resolution.bits = static_cast<DWORD>(QnAudio_BitsFromSampleType(static_cast<QNSAMPLETYPE>(type)));
  return resolution;
}

// The bar of a build. It stops a build that a signal ends, and one that went to a temporary file because no
// peak file can be written in its place: what it would scan is lost when the object goes.
class BuildProgress final : public IQnAudioPeakProgress {
 public:
  BuildProgress(IQnAudioPeak* peaks, const std::string& peakFile, Progress* progress)
      : peaks_(peaks), peakFile_(peakFile), progress_(*progress) {}
  virtual ~BuildProgress() = default;

  bool WentElsewhere() const { return wentElsewhere_; }

  static constexpr uint64_t kTotal = 10000;

  void Reserved() override {}
  LONG Begin(const WCHAR*, LONGLONG) override {
    wentElsewhere_ = PeakFileName(peaks_) != peakFile_;
    return !wentElsewhere_ && InterruptSignal() == 0;
  }
  LONG Update(LONGLONG done) override {
    progress_.Show(static_cast<uint64_t>(done));
    return InterruptSignal() == 0;
  }
  void End(HRESULT) override {}

 private:
  IQnAudioPeak* const peaks_;
  const std::string peakFile_;
  Progress& progress_;
  bool wentElsewhere_ = false;
};

enum class Found { kNothing, kPeaks, kOther, kLink, kNoFile };

// The same of what is no pipe or device.
Found LookInside(const std::string& peakFile) {
  std::FILE* const file = std::fopen(peakFile.c_str(), "rb");
  if (!file) return Found::kNothing;
  char magic[4] = {};
  const size_t got = std::fread(magic, 1, sizeof magic, file);
  std::fclose(file);
  if (got == 0) return Found::kNothing;
  return std::string_view(magic, got) == "QNPK" ? Found::kPeaks : Found::kOther;
}

// What stands under the name of a peak file. kLink: a link to what is no peak file, which is not to be
// written to under this name; a file with several names counts as one.
Found Look(const std::string& peakFile) {
  std::error_code error;
  const fs::file_status status = fs::status(peakFile, error);
  // To open a pipe is to wait for its other end.
  if (fs::exists(status) && !fs::is_regular_file(status)) return Found::kNoFile;
  const bool isLink = fs::is_symlink(fs::symlink_status(peakFile, error)) ||
                      (fs::exists(status) && fs::hard_link_count(peakFile, error) > 1);
  const Found content = LookInside(peakFile);
  return isLink && content != Found::kPeaks ? Found::kLink : content;
}

int BuildPeaks(const std::string& name, const Wish& wish) {
  AudioSource source;
  const OpenResult opened = OpenAudio(name, wish.toEnd, &source);
  if (opened != OpenResult::kOk) return opened == OpenResult::kDamaged ? kExitDamaged : kExitFailed;
  PeakReader reader;
  if (!reader.Start(source)) return kExitFailed;
  const LONG flags = wish.hidden ? QNAUDIOPEAK_HIDDEN : 0;
  Peaks peaks;
  // The look at what there is needs no right to write.
  HRESULT status = CreatePeaks(&reader, wish.framesPerPeak, flags | QNAUDIOPEAK_READONLY, &peaks);
  if (FAILED(status)) {
    ReportError(name, status);
    return kExitFailed;
  }
  const std::string peakFile = PeakFileName(peaks.get());
  const Resolution old = ResolutionOf(peaks.get());
  const bool isValid = status == S_OK && !wish.force && (wish.bits == 0 || wish.bits == old.bits) &&
                       (wish.framesPerPeak == 0 || wish.framesPerPeak == old.framesPerPeak);
  const Found found = Look(peakFile);
  if (!isValid) {
    if (found == Found::kNoFile || found == Found::kLink || (found == Found::kOther && !wish.force)) {
      if (found == Found::kNoFile) {
        ReportError(peakFile, QN_E_FILE_CREATE, messages::NoRegularFile, qntool::kSavingFiles);
      } else {
        ReportError(peakFile, QN_E_FILE_EXISTS,
                    found == Found::kLink ? messages::LinkNoPeakFile : messages::NoPeakFile,
                    qntool::kSavingFiles);
      }
      return kExitFailed;
    }
    peaks.reset();  // its file is closed before another opens it
    status = CreatePeaks(&reader, wish.framesPerPeak, flags, &peaks);
    Progress progress(name, BuildProgress::kTotal, wish.quiet);
    BuildProgress build(peaks.get(), peakFile, &progress);
    const DWORD bits = wish.bits == 8 ? 0 : QNAUDIOPEAK_BUILD_16BIT;
    if (SUCCEEDED(status)) status = peaks->Build(bits | QNAUDIOPEAK_BUILD_FORCE, &build);
    if (build.WentElsewhere()) status = QN_E_FILE_CREATE;
  }
  if (InterruptSignal() != 0) {
    ReportError(name, QN_E_CANCELLED, messages::NoPeaksKept);
    return kExitInterruptedBase + InterruptSignal();
  }
  if (FAILED(status) || FAILED(reader.Failure())) {
    const bool isAboutPeaks = status == QN_E_FILE_CREATE || status == QN_E_FILE_WRITE;
    if (isAboutPeaks) {
      ReportError(peakFile, status, messages::NotBesideMedia, qntool::kSavingFiles);
    } else {
      ReportError(name, FAILED(status) ? status : reader.Failure());
    }
    return kExitFailed;
  }
  if (!wish.quiet) {
    const Resolution now = ResolutionOf(peaks.get());
    const char* const outcome = isValid ? "valid" : found == Found::kNothing ? "built" : "built again";
    std::printf("%s: peaks %s: %s, %u bits, %s frames a peak\n", Shown(name).c_str(), outcome,
                Shown(peakFile).c_str(), now.bits, Grouped(now.framesPerPeak).c_str());
  }
  return kExitOk;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("peaks", "no file is given");
    return kExitUsage;
  }
  Wish wish;
  if (!ReadOptions(arguments, &wish)) return kExitUsage;
  WatchInterrupts();
  int worst = kExitOk;
  for (const std::string& name : arguments.Operands()) {
    const int result = BuildPeaks(name, wish);
    if (InterruptSignal() != 0) return kExitInterruptedBase + InterruptSignal();
    // A failure outweighs damage.
    if (worst != kExitFailed && result != kExitOk) worst = result;
  }
  return worst;
}

}  // namespace

const Command kPeaksCommand = {
    "peaks",
    "FILE...",
    "Build the peak files that waveforms are drawn from, where they are not valid.",
    "The peaks of take.wav are in take.qnk beside it. A peak file is valid when it knows the date, the "
    "channels"
    " and the length of its file. A file that states more samples than it holds is read to its end with a"
    " warning; one that is damaged otherwise is refused with exit code 3. Nothing is kept of a run that is"
    " interrupted.",
    kOptions,
    Run,
};

}  // namespace qnwave
