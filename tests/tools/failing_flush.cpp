// A disk whose second flush fails. Loaded in front of the system's library.
#include <cerrno>

extern "C" __attribute__((visibility("default"))) int fsync(int) {
  static int calls = 0;
  if (++calls != 2) return 0;
  errno = EIO;
  return -1;
}
