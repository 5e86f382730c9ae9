#include "tools/qnmetric/text_file.h"

#include <unistd.h>

#include <cerrno>
#include <memory>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/interrupt.h"
#include "tools/common/output_file.h"

namespace qnmetric {
namespace {

using namespace qntool;

void ReportReading(const std::string& file, HRESULT fallback) {
  ReportFailure(file, kOpeningFiles, StatusFromErrno(fallback),
                errno == EISDIR ? Message(messages::IsDirectory) : Message());
}

}  // namespace

std::optional<std::string> ReadStream(std::FILE* stream, const std::string& name) {
  std::string text;
  char block[65536];
  while (const size_t got = std::fread(block, 1, sizeof(block), stream)) text.append(block, got);
  if (!std::ferror(stream)) return text;
  ReportReading(name, QN_E_FILE_READ);
  return std::nullopt;
}

std::optional<std::string> ReadWhole(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"), std::fclose);
  if (stream) return ReadStream(stream.get(), file);
  ReportReading(file, QN_E_FILE_OPEN);
  return std::nullopt;
}

bool WriteWhole(const std::string& file, const std::string& text, bool overwrite) {
  WatchInterrupts();  // the little that is left is done
  OutputFile output;
  if (!output.Create(file, overwrite)) return false;
  for (size_t done = 0; done < text.size();) {
    const ssize_t put = write(output.Descriptor(), text.data() + done, text.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return output.Fail(StatusFromErrno(QN_E_FILE_WRITE));
    done += static_cast<size_t>(put);
  }
  // A file system that cannot do it does without.
  if (fsync(output.Descriptor()) != 0 && errno != EINVAL && errno != EROFS)
    return output.Fail(StatusFromErrno(QN_E_FILE_WRITE));
  return output.Commit();
}

}  // namespace qnmetric
