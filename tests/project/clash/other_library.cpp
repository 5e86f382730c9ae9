// A library with the published names as its own plain exports.
extern "C" {
void* CreateFileW(const char16_t*, unsigned, unsigned, void*, unsigned, unsigned, void*) {
  return reinterpret_cast<void*>(4711);
}
unsigned GetLastError() {
  return 4711;
}
}

void* OpenByOtherLibrary() {
  return CreateFileW(nullptr, 0, 0, nullptr, 0, 0, nullptr);
}
unsigned LastErrorOfOtherLibrary() {
  return GetLastError();
}
