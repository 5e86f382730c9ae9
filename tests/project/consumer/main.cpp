#include <cstdio>

#include "qn/qn.h"

// With an argument the program looks for a resource that was compiled into it.
int main(int argc, char**) {
  if (argc > 1 && !FindResourceW(nullptr, W("greeting"), RT_RCDATA)) return 2;
  const int16_t source[2] = {16384, -32768};
  float target[2] = {};
  QnAudio_GetCopyFunction2(QNST_FLOAT32, QNST_PCM16)(target, source, 2, 1.0f);
  std::printf("%g %g\n", target[0], target[1]);
  return target[0] == 0.5f && target[1] == -1.0f ? 0 : 1;
}
