// qnwave mix: files added up in one file.
#include <algorithm>
#include <cmath>
#include <optional>

#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/mixer.h"
#include "tools/qnwave/position.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_check.h"
#include "tools/qnwave/sample_writer.h"
#include "tools/qnwave/stream_copy.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"gain", "DB", "gain in dB; like the next five, once for all files or once for each, in their order"},
    {"map", "LIST",
     "for each channel of the file the channel of OUT, from 0, that it is added to: 1,0 swaps a stereo file,"
     " 0,0 makes it mono, 0+1 spreads a mono one, - leaves a channel out"},
    {"offset", "POS", "where in OUT the file starts (default: 0)"},
    {"fade-in", "POS", "length of a fade from silence at the file's start"},
    {"fade-out", "POS", "length of a fade to silence at the file's end"},
    {"curve", "linear|slow|fast", "how fades start (default: linear)"},
    {"type", "TYPE", "sample type of OUT (default: that of the first file), as convert has it"},
    kDitherOption,
    kShapeOption,
    kFormatOption,
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kContainerOption,
    kToEndOption,
    kForceOption,
    kQuietOption,
};

struct Job {
  std::vector<MixInput> inputs;
  Target target;
  DitherSettings dither;
};

// The value of an option for the file of a number, if there is one: a single one counts for all files.
std::optional<std::string_view> ValueFor(const Arguments& arguments, const char* option, size_t file) {
  const auto values = arguments.Values(option);
  if (values.empty()) return std::nullopt;
  return values.size() == 1 ? values[0] : values[file];
}

bool CountValues(const Arguments& arguments, size_t files) {
  for (const char* option : {"gain", "map", "offset", "fade-in", "fade-out", "curve"}) {
    const size_t count = arguments.Values(option).size();
    if (count <= 1 || count == files) continue;
    return Mistaken("mix", "--" + std::string(option) + " is given " + std::to_string(count) + " times for " +
                               std::to_string(files) + (files == 1 ? " file" : " files"));
  }
  return true;
}

bool ReadMap(std::string_view text, std::vector<Route>* routes) {
  uint32_t from = 0;
  for (const std::string_view channel : Split(text, ',')) {
    for (const std::string_view to : Split(channel, '+')) {
      std::string mistake;
      const auto map = ParseChannelMap(to, true, &mistake);
      if (!map) return Mistaken("mix", mistake + " for --map");
      if (map->front() != kSilence) routes->push_back({from, static_cast<uint32_t>(map->front())});
    }
    ++from;
  }
  return true;
}

// What does not depend on the file; false with the mistake reported.
bool ReadOptions(const Arguments& arguments, size_t file, MixInput* input) {
  if (const auto gain = ValueFor(arguments, "gain", file)) {
    std::string mistake;
    const auto factor = ParseGain(*gain, &mistake);
    if (!factor) return Mistaken("mix", mistake);
    input->gain = *factor;
  }
  if (const auto map = ValueFor(arguments, "map", file); map && !ReadMap(*map, &input->routes)) return false;
  if (const auto curve = ValueFor(arguments, "curve", file)) {
    int32_t& form = input->envelope.attackCurve;
    constexpr int32_t kSlow = 2;  // beyond the range of a straight line
    if (*curve == "slow") {
      form = kSlow;
    } else if (*curve == "fast") {
      form = -kSlow;
    } else if (*curve != "linear") {
      return Mistaken("mix", "unknown curve " + Quoted(*curve) + " (linear, slow or fast)");
    }
    input->envelope.releaseCurve = form;
  }
  return true;
}

// What depends on the rate of the file; false with the mistake reported.
bool ReadTimes(const Arguments& arguments, size_t file, MixInput* input) {
  const AudioSource& source = input->source;
  std::optional<uint64_t> offset, in, out;
  const auto read = [&](const char* option, bool isLength, std::optional<uint64_t>* frames) {
    const auto text = ValueFor(arguments, option, file);
    return !text || ParsePosition("mix", arguments, option, *text, isLength, source.format.rate, frames);
  };
  if (!read("offset", false, &offset) || !read("fade-in", true, &in) || !read("fade-out", true, &out))
    return false;
  input->offset = offset.value_or(0);
  const auto fade = [&](const std::optional<uint64_t>& frames, int64_t* time, float* level) {
    if (!frames) return;
    const double seconds = static_cast<double>(std::min(*frames, source.frames)) / source.format.rate;
    constexpr double kUnits = 1e7;
    *time = std::llround(seconds * kUnits);
    *level = 0;
  };
  fade(in, &input->envelope.attackTime, &input->envelope.attackLevel);
  fade(out, &input->envelope.releaseTime, &input->envelope.releaseLevel);
  return true;
}

// Opens the files; an exit code.
int OpenInputs(const Arguments& arguments, const std::vector<std::string>& names, Job* job) {
  for (size_t i = 0; i < names.size(); ++i) {
    MixInput& input = job->inputs[i];
    const int exitCode = OpenSource(arguments, names[i], &input.source);
    if (exitCode != kExitOk) return exitCode;
    const AudioSource& first = job->inputs[0].source;
    const AudioSource& source = input.source;
    if (source.format.rate != first.format.rate) {
      ReportError(source.name, QN_E_MEDIA_TYPE,
                  {messages::RateDiffers,
                   {Message::Number(source.format.rate), Message(Quoted(first.name)),
                    Message::Number(first.format.rate)}});
      return kExitFailed;
    }
    for (const Route& route : input.routes) {
      if (route.from < source.format.channels) continue;
      const uint32_t channels = source.format.channels;
      Mistaken("mix", "--map names channel " + std::to_string(route.from) + " of " + Quoted(source.name) +
                          ", which has " + std::to_string(channels) +
                          (channels == 1 ? " channel" : " channels") + ", counted from 0");
      return kExitUsage;
    }
    if (!IsOtherFile(source, job->target.name)) return kExitFailed;
    if (!ReadTimes(arguments, i, &input)) return kExitUsage;
  }
  return kExitOk;
}

