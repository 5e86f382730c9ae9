// RIFF files with 32-bit sizes, read and written directly on an open file handle.
//
// There is no chunk object and no cache: each function works at the handle's own position and leaves it at a
// stated place, and a caller walks a file by calling the functions in order. docs/formats/riff.md shows the
// bytes of a file. One handle belongs to one thread at a time; nothing else is shared.
//
//   riff_FindChunkHeaderInRIFF(file, RIFF_ID_FMT, &size, nullptr);   // the position is at the data
//   riff_ReadData(file, buffer, size);                               // and now at the next header
//
// Ids are FourCCs with the first character in the lowest byte. A size counts a chunk's data alone, without
// the pad byte that follows an odd size.
//
// The budget: a scan takes an optional `remaining`, the bytes of the enclosing chunk or file that are left
// from the position on. A scan reads it, takes off 8 a header and the padded size of each chunk skipped, and
// writes the rest back. Null means no bound: the scan runs until a read comes up short. Saved locations and
// budgets have 32 bits; positions between 2 and 4 GiB are as good as any.
//
// All functions but riff_SkipChunk return a status: 0, QN_E_FILE_READ when a read fails or comes up short,
// QN_E_FILE_WRITE when a write fails, E_INVALIDARG when a pointer that is not said to be optional is null,
// and what the function's own comment names. On failure nothing is rolled back, out-arguments stay as they
// were and the position is where the failure met it, except where it is said otherwise.
#pragma once

#include "qn/platform/types.h"

constexpr uint32_t RIFF_ID_RIFF = 0x46464952;  // "RIFF"
constexpr uint32_t RIFF_ID_LIST = 0x5453494C;  // "LIST"
constexpr uint32_t RIFF_ID_CDDA = 0x41444443;  // "CDDA", the form of a CD track shortcut
constexpr uint32_t RIFF_ID_FMT = 0x20746D66;   // "fmt "

// A block of chunk data. The caller sets `size`, riff_ReadDataAlloc sets `data`.
struct riff_DataBlock {
  uint32_t size;
  void* data;
};
static_assert(offsetof(riff_DataBlock, data) == sizeof(void*));

extern "C" {

// --- Position ---------------------------------------------------------------------------------------------

// Stores the low 32 bits of the position. Always 0.
QN_API HRESULT riff_SaveLocation(HANDLE file, uint32_t* location);

// Goes to `location`, counted from the file's start without a sign. Always 0.
QN_API HRESULT riff_RestoreLocation(HANDLE file, uint32_t location);

// Goes to offset 12, the first chunk of the form. Always 0.
QN_API HRESULT riff_SeekDataStart(HANDLE file);

// Moves forward over `size` bytes of data and the pad byte of an odd size. Returns the distance, not a
// status; 0xFFFFFFFF stands for the one distance that 32 bits do not hold.
QN_API uint32_t riff_SkipChunk(HANDLE file, uint32_t size);

// Judges a chunk's size read as a signed value: QN_E_CHUNK_SIZE when negative, QN_E_CHUNK_EMPTY when 0. The
// id is not looked at.
QN_API HRESULT riff_ValidateChunkHeader(uint32_t id, int32_t size);

// --- Reading ----------------------------------------------------------------------------------------------

// Reads an id and a size, the size as stored. Ends at the data.
QN_API HRESULT riff_ReadChunkHeader(HANDLE file, uint32_t* id, uint32_t* size);

// Reads the header of a LIST and its type; `*size` is the stored size less the type's 4 bytes. Ends at the
// first sub-chunk. On failure `*size` holds what was known by then: the stored size with QN_E_LIST_HEADER
// (the id is another), and less 4 when the type could not be read.
QN_API HRESULT riff_ReadListHeader(HANDLE file, uint32_t* listType, uint32_t* size);

// Reads the file header at the position. `*size` becomes the budget of the form's chunks: the stored size
// less 4, not below 0. It is set to 0 first. Both out-arguments are optional. Ends at the first chunk.
// QN_E_RIFF_HEADER when "RIFF" is missing.
QN_API HRESULT riff_ReadFileID(HANDLE file, uint32_t* size, uint32_t* formType);

// Reads the file header from the file's start; `*size` (optional) becomes the stored size plus 4, which is
// neither the file's length nor the body's: hosts rely on it. Ends at offset 12. QN_E_RIFF_HEADER when
// "RIFF" is missing.
QN_API HRESULT riff_GetFileSize(HANDLE file, uint32_t* size);

// Reads as many bytes as the low 32 bits of `size` say, all of them or it fails, and skips the pad byte when
// `size` is odd.
QN_API HRESULT riff_ReadData(HANDLE file, void* buffer, uint64_t size);

// Reads the smaller of the two sizes, in bytes, and moves over the rest of the chunk, plus 1 when
// `bufferSize` is odd. The pad follows the buffer's size: an odd chunk read into an even buffer leaves the
// position one byte before the next header.
QN_API HRESULT riff_ReadDataBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize);

