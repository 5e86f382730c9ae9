// What is there: full paths, files, folders, disks, sizes and times.
#include <algorithm>
#include <exception>
#include <limits>

#include "qn/kernel/qnpath.h"
#include "qn/kernel/qnpath_walk_internal.h"
#include "qn/platform/locale.h"
#include "qn/platform/open_file_internal.h"
#include "qn/platform/tree_internal.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/messages_internal.h"
#include "qn/text/text_internal.h"

using namespace qn;

namespace {

std::u16string FullPath(const WCHAR* path) {
  return FetchText([path](DWORD size, WCHAR* text) { return GetFullPathNameW(path, size, text, nullptr); });
}

// Empty for a path that does not exist.
std::u16string LongPath(const WCHAR* path) {
  return FetchText([path](DWORD size, WCHAR* text) { return GetLongPathNameW(path, text, size); });
}

std::u16string ModuleFile(HMODULE module) {
  // A path that fills the room is cut there, so more room is tried.
  return FetchText([module](DWORD size, WCHAR* text) {
    const DWORD length = GetModuleFileNameW(module, text, size);
    return length < size ? length : 2 * size;
  });
}

// An empty text stands for a failure, which leaves the caller's as it was.
int CopyFound(const std::u16string& found, WCHAR* text, int size) {
  return found.empty() ? 0 : CopyWhole(found, text, size);
}

// To ask about a file, whoever has it open.
class ConsultedFile : public OpenedFile {
 public:
  explicit ConsultedFile(const WCHAR* path)
      : OpenedFile(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE) {}
};

// True if a walk finds nothing in a folder. False also if one cannot be read.
template <typename Visit>
bool FindsNothing(const WCHAR* folder, TreeOrder order, Visit visit) {
  bool isEmpty = true;
  const TreeResult result = WalkTree(folder, order, [&](const TreeEntry& entry) {
    const TreeStep step = visit(entry);
    isEmpty = step != TreeStep::kStop;
    return step;
  });
  return isEmpty && result == TreeResult::kRead;
}

bool IsShortPath(const WCHAR* path) {
  return path && *path && std::u16string_view(path).size() < MAX_PATH;
}

constexpr DWORD kUnknownSpace = 0xFFFFFFFF;

enum class Space { kFree, kTotal };

DWORD DiskSpace(const WCHAR* path, DWORD unit, Space which) {
  if (!path) return 0;
  std::u16string folder(path, QnGetFileNamePtrW(path));
  const bool isDrive = folder.size() == 2 && folder[1] == ':';
  if (folder.empty() || isDrive) folder += '.';
  ULONGLONG available = 0, total = 0;
  if (!GetDiskFreeSpaceExW(folder.c_str(), &available, &total, nullptr)) {
    return folder.starts_with(W("\\\\")) ? kUnknownSpace : 0;
  }
  const ULONGLONG bytes = which == Space::kFree ? available : total;
  return static_cast<DWORD>(std::min<ULONGLONG>(unit ? bytes / unit : bytes, kUnknownSpace));
}

constexpr int kSpaceRoom = 64;  // what a caller provides

DWORD DosDateTime(const WCHAR* path, bool local) {
  const ConsultedFile file(path);
  FILETIME time;
  WORD date = 0, dayTime = 0;
  if (!file || !GetFileTime(file.Get(), nullptr, nullptr, &time)) return 0;
  if (local && !FileTimeToLocalFileTime(&time, &time)) return 0;
  return FileTimeToDosDateTime(&time, &date, &dayTime) ? DWORD{date} << 16 | dayTime : 0;
}

}  // namespace

int QnGetLongPathName(const WCHAR* path, WCHAR* text, int size) try {
  return path ? CopyFound(LongPath(path), text, size) : 0;
} catch (const std::exception&) {
  return 0;
}

int QnGetFullPathName(const WCHAR* path, int size, WCHAR* text, WCHAR** filePart) try {
  const int length = path ? CopyFound(FullPath(path), text, size) : 0;
  if (!filePart) return length;
  *filePart = nullptr;
  if (!text || length == 0 || length >= size) return length;
  WCHAR* const name = text + (QnGetFileNamePtrW(text) - text);
  if (*name) *filePart = name;
  return length;
} catch (const std::exception&) {
  return 0;
}

int QnGetTempPath(int size, WCHAR* text) try {
  const std::u16string temporary = FetchText(GetTempPathW);
  const std::u16string whole = LongPath(temporary.c_str());
  return CopyFound(whole.empty() ? temporary : whole, text, size);
} catch (const std::exception&) {
  return 0;
}

int QnGetModulePath(HMODULE module, WCHAR* text, int size) try {
  std::u16string path = ModuleFile(module);
  path.resize(static_cast<size_t>(QnGetFileNamePtrW(path.c_str()) - path.c_str()));
  return CopyFound(path, text, size);
} catch (const std::exception&) {
  return 0;
}

int QnGetModuleFileName(HMODULE module, WCHAR* text, int size) try {
  return CopyFound(ModuleFile(module), text, size);
} catch (const std::exception&) {
  return 0;
}

int QnQualifyPath(const WCHAR* path, WCHAR* text, int size) try {
  if (!path) return 0;
  const std::u16string full = FullPath(path);
  const std::u16string whole = LongPath(full.c_str());
  return CopyFound(whole.empty() ? full : whole, text, size);
} catch (const std::exception&) {
  return 0;
}

