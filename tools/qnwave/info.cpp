// qnwave info: what a file is and what it holds.
#include <cstdio>
#include <string>

#include "qn/settings/qnstatus.h"
#include "tools/common/json.h"
#include "tools/common/options.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/layout.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"json", nullptr, "print an array with one JSON object for each file"},
    {"time-format", "FORMAT", "show the duration as one of the forms that the manual lists"},
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
};

struct FileInfo {
  std::string name;
  Layout layout;
  bool hasAudio = false;  // the samples can be read here
  AudioSource audio;
  // Of formats that cannot be read here too, as far as the header tells.
  std::string format;
  std::string summary;
  uint32_t channels = 0;
  uint32_t rate = 0;
};

// False when the file could not be opened or is of no known kind; that has been reported.
bool Inspect(const std::string& name, FileInfo* info) {
  const File file = File::ForReading(name);
  if (!file) return false;
  info->name = name;
  info->layout = ReadLayout(file, name);
  const Layout& layout = info->layout;
  if (layout.container == Container::kUnknown || layout.container == Container::kOther) {
    ReportOpenError(name, QN_E_FILE_FORMAT, messages::NoKnownFile);
    return false;
  }
  info->hasAudio = LocateAudio(name, layout, &info->audio);
  if (layout.hasFormat) {
    info->format = DescribeFormat(layout.record);
    info->summary = SummarizeFormat(layout.record.Format);
    info->channels = layout.record.Format.nChannels;
    info->rate = layout.record.Format.nSamplesPerSec;
  } else if (info->hasAudio) {
    const AudioFormat& audio = info->audio.format;
    WAVEFORMATEX format;
    QnAudio_InitWfx(&format, audio.rate, audio.type, audio.channels);
    info->format = FindSampleType(audio.type)->words;
    info->summary = SummarizeFormat(format);
    info->channels = info->audio.format.channels;
    info->rate = info->audio.format.rate;
  }
  return true;
}

// The frames that there are, known also for linear samples that the library does not read.
bool CountFrames(const FileInfo& info, uint64_t* frames) {
  const WAVEFORMATEX& format = info.layout.record.Format;
  const unsigned tag = QnAudio_GetWaveFormatTag(&format);
  if (info.hasAudio) {
    *frames = info.audio.frames;
  } else if (info.layout.hasData && format.nBlockAlign != 0 && (tag == 1 || tag == 3)) {
    *frames = info.layout.dataBytes / format.nBlockAlign;
  } else {
    return false;
  }
  return true;
}

const char* ContainerWords(const Layout& layout) {
  switch (layout.container) {
    case Container::kWav:
      return "WAV (RIFF)";
    case Container::kWave64:
      return "Wave64";
    case Container::kRf64:
      return "RF64 (RIFF with 64-bit sizes in a ds64 chunk)";
    default:
      return layout.header.type == "AIFC" ? "AIFF-C" : "AIFF";
  }
}

void PrintLine(const char* label, const std::string& text) {
  std::printf("  %-11s%s\n", label, text.c_str());
}

void PrintChunk(const Chunk& chunk, int depth) {
  const std::string indent(static_cast<size_t>(2 * depth + 4), ' ');
  const std::string name = chunk.id + (chunk.listType.empty() ? "" : " " + chunk.listType);
  std::printf("%s%-*s at %s, %s\n", indent.c_str(), depth > 6 ? 0 : 22 - 2 * depth, name.c_str(),
              Grouped(chunk.offset).c_str(), Bytes(chunk.size).c_str());
  for (const Chunk& child : chunk.children) PrintChunk(child, depth + 1);
  if (chunk.unlisted != 0) {
    std::printf("%s  ... and %s more, %s\n", indent.c_str(), Grouped(chunk.unlisted).c_str(),
                Bytes(chunk.unlistedBytes).c_str());
  }
}

// `timeFormat` may be null.
void PrintInfo(const FileInfo& info, const _qnposfmt* timeFormat) {
  const Layout& layout = info.layout;
  std::printf("%s\n", Shown(info.name).c_str());
  PrintLine("Container", ContainerWords(layout));
  if (!info.format.empty()) {
    const WAVEFORMATEX& record = layout.record.Format;
    std::string details = info.hasAudio ? FindSampleType(info.audio.format.type)->name : "";
    if (layout.hasFormat) {
      char text[64];
      std::snprintf(text, sizeof(text), "tag 0x%04X, %u bits, frames of ", record.wFormatTag,
                    record.wBitsPerSample);
      details += (details.empty() ? "" : ", ") + std::string(text) + Bytes(record.nBlockAlign);
    }
    PrintLine("Format", info.format + " (" + details + ")");
    PrintLine("Summary", info.summary);
    const std::string speakers =
        DescribeSpeakers(record.wFormatTag == WAVE_FORMAT_EXTENSIBLE ? layout.record.dwChannelMask : 0);
    const std::string words = info.channels <= 2 ? DescribeChannels(info.channels) : std::string();
    const std::string place = words + (words.empty() || speakers.empty() ? "" : ": ") + speakers;
    PrintLine("Channels", std::to_string(info.channels) + (place.empty() ? "" : " (" + place + ")"));
    PrintLine("Rate", (AreNumbersDressed() ? Grouped(info.rate) : std::to_string(info.rate)) + " Hz");
  }
  uint64_t frames;
  if (CountFrames(info, &frames)) {
    PrintLine("Frames", Grouped(frames));
    if (info.rate != 0) PrintLine("Duration", DescribeDuration(frames, info.rate, timeFormat));
  }
  if (layout.hasData) {
    PrintLine("Data", Bytes(layout.dataBytes) + " at offset " + Grouped(layout.dataStart));
  } else if (info.hasAudio) {
    PrintLine("Data", Bytes(info.audio.frames * info.audio.format.FrameBytes()) + " at offset " +
                          Grouped(info.audio.dataStart));
  }
  PrintLine("File",
            Bytes(layout.fileBytes) + (AreNumbersDressed() ? ", " + ShortSize(layout.fileBytes) : ""));
  std::printf("  Chunks\n");
  PrintChunk(layout.form, 0);
  for (const Message& note : layout.notes) PrintLine("Note", note.Shown());
  for (const Problem& problem : layout.problems) PrintLine("Damaged", problem.text.Shown());
  if (layout.IsDamaged() && layout.IsRepairable()) {
    PrintLine("", Message(messages::TryRepair, {Message(Quoted(info.name))}).Shown());
  }
}

