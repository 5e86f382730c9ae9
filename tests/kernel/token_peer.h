// A process that owns or asks for memory by tokens: the test itself, or a second process that runs what it is
// told through a pipe. Both do the same work, so a test can let either be the owner.
#pragma once

#include <sys/mman.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

#include "qn/kernel/qnmemtoken.h"
#include "qn/platform/file.h"
#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/process.h"

namespace qntest {

enum class Memory { kLow, kHigh, kMapping };  // below 4 GiB, above, a shared mapping
enum class Work {
  kMake,
  kWrap,
  kLook,
  kUnwrap,
  kCloseHandle,
  kFree,
  kOpen,
  kPut,
  kDispose,
  kCopyOut,
  kCopyIn,
  kCount
};

struct Request {
  Work work = Work::kCount;
  _qnmemorytoken token = {};  // of the memory that is asked for
  Memory memory = Memory::kLow;
  uint32_t size = 0;  // of the data; what is made starts kOffset earlier
  DWORD access = 0;
  int direct = 0;
  uint8_t value = 0;
  qn::ProcessAccess allowed = qn::ProcessAccess::kFull;
};

struct Reply {
  HRESULT status;
  _qnmemorytoken token;
  LONG size;
  uint8_t first, last;  // bytes of the data
  ptrdiff_t descriptors, threads;
};

inline ptrdiff_t CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

class Peer {
 public:
  static constexpr uint64_t kOffset = 5000;

  Reply Do(const Request& request) {
    qn::SetProcessAccess(request.allowed);
    Reply reply = {};
    switch (request.work) {
      case Work::kMake:
        reply.status = Make(request.memory, request.size);
        Fill(Data(), request.size, request.value);
        break;
      case Work::kWrap:
        wrap_ = std::make_unique<COutOfProcessMemoryToken>(own_, request.access, request.direct);
        reply.status = wrap_->GetMemoryToken(reply.token);
        break;
      case Work::kLook:
        Look(Data(), own_.size, &reply);
        break;
      case Work::kUnwrap:
        wrap_.reset();
        break;
      case Work::kCloseHandle:
        reply.status = !CloseHandle(OwnHandle());
        break;
      case Work::kFree:
        if (own_.kind == QNMEMORYTOKEN_MAPPING) {
          UnmapViewOfFile(reinterpret_cast<void*>(own_.address));
          CloseHandle(OwnHandle());
        } else {
          munmap(reinterpret_cast<void*>(own_.address), own_.offset + own_.size);
        }
        break;
      case Work::kOpen:
        mapping_ = std::make_unique<CMappingOfQnMemoryToken>(request.token, request.access);
        reply.status = mapping_->Pointer() ? S_OK : E_FAIL;
        reply.size = mapping_->DataSize();
        if (mapping_->Pointer()) Look(mapping_->Pointer(), request.token.size, &reply);
        break;
      case Work::kPut:
        Fill(mapping_->Pointer(), mapping_->token.size, request.value);
        break;
      case Work::kDispose:
        reply.status = mapping_->Dispose();
        break;
      case Work::kCopyOut: {
        std::vector<uint8_t> bytes(request.size + 1);
        reply.status =
            CMappingOfQnMemoryToken::CopyData(bytes.data(), request.token, static_cast<LONG>(request.size));
        Look(bytes.data(), request.token.size, &reply);
        break;
      }
      case Work::kCopyIn: {
        const std::vector<uint8_t> bytes(request.size + 1, request.value);
        reply.status =
            CMappingOfQnMemoryToken::CopyData(request.token, bytes.data(), static_cast<LONG>(request.size));
        break;
      }
      case Work::kCount:
        break;
    }
    reply.descriptors = CountEntries("/proc/self/fd");
    reply.threads = CountEntries("/proc/self/task");
    return reply;
  }

  const _qnmemorytoken& Own() const { return own_; }

 private:
  HRESULT Make(Memory memory, uint32_t size) {
    void* base;
    HANDLE mapping = INVALID_HANDLE_VALUE;
    if (memory == Memory::kMapping) {
      const uint64_t bytes = kOffset + size;
      mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                   static_cast<DWORD>(bytes >> 32), static_cast<DWORD>(bytes), nullptr);
      base = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
    } else {
      const int flags =
          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | (memory == Memory::kLow ? MAP_32BIT : 0);
      base = mmap(nullptr, kOffset + size, PROT_READ | PROT_WRITE, flags, -1, 0);
    }
    own_ = {static_cast<int64_t>(reinterpret_cast<uintptr_t>(mapping)),
            reinterpret_cast<uintptr_t>(base),
            size,
            size,
            kOffset,
            memory == Memory::kMapping ? QNMEMORYTOKEN_MAPPING : QNMEMORYTOKEN_PROCESS,
            GetCurrentProcessId()};
    return base ? S_OK : E_FAIL;
  }

  HANDLE OwnHandle() const { return reinterpret_cast<HANDLE>(own_.handle); }
  void* Data() const { return reinterpret_cast<char*>(own_.address) + own_.offset; }

  // The ends alone: memory of gigabytes stays empty between.
  static void Fill(void* data, uint32_t size, uint8_t value) {
    if (size == 0) return;
    static_cast<uint8_t*>(data)[0] = static_cast<uint8_t*>(data)[size - 1] = value;
  }
  static void Look(const void* data, uint32_t size, Reply* reply) {
    if (size == 0) return;
    reply->first = static_cast<const uint8_t*>(data)[0];
    reply->last = static_cast<const uint8_t*>(data)[size - 1];
  }

  _qnmemorytoken own_ = {};
  std::unique_ptr<COutOfProcessMemoryToken> wrap_;
  std::unique_ptr<CMappingOfQnMemoryToken> mapping_;
};

}  // namespace qntest
