#include "tools/qnmetric/settings_file.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/options.h"

namespace qnmetric {
namespace {

using namespace qntool;

// A name as it stands in front of "=".
std::string PrintName(const std::u16string& name) {
  const std::string bytes = qn::ToUtf8(name);
  const bool isPlain = !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) || c == '_' || c == '-' || c == '.');
  });
  return isPlain ? bytes : PrintText(name);
}

// Tells the error in errno.
bool Fail(const std::string& file, ULONG_PTR context, HRESULT fallback) {
  Message details;
  if (errno == EISDIR) details = messages::IsDirectory;
  if (errno == EEXIST) details = messages::ForceOverwrites;
  if (context == kSavingFiles && (errno == ENOENT || errno == ENOTDIR)) details = messages::FolderMissing;
  ReportFailure(file, context, StatusFromErrno(fallback), details);
  return false;
}

}  // namespace

std::string PrintTree(const Tree& tree) {
  std::string text;
  for (const auto& [key, names] : tree) {
    if (!key.empty()) text += "[" + PrintText(key) + "]\n";
    for (const auto& [name, setting] : names) text += PrintName(name) + " = " + PrintSetting(setting) + "\n";
  }
  return text;
}

std::optional<Tree> ReadTreeText(std::string_view text, int* lineNumber) {
  Tree tree;
  std::u16string key;
  *lineNumber = 0;
  for (std::string_view line : Split(text, '\n')) {
    ++*lineNumber;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      line.remove_prefix(1);
      const auto name = TakeText(&line);
      if (!name || line != "]") return std::nullopt;
      key = *name;
      continue;
    }
    std::u16string name;
    if (line[0] == '"') {
      const auto taken = TakeText(&line);
      if (!taken) return std::nullopt;
      name = *taken;
    } else {
      const size_t blank = std::min(line.find(' '), line.size());
      name = qn::FromUtf8(line.substr(0, blank));
      line.remove_prefix(blank);
    }
    if (line.substr(0, 3) != " = ") return std::nullopt;
    const auto setting = ReadSetting(line.substr(3));
    if (!setting) return std::nullopt;
    tree[key][name] = *setting;
  }
  return tree;
}

std::optional<std::string> ReadStream(std::FILE* stream, const std::string& name) {
  std::string text;
  char block[65536];
  while (const size_t got = std::fread(block, 1, sizeof(block), stream)) text.append(block, got);
  if (!std::ferror(stream)) return text;
  Fail(name, kOpeningFiles, QN_E_FILE_READ);
  return std::nullopt;
}

std::optional<std::string> ReadWhole(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"), std::fclose);
  if (stream) return ReadStream(stream.get(), file);
  Fail(file, kOpeningFiles, QN_E_FILE_OPEN);
  return std::nullopt;
}

bool WriteWhole(const std::string& file, const std::string& text, bool overwrite) {
  std::string temporary = file + ".XXXXXX";
  const int descriptor = mkstemp(temporary.data());
  if (descriptor < 0) return Fail(file, kSavingFiles, QN_E_FILE_CREATE);
  size_t done = 0;
  ssize_t put = 0;
  while (done < text.size() && (put = write(descriptor, text.data() + done, text.size() - done)) > 0)
    done += static_cast<size_t>(put);
  const bool written = done == text.size() && fsync(descriptor) == 0;
  close(descriptor);
  // A link is refused where there is a file; a rename replaces it.
  const bool named = written && (overwrite ? rename(temporary.c_str(), file.c_str()) == 0
                                           : link(temporary.c_str(), file.c_str()) == 0);
  const int error = errno;
  if (!named || !overwrite) unlink(temporary.c_str());
  errno = error;
  if (named) return true;
  return Fail(file, kSavingFiles, written ? QN_E_FILE_CREATE : QN_E_FILE_WRITE);
}

}  // namespace qnmetric
