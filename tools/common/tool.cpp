#include "tools/common/tool.h"

#include <signal.h>

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

// What was printed must have arrived: a full disk behind the output is a failure too.
int FinishOutput(int exitCode) {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return exitCode;
  ReportFailure(Message(messages::StandardOutput).Shown(), kDuringOperation, QN_E_FILE_WRITE);
  return exitCode == kExitOk ? kExitFailed : exitCode;
}

}  // namespace

int RunTool(int count, char** words, int (*run)(std::span<char* const> words)) try {
  // A limit on the size of files shows as a failed write, which is reported and tidied up after.
  signal(SIGXFSZ, SIG_IGN);
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
