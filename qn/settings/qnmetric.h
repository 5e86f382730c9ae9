// Metrics: small persistent settings, addressed by a number under an application's key of a version.
//
//   HQNMETRIC metrics;
//   QnMetric_Open(&metrics, W("Editor"), 0x00200000, W("View"));
//   QnSetMetric(metrics, 7, 3);
//   LONG zoom = QnGetMetricEx(metrics, 7, 1, 10, 5);
//   QnMetric_Close(metrics);
//
// They lie in the user's registry under "Software\\<company>\\<application>\\<major>.<minor>\\Metrics" and a
// subkey. `version` has the major version in bits 20 to 31 and the minor one in bits 16 to 19; bits 0 to 15
// are a build number that counts for nothing. A major version of 0 stands for the key without a version.
// Names of companies, applications and subkeys are refused with E_INVALIDARG if they are null, empty or
// hold nothing but `\` (a subkey may be null or empty: the Metrics key itself), and paths of 260 characters
// or more with a status of QnCchPrintF.
//
// The id's absolute value goes into the value's name, so -5 and 5 are the same value. The kind goes into it
// too: numbers are "5", text "S5", binary data and streams "B5", multi-strings "Z5".
//
// Every reader takes a default, so a missing key or value is normal, and a value of another kind is missing;
// so is one that is too large for the room, where the reader gives no status. Writers give E_FAIL when the
// handle or its key is missing or the registry fails. Each write is done for good, or not at all, when it
// returns. Handles may be used on several threads at once; only closing is for the last user.
#pragma once

#include "qn/platform/com.h"
#include "qn/platform/registry.h"
#include "qn/platform/types.h"

typedef struct tQNMETRIC {
  WCHAR openedPath[260];  // these two are not used by the opening functions; the key is closed if set
  HKEY openedKey;
  WCHAR path[260];  // of `key`, under HKEY_CURRENT_USER
  HKEY key;         // null when it could not be opened
} tQNMETRIC;
static_assert(offsetof(tQNMETRIC, openedKey) == 520 && offsetof(tQNMETRIC, path) == 528);
static_assert(offsetof(tQNMETRIC, key) == 1048 && sizeof(tQNMETRIC) == 1056);
typedef tQNMETRIC* HQNMETRIC;

// The library's own metrics, for all readers, QnSetMetric and QnSetMetricUsingName; to the other writers and
// to the functions that delete and close it is no handle, and hosts rely on that. The settings file is not
// made before the first of these writes.
const HQNMETRIC QNMETRIC_DEFAULT = reinterpret_cast<HQNMETRIC>(static_cast<intptr_t>(-1));

extern "C" {

// Opens the metrics of an application, and makes the key if it is missing. The company is "Marlow Creative
// Works", or the one given. `*handleOut` is a handle to be closed with QnMetric_Close also when the result is
// a failure: one without a key then, which reads defaults and refuses writes. Only E_OUTOFMEMORY leaves it as
// it was. 0; the registry's error e as (e & 0xFFFF) | 0x80070000; E_INVALIDARG for a null `handleOut`.
QN_API HRESULT QnMetric_Open(HQNMETRIC* handleOut, const WCHAR* application, DWORD version,
                             const WCHAR* subKey);
QN_API HRESULT QnMetric_OpenRegHiveAndVersion(HQNMETRIC* handleOut, const WCHAR* application, DWORD version,
                                              const WCHAR* company, const WCHAR* subKey);

// The same for a ready path under HKEY_CURRENT_USER, which may be empty.
QN_API HRESULT QnMetric_OpenAppVersion(HQNMETRIC* handleOut, const WCHAR* path, const WCHAR* subKey);

// The same for a sibling of another handle's subkey: its path up to the first "\\Metrics" in it, with
// "\\Metrics" and `subKey`. E_FAIL, with `*handleOut` as it was, if the parent is no handle or has no path.
QN_API HRESULT QnMetric_OpenSubKey(HQNMETRIC* handleOut, HQNMETRIC parent, const WCHAR* subKey);

// Closes a handle; null and QNMETRIC_DEFAULT are left alone. Always 0.
QN_API HRESULT QnMetric_Close(HQNMETRIC handle);

// Closes a handle and deletes its key with all that is below it, unless its path is empty. E_FAIL for what is
// no handle, else as QnMetric_DeleteAll.
QN_API HRESULT QnMetric_CloseAndDeleteKey(HQNMETRIC handle);

// The number, or 0.
QN_API LONG QnGetMetric(HQNMETRIC handle, LONG id);

// The number, or `defaultValue`, brought into `minimum`..`maximum` unless these are equal. Without a handle
// or key `defaultValue` as it is.
QN_API LONG QnGetMetricEx(HQNMETRIC handle, LONG id, LONG minimum, LONG maximum, LONG defaultValue);

// 1 if the number, or without one `defaultValue`, is not 0; else 0.
QN_API BOOL QnGetMetricBool(HQNMETRIC handle, LONG id, BOOL defaultValue);

QN_API HRESULT QnSetMetric(HQNMETRIC handle, LONG id, LONG value);

// Numbers whose value's name is given outright; null is the name of the key's default value, here and in
// QnDeleteMetricUsingName. The setter gives the registry's error as the opening
// functions do, and E_FAIL without a handle or key.
QN_API LONG QnGetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG defaultValue);
QN_API HRESULT QnSetMetricUsingName(HQNMETRIC handle, const WCHAR* name, LONG value);