void WriteChunk(JsonWriter* json, const char* key, const Chunk& chunk) {
  json->BeginObject(key);
  json->String("id", chunk.id);
  if (!chunk.listType.empty()) json->String("type", chunk.listType);
  json->Number("offset", chunk.offset);
  json->Number("size", chunk.size);
  if (!chunk.children.empty()) {
    json->BeginArray("chunks");
    for (const Chunk& child : chunk.children) WriteChunk(json, "", child);
    json->EndArray();
  }
  if (chunk.unlisted != 0) json->Number("unlisted", chunk.unlisted);
  json->EndObject();
}

void WriteInfo(JsonWriter* json, const FileInfo& info) {
  const Layout& layout = info.layout;
  json->BeginObject();
  json->String("file", info.name);
  json->String("container", ContainerName(layout.container));
  json->Number("fileBytes", layout.fileBytes);
  if (!info.format.empty()) {
    json->BeginObject("format");
    json->String("words", info.format);
    if (info.hasAudio) json->String("type", FindSampleType(info.audio.format.type)->name);
    json->Number("channels", info.channels);
    json->Number("rate", info.rate);
    if (layout.hasFormat) {
      json->Number("tag", layout.record.Format.wFormatTag);
      json->Number("bits", layout.record.Format.wBitsPerSample);
      json->Number("frameBytes", layout.record.Format.nBlockAlign);
    }
    if (layout.record.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
      json->Number("validBits", layout.record.Samples.wValidBitsPerSample);
      json->Number("channelMask", layout.record.dwChannelMask);
    }
    json->EndObject();
  }
  uint64_t frames;
  if (CountFrames(info, &frames)) {
    json->Number("frames", frames);
    if (info.rate != 0) json->Real("seconds", static_cast<double>(frames) / info.rate);
  }
  if (layout.hasData || info.hasAudio) {
    json->Number("dataOffset", layout.hasData ? layout.dataStart : info.audio.dataStart);
    if (layout.hasData) json->Number("dataBytes", layout.dataBytes);
    if (layout.hasData) json->Number("statedDataBytes", layout.statedBytes);
  }
  json->Bool("readable", info.hasAudio);
  json->Bool("damaged", layout.IsDamaged());
  json->BeginArray("problems");
  for (const Problem& problem : layout.problems) json->String("", problem.text.English());
  json->EndArray();
  json->BeginArray("notes");
  for (const Message& note : layout.notes) json->String("", note.English());
  json->EndArray();
  WriteChunk(json, "chunks", layout.form);
  json->EndObject();
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("info", "no file is given");
    return kExitUsage;
  }
  const bool asJson = arguments.Has("json");
  const bool dressed = arguments.Has("lang");
  // What another program reads is dressed for nobody.
  if (dressed && !asJson) DressNumbers();
  std::optional<_qnposfmt> timeFormat;
  if (dressed || arguments.Has("time-format")) {
    std::string mistake;
    timeFormat = ReadTimeFormat(arguments, arguments.Value("time-format").value_or("time"), &mistake);
    if (!timeFormat) {
      ReportUsage("info", mistake);
      return kExitUsage;
    }
  }
  JsonWriter json;
  json.BeginArray();
  bool failed = false;
  bool damaged = false;
  bool first = true;
  for (const std::string& name : arguments.Operands()) {
    if (std::ferror(stdout)) break;  // nobody reads on
    FileInfo info;
    if (!Inspect(name, &info)) {
      failed = true;
      continue;
    }
    damaged |= info.layout.IsDamaged();
    if (asJson) {
      WriteInfo(&json, info);
    } else {
      if (!first) std::printf("\n");
      PrintInfo(info, timeFormat ? &*timeFormat : nullptr);
    }
    first = false;
  }
  json.EndArray();
  if (asJson) std::fputs(json.Text().c_str(), stdout);
  return failed ? kExitFailed : damaged ? kExitDamaged : kExitOk;
}

}  // namespace

const Command kInfoCommand = {
    "info",
    "FILE...",
    "Show the format, the length and the chunks of wave files.",
    "What is wrong with a damaged file is told, and the exit code is 3.",
    kOptions,
    Run,
};

}  // namespace qnwave
