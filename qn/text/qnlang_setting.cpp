// The language that a user has chosen for an application.
#include "qn/platform/registry.h"
#include "qn/text/qnlang.h"
#include "qn/text/qnprint.h"

namespace {

constexpr WCHAR kCompany[] = W("Marlow Creative Works");
constexpr WCHAR kValueName[] = W("ULangID");

struct KeyPath {
  static constexpr int kSize = 260;
  WCHAR text[kSize];
};

// False when a name is missing or the path too long: a cut path would be another application's.
bool MakePath(KeyPath* path, const WCHAR* application, DWORD version, const WCHAR* company) {
  if (!application || !company) return false;
  const auto major = static_cast<int>(version >> 20);
  const auto minor = static_cast<int>(version >> 16 & 15);
  const HRESULT status =
      major == 0 ? QnCchPrintF(path->text, KeyPath::kSize, nullptr, W("Software\\%s\\%s\\Lang"), company,
                               application)
                 : QnCchPrintF(path->text, KeyPath::kSize, nullptr, W("Software\\%s\\%s\\%d.%d\\Lang"),
                               company, application, major, minor);
  return status == S_OK;
}

}  // namespace

BOOL QnLang_LoadUserLCIDMetric(const WCHAR* application, DWORD version, DWORD* lcidOut, BOOL anyVersion) {
  return QnLang_LoadUserLCIDMetricAppReg(application, anyVersion ? 0 : version, lcidOut, kCompany);
}

BOOL QnLang_LoadUserLCIDMetricAppReg(const WCHAR* application, DWORD version, DWORD* lcidOut,
                                     const WCHAR* company) {
  KeyPath path;
  HKEY key;
  if (!lcidOut || !MakePath(&path, application, version, company)) return FALSE;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, path.text, 0, KEY_READ, &key) != ERROR_SUCCESS &&
      RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.text, 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return FALSE;
  }
  DWORD lcid = 0;
  DWORD type = REG_NONE;
  DWORD size = sizeof lcid;
  const LSTATUS error =
      RegQueryValueExW(key, kValueName, nullptr, &type, reinterpret_cast<BYTE*>(&lcid), &size);
  RegCloseKey(key);
  if (error != ERROR_SUCCESS || type != REG_DWORD || size != sizeof lcid) return FALSE;
  *lcidOut = lcid;
  return TRUE;
}

BOOL QnLang_SaveUserLCIDMetric(const WCHAR* application, DWORD version, DWORD lcid, BOOL anyVersion) {
  return QnLang_SaveUserLCIDMetricAppReg(application, anyVersion ? 0 : version, lcid, kCompany);
}

BOOL QnLang_SaveUserLCIDMetricAppReg(const WCHAR* application, DWORD version, DWORD lcid,
                                     const WCHAR* company) {
  KeyPath path;
  HKEY key;
  if (!MakePath(&path, application, version, company)) return FALSE;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, path.text, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
      ERROR_SUCCESS) {
    return FALSE;
  }
  const DWORD value = lcid & 0xFFFF;
  const LSTATUS error =
      RegSetValueExW(key, kValueName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  RegCloseKey(key);
  return error == ERROR_SUCCESS;
}
