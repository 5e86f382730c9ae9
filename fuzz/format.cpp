// Formats from anywhere: each is printed unbounded and into every small room.
//
// The arguments are valid for any conversion: each integer slot holds the address of a text, which an integer
// conversion prints as a number and a text conversion reads as a wide or a narrow text; the floating-point
// slots hold doubles.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "qn/text/qnprint.h"

using qnfuzz::Check;

namespace {

constexpr int kMostConversions = 32;
constexpr int kLargeRoom = 4096;

// Ends as a wide and as a narrow text.
alignas(8) const WCHAR kText[] = {'w', 'i', 0x00E9, 0xD83D, 0xDE00, 'd', 'e', 0};
double g_double = 0;

// Where registers end, integers and doubles share the stack: its first slots are the texts, as many as any 32
// conversions can reach.
HRESULT Print(WCHAR* buffer, int size, int* length, const WCHAR* format) {
#define QN_FOUR(argument) argument, argument, argument, argument
#define QN_THIRTY_TWO(argument) QN_FOUR(QN_FOUR(argument)), QN_FOUR(QN_FOUR(argument))
  return QnCchPrintF(buffer, size, length, format, QN_THIRTY_TWO(kText), QN_THIRTY_TWO(g_double));
#undef QN_THIRTY_TWO
#undef QN_FOUR
}

}  // namespace

// The first 8 bytes are the double, the rest is the format in UTF-16.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < sizeof g_double) return 0;
  std::memcpy(&g_double, data, sizeof g_double);
  data += sizeof g_double;
  const size_t length = std::min<size_t>((size - sizeof g_double) / sizeof(WCHAR), 2000);
  // An exact-size block: a read behind the terminator shows.
  const std::unique_ptr<WCHAR[]> format(new WCHAR[length + 1]);
  std::memcpy(format.get(), data, length * sizeof(WCHAR));
  format[length] = 0;
  // No more conversions than there are arguments.
  int leads = 0;
  for (size_t i = 0; i < length; ++i) {
    if ((format[i] == '%' || format[i] == '$') && ++leads > kMostConversions) format[i] = '_';
  }

  WCHAR whole[kLargeRoom];
  int wholeLength = -1;
  const HRESULT wholeStatus = Print(whole, kLargeRoom, &wholeLength, format.get());
  Check(wholeLength >= 0 && wholeLength < kLargeRoom && whole[wholeLength] == 0, "a text ends in its room");
  for (int room = 1; room <= 64; ++room) {
    const std::unique_ptr<WCHAR[]> buffer(new WCHAR[static_cast<size_t>(room)]);
    int written = -1;
    const HRESULT status = Print(buffer.get(), room, &written, format.get());
    Check(written >= 0 && written < room && buffer[static_cast<size_t>(written)] == 0,
          "a text ends in its room");
    if (wholeStatus != 0) continue;
    Check((status == 0) == (wholeLength < room), "what fits is printed");
    Check(status != 0 || std::memcmp(buffer.get(), whole, static_cast<size_t>(written) * sizeof(WCHAR)) == 0,
          "what is printed is the text");
  }
  return 0;
}
