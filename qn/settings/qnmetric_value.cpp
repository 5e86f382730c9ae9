#include <algorithm>
#include <cstring>

#include "qn/kernel/qnstream_internal.h"
#include "qn/platform/memory.h"
#include "qn/settings/qnmetric.h"
#include "qn/settings/qnmetric_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

using qn::MetricKey;
using qn::NameOfMetric;
using Use = qn::MetricKey::Use;

constexpr DWORD kMaxStream = 2048;

// False without a number, which leaves `*number` as it is.
bool ReadNumber(const MetricKey& key, const WCHAR* name, LONG* number) {
  LONG read;
  const MetricKey::Value value = key.Read(name, &read, sizeof read);
  const bool good = value.Has(REG_DWORD) && value.size == sizeof read;
  if (good) *number = read;
  return good;
}

HRESULT DeleteValue(HQNMETRIC handle, const WCHAR* name) {
  const MetricKey key(handle, Use::kWriteNotDefault);
  if (!key) return S_FALSE;
  return key.Delete(name) == LSTATUS{} ? S_OK : E_FAIL;
}

void ZeroFrom(void* data, DWORD from, DWORD room) {
  if (from < room) std::memset(static_cast<BYTE*>(data) + from, 0, room - from);
}

}  // namespace

namespace qn {

HRESULT WriteMetric(HQNMETRIC handle, LONG id, DWORD type, const void* data, ULONGLONG size) {
  const MetricKey key(handle, Use::kWriteNotDefault);
  if (!key || size > UINT32_MAX) return E_FAIL;
  const auto bytes = static_cast<DWORD>(size);
  return key.Write(NameOfMetric(id, type).text, type, data, bytes) == LSTATUS{} ? S_OK : E_FAIL;
}

DWORD ReadMetric(HQNMETRIC handle, LONG id, DWORD type, void* data, DWORD room) {
  const MetricKey key(handle, Use::kRead);
  const MetricKey::Value value = key.Read(NameOfMetric(id, type).text, data, room);
  const DWORD size = value.Has(type) ? value.size : 0;
  ZeroFrom(data, size, room);
  return size;
}

}  // namespace qn

LONG QnGetMetric(HQNMETRIC handle, LONG id) {
  return QnGetMetricEx(handle, id, 0, 0, 0);
}

LONG QnGetMetricEx(HQNMETRIC handle, LONG id, LONG minimum, LONG maximum, LONG defaultValue) {
  const MetricKey key(handle, Use::kRead);
  LONG number = defaultValue;
  if (!key) return number;
  ReadNumber(key, NameOfMetric(id, REG_DWORD).text, &number);
  return minimum == maximum ? number : std::min(std::max(number, minimum), maximum);
}

BOOL QnGetMetricBool(HQNMETRIC handle, LONG id, BOOL defaultValue) {
  return QnGetMetricEx(handle, id, 0, 0, defaultValue) != 0;
}

HRESULT QnSetMetric(HQNMETRIC handle, LONG id, LONG value) {
  return QnSetMetricUsingName(handle, NameOfMetric(id, REG_DWORD).text, value) == S_OK ? S_OK : E_FAIL;
}

LONG QnGetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG defaultValue) {
  const MetricKey key(handle, Use::kRead);
  LONG number = defaultValue;
  ReadNumber(key, name, &number);
  return number;
}

HRESULT QnSetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG value) {
  const MetricKey key(handle, Use::kWrite);
  return key ? qn::RegistryStatus(key.Write(name, REG_DWORD, &value, sizeof value)) : E_FAIL;
}

DWORD QnGetMetricBinary(HQNMETRIC handle, LONG id, void* data, DWORD size) {
  return data ? qn::ReadMetric(handle, id, REG_BINARY, data, size) : 0;
}

HRESULT QnGetMetricBinaryEx(HQNMETRIC handle, LONG id, void* data, DWORD size, DWORD* sizeOut) {
  if (!sizeOut) return E_INVALIDARG;
  const MetricKey key(handle, Use::kRead);
  if (!key) return QN_E_NOT_FOUND;
  const DWORD room = data ? size : 0;
  const MetricKey::Value value = key.Read(NameOfMetric(id, REG_BINARY).text, data, room);
  const bool tooLarge = value.error == static_cast<LSTATUS>(ERROR_MORE_DATA);
  const bool good = value.Has(REG_BINARY);
  *sizeOut = good || tooLarge ? value.size : 0;
  ZeroFrom(data, good ? value.size : 0, room);
  if (tooLarge) return QN_E_BUFFER_TOO_SMALL;
  return good ? S_OK : S_FALSE;
}

