#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "qn/platform/elf_note_internal.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/file.h"
#include "qn/platform/module_internal.h"
#include "qn/platform/text.h"

namespace {

using qn::FailWith;
using qn::ReadUnaligned;

// A file of resources is read as a whole; a larger one is something else.
constexpr uint64_t kLargestFile = 64 << 20;

// The version block of a module or of a file, with the memory that it lies in.
class VersionResource {
 public:
  // False with the last error when the path leads to none.
  bool Open(const WCHAR* path) {
    if (!path) return FailWith(ERROR_INVALID_PARAMETER);
    const HMODULE module = qn::FindModuleByPath(qn::PathToNative(path));
    // What has registered with another copy of the library has its file all the same.
    if (const qn::ResourceImage image = module ? qn::FindModuleImage(module) : qn::ResourceImage{};
        image.bytes) {
      return FindIn(image);
    }
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = CreateFileW(path, GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const std::unique_ptr<void, decltype(&CloseHandle)> closer(file, &CloseHandle);
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size)) return false;
    const auto bytes = static_cast<uint64_t>(size.QuadPart);
    return qn::IsElf(file) ? qn::ReadVersionNote(file, bytes, &block_) : ReadImage(file, bytes);
  }
  const uint8_t* Data() const { return block_.data; }
  DWORD Size() const { return block_.size; }

 private:
  bool FindIn(const qn::ResourceImage& image) {
    qn::ResourceRecord record;
    if (!qn::FindResourceRecord(image, RT_VERSION, MAKEINTRESOURCEW(1), 0, &record)) return false;
    block_.data = record.data;
    block_.size = record.dataSize;
    return true;
  }

  bool ReadImage(HANDLE file, uint64_t size) {
    if (size > kLargestFile) return FailWith(ERROR_RESOURCE_DATA_NOT_FOUND);
    block_.content.reset(new uint8_t[static_cast<size_t>(size)]);
    return qn::ReadAt(file, 0, block_.content.get(), static_cast<size_t>(size)) &&
           FindIn({block_.content.get(), size});
  }

  qn::VersionBlock block_;
};

// A node of the version tree: u16 length, u16 length of the value (characters for a text), u16 type (1 for
// texts), key with terminator; then, each at a multiple of 4 from the block's start, the value and the nodes
// below.
struct VersionNode {
  const uint8_t* key;
  size_t keyLength;
  bool isText;
  uint64_t value, valueLength, children, end;

  bool HasKey(std::u16string_view name) const {
    if (name.size() != keyLength) return false;
    const auto upper = [](WCHAR c) { return c >= u'a' && c <= u'z' ? c - u'a' + u'A' : c; };
    for (size_t i = 0; i < keyLength; ++i) {
      if (upper(ReadUnaligned<WCHAR>(key + 2 * i)) != upper(name[i])) return false;
    }
    return true;
  }
};

constexpr uint64_t kNodeHeader = 6;

uint64_t RoundUp(uint64_t size) {
  return (size + 3) & ~uint64_t{3};
}

// Reads the node at `start`, which ends before `limit`; false when anything in it does not fit.
bool ReadNode(const uint8_t* block, uint64_t start, uint64_t limit, VersionNode* node) {
  if (start + kNodeHeader > limit) return false;
  const auto wordAt = [&](uint64_t offset) { return ReadUnaligned<WORD>(block + offset); };
  node->end = start + wordAt(start);
  if (node->end > limit) return false;
  node->valueLength = wordAt(start + 2);
  node->isText = wordAt(start + 4) == 1;
  uint64_t end = start + kNodeHeader;
  while (end + 2 <= node->end && wordAt(end) != 0) end += 2;
  if (end + 2 > node->end) return false;
  node->key = block + start + kNodeHeader;
  node->keyLength = static_cast<size_t>((end - start - kNodeHeader) / 2);
  // An empty value is at the key's terminator, so that it reads as an empty text.
  node->value = node->valueLength ? RoundUp(end + 2) : end;
  const uint64_t bytes = node->valueLength * (node->isText ? 2 : 1);
  if (node->value + bytes > node->end) return false;
  node->children = RoundUp(std::max(end + 2, node->value + bytes));
  if (!node->isText || node->valueLength == 0) return true;
  // Callers take a text to its terminator.
  for (uint64_t i = 0; i < node->valueLength; ++i) {
    if (wordAt(node->value + 2 * i) == 0) return true;
  }
  return false;
}

// The node of that key below `*node`, which becomes it.
bool FindChild(const uint8_t* block, std::u16string_view key, VersionNode* node) {
  const uint64_t limit = node->end;
  uint64_t place = node->children;
  // A node is passed by its length alone, so one that is damaged does not hide those behind it.
  while (place + kNodeHeader <= limit) {
    const WORD length = ReadUnaligned<WORD>(block + place);
    if (length < kNodeHeader) return false;
    if (ReadNode(block, place, limit, node) && node->HasKey(key)) return true;
    place += RoundUp(length);
  }
  return false;
}

}  // namespace

inline namespace qnplatform {

DWORD GetFileVersionInfoSizeW(const WCHAR* path, DWORD* handle) try {
  if (handle) *handle = 0;
  VersionResource version;
  if (!version.Open(path)) return 0;
  if (version.Size() < kNodeHeader) return static_cast<DWORD>(FailWith(ERROR_RESOURCE_DATA_NOT_FOUND));
  return version.Size();
} catch (const std::exception&) {
  return static_cast<DWORD>(FailWith(ERROR_NOT_ENOUGH_MEMORY));
}

BOOL GetFileVersionInfoW(const WCHAR* path, DWORD, DWORD size, void* block) try {
  VersionResource version;
  if (!block) return FailWith(ERROR_INVALID_PARAMETER);
  if (!version.Open(path)) return FALSE;
  if (version.Size() < kNodeHeader) return FailWith(ERROR_RESOURCE_DATA_NOT_FOUND);
  if (size < version.Size()) return FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(block, version.Data(), version.Size());
  // VerQueryValueW knows the block's size by this length alone.
  const WORD length = static_cast<WORD>(std::min<DWORD>(ReadUnaligned<WORD>(version.Data()), version.Size()));
  std::memcpy(block, &length, sizeof(length));
  return TRUE;
} catch (const std::exception&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL VerQueryValueW(const void* block, const WCHAR* path, void** value, UINT* length) {
  if (!block || !path || !value || !length) return FailWith(ERROR_INVALID_PARAMETER);
  *value = nullptr;
  *length = 0;
  const auto* const bytes = static_cast<const uint8_t*>(block);
  // A resource that is asked where it lies ends with its image.
  const qn::ResourceImage image = qn::FindImageOf(block);
  const uint64_t room = image.bytes ? image.size - static_cast<uint64_t>(bytes - image.bytes) : UINT64_MAX;
  const uint64_t limit = room < sizeof(WORD) ? 0 : std::min<uint64_t>(room, ReadUnaligned<WORD>(bytes));
  VersionNode node;
  if (!ReadNode(bytes, 0, limit, &node)) return FailWith(ERROR_RESOURCE_DATA_NOT_FOUND);
  for (std::u16string_view left = path; !left.empty();) {
    const std::u16string_view key = left.substr(0, left.find(u'\\'));
    left.remove_prefix(std::min(left.size(), key.size() + 1));
    if (key.empty()) continue;
    if (!FindChild(bytes, key, &node)) return FailWith(ERROR_RESOURCE_TYPE_NOT_FOUND);
  }
  *value = const_cast<uint8_t*>(bytes + node.value);
  *length = static_cast<UINT>(node.valueLength);
  return TRUE;
}

}  // namespace qnplatform
