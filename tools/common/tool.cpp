#include "tools/common/tool.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <string>

#include "qn/platform/registry.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/language.h"
#include "tools/common/options.h"
#include "tools/common/report.h"

namespace qntool {
namespace {

void WarnOfDamage() {
  for (const HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    std::u16string path(static_cast<size_t>(GetRegistryDamage(hive, nullptr, 0)), u'\0');
    if (path.empty()) continue;
    GetRegistryDamage(hive, path.data(), static_cast<int>(path.size() + 1));
    ReportWarning("", {messages::SettingsDamaged, {Message(Quoted(qn::PathToNative(path)))}});
  }
}

// A file that is opened must not get the number of a standard stream that the caller has closed: what is
// printed would be written into it. The streams fail as closed ones do.
void FillStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0)
      return;
  }
}

// What was printed must have arrived: a full disk behind the output is a failure too. A reader that has gone
// is one that nobody needs to be told of.
int FinishOutput(int exitCode) {
  errno = 0;
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return exitCode;
  if (errno != EPIPE)
    ReportFailure(Message(messages::StandardOutput).Shown(), kDuringOperation, QN_E_FILE_WRITE);
  return exitCode == kExitOk ? kExitFailed : exitCode;
}

}  // namespace

int RunTool(int count, char** words, int (*run)(std::span<char* const> words)) try {
  FillStandardStreams();
  // A limit on the size of files and a reader that has gone show as a failed write, and the run tidies up.
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  BecomeHost();
  UseLanguageOfUser();
  const int exitCode = run({words + 1, static_cast<size_t>(count > 0 ? count - 1 : 0)});
  WarnOfDamage();
  return FinishOutput(exitCode);
} catch (const std::bad_alloc&) {
  ReportFailure("", kDuringOperation, E_OUTOFMEMORY);
  return kExitFailed;
}

}  // namespace qntool