BOOL QnDoesFileExist(const WCHAR* path, BOOL hiddenCounts) {
  const DWORD attributes = GetFileAttributesW(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
  // A link that leads nowhere has no attributes of a file.
  if ((attributes & ~FILE_ATTRIBUTE_HIDDEN) == FILE_ATTRIBUTE_REPARSE_POINT) return FALSE;
  if (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) return FALSE;
  // The flag's sense is the opposite of its name: hosts rely on it.
  return !(attributes & FILE_ATTRIBUTE_HIDDEN) || !hiddenCounts;
}

BOOL QnIsFileWritable(const WCHAR* path) {
  return static_cast<bool>(OpenedFile(path, GENERIC_WRITE, FILE_SHARE_WRITE));
}

BOOL QnIsDirectoryWritable(const WCHAR* path) {
  constexpr int kLongestPath = 4096;
  WCHAR file[kLongestPath];
  if (!path || !*path) return FALSE;
  if (QnCreateTempFileAndNameEx(path, W("~qn"), W(".tmp"), nullptr, file, kLongestPath) != S_OK) return FALSE;
  DeleteFileW(file);
  return TRUE;
}

BOOL QnIsDirectoryEmpty(const WCHAR* path) try {
  const auto stop = [](const TreeEntry&) { return TreeStep::kStop; };
  return IsShortPath(path) && FindsNothing(path, TreeOrder::kAny, stop);
} catch (const std::exception&) {
  return FALSE;
}

BOOL QnIsDirectoryEmptyRecursive(const WCHAR* path, BOOL ignoreThumbnails) try {
  // In the order of names: which file comes first decides, and shall not hang on the file system.
  const auto look = [ignoreThumbnails](const TreeEntry& entry) {
    if (entry.kind == EntryKind::kFolder) return TreeStep::kEnter;
    // A file of thumbnails ends the walk, whatever follows: hosts rely on it.
    const bool ends = ignoreThumbnails && lstrcmpiW(entry.name.c_str(), W("thumbs.db")) == 0;
    return ends ? TreeStep::kLeave : TreeStep::kStop;
  };
  return IsShortPath(path) && FindsNothing(path, TreeOrder::kByName, look);
} catch (const std::exception&) {
  return FALSE;
}

DWORD QnGetDiskFreeSpace(const WCHAR* path, DWORD unit) try {
  return DiskSpace(path, unit, Space::kFree);
} catch (const std::exception&) {
  return 0;
}

DWORD QnGetDiskTotalSpace(const WCHAR* path, DWORD unit) try {
  return DiskSpace(path, unit, Space::kTotal);
} catch (const std::exception&) {
  return 0;
}

int QnFormatDiskFreeSpace(const WCHAR* path, WCHAR* text) {
  if (!text) return 0;
  const HQNLANG language = KernelLanguage();
  const DWORD tenths = QnGetDiskFreeSpace(path, 102400);
  if (tenths == kUnknownSpace) return QnLoadString(language, messages::DiskFreeUnknown, text, kSpaceRoom);
  const bool large = tenths >= 10000;
  WCHAR number[kSpaceRoom];
  QnCchPrintF(number, kSpaceRoom, nullptr, W("$.1z"), large ? tenths >> 10 : tenths);
  return QnComposeStr(text, kSpaceRoom, QnGetString(language, large ? messages::SizeGB : messages::SizeMB),
                      number);
}

HRESULT QnGetFileSizeByName(const WCHAR* path, LONGLONG* sizeOut) {
  if (!sizeOut) return E_INVALIDARG;
  const ConsultedFile file(path);
  LARGE_INTEGER size = {};
  const bool known = file && GetFileSizeEx(file.Get(), &size);
  *sizeOut = size.QuadPart;
  return known ? S_OK : QN_E_FILE_OPEN;
}

HRESULT QnGetDirectorySize(const WCHAR* path, LONGLONG* sizeOut) try {
  if (!sizeOut || !path || !*path) return E_INVALIDARG;
  constexpr LONGLONG kMost = std::numeric_limits<LONGLONG>::max();
  LONGLONG sum = 0;
  const TreeResult result = WalkTree(path, TreeOrder::kAny, [&sum](const TreeEntry& entry) {
    sum += std::min(entry.size, kMost - sum);
    return TreeStep::kEnter;
  });
  *sizeOut = sum;
  return result == TreeResult::kMissing ? FailureOf(GetLastError()) : S_OK;
} catch (const std::exception&) {
  return E_OUTOFMEMORY;
}

DWORD QnDosGetDateTime(const WCHAR* path) {
  return DosDateTime(path, true);
}

DWORD QnDosGetDateTimeUTC(const WCHAR* path) {
  return DosDateTime(path, false);
}

void QnGetDateTime(DWORD* out) {
  if (!out) return;
  SYSTEMTIME now;
  GetLocalTime(&now);
  out[0] = (DWORD{now.wMonth} << 8 | now.wDay) << 16 | now.wYear;
  out[1] = ((DWORD{now.wHour} << 8 | now.wMinute) << 8 | now.wSecond) << 8 | DWORD{now.wMilliseconds} / 10;
}
