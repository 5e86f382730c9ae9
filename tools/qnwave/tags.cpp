// qnwave tags: the texts of a file, listed and changed.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "qn/platform/locale.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/common/json.h"
#include "tools/common/options.h"
#include "tools/common/output_file.h"
#include "tools/qnwave/command.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/report.h"
#include "tools/qnwave/tag_file.h"

namespace qnwave {
namespace {

constexpr Option kOptions[] = {
    {"set", "NAME=TEXT", "set a text; an empty one deletes; may be given again"},
    {"delete", "NAME", "delete a text; may be given again"},
    {"clear", nullptr, "delete all texts; what --set gives comes after"},
    {"output", "OUT", "leave FILE as it is and write the changed file to OUT"},
    {"force", nullptr, "overwrite OUT"},
    {"code-page", "NUMBER",
     "the code page of narrow texts, such as 1252 or 932 (default: that of the environment, as a rule "
     "UTF-8)"},
    {"json", nullptr, "print an array with one JSON object for each file, as it is in the end"},
    {"quiet", nullptr, "no progress bar and no lines about changes"},
};

struct Job {
  TagChanges changes;
  std::optional<std::string> output;
  bool force = false;
  bool asJson = false;
  bool quiet = false;
};

// False with the mistake reported.
bool ReadOptions(const Arguments& arguments, Job* job) {
  const auto mistaken = [](const std::string& mistake) {
    ReportUsage("tags", mistake);
    return false;
  };
  const auto unknown = [&](std::string_view name) {
    return mistaken("unknown name " + Quoted(name) +
                    " (one such as title, an id of four characters, or id: and an id)");
  };
  TagChanges& changes = job->changes;
  changes.clear = arguments.Has("clear");
  for (const std::string_view name : arguments.Values("delete")) {
    const auto id = ParseTagWord(name);
    if (!id) return unknown(name);
    changes.deleted.push_back(*id);
  }
  for (const std::string_view word : arguments.Values("set")) {
    const TagSetting setting = SplitTagSetting(word);
    if (!setting.text) return mistaken(Quoted(word) + " is not NAME=TEXT");
    const auto id = ParseTagWord(setting.name);
    if (!id) return unknown(setting.name);
    const std::string text(*setting.text);
    if (!qntool::IsUtf8(text)) return mistaken("the text of " + Quoted(word) + " is not valid UTF-8");
    std::erase_if(changes.set, [&](const auto& other) { return other.first == *id; });
    if (text.empty()) {
      changes.deleted.push_back(*id);
    } else {
      changes.set.emplace_back(*id, text);
    }
  }
  if (const auto number = arguments.Value("code-page")) {
    const auto codePage = ParseNumber<uint32_t>(*number, 1, UINT32_MAX);
    if (!codePage || !SetAnsiCodePage(*codePage)) return mistaken("unknown code page " + Quoted(*number));
  }
  if (const auto output = arguments.Value("output")) job->output = *output;
  job->force = arguments.Has("force");
  job->asJson = arguments.Has("json");
  job->quiet = arguments.Has("quiet");
  if (job->output && arguments.Operands().size() != 1) return mistaken("--output goes with one FILE");
  if (job->force && !job->output) return mistaken("--force goes with --output");
  return true;
}

std::vector<Tag> TagsOf(const TagFile& file) {
  std::vector<const TagList*> lists;
  for (const TagList& list : file.lists) lists.push_back(&list);
  return MergeTags(lists);
}

// Name and id in one: "title", "ZZZZ".
std::string TagLabel(uint32_t id) {
  const char* const name = TagName(id);
  return name ? name : TagIdText(id);
}

void PrintTags(const std::string& name, const std::vector<Tag>& tags) {
  std::printf("%s\n", Shown(name).c_str());
  for (const Tag& tag : tags) {
    const char* const label = TagName(tag.id);
    std::printf("  %-14s%s  %s\n", label ? label : "", TagIdText(tag.id).c_str(), Shown(tag.text).c_str());
  }
  if (tags.empty()) std::printf("  no texts\n");
}

void WriteTags(JsonWriter* json, const std::string& name, const TagFile& file, const std::vector<Tag>& tags) {
  json->BeginObject();
  json->String("file", name);
  json->String("container", ContainerName(file.layout.container));
  json->BeginArray("tags");
  for (const Tag& tag : tags) {
    json->BeginObject();
    json->String("id", TagIdText(tag.id));
    if (const char* const label = TagName(tag.id)) {
      json->String("name", label);
    } else {
      json->Null("name");
    }
    json->String("text", tag.text);
    json->String("list", tag.list);
    json->String("encoding", tag.encoding);
    json->EndObject();
  }
  json->EndArray();
  json->Bool("damaged", file.layout.IsDamaged() || !file.damage.empty());
  json->BeginArray("problems");
  for (const Problem& problem : file.layout.problems) json->String("", problem.text.English());
  for (const Message& problem : file.damage) json->String("", problem.English());
  json->EndArray();
  json->EndObject();
}

// Lists a file that has been read; the exit code.
int List(const std::string& name, const TagFile& file, const Job& job, JsonWriter* json) {
  const std::vector<Tag> tags = TagsOf(file);
  if (job.asJson) {
    WriteTags(json, name, file, tags);
  } else {
    PrintTags(name, tags);
  }
  for (const Tag& tag : tags) {
    if (tag.disagrees) ReportWarning(name, {messages::TagsDisagree, {Message(TagLabel(tag.id))}});
  }
  for (const Message& problem : file.damage) ReportWarning(name, problem);
  for (const Problem& problem : file.layout.problems) ReportWarning(name, problem.text);
  return file.damage.empty() && !file.layout.IsDamaged() ? kExitOk : kExitDamaged;
}

// What can be listed but not changed is refused; kExitOk goes on.
int JudgeChange(const std::string& name, const TagFile& file, const Job& job) {
  const Layout& layout = file.layout;
  if (!layout.IsRepairable()) {
    ReportError(name, QN_E_FILE_UNSUPPORTED,
                {messages::TagsNotChanged, {Message(ContainerName(layout.container))}});
    return kExitFailed;
  }
  if (layout.IsDamaged()) {
    for (const Problem& problem : layout.problems) ReportWarning(name, problem.text);
    ReportError(name, QN_E_FILE_FORMAT, {messages::TryRepair, {Message(Quoted(name))}});
    return kExitDamaged;
  }
  // A list that is to go may be as it likes.
  if (file.damage.empty() || (job.changes.clear && !file.hasMoreLists)) return kExitOk;
  for (const Message& problem : file.damage) ReportWarning(name, problem);
  if (file.hasMoreLists) {
    ReportError(name, QN_E_FILE_FORMAT, messages::TagsTooManyToChange);
  } else {
    ReportError(name, QN_E_FILE_FORMAT, messages::TagsTryClear);
  }
  return kExitDamaged;
}

// Writes the changed file to another one, which may take the place of this one.
int WriteAnew(const std::string& name, const std::string& target, bool overwrite, const TagWriter& writer,
              uint64_t bytes, bool quiet) {
  WatchInterrupts();
  qntool::OutputFile output;
  if (!output.Create(target, overwrite)) return kExitFailed;
  const int source = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  HRESULT status = source < 0 ? qntool::StatusFromErrno(QN_E_FILE_OPEN) : S_OK;
  if (status == S_OK) {
    Progress progress(target, bytes, quiet);
    status = writer.WriteAnew(source, output.Descriptor(), [&](uint64_t done) { progress.Show(done); });
    close(source);
  }
  if (InterruptSignal() != 0) {
    ReportError(target, QN_E_CANCELLED, messages::NothingWritten);
    return kExitInterruptedBase + InterruptSignal();
  }
  if (status != S_OK) {
    ReportError(target, status, messages::NothingWritten, qntool::kSavingFiles);
    return kExitFailed;
  }
  return output.Commit() ? kExitOk : kExitFailed;
}

// Changes an open file, or writes the changed one elsewhere; the exit code.
int Change(const std::string& name, const File& open, const TagFile& file, const Job& job) {
  std::vector<TagList> lists = file.lists;
  std::vector<uint32_t> wideOnly;
  ChangeTags(&lists, file.layout.container, job.changes, &wideOnly);
  const TagWriter writer(open, file, lists);
  const TagRoad road = writer.Road();
  if (road == TagRoad::kTooLarge) {
    ReportError(name, QN_E_FILE_TOO_LARGE, messages::TagsTooLong);
    return kExitFailed;
  }
  if (road == TagRoad::kTooMuch) {
    ReportError(name, E_INVALIDARG, messages::TagsTooMuch);
    return kExitFailed;
  }
  const char* done = "nothing to change";
  if (job.output || road == TagRoad::kAnew) {
    const std::string& target = job.output ? *job.output : name;
    const int result =
        WriteAnew(name, target, !job.output || job.force, writer, file.layout.fileBytes, job.quiet);
    if (result != kExitOk) return result;
    done = job.output ? "written" : "changed, written anew";
  } else if (road == TagRoad::kInPlace) {
    WatchInterrupts();
    bool isUndone;
    const HRESULT status = writer.WriteInPlace(&isUndone);
    if (status != S_OK) {
      ReportError(name, status, isUndone ? messages::TagsKept : messages::TagsLost);
      return kExitFailed;
    }
    done = "changed in place";
  }
  if (!job.quiet && !job.asJson) std::printf("%s: %s.\n", Shown(job.output.value_or(name)).c_str(), done);
  for (const uint32_t id : wideOnly) {
    ReportWarning(name, {messages::TagsWideOnly, {Message(std::to_string(GetACP())), Message(TagLabel(id))}});
  }
  return kExitOk;
}

// One file; the exit code.
int Work(const std::string& name, const Job& job, JsonWriter* json) {
  const bool isChange = !job.changes.IsEmpty() || job.output;
  std::string result = name;
  {
    const File open = isChange && !job.output ? File::ForChange(name) : File::ForReading(name);
    if (!open) return kExitFailed;
    const TagFile file = ReadTagFile(open, name);
    const Container container = file.layout.container;
    if (container == Container::kUnknown || container == Container::kOther) {
      ReportOpenError(name, QN_E_FILE_FORMAT, messages::NoKnownFile);
      return kExitFailed;
    }
    if (container == Container::kAiff) {
      ReportOpenError(name, QN_E_FILE_UNSUPPORTED,
                      {messages::TagsNotHeld, {Message(ContainerName(container))}});
      return kExitFailed;
    }
    if (!isChange) return List(name, file, job, json);
    int exitCode = JudgeChange(name, file, job);
    if (exitCode == kExitOk) exitCode = Change(name, open, file, job);
    if (exitCode != kExitOk || !job.asJson) return exitCode;
    if (job.output) result = *job.output;
  }
  const File changed = File::ForReading(result);
  return changed ? List(result, ReadTagFile(changed, result), job, json) : kExitFailed;
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("tags", "no file is given");
    return kExitUsage;
  }
  Job job;
  if (!ReadOptions(arguments, &job)) return kExitUsage;
  JsonWriter json;
  json.BeginArray();
  int worst = kExitOk;
  for (const std::string& name : arguments.Operands()) {
    if (std::ferror(stdout)) break;  // nobody reads on
    const int result = Work(name, job, &json);
    if (InterruptSignal() != 0) return kExitInterruptedBase + InterruptSignal();
    // A failure outweighs damage.
    if (worst != kExitFailed && result != kExitOk) worst = result;
  }
  json.EndArray();
  if (job.asJson) std::fputs(json.Text().c_str(), stdout);
  return worst;
}

}  // namespace

const Command kTagsCommand = {
    "tags",
    "FILE...",
    "List, set and delete the texts of wave files: title, artist and so on.",
    "NAME is title, artist, album, track, date, genre, comment, copyright, engineer, software or another name"
    " of the manual, or the four characters of an id such as INAM; id: in front of an id, as in id:Part, "
    "tells it "
    "from a name, and it may hold = then. No sample changes, and no text or chunk "
    "that"
    " is not named. A file is changed in place where the texts fit, else a new one takes its place when it is"
    " whole.",
    kOptions,
    Run,
};

}  // namespace qnwave
