#include "qn/settings/qnmetric.h"

#include <algorithm>
#include <atomic>
#include <string_view>

#include "qn/platform/memory.h"
#include "qn/settings/qnmetric_internal.h"
#include "qn/text/qnprint.h"

namespace {

constexpr WCHAR kCompany[] = W("Marlow Creative Works");
constexpr WCHAR kKernelPath[] = W("Software\\Marlow Creative Works\\Marlow Studio\\2026.0\\Metrics\\Kernel");
constexpr WCHAR kMetrics[] = W("\\Metrics");

constinit std::atomic<bool> g_kernelMetricsOpen = false;

// Where a path failed to be made it is empty: a cut one would be another application's.
struct KeyPath {
  static constexpr int kSize = 260;
  WCHAR text[kSize];

  template <typename... Arguments>
  HRESULT Print(const WCHAR* format, Arguments... arguments) {
    const HRESULT status = QnCchPrintF(text, kSize, nullptr, format, arguments...);
    if (status != S_OK) *text = 0;
    return status;
  }
};

// Whether a path leads anywhere: separators alone count for nothing, so the key above would be meant.
bool NamesAnything(const WCHAR* path) {
  return path && std::u16string_view(path).find_first_not_of(u'\\') != std::u16string_view::npos;
}

HRESULT AppendSubKey(KeyPath* path, const WCHAR* base, const WCHAR* subKey) {
  *path->text = 0;
  if (!base || (subKey && *subKey && !NamesAnything(subKey))) return E_INVALIDARG;
  return subKey && *subKey ? path->Print(W("%s\\%s"), base, subKey) : path->Print(W("%s"), base);
}

// `end` follows the application's root, which is what holds its settings.
HRESULT MakePath(KeyPath* path, const WCHAR* application, DWORD version, const WCHAR* company,
                 const WCHAR* end) {
  *path->text = 0;
  if (!NamesAnything(application) || !NamesAnything(company)) return E_INVALIDARG;
  const auto major = static_cast<int>(version >> 20);
  const auto minor = static_cast<int>(version >> 16 & 15);
  if (major == 0) return path->Print(W("Software\\%s\\%s%s"), company, application, end);
  return path->Print(W("Software\\%s\\%s\\%d.%d%s"), company, application, major, minor, end);
}

HRESULT MakeMetricsPath(KeyPath* path, const WCHAR* application, DWORD version, const WCHAR* company,
                        const WCHAR* subKey) {
  KeyPath metrics;
  const HRESULT status = MakePath(&metrics, application, version, company, kMetrics);
  return status == S_OK ? AppendSubKey(path, metrics.text, subKey) : status;
}

// Opens a handle on the path that `make` makes.
template <typename Make>
HRESULT OpenOn(HQNMETRIC* handleOut, Make make) {
  if (!handleOut) return E_INVALIDARG;
  auto* const handle = static_cast<HQNMETRIC>(GlobalAlloc(GPTR, sizeof(tQNMETRIC)));
  if (!handle) return E_OUTOFMEMORY;
  *handleOut = handle;
  KeyPath path;
  const HRESULT status = make(&path);
  if (status != S_OK) return status;
  std::u16string_view(path.text).copy(handle->path, KeyPath::kSize);
  return qn::RegistryStatus(RegCreateKeyW(HKEY_CURRENT_USER, path.text, &handle->key));
}

// Hosts ask for what was there to be gone, so what was not there is no failure. A path that leads nowhere
// would be the whole hive.
HRESULT DeleteTree(HKEY hive, const WCHAR* path) {
  if (!NamesAnything(path)) return E_INVALIDARG;
  const LSTATUS error = RegDeleteTreeW(hive, path);
  return error == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND) ? S_OK : qn::RegistryStatus(error);
}

HRESULT DeleteFromBothHives(const WCHAR* path) {
  const HRESULT machine = DeleteTree(HKEY_LOCAL_MACHINE, path);
  const HRESULT user = DeleteTree(HKEY_CURRENT_USER, path);
  return user == S_OK ? machine : user;
}

const WCHAR* MarkedFormat(DWORD type) {
  switch (type) {
    case REG_SZ:
      return W("S%d");
    case REG_BINARY:
      return W("B%d");
    case REG_DWORD:
      return W("D%d");
    default:
      return W("Z%d");
  }
}

qn::MetricName PrintName(const WCHAR* format, LONG id) {
  // The smallest id is its own absolute value in 32 bits and keeps its sign.
  const DWORD magnitude = id < 0 ? 0 - static_cast<DWORD>(id) : static_cast<DWORD>(id);
  qn::MetricName name;
  QnCchPrintF(name.text, qn::MetricName::kSize, nullptr, format, static_cast<int>(magnitude));
  return name;
}

bool IsHandle(HQNMETRIC handle) {
  return handle && handle != QNMETRIC_DEFAULT;
}

}  // namespace

