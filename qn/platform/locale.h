// Code pages: conversion between wide text and the byte texts of files.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr UINT CP_ACP = 0;       // the system's ANSI code page, see SetAnsiCodePage
constexpr UINT CP_UTF8 = 65001;  //
constexpr DWORD MB_PRECOMPOSED = 0x00000001;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;
constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x00000400;

// The code page that CP_ACP stands for: the one set, else that of the environment's locale (LC_ALL,
// LC_CTYPE, LANG), else UTF-8. The C library's own locale plays no part.
QN_API UINT GetACP();

// Sets the ANSI code page for the process, for hosts that exchange files with older systems (1252, 932,
// ...); 0 goes back to that of the environment. False, with no change, for a code page that is not known.
QN_API BOOL SetAnsiCodePage(UINT codePage);

// Converts `sourceLength` bytes (-1: up to and with the terminator) to at most `length` wide characters.
// The count written, or needed when `length` is 0; 0 on failure: last error 122 when the room is too small
// (what fits has been written), 1113 for ill-formed input with MB_ERR_INVALID_CHARS, 87 for a code page
// that is not known or a bad argument.
QN_API int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* text,
                               int length);

// The reverse. A character that the code page lacks becomes `*defaultChar`, or "?" when that is null;
// `*usedDefault`, when given, tells whether that happened.
QN_API int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* source, int sourceLength, char* text,
                               int length, const char* defaultChar, BOOL* usedDefault);

}  // namespace qnplatform
