// Processor support: which instruction sets the library's kernels may use.
//
// Every lookup of a kernel tests the effective mask at the moment of the lookup:
//   (allow mask AND detected mask) OR class override, which is QnGetCPUSupport(0).
// A caller keeps the pointer that a lookup gave, so a change of the masks reaches later lookups only.
// All functions may be called from any thread; a lookup sees the masks before or after a change.
#pragma once

#include "qn/platform/types.h"

// The processor's support bits. The low four bits of a mask are the processor class, 0 to 6.
constexpr DWORD QNCPU_MMX = 0x00000010;
constexpr DWORD QNCPU_SSE = 0x00000020;
constexpr DWORD QNCPU_SSE2 = 0x00000040;
constexpr DWORD QNCPU_SSE3 = 0x00000080;
constexpr DWORD QNCPU_SSSE3 = 0x00000100;
constexpr DWORD QNCPU_SSE41 = 0x00000200;
constexpr DWORD QNCPU_SSE42 = 0x00000400;
constexpr DWORD QNCPU_AVX = 0x00000800;
constexpr DWORD QNCPU_CMOV = 0x00001000;
constexpr DWORD QNCPU_FPUCMOV = 0x00002000;
constexpr DWORD QNCPU_TSC = 0x00004000;
constexpr DWORD QNCPU_DAZ = 0x00020000;  // takes flush-to-zero and denormals-are-zero

extern "C" {

// Adds bits to the allow mask. Always 1.
QN_API BOOL QnAllowCPUSupport(DWORD bits);

// Takes bits from the allow mask. Always 1.
QN_API BOOL QnDisallowCPUSupport(DWORD bits);

// Replaces the instruction-set bits (0xFF0) of the allow mask by exactly these; its other bits stay. 1, or 0
// with no change when a bit lies outside 0xFF0. 0 as argument is valid and forces the scalar kernels.
QN_API BOOL QnOnlyAllowCPUSupport(DWORD bits);

// Forces the processor class that belongs to the highest allowed instruction set: 4 for QNCPU_MMX, 5 for
// QNCPU_SSE, 6 for QNCPU_SSE2, 0 for none of them. The detected class no longer shows from then on, since
// the class bits leave the allow mask. Always 1.
QN_API BOOL QnSetCPUClassBySupport();

// (filter AND allow mask AND detected mask) OR class override, which the filter does not touch. A filter of
// 0 means all bits. The first support query of the process detects the processor, and leaves flush-to-zero
// and denormals-are-zero switched on in the calling thread.
QN_API DWORD QnGetCPUSupport(DWORD filter);

// What the operating system lets run, AND filter; a filter of 0 means all bits. The allow mask plays no part.
QN_API DWORD QnGetOSSupport(DWORD filter);

// The number of logical processors, 1 or more.
QN_API DWORD QnGetProcessorCount();
}
