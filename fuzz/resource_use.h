// Everything that reads an image of resources, on any bytes, and what must hold for them.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "fuzz/fuzz_file.h"
#include "qn/platform/module.h"
#include "qn/platform/resource_internal.h"

namespace qnfuzz {

// A type or a name of a record as the published functions take it.
class NameArgument {
 public:
  explicit NameArgument(const qn::ResourceName& name) : name_(name) {
    text_.resize(name.length);
    if (name.text) std::memcpy(text_.data(), name.text, 2 * name.length);
  }
  operator const WCHAR*() const { return name_.text ? text_.c_str() : MAKEINTRESOURCEW(name_.id); }
  // A text of "#" and digits asks for a number, and the number 0 as a type for nothing.
  bool LeadsBack() const { return name_.text ? text_[0] != u'#' : name_.id != 0; }

 private:
  qn::ResourceName name_;
  std::u16string text_;
};

// Asks a version block for its parts, all of which lie in the `room` bytes from its start.
inline void UseVersionBlock(const uint8_t* block, size_t room) {
  for (const WCHAR* const path :
       {W("\\"), W("\\VarFileInfo\\Translation"), W("\\StringFileInfo\\040904B0\\ProductName"),
        W("\\StringFileInfo\\040904B0\\Odd"), W("\\StringFileInfo\\040904B0\\Empty"),
        W("\\StringFileInfo")}) {
    void* value;
    UINT units;
    if (!VerQueryValueW(block, path, &value, &units)) continue;
    const auto place = static_cast<size_t>(static_cast<uint8_t*>(value) - block);
    Check(place + units <= room, "a part of a version beyond its block");
    // The sanitizer sees a read beyond the block.
    volatile uint8_t sum = 0;
    for (UINT i = 0; i < units; ++i) sum = sum ^ block[place + i];
    if (units == 0) Check(qn::ReadUnaligned<WORD>(block + place) == 0, "an empty value without end");
  }
}

// The same in a copy of the exact size, whose first length is made to fit as GetFileVersionInfoW does.
inline void UseVersion(const uint8_t* data, size_t size) {
  if (size < 2) return;
  const std::unique_ptr<uint8_t[]> block(new uint8_t[size]);
  std::memcpy(block.get(), data, size);
  const auto length = static_cast<WORD>(size < 0xFFFF ? size : 0xFFFF);
  if (qn::ReadUnaligned<WORD>(data) > length) std::memcpy(block.get(), &length, 2);
  UseVersionBlock(block.get(), size);
}

// Reads the version block of a file of these bytes; returns its size.
inline size_t UseVersionFile(const uint8_t* data, size_t size) {
  const FuzzFile file(data, size);
  const DWORD bytes = GetFileVersionInfoSizeW(file.Path(), nullptr);
  Check(bytes <= size, "a version text larger than its file");
  if (bytes == 0) return 0;
  const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes]);
  Check(GetFileVersionInfoW(file.Path(), 0, bytes, block.get()), "a version text that cannot be read");
  UseVersion(block.get(), bytes);
  return bytes;
}

// Walks the image and finds each record again; returns their number.
inline size_t UseResources(const uint8_t* image, size_t size) {
  const auto module = reinterpret_cast<HMODULE>(uintptr_t{0x10000});
  RegisterModuleResources(module, image, size);
  qn::ResourceWalk walk({image, size});
  size_t count = 0;
  for (qn::ResourceRecord record; walk.Next(&record) && count < 64; ++count) {
    Check(record.data >= image && record.data + record.dataSize <= image + size, "data beyond the image");
    const NameArgument type(record.type), name(record.name);
    if (record.type.id == 16) {
      UseVersion(record.data, record.dataSize);
      if (record.dataSize > 0) UseVersionBlock(record.data, static_cast<size_t>(image + size - record.data));
    }
    if (!type.LeadsBack() || (record.name.text && !name.LeadsBack())) continue;
    const HRSRC found = FindResourceExW(module, type, name, record.language);
    Check(found, "a record that cannot be found");
    const auto* const data = static_cast<const uint8_t*>(LockResource(LoadResource(module, found)));
    // The search for the neutral language prefers the user's, wherever it is.
    Check(data >= image && (record.language == 0 || data <= record.data) &&
              data + SizeofResource(module, found) <= image + size,
          "a found record elsewhere");
    const auto any = [](HMODULE, const WCHAR*, const WCHAR*, WORD language, intptr_t wanted) -> BOOL {
      return language != wanted;
    };
    Check(!EnumResourceLanguagesW(module, type, name, any, record.language), "a language not listed");
  }
  RegisterModuleResources(module, nullptr, 0);
  return count;
}

}  // namespace qnfuzz
