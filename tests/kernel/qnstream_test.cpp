#include "qn/kernel/qnstream.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "qn/kernel/qnstream_internal.h"
#include "qn/platform/file.h"
#include "qn/settings/qnerror.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;

// What a seek gives and the position that it stores.
using Place = std::pair<HRESULT, LONGLONG>;
constexpr HRESULT kRefused = STG_E_INVALIDFUNCTION;

Place Seek(IStream* stream, LONGLONG offset, DWORD origin) {
  ULARGE_INTEGER position = {.QuadPart = 0xDD};
  const HRESULT status = stream->Seek({.QuadPart = offset}, origin, &position);
  return {status, static_cast<LONGLONG>(position.QuadPart)};
}

// The bytes that a read or write gives, with untouched ones of the room as 0xEE.
using Transfer = std::pair<HRESULT, Bytes>;

Transfer Read(IStream* stream, ULONG bytes) {
  Bytes room(bytes, 0xEE);
  ULONG got = 0xDD;
  const HRESULT status = stream->Read(room.data(), bytes, &got);
  room.resize(std::min<size_t>(got, bytes));
  return {status, room};
}

HRESULT Write(IStream* stream, const Bytes& bytes, ULONG expected) {
  ULONG put = 0xDD;
  const HRESULT status = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &put);
  EXPECT_EQ(put, expected);
  return status;
}

void ExpectRefused(IStream* stream, LONGLONG position, std::vector<std::pair<LONGLONG, DWORD>> rows) {
  for (const auto& [offset, origin] : rows)
    EXPECT_EQ(Seek(stream, offset, origin), Place(kRefused, position)) << offset << " from " << origin;
}

void ExpectSeeks(IStream* stream, std::vector<std::array<LONGLONG, 3>> rows) {
  for (const auto& [offset, origin, position] : rows)
    EXPECT_EQ(Seek(stream, offset, static_cast<DWORD>(origin)), Place(0, position)) << offset;
}

// What all three have in common. Ends with the last reference.
void ExpectObject(IStream* stream, bool guard) {
  for (const auto& [id, known] : {std::pair{IID_IUnknown, true},
                                  {IID_IStream, true},
                                  {IID_IQnProtectedStream, guard},
                                  {IID_ISequentialStream, false}}) {
    void* object = stream;
    EXPECT_EQ(stream->QueryInterface(id, &object), known ? S_OK : E_NOINTERFACE);
    EXPECT_EQ(object, known ? stream : nullptr);
    EXPECT_EQ(object ? stream->Release() : 1, 1u);
  }
  EXPECT_EQ(stream->AddRef(), 2u);
  EXPECT_EQ(GlobalHandle(stream), stream);
  for (const HRESULT status :
       {stream->SetSize({}), stream->CopyTo(stream, {}, nullptr, nullptr), stream->Commit(0),
        stream->Revert(), stream->LockRegion({}, {}, 0), stream->UnlockRegion({}, {}, 0)})
    EXPECT_EQ(status, E_NOTIMPL);
  EXPECT_EQ(stream->Release(), 1u);
  EXPECT_EQ(stream->Release(), 0u);
}

