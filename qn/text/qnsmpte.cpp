#include <algorithm>

#include "qn/text/qntimetext_internal.h"

namespace {

using qn::Truncate;

struct Timecode {
  int framesPerSecond;  // as counted in labels
  double rate;          // as time passes
  LONGLONG framesPerDay;
};

// Labels, those left out included.
constexpr int kDropMinute = 1800, kDropTenMinutes = 18000, kDropHour = 108000;

constexpr Timecode kTimecodes[] = {
    {30, 30.0, 2589408},            // all types that are none
    {30, 30.0, 2592000},            // QNSMPTE_30
    {30, 30000.0 / 1001, 2589408},  // QNSMPTE_2997_DROP
    {25, 25.0, 2160000},            // QNSMPTE_25
    {24, 24.0, 2073600},            // QNSMPTE_24
    {30, 30000.0 / 1001, 2592000},  // QNSMPTE_2997_NONDROP
    {24, 24000.0 / 1001, 2073600},  // QNSMPTE_23976
};

const Timecode& TimecodeOfType(LONG type) {
  return kTimecodes[qn::IsTimecode(type) ? type : 0];
}

// The fields of a hostile value may be at the ends of their range: they step around.
void Step(LONG& field, int by) {
  field = static_cast<LONG>(static_cast<DWORD>(field) + static_cast<DWORD>(by));
}

// How many labels were left out in front of a label.
LONGLONG DroppedBefore(LONGLONG label) {
  const LONGLONG inHour = label % kDropHour;
  return label / kDropHour * 108 + 2 * (inHour / kDropMinute - inHour / kDropTenMinutes);
}

// The label of a frame of a day: labels that are added back may lead past a minute, where two more were left
// out. The lowest label of a frame is found, so none of those left out: they count as the two in front of
// them.
LONGLONG DropLabel(LONGLONG frame) {
  LONGLONG label = frame;
  for (LONGLONG next = frame + DroppedBefore(label); next != label; next = frame + DroppedBefore(label)) {
    label = next;
  }
  return label;
}

LONGLONG SecondsOf(const _smpteval& smpte) {
  return (smpte.hours * 60LL + smpte.minutes) * 60 + smpte.seconds;
}

LONGLONG NanosOfFrames(double frames, double rate) {
  return Truncate(frames / rate * 1e7 + 0.999);
}

}  // namespace

