// Behind the metric handles: their keys, the names of their values, and the library's own metrics.
#pragma once

#include <string_view>

#include "qn/settings/qnmetric.h"

namespace qn {

// The library's own metrics are there from attach until detach. Attach leaves the settings file alone: what
// QNMETRIC_DEFAULT stands for is looked up at each use, so that nothing is made before the first write,
// nothing is shared by threads, and a deleted key or an exchanged file is no end of it.
HRESULT OpenKernelMetrics();
void CloseKernelMetrics();

// An error number as a status.
HRESULT RegistryStatus(LSTATUS error);

struct MetricName {
  static constexpr int kSize = 13;
  WCHAR text[kSize];
};

// The name of a value by its registry type.
MetricName NameOfMetric(LONG id, DWORD type);

// The key behind a handle, for reading or for writing. The default handle's key is opened for it, if wanted
// at all, and closed again.
class MetricKey {
 public:
  enum class Use { kRead, kWrite, kWriteNotDefault };

  MetricKey(HQNMETRIC handle, Use use);
  ~MetricKey();
  MetricKey(const MetricKey&) = delete;
  MetricKey& operator=(const MetricKey&) = delete;

  // False without a handle or key. A key of the default handle that was not made yet counts: it is empty.
  explicit operator bool() const { return exists_; }

  // As RegQueryValueExW, with any failure but ERROR_MORE_DATA told as no value of no bytes.
  struct Value {
    LSTATUS error;
    DWORD type;
    DWORD size;

    bool Has(DWORD wanted) const { return error == LSTATUS{} && type == wanted; }
  };
  Value Read(const WCHAR* name, void* data, DWORD room) const;
  LSTATUS Write(const WCHAR* name, DWORD type, const void* data, DWORD size) const;
  LSTATUS Delete(const WCHAR* name) const;

 private:
  HKEY key_ = nullptr;
  bool exists_ = false;
  bool owned_ = false;
};

// A writer that does not take the default handle: E_FAIL for all that goes wrong.
HRESULT WriteMetric(HQNMETRIC handle, LONG id, DWORD type, const void* data, ULONGLONG size);

// Reads a value of a type into a room of which the rest is zeroed; the bytes read, 0 if there is none.
DWORD ReadMetric(HQNMETRIC handle, LONG id, DWORD type, void* data, DWORD room);

}  // namespace qn
