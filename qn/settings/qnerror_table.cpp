// The library's own texts of statuses and contexts.
#include "qn/settings/qnerror_internal.h"

#include <algorithm>
#include <iterator>

#include "qn/text/messages_internal.h"

namespace qn {

using namespace messages;

namespace {

struct StatusRow {
  HRESULT code;
  const qnlang_t* record;
};

// A record is named after the first status that has its text; these share another's.
constexpr const qnlang_t& Status80030070 = Status8007000E;
constexpr const qnlang_t& Status80030009 = Status80004003;
constexpr const qnlang_t& Status8003001D = Status8004E009;
constexpr const qnlang_t& Status8004E01E = Status8004E011;
constexpr const qnlang_t& Status0004E006 = Status8004E01F;
constexpr const qnlang_t& StatusC00D0BC3 = Status8004E012;
constexpr const qnlang_t& StatusC00D0BC5 = Status8004E012;

#define ROW(code)                       \
  StatusRow {                           \
    MakeStatus(0x##code), &Status##code \
  }

constexpr StatusRow kStatuses[] = {
    ROW(80004005), ROW(8000FFFF), ROW(80070057), ROW(80004003), ROW(80004001), ROW(8007000E), ROW(80070006),
    ROW(80004002), ROW(80070005), ROW(80040154), ROW(8004E000), ROW(0004E005), ROW(8004E001), ROW(8004E002),
    ROW(8004E003), ROW(8004E004), ROW(8004E005), ROW(8004E00C), ROW(8004E006), ROW(8004E032), ROW(8004E007),
    ROW(8004E05A), ROW(8004E05B), ROW(8004E009), ROW(8004E008), ROW(8004E16D), ROW(8004E00B), ROW(8004E00D),
    ROW(8004E01C), ROW(8004E165), ROW(8004E00E), ROW(8004E00F), ROW(8004E010), ROW(8004E011), ROW(8004E012),
    ROW(8004E015), ROW(80040037), ROW(80040964), ROW(800404B0), ROW(800404E0), ROW(8004E0A0), ROW(8004E016),
    ROW(8004E017), ROW(8004E0A1), ROW(8004E080), ROW(8004E081), ROW(8004E082), ROW(8004E083), ROW(80030070),
    ROW(80030005), ROW(80030103), ROW(80030009), ROW(8003001D), ROW(8004E084), ROW(0004E009), ROW(0004E003),
    ROW(8004E02E), ROW(8004E02F), ROW(8004E030), ROW(8004E031), ROW(8004E0A2), ROW(8004E051), ROW(8004E0A3),
    ROW(8004E01F), ROW(8004E0A5), ROW(8004E0AF), ROW(8004E019), ROW(8004E01E), ROW(8004E0A6), ROW(0004E000),
    ROW(0004E006), ROW(8004E00A), ROW(8004E01A), ROW(8004E01B), ROW(8004E01D), ROW(8004E023), ROW(8004E050),
    ROW(8004E025), ROW(8004E026), ROW(8004E028), ROW(8004E0A8), ROW(8004E054), ROW(0004E007), ROW(0004E008),
    ROW(8004E035), ROW(8004E036), ROW(8004E037), ROW(8004E038), ROW(8004E039), ROW(8004E171), ROW(8004E172),
    ROW(8004E173), ROW(8004E174), ROW(8004E033), ROW(8004E03A), ROW(8004E0C5), ROW(0004E00B), ROW(0004E00C),
    ROW(0004E00E), ROW(8004E03B), ROW(8004E03D), ROW(8004E03E), ROW(0004E010), ROW(8004E163), ROW(0004E015),
    ROW(8004E0AB), ROW(8004E0B4), ROW(8004E142), ROW(8004E047), ROW(8004E02A), ROW(8004E02B), ROW(C00D0BC2),
    ROW(C00D0BC4), ROW(C00D0BCF), ROW(C00D002B), ROW(C00D0BC6), ROW(C00D0BC3), ROW(C00D0BC5), ROW(8004E020),
    ROW(8004E162), ROW(8004E0B5), ROW(8004E0B6), ROW(8004E164), ROW(8004E109), ROW(8004E045), ROW(8004E089),
    ROW(0004E019), ROW(0004E018), ROW(8004E17C), ROW(8004E17F), ROW(8004E05C), ROW(8004E05D), ROW(8004E05E),
    ROW(8004E05F), ROW(8004E060), ROW(8004E0D4), ROW(8004E03C), ROW(8004E166), ROW(8004E0A9), ROW(800A0026),
    ROW(8004E0EC), ROW(8004E0EE), ROW(8004E0ED), ROW(8004E0EF), ROW(8004E0AC), ROW(8004E055), ROW(8004E0C9),
    ROW(8004E0AE), ROW(8004E0C2), ROW(8004E0AA), ROW(8004E024), ROW(8004E15F), ROW(8004E161), ROW(8004E08A),
    ROW(8004E186), ROW(8004E061), ROW(8004E16E), ROW(8004E16F), ROW(8004E170), ROW(8004E189)};

#undef ROW

// By context. Numbers without a sentence were given up.
constexpr const qnlang_t* kContexts[] = {
    &Context0,  &Context1,  &Context2,  &Context3,  &Context4,  &Context5,  &Context6,  &Context7,
    &Context8,  &Context9,  &Context10, &Context11, &Context12, nullptr,    &Context14, &Context15,
    &Context16, &Context17, &Context18, &Context19, &Context20, &Context21, &Context22, &Context23,
    &Context24, &Context25, &Context26, &Context27, &Context28, &Context29, &Context30, &Context31,
    &Context32, &Context33, &Context34, &Context35, &Context36, &Context37, &Context38, &Context39,
    &Context40, &Context41, &Context42, &Context43, &Context44, &Context45, &Context46, &Context47,
    &Context48, nullptr,    &Context50, &Context51, &Context52, nullptr,    &Context54, nullptr,
    nullptr,    &Context57};

}  // namespace

const qnlang_t* FindStatusRecord(HRESULT status) {
  const auto* const found = std::find_if(std::begin(kStatuses), std::end(kStatuses),
                                         [=](const StatusRow& row) { return row.code == status; });
  return found == std::end(kStatuses) ? nullptr : found->record;
}

const qnlang_t* ContextRecord(ULONG_PTR context) {
  const qnlang_t* const record = context < std::size(kContexts) ? kContexts[context] : nullptr;
  return record ? record : kContexts[0];
}

}  // namespace qn
