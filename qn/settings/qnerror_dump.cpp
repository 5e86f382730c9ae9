// Dumps of memory and of exceptions, and the filter that shows an exception to the user.
//
// All of it can run inside the failure that it reports: it allocates nothing, takes no lock and writes to the
// caller's room alone.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "qn/platform/memory.h"
#include "qn/platform/module.h"
#include "qn/platform/sync.h"
#include "qn/platform/text.h"
#include "qn/settings/qnerror_internal.h"
#include "qn/settings/qnmsgbox_internal.h"

namespace qn {
namespace {

constexpr int kPointerDigits = 16;

// Narrow text of whole lines in a room of `size` characters with the terminator.
class Dump {
 public:
  Dump(char* text, int size) : text_(text), size_(text ? std::max(size, 0) : 0) { Terminate(); }

  int Length() const { return length_; }

  // The room that a dump asks for before it goes on to another line.
  bool HasRoom() const { return fits_ && size_ - length_ >= 50; }

  Dump& Put(std::string_view part) {
    fits_ = fits_ && part.size() < static_cast<size_t>(size_ - end_);
    if (fits_) {
      std::copy(part.begin(), part.end(), text_ + end_);
      end_ += static_cast<int>(part.size());
    }
    return *this;
  }

  // Upper-case hexadecimal with at least `digits` digits.
  Dump& Hex(uint64_t value, int digits) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    char text[kPointerDigits];
    char* start = std::end(text);
    for (; value != 0 || std::end(text) - start < digits; value >>= 4) *--start = kDigits[value & 15];
    return Put({start, std::end(text)});
  }
  Dump& Address(const void* address) { return Hex(reinterpret_cast<uintptr_t>(address), kPointerDigits); }

  // A line that does not fit is left out as a whole, and so is what follows.
  void EndLine() {
    Put("\r\n");
    if (fits_) length_ = end_;
    Terminate();
  }

 private:
  void Terminate() {
    if (size_ > 0) text_[length_] = 0;
  }

  char* const text_;
  const int size_;
  int length_ = 0;    // of whole lines
  int end_ = 0;       // of the line that is being written
  bool fits_ = true;  // everything so far
};

struct ExceptionName {
  DWORD code;
  std::string_view name;
};

constexpr ExceptionName kExceptionNames[] = {
    {0x80000001, "guard page violation"},
    {0x80000002, "datatype misalignment"},
    {0x80000003, "breakpoint"},
    {0x80000004, "single step"},
    {0xC0000005, "access violation"},
    {0xC0000006, "in page error"},
    {0xC0000008, "invalid handle"},
    {0xC0000017, "no memory"},
    {0xC000001D, "illegal instruction"},
    {0xC0000025, "noncontinuable exception"},
    {0xC0000026, "invalid disposition"},
    {0xC000008C, "array bounds exceeded"},
    {0xC000008D, "float denormal operand"},
    {0xC000008E, "float divide by zero"},
    {0xC000008F, "float inexact result"},
    {0xC0000090, "float invalid operation"},
    {0xC0000091, "float overflow"},
    {0xC0000092, "float stack check"},
    {0xC0000093, "float underflow"},
    {0xC0000094, "integer divide by zero"},
    {0xC0000095, "integer overflow"},
    {0xC0000096, "privileged instruction"},
    {0xC00000FD, "stack overflow"},
    {0xC000013A, "control+c exit"},
};

std::string_view NameOf(DWORD exception) {
  for (const ExceptionName& row : kExceptionNames) {
    if (row.code == exception) return row.name;
  }
  return "Unknown Type";
}

void PutException(const EXCEPTION_RECORD& record, Dump* dump) {
  dump->Put("Exception 0x").Hex(record.ExceptionCode, 1);
  dump->Put(" (").Put(NameOf(record.ExceptionCode)).Put(")");
  if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters == 2) {
    dump->Put(record.ExceptionInformation[0] == 0 ? " READ:0x" : " WRITE:0x");
    dump->Hex(record.ExceptionInformation[1], kPointerDigits);
  }
  dump->Put(" IP:0x").Address(record.ExceptionAddress).EndLine();
}

void PutModule(const void* address, Dump* dump) {
  MEMORY_BASIC_INFORMATION memory = {};
  char path[4096];
  if (!VirtualQuery(address, &memory, sizeof memory) || !memory.AllocationBase) return;
  if (!GetModuleFileNameA(static_cast<HMODULE>(memory.AllocationBase), path, sizeof path)) return;
  const std::string_view whole = path;
  dump->Put("In Module '").Put(whole.substr(whole.find_last_of("\\/") + 1)).Put("' at Address 0x");
  dump->Address(memory.AllocationBase).Put(" + 0x");
  dump->Hex(reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(memory.AllocationBase),
            kPointerDigits);
  dump->EndLine();
}

const void* PointerAt(const void* start, int64_t bytes) {
  return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(start) + static_cast<uintptr_t>(bytes));
}

