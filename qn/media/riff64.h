// Wave64 files: RIFF's structure with GUIDs for ids, 64-bit sizes and chunks aligned to 8 bytes.
//
// The same kind of functions as in riff.h, with the same statuses and the same rules for positions and
// arguments; the comments here tell what differs. docs/formats/wave64.md shows the bytes of a file.
//
// The size stored in a header counts the header's own 24 bytes. Functions take and give the size of the data
// alone, unless said otherwise. Whether a stored size includes the padding depends on the writer:
// riff64_WriteChunk leaves it out, riff64_CompleteChunk has it in. Rounded up to 8 both lead to the next
// header.
//
// A chunk of unknown length is written with riff64_PrepareChunk or riff64_PrepareList, any number of
// riff64_WriteToFile, riff64_WriteData and nested chunks, then riff64_CompleteChunk.
//
// Budgets are signed 64-bit values that fall by 24 a header and the rounded size of each chunk skipped. They
// are not held at 0: a budget that has gone negative ends a scan.
#pragma once

#include "qn/media/riff.h"
#include "qn/platform/types.h"

// The first four bytes spell the RIFF id in lower case.
constexpr GUID RIFF64_GUID_RIFF = {
    0x66666972, 0x912E, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
constexpr GUID RIFF64_GUID_LIST = {
    0x7473696C, 0x912F, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
constexpr GUID RIFF64_GUID_WAVE = {
    0x65766177, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
constexpr GUID RIFF64_GUID_FMT = {
    0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
constexpr GUID RIFF64_GUID_DATA = {
    0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
// 0x113D where its neighbours have 0x11D3: files in use carry it so.
constexpr GUID RIFF64_GUID_JUNK = {
    0x6B6E756A, 0xACF3, 0x113D, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};

extern "C" {

// --- Position ---------------------------------------------------------------------------------------------

// Stores the position. Always 0.
QN_API HRESULT riff64_SaveLocation(HANDLE file, uint64_t* location);

// Goes to `location`, counted from the file's start. Always 0.
QN_API HRESULT riff64_RestoreLocation(HANDLE file, uint64_t location);

// Goes to offset 40, the first chunk of the form. Always 0.
QN_API HRESULT riff64_SeekDataStart(HANDLE file);

// Moves forward by `size` rounded up to a multiple of 8, and returns that distance. A place that no file can
// have ends at the end of the file, so that the next read comes up short.
QN_API uint64_t riff64_SkipChunk(HANDLE file, uint64_t size);

// QN_E_CHUNK_SIZE when `size` has one of its three lowest bits or bit 35 set, QN_E_CHUNK_EMPTY when it is 0.
// Bit 35 is no slip to be put right: hosts rely on it. The id is not looked at.
QN_API HRESULT riff64_ValidateChunkHeader(GUID id, uint64_t size);

// --- Reading ----------------------------------------------------------------------------------------------

// Reads an id and a size; `*size` is the size of the data, the stored size less 24 and not below 0.
QN_API HRESULT riff64_ReadChunkHeader(HANDLE file, GUID* id, uint64_t* size);

// Reads the header of a list and its 16-byte type; `*size` is the stored size less 24 and less 16 for the
// type, with no floor. QN_E_LIST_HEADER for another id, with the stored size less 24 in `*size`.
QN_API HRESULT riff64_ReadListHeader(HANDLE file, GUID* listType, uint64_t* size);

// Reads the file header at the position. `*size` is set to 0 first, then becomes the budget of the form's
// chunks as a signed value: the stored size less 24, not below 0, and less 16 for the form: -16 at least.
// Both out-arguments are optional. A file too short for the first 24 bytes gives QN_E_RIFF_HEADER like one
// with another id; QN_E_FILE_READ is for a missing form alone.
QN_API HRESULT riff64_ReadFileID(HANDLE file, uint64_t* size, GUID* formType);

// Reads as many bytes as the low 32 bits of `size` say, then moves on to a multiple of 8 of `size`.
QN_API HRESULT riff64_ReadData(HANDLE file, void* buffer, uint64_t size);

// Reads the smaller of the two sizes and moves over the rest of the chunk, plus the three lowest bits of
// `bufferSize`, just as they are: hosts rely on it.
QN_API HRESULT riff64_ReadDataBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize);

// As riff_ReadDataAlloc, and moves on to a multiple of 8.
QN_API HRESULT riff64_ReadDataAlloc(HANDLE file, riff_DataBlock* block);

// --- Writing ----------------------------------------------------------------------------------------------

// Writes as many bytes as the low 32 bits of `size` say and zero bytes up to a multiple of 8 of that.
// `*written` (optional) becomes the padded count. `data` may be null when nothing is to be written.
QN_API HRESULT riff64_WriteData(HANDLE file, const void* data, uint64_t size, uint64_t* written);

// Writes `size` bytes without padding.
QN_API HRESULT riff64_WriteToFile(HANDLE file, const void* data, uint64_t size);

// Writes an id and `size` plus 24.
QN_API HRESULT riff64_WriteChunkHeader(HANDLE file, const GUID* id, uint64_t size);

// Writes a whole chunk of `size` bytes of data with zero bytes up to a multiple of 8. The stored size leaves
// the padding out. `*written` (optional) becomes the padded size plus 24.
QN_API HRESULT riff64_WriteChunk(HANDLE file, const GUID* id, const void* data, uint64_t size,
                                 uint64_t* written);

// Writes the header of a list with `size` plus 24, and its type. `size` includes the type's 16 bytes.
QN_API HRESULT riff64_WriteListHeader(HANDLE file, const GUID* listType, uint64_t size);

// Writes the file header with `size` plus 24. Only the last of the three writes decides the status.
QN_API HRESULT riff64_WriteFileID(HANDLE file, const GUID* formType, uint64_t size);

// --- Chunks of unknown length -----------------------------------------------------------------------------

// Writes a header with the size 24; `*start` becomes where it begins.
QN_API HRESULT riff64_PrepareChunk(HANDLE file, const GUID* id, uint64_t* start);

// Writes the header of a list with the size 24, and its type; `*start` becomes where it begins.
QN_API HRESULT riff64_PrepareList(HANDLE file, const GUID* listType, uint64_t* start);

// The position less `start`.
QN_API uint64_t riff64_AmountWritten(HANDLE file, uint64_t start);

// Writes zero bytes until the distance from `start` is a multiple of 8.
QN_API HRESULT riff64_Pad(HANDLE file, uint64_t start);

// Pads the chunk that begins at `start` and stores its length, padding included. Ends behind the chunk.
QN_API HRESULT riff64_CompleteChunk(HANDLE file, uint64_t start);

// Prepares a chunk, writes `size` bytes of data and completes it.
QN_API HRESULT riff64_WriteChunkToFile(HANDLE file, const GUID* id, const void* data, uint64_t size);

// --- Size of the form -------------------------------------------------------------------------------------

// Stores `size` plus 24 at offset 16. The position stays.
QN_API HRESULT riff64_SetRIFFSize(HANDLE file, uint64_t size);

// Adds `delta` to the size at offset 16. There is no upper limit and the file is never cut. The position
// stays.
QN_API HRESULT riff64_UpdateRIFFSize(HANDLE file, int64_t delta);

// --- Search -----------------------------------------------------------------------------------------------

// As riff_FindChunkHeader. QN_E_NOT_FOUND when fewer than 24 bytes are left. `*size` is the size of the data,
// the stored size less 24 and not below 0.
QN_API HRESULT riff64_FindChunkHeader(HANDLE file, const GUID* id, uint64_t* size, int64_t* remaining);

// As riff_FindChunkHeaderInRIFF, with the budget and the failures of riff64_ReadFileID.
QN_API HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, const GUID* id, uint64_t* size, int64_t* remaining);

// As riff_FindListChunk. `*size` is the size of the data less the type's 16 bytes. QN_E_NOT_FOUND also when
// fewer than 8 bytes are left behind the list's header.
QN_API HRESULT riff64_FindListChunk(HANDLE file, const GUID* listType, uint64_t* size, int64_t* remaining);

// The same from the form's first chunk on, with the budget and the failures of riff64_ReadFileID.
QN_API HRESULT riff64_FindListChunkFromStart(HANDLE file, const GUID* listType, uint64_t* size);

// As riff_GetNumListEntries and riff_SeekListEntry, while at least 24 bytes are left. A last entry that
// overruns makes the budget negative, which ends the walk.
QN_API HRESULT riff64_GetNumListEntries(HANDLE file, uint32_t* count, int64_t* remaining);
QN_API HRESULT riff64_SeekListEntry(HANDLE file, int32_t index, int64_t* remaining);

// --- Deletion ---------------------------------------------------------------------------------------------

// Removes the first chunk `id` of the form, moves the rest of the file down, ends the file behind it and
// updates the form's size, whose outcome is not looked at. `*deleted` (optional) becomes the bytes removed,
// with header and padding, or 0 on failure. Ends at the new end of the file. A read or write that falls short
// leaves the file as far as the move got.
QN_API HRESULT riff64_DeleteChunk(HANDLE file, const GUID* id, uint64_t* deleted);

// Do nothing and return 0; kept for hosts that bind to the names.
QN_API HRESULT riff64_getGUIDLabel();
QN_API HRESULT riff64_getGUIDLabelProperly();

}  // extern "C"