namespace qn {

HRESULT OpenKernelMetrics() {
  g_kernelMetricsOpen = true;
  return S_OK;
}

void CloseKernelMetrics() {
  g_kernelMetricsOpen = false;
}

HRESULT RegistryStatus(LSTATUS error) {
  return error > 0 ? MakeStatus((static_cast<uint32_t>(error) & 0xFFFF) | 0x80070000) : error;
}

MetricName NameOfMetric(LONG id, DWORD type) {
  return PrintName(type == REG_DWORD ? W("%d") : MarkedFormat(type), id);
}

MetricKey::MetricKey(HQNMETRIC handle, Use use) {
  if (IsHandle(handle)) {
    key_ = handle->key;
    exists_ = key_ != nullptr;
  } else if (handle && use != Use::kWriteNotDefault && g_kernelMetricsOpen) {
    const LSTATUS error = use == Use::kRead
                              ? RegOpenKeyExW(HKEY_CURRENT_USER, kKernelPath, 0, KEY_READ, &key_)
                              : RegCreateKeyW(HKEY_CURRENT_USER, kKernelPath, &key_);
    owned_ = error == LSTATUS{};
    exists_ = owned_ || (use == Use::kRead && error == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND));
  }
}

MetricKey::~MetricKey() {
  if (owned_) RegCloseKey(key_);
}

MetricKey::Value MetricKey::Read(const WCHAR* name, void* data, DWORD room) const {
  Value value = {static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND), REG_NONE, room};
  if (key_) {
    value.error = RegQueryValueExW(key_, name, nullptr, &value.type, static_cast<BYTE*>(data), &value.size);
  }
  const bool told = value.error == LSTATUS{} || value.error == static_cast<LSTATUS>(ERROR_MORE_DATA);
  if (!told) value.size = 0;
  return value;
}

LSTATUS MetricKey::Write(const WCHAR* name, DWORD type, const void* data, DWORD size) const {
  return RegSetValueExW(key_, name, 0, type, static_cast<const BYTE*>(data), size);
}

LSTATUS MetricKey::Delete(const WCHAR* name) const {
  return RegDeleteValueW(key_, name);
}

}  // namespace qn

HRESULT QnMetric_Open(HQNMETRIC* handleOut, const WCHAR* application, DWORD version, const WCHAR* subKey) {
  return QnMetric_OpenRegHiveAndVersion(handleOut, application, version, kCompany, subKey);
}

HRESULT QnMetric_OpenRegHiveAndVersion(HQNMETRIC* handleOut, const WCHAR* application, DWORD version,
                                       const WCHAR* company, const WCHAR* subKey) {
  return OpenOn(handleOut,
                [&](KeyPath* path) { return MakeMetricsPath(path, application, version, company, subKey); });
}

HRESULT QnMetric_OpenAppVersion(HQNMETRIC* handleOut, const WCHAR* path, const WCHAR* subKey) {
  return OpenOn(handleOut, [&](KeyPath* whole) { return AppendSubKey(whole, path, subKey); });
}

HRESULT QnMetric_OpenSubKey(HQNMETRIC* handleOut, HQNMETRIC parent, const WCHAR* subKey) {
  if (!IsHandle(parent) || !*parent->path) return E_FAIL;
  return OpenOn(handleOut, [&](KeyPath* path) {
    KeyPath above = {};
    const std::u16string_view whole(parent->path);
    whole.substr(0, whole.find(kMetrics)).copy(above.text, KeyPath::kSize);
    KeyPath metrics;
    const HRESULT status = metrics.Print(W("%s%s"), above.text, kMetrics);
    return status == S_OK ? AppendSubKey(path, metrics.text, subKey) : status;
  });
}

HRESULT QnMetric_Close(HQNMETRIC handle) {
  if (!IsHandle(handle)) return S_OK;
  for (const HKEY key : {handle->key, handle->openedKey}) {
    if (key) RegCloseKey(key);
  }
  GlobalFree(handle);
  return S_OK;
}

HRESULT QnMetric_CloseAndDeleteKey(HQNMETRIC handle) {
  if (!IsHandle(handle)) return E_FAIL;
  KeyPath path;
  std::copy_n(handle->path, KeyPath::kSize, path.text);
  QnMetric_Close(handle);
  return *path.text ? DeleteTree(HKEY_CURRENT_USER, path.text) : S_OK;
}

HRESULT QnMetric_DeleteAll(const WCHAR* application, DWORD version) {
  return QnMetric_DeleteAllHiveAndVersion(application, version, kCompany);
}

HRESULT QnMetric_DeleteAllHiveAndVersion(const WCHAR* application, DWORD version, const WCHAR* company) {
  KeyPath path;
  const HRESULT status = MakePath(&path, application, version, company, W(""));
  return status == S_OK ? DeleteFromBothHives(path.text) : status;
}

HRESULT QnMetric_DeleteUserMetrics(const WCHAR* application, DWORD version) {
  KeyPath path;
  const HRESULT status = MakePath(&path, application, version, kCompany, W(""));
  return status == S_OK ? DeleteTree(HKEY_CURRENT_USER, path.text) : status;
}

HRESULT QnMetric_DeleteKey(const WCHAR* application, DWORD version, const WCHAR* subKey) {
  return QnMetric_DeleteKeyHiveAndVersion(application, version, kCompany, subKey);
}

HRESULT QnMetric_DeleteKeyHiveAndVersion(const WCHAR* application, DWORD version, const WCHAR* company,
                                         const WCHAR* subKey) {
  KeyPath path;
  const HRESULT status = MakeMetricsPath(&path, application, version, company, subKey);
  return status == S_OK ? DeleteFromBothHives(path.text) : status;
}

void QnMetricGetName(LONG id, DWORD type, WCHAR* text) {
  if (!text) return;
  const qn::MetricName name = PrintName(MarkedFormat(type), id);
  std::copy_n(name.text, std::u16string_view(name.text).size() + 1, text);
}
