#include "tools/qnwave/canvas.h"

#include <dlfcn.h>

#include <filesystem>

#include "qn/settings/qnstatus.h"
#include "tools/qnwave/report.h"

namespace qnwave {

std::unique_ptr<Canvas> MakeCanvas(PictureKind kind, double width, double height, double factor,
                                   PictureWriter* writer) {
  std::error_code error;
  const auto tool = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::string name = (tool.parent_path() / QNWAVE_DRAWING_MODULE).lexically_normal().string();
  // It stays to the end: font libraries cannot be unloaded.
  void* const module = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  const auto make = module ? reinterpret_cast<MakeCanvasFunction*>(dlsym(module, kMakeCanvasName)) : nullptr;
  if (make) return std::unique_ptr<Canvas>(make(kind, width, height, factor, writer));
  const char* const reason = dlerror();
  ReportError(name, QN_E_FILE_OPEN, {messages::NoDrawing, {Message(reason ? reason : "")}});
  return nullptr;
}

}  // namespace qnwave

#if defined(__SANITIZE_ADDRESS__)
// The font libraries keep what they know of the system's fonts to the end of the process.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libpango\nleak:libcairo.so\nleak:libglib-2.0.so\n";
}
#endif
