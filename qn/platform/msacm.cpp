#include "qn/platform/msacm.h"

#include <dlfcn.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <climits>
#include <cstring>
#include <exception>
#include <string>

#include "qn/platform/module.h"
#include "qn/platform/msacm_internal.h"
#include "qn/platform/text.h"

namespace {

const char* NoName(unsigned int) {
  return nullptr;
}

// Null until the first question. No lock is held while the module loads: another thread may ask from a
// constructor that the loader runs, and two that load it at once get the same.
constinit std::atomic<qn::CodecName*> g_name = nullptr;

// Only an absolute path is loaded, that of the file that this code was loaded from: a module of the current
// folder, or of a search path, could be anybody's.
qn::CodecName* LoadModule() {
  char path[PATH_MAX];
  const HMODULE self = ModuleFromAddress(&g_name);
  const DWORD length = self ? GetModuleFileNameA(self, path, sizeof(path)) : 0;
  if (length == 0 || length == sizeof(path) || path[0] != '\\') return NoName;
  std::string name(path, length);
  name.resize(name.rfind('\\') + 1);
  name += "qnkernel/codec-names.so";
  std::replace(name.begin(), name.end(), '\\', '/');
#if defined(__SANITIZE_ADDRESS__)
  const __lsan::ScopedDisabler ignored;  // libraries under the module keep what their constructors allocate
#endif
  // Constructors of libraries built for speed change how the thread calculates.
  std::fenv_t environment;
  std::fegetenv(&environment);
  // It stays to the end of the process: the libraries under it cannot be unloaded without a loss.
  void* const module = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  std::fesetenv(&environment);
  void* const function = module ? dlsym(module, qn::kCodecNameFunction) : nullptr;
  if (!function) dlerror();  // the host's next question is not for this error
  return function ? reinterpret_cast<qn::CodecName*>(function) : NoName;
}

// The name of a codec, or null. Linear samples have none, although the table of tags names them: what comes
// here with their tags has sizes that contradict each other. Nor has the extensible tag.
const char* FindName(DWORD tag) {
  if (tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT || tag >= WAVE_FORMAT_EXTENSIBLE)
    return nullptr;
  qn::CodecName* name = g_name.load(std::memory_order_acquire);
  if (!name) {
    name = LoadModule();
    g_name.store(name, std::memory_order_release);
  }
  return name(tag);
}

// The tag of the codec, for an extensible format that which its sub-format carries, if any.
DWORD CodecTag(const WAVEFORMATEX& format, DWORD size) {
  if (format.wFormatTag != WAVE_FORMAT_EXTENSIBLE || size < sizeof(WAVEFORMATEXTENSIBLE)) {
    return format.wFormatTag;
  }
  GUID carried;
  std::memcpy(&carried, reinterpret_cast<const BYTE*>(&format) + offsetof(WAVEFORMATEXTENSIBLE, SubFormat),
              sizeof(carried));
  const DWORD tag = carried.Data1;
  carried.Data1 = KSDATAFORMAT_SUBTYPE_PCM.Data1;
  return std::memcmp(&carried, &KSDATAFORMAT_SUBTYPE_PCM, sizeof(carried)) == 0 ? tag : format.wFormatTag;
}

}  // namespace

namespace qn {

constinit CodecLine* g_codecLine = nullptr;

}  // namespace qn

inline namespace qnplatform {

MMRESULT acmFormatTagDetailsW(HACMDRIVER, ACMFORMATTAGDETAILSW* details, DWORD flags) try {
  if (flags != ACM_FORMATTAGDETAILSF_FORMATTAG) return MMSYSERR_INVALFLAG;
  if (!details || details->cbStruct < sizeof(*details)) return MMSYSERR_INVALPARAM;
  const char* const name = FindName(details->dwFormatTag);
  if (!name) return ACMERR_NOTPOSSIBLE;
  const std::u16string text = qn::FromUtf8(name);
  *details = {details->cbStruct, 0, details->dwFormatTag, 0, 0, 0, {}};
  text.copy(details->szFormatTag, std::size(details->szFormatTag) - 1);
  return MMSYSERR_NOERROR;
} catch (const std::exception&) {
  return MMSYSERR_NOMEM;
}

MMRESULT acmFormatDetailsW(HACMDRIVER, ACMFORMATDETAILSW* details, DWORD flags) try {
  if (flags != ACM_FORMATDETAILSF_FORMAT) return MMSYSERR_INVALFLAG;
  if (!details || details->cbStruct < sizeof(*details) || !details->pwfx ||
      details->cbwfx < offsetof(WAVEFORMATEX, cbSize) || details->dwFormatTag != details->pwfx->wFormatTag) {
    return MMSYSERR_INVALPARAM;
  }
  if (!qn::g_codecLine || !FindName(CodecTag(*details->pwfx, details->cbwfx))) return ACMERR_NOTPOSSIBLE;
  details->dwFormatIndex = 0;
  details->fdwSupport = 0;
  qn::g_codecLine(*details->pwfx, details->szFormat, ACMFORMATDETAILS_FORMAT_CHARS);
  return MMSYSERR_NOERROR;
} catch (const std::exception&) {
  return MMSYSERR_NOMEM;
}

}  // namespace qnplatform