// The format and the length of OUT, and the routes of files without a map; an exit code.
int CompleteTarget(const Arguments& arguments, Job* job) {
  const AudioFormat& first = job->inputs[0].source.format;
  AudioFormat& out = job->target.format;
  if (out.type == QNST_NONE) out.type = KeptFormat(first).type;
  out.rate = first.rate;
  out.channels = 1;
  for (const MixInput& input : job->inputs) {
    for (const Route& route : input.routes) out.channels = std::max(out.channels, route.to + 1);
    if (!arguments.Has("map")) out.channels = std::max(out.channels, input.source.format.channels);
    job->target.frames = std::max(job->target.frames, input.offset + input.source.frames);
  }
  if (!arguments.Has("map") && out.channels == first.channels) out.mask = first.mask;
  if (out.channels > Mixer::kMostChannels) {
    ReportError(job->target.name, QN_E_MEDIA_TYPE,
                {messages::MixChannels, {Message::Number(Mixer::kMostChannels)}});
    return kExitFailed;
  }
  if (out.FrameBytes() > kMostFrameBytes) {
    ReportError(job->target.name, QN_E_MEDIA_TYPE,
                {messages::FrameTooLarge, {Message::Bytes(kMostFrameBytes)}});
    return kExitFailed;
  }
  for (MixInput& input : job->inputs) {
    if (arguments.Has("map")) continue;
    for (uint32_t i = 0; i < input.source.format.channels; ++i) input.routes.push_back({i, i});
    // In the middle, as it sounds alone.
    if (input.source.format.channels == 1 && out.channels > 1) input.routes.push_back({0, 1});
  }
  const int exitCode = CheckDither("mix", arguments, job->dither, job->target);
  return exitCode == kExitOk && !CheckSize(job->target) ? kExitFailed : exitCode;
}

// Mixes block by block under a progress bar; an exit code.
int WriteMix(const Job& job, bool overwrite, bool quiet) {
  const auto& [name, container, format, frames] = job.target;
  WatchInterrupts();
  Mixer mixer(job.inputs, format.rate, format.channels);
  AudioOutput output;
  if (!mixer.Open() || !output.Create(name, container, format, frames, overwrite)) return kExitFailed;
  SampleWriter writer(&output, format, QNST_FLOAT64, mixer.BlockFrames(), job.dither);
  std::optional<Progress> progress;
  progress.emplace(name, std::max<uint64_t>(1, frames), quiet);
  const auto fail = [&progress](const std::string& file, HRESULT status) {
    progress.reset();
    ReportError(file, status);
    return kExitFailed;
  };
  uint32_t count = 0;
  for (uint64_t at = 0; at < frames; at += count) {
    if (InterruptSignal() != 0) {
      progress.reset();
      return ReportInterrupt(job.target.name);
    }
    count = static_cast<uint32_t>(std::min<uint64_t>(mixer.BlockFrames(), frames - at));
    const MixInput* failed = nullptr;
    const double* const sum = mixer.Mix(at, count, &failed);
    if (!sum) return fail(failed->source.name, SystemStatus(QN_E_FILE_READ));
    const HRESULT status = writer.Write(at, sum, count);
    if (status != S_OK) return fail(name, status);
    progress->Show(at + count);
  }
  progress.reset();
  if (!output.Commit()) return kExitFailed;
  WarnOfSamples(name, mixer.NotNumbers() + writer.NotNumbers(), writer.Clipped());
  return kExitOk;
}

int Run(const Arguments& arguments) {
  std::vector<std::string> names = arguments.Operands();
  if (names.size() < 2) {
    ReportUsage("mix", "one or more files and OUT are needed");
    return kExitUsage;
  }
  Job job;
  job.target.name = names.back();
  names.pop_back();
  job.inputs.resize(names.size());
  if (!CountValues(arguments, names.size()) || !HasFormatForItsOptions("mix", arguments) ||
      !ChooseContainer("mix", arguments, &job.target) || !ChooseType("mix", arguments, &job.target) ||
      !ChooseDither("mix", arguments, &job.dither))
    return kExitUsage;
  for (size_t i = 0; i < names.size(); ++i) {
    if (!ReadOptions(arguments, i, &job.inputs[i])) return kExitUsage;
  }
  int exitCode = OpenInputs(arguments, names, &job);
  if (exitCode == kExitOk) exitCode = CompleteTarget(arguments, &job);
  if (exitCode != kExitOk) return exitCode;
  const bool quiet = arguments.Has("quiet");
  exitCode = WriteMix(job, arguments.Has("force"), quiet);
  if (exitCode == kExitOk) TellWritten(job.target, quiet);
  return exitCode;
}

}  // namespace

const Command kMixCommand = {
    "mix",
    "FILE... OUT",
    "Add files up in a new file, with gains, channel maps and fades.",
    "All have the same rate. OUT is as long as the one that ends last. A POS is read as cut reads it. OUT is"
    " written beside its place under another name and moved there when it is whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
