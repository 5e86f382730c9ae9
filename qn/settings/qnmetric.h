// Metrics: small persistent settings, addressed by a number under an application's key of a version.
#pragma once

#include "qn/platform/com.h"
#include "qn/platform/registry.h"
#include "qn/platform/types.h"

typedef struct tQNMETRIC {
  WCHAR openedPath[260];  // these two are not used by the opening functions, and released if set
  HKEY openedKey;
  WCHAR path[260];  // of `key`, under HKEY_CURRENT_USER
  HKEY key;         // null when it could not be opened
} tQNMETRIC;
typedef tQNMETRIC* HQNMETRIC;

// The library's own handle, opened at attach.
const HQNMETRIC QNMETRIC_DEFAULT = reinterpret_cast<HQNMETRIC>(static_cast<intptr_t>(-1));

extern "C" {

QN_API HRESULT QnMetric_Open(HQNMETRIC* handleOut, const WCHAR* application, DWORD version,
                             const WCHAR* subKey);
QN_API HRESULT QnMetric_OpenRegHiveAndVersion(HQNMETRIC* handleOut, const WCHAR* application, DWORD version,
                                              const WCHAR* company, const WCHAR* subKey);
QN_API HRESULT QnMetric_OpenAppVersion(HQNMETRIC* handleOut, const WCHAR* path, const WCHAR* subKey);
QN_API HRESULT QnMetric_OpenSubKey(HQNMETRIC* handleOut, HQNMETRIC parent, const WCHAR* subKey);
QN_API HRESULT QnMetric_Close(HQNMETRIC handle);
QN_API HRESULT QnMetric_CloseAndDeleteKey(HQNMETRIC handle);

QN_API LONG QnGetMetric(HQNMETRIC handle, LONG id);
QN_API LONG QnGetMetricEx(HQNMETRIC handle, LONG id, LONG minimum, LONG maximum, LONG defaultValue);
QN_API BOOL QnGetMetricBool(HQNMETRIC handle, LONG id, BOOL defaultValue);
QN_API HRESULT QnSetMetric(HQNMETRIC handle, LONG id, LONG value);
QN_API LONG QnGetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG defaultValue);
QN_API HRESULT QnSetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG value);

QN_API DWORD QnGetMetricBinary(HQNMETRIC handle, LONG id, void* data, DWORD size);
QN_API HRESULT QnGetMetricBinaryEx(HQNMETRIC handle, LONG id, void* data, DWORD size, DWORD* sizeOut);
QN_API HRESULT QnSetMetricBinary(HQNMETRIC handle, LONG id, const void* data, DWORD size);
QN_API HRESULT QnGetMetricStream(HQNMETRIC handle, LONG id, IStream* stream);
QN_API HRESULT QnSetMetricStream(HQNMETRIC handle, LONG id, IStream* stream);
QN_API int QnGetMetricStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size, const WCHAR* defaultText,
                               BOOL emptyIsValue);
QN_API HRESULT QnSetMetricString(HQNMETRIC handle, LONG id, const WCHAR* text);
QN_API int QnGetMetricMultiStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size,
                                    const WCHAR* defaultText, BOOL emptyIsValue);
QN_API HRESULT QnSetMetricMultiString(HQNMETRIC handle, LONG id, const WCHAR* text, DWORD characters);
QN_API HRESULT QnGetMetricAny(HQNMETRIC handle, LONG id, DWORD type, void* data, DWORD size, DWORD* sizeOut);

QN_API HRESULT QnDoesMetricExist(HQNMETRIC handle, LONG id, DWORD type);
QN_API HRESULT QnDeleteMetric(HQNMETRIC handle, LONG id, DWORD type);
QN_API HRESULT QnDeleteMetricUsingName(HQNMETRIC handle, const WCHAR* name, DWORD type);
QN_API void QnMetricGetName(LONG id, DWORD type, WCHAR* text);

QN_API HRESULT QnMetric_DeleteAll(const WCHAR* application, DWORD version);
QN_API HRESULT QnMetric_DeleteAllHiveAndVersion(const WCHAR* application, DWORD version,
                                                const WCHAR* company);
QN_API HRESULT QnMetric_DeleteUserMetrics(const WCHAR* application, DWORD version);
QN_API HRESULT QnMetric_DeleteKey(const WCHAR* application, DWORD version, const WCHAR* subKey);
QN_API HRESULT QnMetric_DeleteKeyHiveAndVersion(const WCHAR* application, DWORD version, const WCHAR* company,
                                                const WCHAR* subKey);
}