HRESULT QnSetMetricBinary(HQNMETRIC handle, LONG id, const void* data, DWORD size) {
  return qn::WriteMetric(handle, id, REG_BINARY, data, size);
}

HRESULT QnGetMetricStream(HQNMETRIC handle, LONG id, IStream* stream) {
  if (!stream) return E_POINTER;
  DWORD size = 0;
  QnGetMetricBinaryEx(handle, id, nullptr, 0, &size);
  if (size == 0) return E_UNEXPECTED;
  void* const data = GlobalAlloc(GMEM_FIXED, size);
  if (!data) return E_OUTOFMEMORY;
  DWORD got = 0;
  ULONG put = 0;
  QnGetMetricBinaryEx(handle, id, data, size, &got);
  HRESULT status = got == size ? stream->Seek({}, STREAM_SEEK_SET, nullptr) : E_UNEXPECTED;
  if (SUCCEEDED(status)) status = stream->Write(data, size, &put);
  GlobalFree(data);
  if (FAILED(status)) return status;
  return put == size ? S_OK : E_UNEXPECTED;
}

HRESULT QnSetMetricStream(HQNMETRIC handle, LONG id, IStream* stream) {
  if (!stream) return E_POINTER;
  ULARGE_INTEGER position = {};
  const HRESULT status = stream->Seek({}, STREAM_SEEK_CUR, &position);
  if (FAILED(status)) return status;
  if (position.QuadPart > kMaxStream) return E_INVALIDARG;
  if (position.QuadPart == 0) return E_UNEXPECTED;
  ULONGLONG used = 0;
  const void* const memory = qn::StreamMemory(stream, &used);
  if (!memory) return E_INVALIDARG;
  const auto size = static_cast<DWORD>(position.QuadPart);
  BYTE data[kMaxStream] = {};
  std::memcpy(data, memory, std::min<ULONGLONG>(size, used));
  return QnSetMetricBinary(handle, id, data, size);
}

HRESULT QnGetMetricAny(HQNMETRIC handle, LONG id, DWORD type, void* data, DWORD size, DWORD* sizeOut) {
  const MetricKey key(handle, Use::kRead);
  if (!key) return E_UNEXPECTED;
  const DWORD room = data ? size : 0;
  const MetricKey::Value value = key.Read(NameOfMetric(id, REG_DWORD).text, data, room);
  const bool tooLarge = value.error == static_cast<LSTATUS>(ERROR_MORE_DATA);
  // Hosts rely on the sense: the type given names the kind that they do not ask for.
  if (value.Has(type)) return QN_E_NOT_FOUND;
  if (sizeOut) *sizeOut = value.size;
  if (tooLarge) return QN_E_BUFFER_TOO_SMALL;
  if (!data || !value.Has(REG_SZ)) return S_OK;

  constexpr DWORD kEnd = sizeof(WCHAR);
  auto* const bytes = static_cast<BYTE*>(data);
  if (room - value.size >= kEnd) {
    std::memset(bytes + value.size, 0, kEnd);
    return S_OK;
  }
  if (value.size <= kEnd) return S_OK;
  BYTE* const last = bytes + value.size - kEnd;
  if (last[0] == 0 && last[1] == 0) return S_OK;
  std::memset(last, 0, kEnd);
  if (sizeOut) *sizeOut += kEnd;
  return QN_E_BUFFER_TOO_SMALL;
}

HRESULT QnDoesMetricExist(HQNMETRIC handle, LONG id, DWORD type) {
  const MetricKey key(handle, Use::kRead);
  return key.Read(NameOfMetric(id, type).text, nullptr, 0).Has(type) ? S_OK : S_FALSE;
}

HRESULT QnDeleteMetric(HQNMETRIC handle, LONG id, DWORD type) {
  return DeleteValue(handle, NameOfMetric(id, type).text);
}

HRESULT QnDeleteMetricUsingName(HQNMETRIC handle, const WCHAR* name, DWORD) {
  return DeleteValue(handle, name);
}