extern "C" {

void QNSMPTE_FrameCountToSMPTE(_smpteval* smpte, LONGLONG frames) {
  const Timecode& timecode = TimecodeOfType(smpte->type);
  LONGLONG label = frames % timecode.framesPerDay;
  if (label < 0) label += timecode.framesPerDay;
  if (smpte->type == QNSMPTE_2997_DROP || !qn::IsTimecode(smpte->type)) label = DropLabel(label);
  const LONG rest = static_cast<LONG>(label);
  const int second = timecode.framesPerSecond;
  smpte->hours = rest / (3600 * second);
  smpte->minutes = rest / (60 * second) % 60;
  smpte->seconds = rest / second % 60;
  smpte->frames = rest % second;
}

LONGLONG QNSMPTE_SMPTEToFrameCount(const _smpteval* smpte) {
  if (!qn::IsTimecode(smpte->type)) return 0;
  LONGLONG frames = smpte->frames;
  if (smpte->type == QNSMPTE_2997_DROP) {
    if (smpte->seconds == 0 && smpte->minutes % 10 != 0) frames = std::max(frames, LONGLONG{2});
    frames -= smpte->hours * 108LL + 2LL * (smpte->minutes - smpte->minutes / 10);
  }
  return SecondsOf(*smpte) * TimecodeOfType(smpte->type).framesPerSecond + frames;
}

void QNSMPTE_AddSMPTE(_smpteval* smpte, const _smpteval* other) {
  QNSMPTE_FrameCountToSMPTE(smpte, QNSMPTE_SMPTEToFrameCount(smpte) + QNSMPTE_SMPTEToFrameCount(other));
}

void QNSMPTE_SubtractSMPTE(_smpteval* smpte, const _smpteval* other) {
  QNSMPTE_FrameCountToSMPTE(smpte, QNSMPTE_SMPTEToFrameCount(smpte) - QNSMPTE_SMPTEToFrameCount(other));
}

void QNSMPTE_NanoToSMPTE(LONGLONG nanotime, _smpteval* smpte) {
  const double rate = TimecodeOfType(smpte->type).rate;
  QNSMPTE_FrameCountToSMPTE(smpte, Truncate(static_cast<double>(nanotime) * rate / 1e7 + 5e-6));
}

LONGLONG QNSMPTE_SMPTEToNanos(const _smpteval* smpte) {
  return NanosOfFrames(static_cast<double>(QNSMPTE_SMPTEToFrameCount(smpte)),
                       TimecodeOfType(smpte->type).rate);
}

LONGLONG QNSMPTE_SmpteLikeToNanos(double rate, const _smpteval* smpte) {
  return NanosOfFrames(static_cast<double>(SecondsOf(*smpte)) * rate + smpte->frames, rate);
}

void QNSMPTE_TextToSMPTE(const WCHAR* text, _smpteval* smpte) {
  auto [hours, minutes, seconds, frames] = qn::ReadFields(text, 4, true).values;
  const int second = TimecodeOfType(smpte->type).framesPerSecond;
  if (qn::IsTimecode(smpte->type)) {
    seconds += frames / second;
    frames %= second;
  }
  minutes += seconds / 60;
  hours += minutes / 60;
  *smpte = {smpte->type,
            static_cast<LONG>(hours % 24),
            static_cast<LONG>(minutes % 60),
            static_cast<LONG>(seconds % 60),
            static_cast<LONG>(frames),
            0};
}

int QNSMPTE_SMPTECompare(const _smpteval* smpte, const _smpteval* other) {
  for (const auto field : {&_smpteval::hours, &_smpteval::minutes, &_smpteval::seconds, &_smpteval::frames}) {
    if (smpte->*field != other->*field) return smpte->*field > other->*field ? 1 : -1;
  }
  return 0;
}

void QNSMPTE_IncrementByFrame(_smpteval* smpte) {
  Step(smpte->frames, 1);
  if (smpte->frames < TimecodeOfType(smpte->type).framesPerSecond) return;
  smpte->frames = 0;
  Step(smpte->seconds, 1);
  if (smpte->seconds < 60) return;
  smpte->seconds = 0;
  Step(smpte->minutes, 1);
  if (smpte->type == QNSMPTE_2997_DROP && smpte->minutes % 10 != 0) smpte->frames = 2;
  if (smpte->minutes < 60) return;
  smpte->minutes = 0;
  smpte->hours = (smpte->hours & 31) + 1;
  if (smpte->hours == 24) smpte->hours = 0;
}

void QNSMPTE_DeccrementByFrame(_smpteval* smpte, int /*unused*/) {
  Step(smpte->frames, -1);
  if (smpte->frames >= 0) return;
  smpte->frames = TimecodeOfType(smpte->type).framesPerSecond - 1;
  Step(smpte->seconds, -1);
  if (smpte->seconds >= 0) return;
  smpte->seconds = 59;
  Step(smpte->minutes, -1);
  const bool isHourPassed = smpte->minutes < 0;
  if (isHourPassed) {
    smpte->minutes = 59;
    smpte->hours = (smpte->hours & 31) - 1;
    if (smpte->hours < 0) smpte->hours = 23;
  }
  // Both kinds of 29.97, and frame 31, which is no label of either: hosts rely on what this has always given.
  const bool is2997 = smpte->type == QNSMPTE_2997_DROP || smpte->type == QNSMPTE_2997_NONDROP;
  if (is2997 && (isHourPassed || smpte->minutes % 10 != 0)) smpte->frames = 31;
}
}
