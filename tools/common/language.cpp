#include "tools/common/language.h"

#include "qn/platform/locale.h"
#include "qn/platform/text.h"
#include "qn/text/qnlang.h"
#include "qn/text/qnprint.h"
#include "tools/common/report.h"
#include "tools/common/text.h"

namespace qntool {
namespace {

void TakeLanguageOver() {
  // The labels among the default tokens come in the library's language, so that is set first.
  _QnLang_UpdateKernelOnlyLCID(GetUserDefaultUILanguage());
  QnLang_GetInternationals(nullptr, 0);
  SetMessageLanguage(GetUserDefaultUILanguage());
}

}  // namespace

void UseLanguageOfUser() {
  DWORD lcid = 0;
  if (QnLang_LoadUserLCIDMetric(qn::FromUtf8(kProgram).c_str(), 0, &lcid, TRUE)) SetUserDefaultLCID(lcid);
  TakeLanguageOver();
}

bool UseLanguage(std::string_view name) {
  const LCID lcid = LocaleNameToLCID(qn::FromUtf8(name).c_str(), 0);
  if (lcid == 0 || !SetUserDefaultLCID(lcid)) return false;
  TakeLanguageOver();
  return true;
}

}  // namespace qntool
