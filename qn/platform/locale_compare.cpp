// Comparison by the root collation.

#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <atomic>
#include <iterator>
#include <memory>
#include <new>
#include <string>

#include "qn/platform/locale.h"
#include "qn/platform/unload_internal.h"

namespace {

// The root collator that tells all texts apart, opened at the first comparison and kept until
// ReleaseCollation, as other libraries' destructors may still compare; null without collation data. Comparing
// does not change it.
constinit std::atomic<UCollator*> g_root = nullptr;

const UCollator* RootCollator() {
  if (const UCollator* const root = g_root.load(std::memory_order_acquire)) return root;
  UErrorCode error = U_ZERO_ERROR;
  UCollator* const collator = ucol_open("", &error);
  if (U_FAILURE(error)) return nullptr;
  ucol_setStrength(collator, UCOL_IDENTICAL);
  UCollator* first = nullptr;
  if (g_root.compare_exchange_strong(first, collator, std::memory_order_acq_rel)) return collator;
  ucol_close(collator);  // another thread was faster
  return first;
}

int Compare(const WCHAR* first, const WCHAR* second) {
  const UCollator* const root = RootCollator();
  return root ? ucol_strcoll(root, first, -1, second, -1) : u_strcmpCodePointOrder(first, second);
}

constexpr WCHAR Lower(WCHAR c) {
  return c >= u'A' && c <= u'Z' ? static_cast<WCHAR>(c + (u'a' - u'A')) : c;
}

constexpr bool IsPrintable(WCHAR c) {
  return c >= u' ' && c < 0x7F;
}

constexpr bool IsLetterOrDigit(WCHAR c) {
  return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z');
}

// Most texts compared are names in ASCII, which the root collation orders like this at their first letters or
// digits that differ in more than case, whatever comes behind; kUndecided if they do not differ so. Other
// characters may be ignored, combine, or have an order of their own.
constexpr int kUndecided = 2;

int CompareAscii(const WCHAR* first, const WCHAR* second) {
  while (Lower(*first) == Lower(*second) && IsPrintable(*first)) {
    ++first;
    ++second;
  }
  const WCHAR a = Lower(*first);
  const WCHAR b = Lower(*second);
  if (a == b) return kUndecided;
  if ((IsLetterOrDigit(a) || a == 0) && (IsLetterOrDigit(b) || b == 0)) return a < b ? -1 : 1;
  return kUndecided;
}

// A text with the case of every letter folded, the same for all languages.
class Folded {
 public:
  explicit Folded(const WCHAR* source) {
    const int32_t length = Fold(source, short_, std::size(short_));
    if (length < static_cast<int32_t>(std::size(short_))) return;
    long_.reset(new (std::nothrow) WCHAR[static_cast<size_t>(length) + 1]);
    text_ = long_.get();
    if (text_) Fold(source, long_.get(), length + 1);
  }

  // Null without memory.
  const WCHAR* Text() const { return text_; }

 private:
  static int32_t Fold(const WCHAR* source, WCHAR* text, size_t size) {
    UErrorCode error = U_ZERO_ERROR;
    return u_strFoldCase(text, static_cast<int32_t>(size), source, -1, U_FOLD_CASE_DEFAULT, &error);
  }

  WCHAR short_[128];
  std::unique_ptr<WCHAR[]> long_;
  const WCHAR* text_ = short_;
};

// What decides without the collator: null in front of every text, or ASCII.
int CompareSimply(const WCHAR* first, const WCHAR* second) {
  if (first && second) return CompareAscii(first, second);
  return static_cast<int>(first != nullptr) - static_cast<int>(second != nullptr);
}

}  // namespace

inline namespace qnplatform {

int lstrcmpW(const WCHAR* first, const WCHAR* second) {
  const int simple = CompareSimply(first, second);
  return simple != kUndecided ? simple : Compare(first, second);
}

int lstrcmpiW(const WCHAR* first, const WCHAR* second) {
  const int simple = CompareSimply(first, second);
  if (simple != kUndecided) return simple;
  const Folded a(first);
  const Folded b(second);
  if (a.Text() && b.Text()) return Compare(a.Text(), b.Text());
  return u_strcasecmp(first, second, U_FOLD_CASE_DEFAULT);
}

}  // namespace qnplatform

void qn::ReleaseCollation() {
  if (UCollator* const root = g_root.exchange(nullptr)) ucol_close(root);
}
