// The library's own status codes.
//
// A status is 32 bits: bit 31 set is failure. The library's codes lie in facility 4 from 0xE000 on:
// 0x8004Exxx failures, 0x0004Exxx successes with a warning, which a caller shows but does not treat as
// failure. Standard statuses (E_FAIL and its kin) stand in qn/platform/types.h.
#pragma once

#include "qn/platform/types.h"

constexpr HRESULT QN_E_MEDIA_TYPE = MakeStatus(0x8004E000);   // unsupported media type
constexpr HRESULT QN_E_DISK_FULL = MakeStatus(0x8004E002);    // the disk is full
constexpr HRESULT QN_E_BUSY = MakeStatus(0x8004E005);         // the system is busy
constexpr HRESULT QN_E_FILE_CREATE = MakeStatus(0x8004E006);  // the file could not be created
constexpr HRESULT QN_E_FILE_OPEN = MakeStatus(0x8004E007);    // the file could not be opened
constexpr HRESULT QN_E_FILE_READ = MakeStatus(0x8004E008);    // a read failed or came up short
constexpr HRESULT QN_E_FILE_WRITE = MakeStatus(0x8004E009);   // a write failed
constexpr HRESULT QN_E_NOT_FOUND = MakeStatus(0x8004E00A);    // the chunk, entry or item was not found
constexpr HRESULT QN_E_FILE_FORMAT = MakeStatus(0x8004E00B);  // the file is corrupt or of an unknown format
constexpr HRESULT QN_E_CANCELLED = MakeStatus(0x8004E00C);    // the user cancelled
constexpr HRESULT QN_E_FILE_NAME = MakeStatus(0x8004E00D);    // the file name is not valid
constexpr HRESULT QN_E_RESOURCE_MISSING = MakeStatus(0x8004E00E);  // a necessary resource is missing
constexpr HRESULT QN_E_FILE_UNSUPPORTED = MakeStatus(0x8004E016);  // the file's format is not supported
constexpr HRESULT QN_E_EXCEPTION = MakeStatus(0x8004E017);         // an exception has occurred
constexpr HRESULT QN_E_FILE_VERSION = MakeStatus(0x8004E01C);      // written by an unsupported version
constexpr HRESULT QN_E_TOO_MANY_FILES = MakeStatus(0x8004E026);    // too many files are open
constexpr HRESULT QN_E_FILE_EXISTS = MakeStatus(0x8004E032);       // another file with that name exists
constexpr HRESULT QN_E_FILE_TOO_LARGE = MakeStatus(0x8004E03A);    // larger than the file's format can hold
constexpr HRESULT QN_E_BUFFER_TOO_SMALL = MakeStatus(0x8004E03C);  // the buffer is too small
constexpr HRESULT QN_E_FILE_SHARING = MakeStatus(0x8004E05A);      // another application has the file open
constexpr HRESULT QN_E_RIFF_HEADER = MakeStatus(0x8004E080);       // the RIFF header is missing
constexpr HRESULT QN_E_LIST_HEADER = MakeStatus(0x8004E081);       // the LIST header is missing
constexpr HRESULT QN_E_CHUNK_EMPTY = MakeStatus(0x8004E082);       // a chunk has the size 0
constexpr HRESULT QN_E_CHUNK_SIZE = MakeStatus(0x8004E083);        // a chunk has a bad size
constexpr HRESULT QN_E_ALREADY_EXISTS = MakeStatus(0x8004E170);    // the file already exists