// Reads `block->size` bytes into a new block and skips the pad byte. `block->data` is null first, and stays
// so for a size of 0 and on failure: QN_E_FILE_READ, without an allocation when the file holds fewer bytes,
// or E_OUTOFMEMORY. The caller releases the block with GlobalUnlock and GlobalFree on GlobalHandle(data).
QN_API HRESULT riff_ReadDataAlloc(HANDLE file, riff_DataBlock* block);

// Reads a text of the ANSI code page from a chunk of `*size` bytes, at most `textLength` bytes of it. `text`
// has room for `textLength` characters and is always terminated; the last byte read counts as a terminator,
// whatever it is. Ends behind the chunk and its pad byte, and adds 1 to `*size`, be it odd or even.
// E_OUTOFMEMORY when there is no memory, E_INVALIDARG with nothing read for a `textLength` below 1.
QN_API HRESULT riff_ReadANSIString(HANDLE file, WCHAR* text, int32_t textLength, uint32_t* size);

// --- Writing ----------------------------------------------------------------------------------------------

// Writes an id and a size.
QN_API HRESULT riff_WriteChunkHeader(HANDLE file, uint32_t id, uint32_t size);

// Writes a whole chunk of `size` bytes of data, with the pad byte of an odd size. `*written` (optional)
// becomes the padded size plus 8. `data` may be null when `size` is 0.
QN_API HRESULT riff_WriteChunk(HANDLE file, uint32_t id, const void* data, uint32_t size, uint32_t* written);

// Writes the header of a LIST and its type. `size` is stored as it is: it includes the type's 4 bytes.
QN_API HRESULT riff_WriteListHeader(HANDLE file, uint32_t listType, uint32_t size);

// Writes "RIFF", `size` as it is, and the form type. Only the last of the three writes decides the status.
QN_API HRESULT riff_WriteFileID(HANDLE file, uint32_t formType, uint32_t size);

// Writes a text in the ANSI code page, terminated, without a chunk header: one byte a wide character and one
// for the terminator, so that a conversion that needs more bytes is cut; then the pad byte of an odd count.
// `*written` becomes the bytes written with the pad. E_OUTOFMEMORY when there is no memory.
QN_API HRESULT riff_WriteANSIString(HANDLE file, WCHAR* text, uint32_t* written);

// --- Size of the form -------------------------------------------------------------------------------------

// Stores the form's size at offset 4 as it is. The position stays.
QN_API HRESULT riff_SetRIFFSize(HANDLE file, uint32_t size);

// Adds `delta` to the form's size, after data was added or removed; a negative sum is stored as its low 32
// bits. A sum above 0xFFFFFFF7 gives QN_E_FILE_TOO_LARGE: the size stays, and the file is ended where that
// size says, which takes off what was just appended. The position stays in every case.
QN_API HRESULT riff_UpdateRIFFSize(HANDLE file, int64_t delta);