TEST(Stream, OfAFile) {
  const qntest::ScratchFolder folder;
  qntest::WriteFileBytes(folder.Native("f"), {1, 2, 3, 4});
  const HANDLE file = CreateFileW(folder.Path("f").c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  IStream *stream, *other;
  EXPECT_EQ(QnCreateStreamFromFile(file, &stream) | QnCreateStreamFromFile(file, &other), 0);
  EXPECT_EQ(Read(stream, 3), Transfer(0, {1, 2, 3}));
  EXPECT_EQ(Read(other, 2), Transfer(0, {1, 2}));
  EXPECT_EQ(Read(stream, 3), Transfer(0, {4}));
  constexpr LONGLONG kFar = 0x1'2345'6789;
  ExpectRefused(stream, 4, {{-5, 1}, {-1, 0}, {1, 2}, {-5, 2}, {0, 3}});
  ExpectSeeks(stream, {{-1, 2, 3}, {-3, 1, 0}, {INT64_MAX, 0, INT64_MAX}});
  ExpectRefused(stream, INT64_MAX, {{1, 1}});
  ExpectSeeks(stream, {{kFar, 0, kFar}});
  EXPECT_EQ(Write(stream, {7}, 1), 0);
  ExpectSeeks(stream, {{0, 2, kFar + 1}, {0, 1, kFar + 1}});
  ExpectSeeks(other, {{0, 2, 4}});
  IStream* clone = nullptr;
  EXPECT_EQ(other->Clone(&clone), 0);
  ExpectSeeks(other, {{0, 1, 0}, {-1, 2, kFar}});
  EXPECT_EQ(Read(other, 9), Transfer(0, {7}));
  ExpectObject(stream, false);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(Write(other, {7}, 0), QnErrorHandler_TranslateWin32Error(ERROR_INVALID_HANDLE));
  other->Release();
  EXPECT_EQ(QnCreateStreamFromFile(file, &stream), E_HANDLE);
  EXPECT_EQ(stream, nullptr);
}

TEST(Stream, OfMemory) {
  for (const BOOL copy : {0, 1}) {
    Bytes memory(100, 9);
    IStream* stream;
    EXPECT_EQ(QnCreateStreamFromMemory(memory.data(), 100u, 10u, &stream, copy), 0);
    ExpectRefused(stream, 0, {{101, 0}, {-1, 1}});
    ExpectSeeks(stream, {{0, 2, 10}});
    EXPECT_EQ(Read(stream, 1), Transfer(S_FALSE, {}));
    ExpectSeeks(stream, {{50, 0, 50}});
    EXPECT_EQ(Write(stream, {1, 2, 3}, 3), 0);
    EXPECT_EQ(memory == Bytes(100, 9), copy != 0);
    ExpectSeeks(stream, {{0, 2, 53}, {8, 0, 8}});
    ExpectRefused(stream, 8, {{INT64_MAX, 1}});
    IStream* clone = nullptr;
    EXPECT_EQ(stream->Clone(&clone), 0);
    EXPECT_EQ(Read(stream, 4), Transfer(0, {9, 9, 0, 0}));
    ExpectSeeks(stream, {{49, 0, 49}});
    EXPECT_EQ(Read(stream, 100), Transfer(0, {0, 1, 2, 3}));
    STATSTG statistics;
    EXPECT_EQ(stream->Stat(&statistics, 0), 0);
    EXPECT_TRUE(statistics.cbSize.QuadPart == 53 && statistics.type == 0 && !statistics.pwcsName);
    ExpectSeeks(stream, {{99, 0, 99}});
    EXPECT_EQ(Write(stream, {4, 5}, 1), 0);
    EXPECT_EQ(Write(stream, {6}, 0), S_FALSE);
    ExpectObject(stream, false);
  }
  Bytes four = {1, 2, 3, 4};
  IStream* stream;
  EXPECT_EQ(QnCreateStreamFromMemory(four.data(), {.QuadPart = 4}, {.QuadPart = 1ull << 40}, &stream, 1), 0);
  EXPECT_EQ(Read(stream, 9), Transfer(0, four));
  EXPECT_EQ(QnReadIStream(stream, four.data(), 1), S_FALSE);
  stream->Release();
  const ULARGE_INTEGER huge = {.QuadPart = UINT64_MAX};
  EXPECT_EQ(QnCreateStreamFromMemory(four.data(), 0u, 0u, &stream, 1), E_INVALIDARG);
  EXPECT_EQ(QnCreateStreamFromMemory(four.data(), huge, huge, &stream, 1), E_OUTOFMEMORY);
  EXPECT_EQ(stream, nullptr);
}

// A memory stream that can be cloned and refuse to tell its position.
struct Inner final : qn::CountedStream<Inner, IStream> {
  static constexpr IID kOwnId = IID_IStream;
  IStream* memory = nullptr;
  HRESULT seekStatus = 0;

  HRESULT Read(void* buffer, ULONG bytes, ULONG* got) override { return memory->Read(buffer, bytes, got); }
  HRESULT Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }
  HRESULT Seek(LARGE_INTEGER offset, DWORD origin, ULARGE_INTEGER* place) override {
    return seekStatus ? seekStatus : memory->Seek(offset, origin, place);
  }
  HRESULT Stat(STATSTG*, DWORD) override { return 77; }
  HRESULT Clone(IStream** stream) override {
    AddRef();
    *stream = this;
    return S_OK;
  }
};

