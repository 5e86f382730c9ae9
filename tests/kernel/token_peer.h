// A process that owns or asks for memory by tokens: the test itself, or a second process that does what a
// socket says. Both do the same work, so a test can let either be the owner.
#pragma once

#include <sys/mman.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "qn/kernel/qnmemtoken.h"
#include "qn/platform/file.h"
#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/process.h"

namespace qntest {

enum class Memory { kLow, kHigh, kMapping };  // below 4 GiB, above, a shared mapping
enum class Work { kNone, kMake, kUnwrap, kCloseHandle, kFree, kOpen, kUse, kCopyOut, kCopyIn };

struct Request {
  Work work = Work::kNone;
  _qnmemorytoken token = {};  // of the memory that is asked for
  Memory memory = Memory::kLow;
  uint32_t size = 0;  // of the data; what is made starts kOffset earlier
  DWORD access = 0;
  int direct = 0;
  uint8_t value = 0;  // for the ends of the data, if not 0
  qn::ProcessAccess allowed = qn::ProcessAccess::kFull;
};

struct Reply {
  HRESULT status = S_OK;
  _qnmemorytoken token = {};
  LONG size = 0;
  int ends = 0;  // the first byte of the data and, times 10, the last; of what is used, or of the own memory
  ptrdiff_t resources = 0;  // descriptors, threads and views
};

class Peer {
 public:
  static constexpr uint64_t kOffset = 5000;

  Reply Do(const Request& request) {
    qn::SetProcessAccess(request.allowed);
    Reply reply;
    std::vector<uint8_t> bytes(request.size < 1 << 20 ? request.size + 1 : 0, request.value);
    if (request.work == Work::kMake) {
      Make(request.memory, request.size);
      Put(Data(), request.size, request.value);
      wrap_ = std::make_unique<COutOfProcessMemoryToken>(own_, request.access, request.direct);
      reply.status = wrap_->GetMemoryToken(reply.token);
    } else if (request.work == Work::kUnwrap) {
      wrap_.reset();
      reply.ends = Ends(Data(), own_.size);
    } else if (request.work == Work::kCloseHandle) {
      CloseHandle(reinterpret_cast<HANDLE>(own_.handle));
    } else if (request.work == Work::kFree) {
      CloseHandle(reinterpret_cast<HANDLE>(own_.handle));
      void* const base = reinterpret_cast<void*>(own_.address);
      if (!UnmapViewOfFile(base)) munmap(base, own_.offset + own_.size);
    } else if (request.work == Work::kOpen || request.work == Work::kUse) {
      open_ = std::make_unique<CMappingOfQnMemoryToken>(request.token, request.access);
      reply.size = open_->DataSize();
      void* pointer;
      reply.status = open_->GetPointer(&pointer);
      if (pointer) reply.ends = Ends(pointer, request.token.size);
      if (pointer) Put(pointer, request.token.size, request.value);
      if (request.work == Work::kUse) open_.reset();
    } else if (request.work == Work::kCopyOut) {
      reply.status = CMappingOfQnMemoryToken::CopyData(bytes.data(), request.token, LONG(request.size));
      reply.ends = Ends(bytes.data(), request.size);
    } else if (request.work == Work::kCopyIn) {
      reply.status = CMappingOfQnMemoryToken::CopyData(request.token, bytes.data(), LONG(request.size));
    }
    for (const char* folder : {"/proc/self/fd", "/proc/self/task"}) {
      reply.resources += std::distance(std::filesystem::directory_iterator(folder), {});
    }
    std::ifstream views("/proc/self/maps");
    for (std::string line; std::getline(views, line);) reply.resources += line.find("/memfd:") != line.npos;
    return reply;
  }

 private:
  void Make(Memory memory, uint32_t size) {
    void* base;
    const uint64_t bytes = kOffset + size;
    const bool isMapping = memory == Memory::kMapping;
    HANDLE mapping = INVALID_HANDLE_VALUE;
    if (isMapping) {
      mapping =
          CreateFileMappingW(mapping, nullptr, PAGE_READWRITE, DWORD(bytes >> 32), DWORD(bytes), nullptr);
      base = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
    } else {
      const int low = memory == Memory::kLow ? MAP_32BIT : 0;
      base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | low, -1, 0);
    }
    own_ = {reinterpret_cast<intptr_t>(mapping),
            reinterpret_cast<uintptr_t>(base),
            size,
            size,
            kOffset,
            isMapping,
            GetCurrentProcessId()};
  }

  void* Data() const { return reinterpret_cast<char*>(own_.address) + own_.offset; }

  // The ends alone: memory of gigabytes stays empty between.
  static void Put(void* data, uint32_t size, uint8_t value) {
    if (size && value) static_cast<uint8_t*>(data)[0] = static_cast<uint8_t*>(data)[size - 1] = value;
  }
  static int Ends(const void* data, uint32_t size) {
    const auto* const bytes = static_cast<const uint8_t*>(data);
    return size ? bytes[0] + bytes[size - 1] * 10 : 0;
  }

  _qnmemorytoken own_ = {};
  std::unique_ptr<COutOfProcessMemoryToken> wrap_;
  std::unique_ptr<CMappingOfQnMemoryToken> open_;
};

}  // namespace qntest
