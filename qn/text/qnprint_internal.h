// What the formatter's sources share.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstddef>

#include "qn/settings/qnstatus.h"
#include "qn/text/text_internal.h"

namespace qn {

// A text was cut by the platform's rules for copies: its system error 122 as a status.
constexpr HRESULT kTextTooLong = MakeStatus(0x8007007A);

// Longest conversion spec, with its lead, longest name of a token and longest literal number in a format.
constexpr int kLongestSpec = 260;
constexpr int kLongestTokenName = 260;
constexpr int kLongestLiteral = 2048;

// Where formatted text goes: a buffer with room for `room` characters and a terminator.
class PrintOutput {
 public:
  PrintOutput(WCHAR* text, int room) : start_(text), at_(text), end_(text + room) {}

  int Room() const { return static_cast<int>(end_ - at_); }
  int Length() const { return static_cast<int>(at_ - start_); }
  WCHAR* At() const { return at_; }
  HRESULT Status() const { return status_; }

  void SetStatus(HRESULT status) { status_ = status; }

  // Something did not fit; the first such status is kept.
  void SetFull() {
    if (status_ == S_OK) status_ = QN_E_BUFFER_TOO_SMALL;
  }

  // Counts characters that were written to At().
  void Advance(int count) { at_ += count; }

  // Write what fits.
  void Put(WCHAR c) { Fill(c, 1); }
  void Fill(WCHAR c, int count) { at_ = std::fill_n(at_, Fit(count), c); }
  template <typename Char>
  void Write(const Char* text, int count) {
    at_ = std::copy_n(text, Fit(count), at_);
  }

  // Writes all or nothing: half a number is another number.
  void WriteWhole(const WCHAR* text, int count) {
    if (count <= Room()) {
      Write(text, count);
    } else {
      SetFull();
    }
  }

 private:
  int Fit(int count) {
    if (count <= Room()) return count;
    SetFull();
    return Room();
  }

  WCHAR* const start_;
  WCHAR* at_;
  WCHAR* const end_;
  HRESULT status_ = S_OK;
};

// The unbounded form of printing, held to `size` characters with the terminator all the same: what does not
// fit is left out. The length.
int PrintWithin(WCHAR* buffer, int size, const WCHAR* format, va_list arguments);

// True if a format, which may be anybody's, asks for at most so many integers, doubles and wide texts, and
// for nothing else.
bool FormatTakes(const WCHAR* format, int integers, int doubles, int texts = 0);

// Writes the value of a token; false if there is none of that name.
bool WriteTokenValue(const WCHAR* name, PrintOutput* output);

// A text of the locale record by its QnGetInat index, with its length; null for an index of none.
const WCHAR* InternationalText(int index, int* length);

}  // namespace qn