TEST(Stream, Guard) {
  Bytes memory(40);
  std::iota(memory.begin(), memory.end(), uint8_t{0});
  IQnProtectedStream* guard;
  EXPECT_EQ(QnProtectedStream_CreateFromMemory(memory.data(), 40u, 30u, &guard), 0);
  const auto setWindow = [&](BOOL enabled, BOOL guardWrites, ULONGLONG offset, ULONGLONG size) {
    EXPECT_EQ(guard->SetWindow(enabled, guardWrites, {.QuadPart = offset}, {.QuadPart = size}), 0);
  };
  EXPECT_EQ(Read(guard, 4), Transfer(0, {}));
  setWindow(1, 0, 10, 5);
  EXPECT_EQ(Read(guard, 4), Transfer(STG_E_ACCESSDENIED, {}));
  ExpectRefused(guard, -10, {{0, 1}, {6, 0}, {-1, 0}});
  ExpectSeeks(guard, {{5, 0, 5}});
  ExpectRefused(guard, 5, {{1, 1}, {-6, 1}, {1, 2}, {-6, 2}, {0, 3}});
  ExpectSeeks(guard, {{-2, 2, 3}, {-1, 1, 2}});
  EXPECT_EQ(Read(guard, 3), Transfer(0, {12, 13, 14}));
  EXPECT_EQ(Read(guard, 3), Transfer(S_FALSE, {}));

  EXPECT_EQ(guard->SetMode(3), E_INVALIDARG);
  EXPECT_EQ(guard->SetMode(QNPROTECTEDSTREAM_ZEROFILL), 0);
  ExpectSeeks(guard, {{3, 0, 3}});
  EXPECT_EQ(Read(guard, 4), Transfer(0, {13, 14, 0, 0}));
  EXPECT_EQ(Read(guard, 2), Transfer(0, {0, 0}));
  ExpectSeeks(guard, {{1, 1, 10}});
  ExpectRefused(guard, 10, {{-11, 1}, {1, 2}});
  EXPECT_EQ(guard->SetMode(QNPROTECTEDSTREAM_STRICT), 0);
  EXPECT_EQ(Read(guard, 1), Transfer(STG_E_ACCESSDENIED, {}));

  // Writes make the window longer, and are kept from what is before it.
  EXPECT_EQ(Write(guard, {70, 71}, 2), 0);
  ExpectSeeks(guard, {{0, 2, 12}, {-2, 1, 10}});
  EXPECT_EQ(Read(guard, 9), Transfer(S_FALSE, {70, 71}));
  setWindow(0, 1, 25, UINT64_MAX);
  EXPECT_EQ(Write(guard, {1}, 0), STG_E_ACCESSDENIED);
  ExpectSeeks(guard, {{0, 0, 0}});
  ExpectRefused(guard, 0, {{-1, 1}});
  ExpectSeeks(guard, {{0, 2, 5}, {1, 0, 1}});
  EXPECT_EQ(Write(guard, {72}, 1), 0);
  EXPECT_TRUE(memory[20] == 70 && memory[21] == 71 && memory[26] == 72);
  setWindow(1, 1, 1, UINT64_MAX);
  EXPECT_EQ(Read(guard, 1), Transfer(0, {27}));

  IStream* clone = guard;
  EXPECT_EQ(guard->Clone(&clone), E_FAIL);
  EXPECT_EQ(clone, guard);
  Inner* const inner = Inner::New();
  QnCreateStreamFromMemory(memory.data(), 40u, 30u, &inner->memory, FALSE);
  EXPECT_EQ(guard->Attach(inner) | guard->Attach(inner), 0);
  Seek(inner, 2, STREAM_SEEK_SET);
  EXPECT_EQ(Read(guard, 1), Transfer(0, {2}));
  EXPECT_EQ(guard->Clone(&clone), 0);
  EXPECT_EQ(Read(clone, 1), Transfer(0, {}));  // in its first state
  EXPECT_EQ(clone->Stat(nullptr, 0), 77);
  ExpectObject(clone, true);
  inner->seekStatus = E_ACCESSDENIED;
  EXPECT_EQ(guard->Attach(inner), E_ACCESSDENIED);
  EXPECT_EQ(Read(guard, 1).first, MakeStatus(0x8003001E));
  EXPECT_EQ(Write(guard, {1}, 0), MakeStatus(0x8003001D));
  EXPECT_EQ(guard->Stat(nullptr, 0), STG_E_INVALIDFUNCTION);
  inner->memory->Release();
  EXPECT_EQ(inner->Release(), 0u);
  ExpectObject(guard, true);
}

}  // namespace