// --- Search -----------------------------------------------------------------------------------------------

// Scans from the position for a chunk. Ends at its data, with its size in `*size` (optional) and the budget
// less all that was passed and the found header in `*remaining` (optional). QN_E_NOT_FOUND when fewer than 8
// bytes are left, with the rest in `*remaining`; QN_E_FILE_READ leaves `*remaining` as it came in. A skipped
// chunk that is larger than the budget leaves a budget of 0.
QN_API HRESULT riff_FindChunkHeader(HANDLE file, uint32_t id, uint32_t* size, uint32_t* remaining);

// The same from the form's first chunk on under the form's own budget, its size less 4. `remaining`
// (optional) is an output alone: what was left, or the whole budget after QN_E_FILE_READ in the scan.
// QN_E_RIFF_HEADER when "RIFF" is missing.
QN_API HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, uint32_t id, uint32_t* size, uint32_t* remaining);

// Scans from the position for a LIST of a type. Ends at its first sub-chunk, with the LIST's size less 4 in
// `*size` (optional). `remaining` as in riff_FindChunkHeader; a LIST of another type that declares fewer than
// 4 bytes leaves a budget of 0. QN_E_NOT_FOUND when the budget does not hold a header or a list type.
QN_API HRESULT riff_FindListChunk(HANDLE file, uint32_t listType, uint32_t* size, uint32_t* remaining);

// The same from the form's first chunk on, under the form's own budget. Fewer than 12 bytes of it hold no
// LIST. QN_E_RIFF_HEADER when "RIFF" is missing.
QN_API HRESULT riff_FindListChunkFromStart(HANDLE file, uint32_t listType, uint32_t* size);

// Counts the chunks from the position on while at least 8 bytes are left. The position stays, `*remaining`
// (optional) is used up all the same, and `*count` holds what was counted also when a read fails. Each entry
// is taken off without a floor: a last one that overruns wraps the budget, and the walk then goes on until a
// read fails, as it always does without a budget.
QN_API HRESULT riff_GetNumListEntries(HANDLE file, uint32_t* count, uint32_t* remaining);

// Moves over `index` chunks in the same way and ends at the header of the next; 0 moves and reads nothing.
// QN_E_NOT_FOUND when the budget runs out first, and for a negative index.
QN_API HRESULT riff_SeekListEntry(HANDLE file, int32_t index, uint32_t* remaining);

// --- Deletion ---------------------------------------------------------------------------------------------

// Removes the first chunk `id` of the form, or with `isList` nonzero the first LIST of type `id`, moves the
// rest of the file down, ends the file behind it and updates the form's size, whose status is the result.
// `*deleted` (optional) becomes the bytes removed, with header and pad, also when that update failed; 0 when
// it did not come to it. Ends at the new end of the file. A failing read or write leaves the file as far as
// the move got.
QN_API HRESULT riff_DeleteChunk(HANDLE file, uint32_t id, uint32_t* deleted, int32_t isList);

// --- CD track shortcuts -----------------------------------------------------------------------------------

// Reads a CD track shortcut from the position and copies the 24 bytes of its "fmt " chunk. QN_E_RIFF_HEADER
// when "RIFF" is missing, QN_E_FILE_FORMAT for another form, QN_E_NOT_FOUND without a "fmt ",
// QN_E_FILE_VERSION when that is not 24 bytes long.
QN_API HRESULT riff_ReadRIFFCDDA(HANDLE file, void* format24);

// Opens a CD track shortcut and reads it. All out-arguments are optional and are zero on failure; sectors
// and frames (75 a second) count from the disc's start, `discSerial` is the disc's number. Fails as
// riff_ReadRIFFCDDA, and with QN_E_FILE_OPEN when the file cannot be opened.
QN_API HRESULT riff_ReadCDAFile(const WCHAR* name, uint32_t* track, uint32_t* firstSector,
                                uint32_t* startFrames, uint32_t* sectorCount, uint32_t* discSerial);

}  // extern "C"