// Widens a text into a room of as many characters as it has bytes, and a terminator. File names in it come
// from the system as UTF-8. A byte of anything else stands for the character of its number: the converters of
// the ANSI code page would use the heap.
void Widen(std::string_view text, WCHAR* wide) {
  while (!text.empty()) {
    const auto first = static_cast<BYTE>(text.front());
    const size_t bytes = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    const size_t units = bytes == 4 ? 2 : 1;
    constexpr WCHAR kIllFormed = 0xFFFD;
    WCHAR character[3];
    const bool isWhole = FromUtf8(text.substr(0, bytes), character, std::size(character)) == units;
    const bool isUtf8 = isWhole && character[0] != kIllFormed;
    if (!isUtf8) character[0] = first;
    wide = std::copy_n(character, isUtf8 ? units : 1, wide);
    text.remove_prefix(isUtf8 ? bytes : 1);
  }
  *wide = 0;
}

}  // namespace
}  // namespace qn

using namespace qn;

int QnErrorHandler_DumpHex(char* text, int size, const void* bytes, int count) {
  constexpr int kPerLine = 8;
  Dump dump(text, size);
  for (int64_t first = 0; first < count && dump.HasRoom(); first += kPerLine) {
    char characters[kPerLine];
    dump.Put(" ").Address(PointerAt(bytes, first)).Put(": ");
    for (int i = 0; i < kPerLine; ++i) {
      const auto* const at = static_cast<const unsigned char*>(PointerAt(bytes, first + i));
      characters[i] = first + i < count ? '.' : ' ';
      if (first + i >= count) {
        dump.Put("   ");
      } else if (IsBadReadPtr(at, 1)) {
        dump.Put(".. ");
      } else {
        dump.Hex(*at, 2).Put(" ");
        if (*at >= 0x20 && *at <= 0x7E) characters[i] = static_cast<char>(*at);
      }
    }
    dump.Put({characters, kPerLine}).EndLine();
  }
  return dump.Length();
}

int QnErrorHandler_DumpHexDWords(char* text, int size, const DWORD* words, int count) {
  constexpr int kPerLine = 4;
  Dump dump(text, size);
  for (int64_t first = 0; first < count && dump.HasRoom(); first += kPerLine) {
    dump.Put(" ").Address(PointerAt(words, first * 4)).Put(": ");
    for (int64_t i = first; i < std::min<int64_t>(count, first + kPerLine); ++i) {
      const void* const at = PointerAt(words, i * 4);
      DWORD word;
      if (IsBadReadPtr(at, sizeof word)) {
        dump.Put("........ ");
      } else {
        std::memcpy(&word, at, sizeof word);
        dump.Hex(word, 8).Put(" ");
      }
    }
    dump.EndLine();
  }
  return dump.Length();
}

int QnErrorHandler_DumpExceptionRecord(char* text, int size, const char* threadName,
                                       EXCEPTION_POINTERS* pointers, DWORD flags) {
  constexpr DWORD kException = 1, kModule = 2, kThread = 32;
  ErrorReport_UnmanagedException(pointers);
  Dump dump(text, size);
  if (!pointers || !pointers->ExceptionRecord) return 0;
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  const auto isWanted = [&](DWORD line) {
    return (flags == 0 || (flags & line)) && (dump.Length() == 0 || dump.HasRoom());
  };
  if (isWanted(kException)) PutException(record, &dump);
  if (isWanted(kModule)) PutModule(record.ExceptionAddress, &dump);
  if (isWanted(kThread)) {
    dump.Put("Thread: ").Put(threadName ? threadName : "").Put(" ID=0x").Hex(GetCurrentThreadId(), 1);
    dump.Put(" Stack=").EndLine();
  }
  return dump.Length();
}

LONG QnErrorHandler_ExceptionFilter(EXCEPTION_POINTERS* pointers, const char* threadName) {
  if (!pointers || !pointers->ExceptionRecord) return EXCEPTION_CONTINUE_SEARCH;
  if (pointers->ExceptionRecord->ExceptionCode == EXCEPTION_DATATYPE_MISALIGNMENT)
    return EXCEPTION_CONTINUE_SEARCH;
  constexpr int kDumpSize = 4096;
  char dump[kDumpSize];
  const int length = QnErrorHandler_DumpExceptionRecord(dump, kDumpSize, threadName, pointers, 0);
  if (IsDebuggerPresent()) return EXCEPTION_CONTINUE_SEARCH;

  WCHAR wide[kDumpSize];
  Widen({dump, static_cast<size_t>(length)}, wide);
  QnErrorHandler_DetailsInit();
  AddDetailsText(QN_E_EXCEPTION, MsgBoxAppName());
  AddDetailsText(QN_E_EXCEPTION, wide);
  const auto kNoOwner = reinterpret_cast<HWND>(intptr_t{-1});
  QnErrorHandler_MsgBoxText(kNoOwner, MB_ICONEXCLAMATION,
                            QnErrorHandler_GetErrorMessage(0, QN_E_EXCEPTION, nullptr), FALSE);
  return EXCEPTION_EXECUTE_HANDLER;
}