// Reads binary data into `size` bytes of room, of which the rest is zeroed, all of it without a
// handle. The count of bytes read, or 0.
QN_API DWORD QnGetMetricBinary(HQNMETRIC handle, LONG id, void* data, DWORD size);

// The same with the size of the value in `*sizeOut`; null `data` asks for it alone.
//   0            read
//   1            there is no such value: `*sizeOut` is 0 and the room zeroed
//   0x8004E03C   the room is too small for the value, of whatever type: it is zeroed
//   0x8004E00A   no handle or key: nothing is touched
//   E_INVALIDARG null `sizeOut`
QN_API HRESULT QnGetMetricBinaryEx(HQNMETRIC handle, LONG id, void* data, DWORD size, DWORD* sizeOut);

// Stores binary data; `data` may be null for no bytes.
QN_API HRESULT QnSetMetricBinary(HQNMETRIC handle, LONG id, const void* data, DWORD size);

// Writes binary data to the beginning of a stream. E_POINTER for a null stream; E_UNEXPECTED without data,
// also without a handle, when the data change meanwhile, and for a stream that takes only a part;
// E_OUTOFMEMORY; a failure of the stream.
QN_API HRESULT QnGetMetricStream(HQNMETRIC handle, LONG id, IStream* stream);

// Stores what lies before the position of a stream of QnCreateStreamFromMemory, with zeros for what the
// stream does not hold. E_POINTER for a null stream; E_INVALIDARG for more than 2048 bytes and for any other
// stream; E_UNEXPECTED for nothing; a failure of the stream.
QN_API HRESULT QnSetMetricStream(HQNMETRIC handle, LONG id, IStream* stream);

// Reads text into a room of `size` characters; a multi-string is texts that each end in a terminator, with
// one more behind the last. What is stored in more than 2 bytes gives its characters less one, for the
// terminator, also if none was stored. What is stored in 1 or 2 bytes counts as an empty text: with
// `emptyIsValue` it gives 0. Otherwise `defaultText`, or the record in its place, is copied, cut to the room,
// and its length there returned; null is an empty text. It lies outside of the room, of which the rest is
// zeroed and the last character is always a terminator.
QN_API int QnGetMetricStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size, const WCHAR* defaultText,
                               BOOL emptyIsValue);
QN_API int QnGetMetricMultiStringEx(HQNMETRIC handle, LONG id, WCHAR* text, DWORD size,
                                    const WCHAR* defaultText, BOOL emptyIsValue);

// Stores a text, or that of the record in its place; null is an empty one.
QN_API HRESULT QnSetMetricString(HQNMETRIC handle, LONG id, const WCHAR* text);

// Stores `characters` characters as they are, all terminators included.
QN_API HRESULT QnSetMetricMultiString(HQNMETRIC handle, LONG id, const WCHAR* text, DWORD characters);

// Reads a value of any registry type, into `size` bytes of room, from the name of a number, and its size into
// `*sizeOut`, if given; a missing value has the size 0. Null `data` asks for the size alone.
//   0             read; text got a terminator behind it if there was room
//   0x8004E00A    the value has just the type `type`, which names the one not asked for: hosts rely on that;
//                 `*sizeOut` stays as it was
//   0x8004E03C    the room is too small: for the value, and nothing is read; or for a terminator of a text
//                 without one, which took its last character's place, with 2 more in `*sizeOut`. Who asks for
//                 the size first gives 2 bytes more
//   E_UNEXPECTED  no handle or key
QN_API HRESULT QnGetMetricAny(HQNMETRIC handle, LONG id, DWORD type, void* data, DWORD size, DWORD* sizeOut);

// 0 if the value of a registry type exists, else 1, also without a handle or key: a status, not a truth
// value, and hosts rely on it. Types 1, 3 and 4 are text, binary data and numbers, all others look at the
// names of multi-strings.
QN_API HRESULT QnDoesMetricExist(HQNMETRIC handle, LONG id, DWORD type);

// Deletes the value that has the name for a type, as above, or the name given; then `type` is not used. 0, 1
// without a handle or key, E_FAIL if there is no such value or it cannot be deleted.
QN_API HRESULT QnDeleteMetric(HQNMETRIC handle, LONG id, DWORD type);
QN_API HRESULT QnDeleteMetricUsingName(HQNMETRIC handle, const WCHAR* name, DWORD type);

// A marked name for a value, into at least 13 characters: "S5" for type 1, "B5" for 3, "D5" for 4, "Z5" for
// any other. That of type 4 is not the name of QnGetMetric's number, and hosts rely on it.
QN_API void QnMetricGetName(LONG id, DWORD type, WCHAR* text);

// Delete all of an application's settings of a version, its metrics and other keys, from the machine's and
// then the user's registry. 0 when they are gone, also if there were none; else the registry's error as a
// status, the user's if both fail; E_INVALIDARG, and nothing is deleted, for names that are refused above.
QN_API HRESULT QnMetric_DeleteAll(const WCHAR* application, DWORD version);
QN_API HRESULT QnMetric_DeleteAllHiveAndVersion(const WCHAR* application, DWORD version,
                                                const WCHAR* company);

// The same from the user's registry alone.
QN_API HRESULT QnMetric_DeleteUserMetrics(const WCHAR* application, DWORD version);

// The same for the metrics alone, or one subkey of them, from both.
QN_API HRESULT QnMetric_DeleteKey(const WCHAR* application, DWORD version, const WCHAR* subKey);
QN_API HRESULT QnMetric_DeleteKeyHiveAndVersion(const WCHAR* application, DWORD version, const WCHAR* company,
                                                const WCHAR* subKey);
}
