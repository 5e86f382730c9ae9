// Pixel types and bitmaps: frames and pictures as device-independent bitmaps, and the colours in them.
//
// A bitmap is a BITMAPINFOHEADER, masks or a colour table, and bits (qn/platform/wingdi.h). The header's
// compression and bit count select a pixel type, a small number by which every operation works.
//
// The operations on pixels share their first arguments:
//   header     the bitmap's; the masks or the colour table that it calls for stand behind it
//   bits       the first row in memory; null for the bits behind the header and its table (byte 52 with
//              BI_BITFIELDS), in which with a negative stride the rows are counted from the last one in
//              memory
//   rectangle  the pixels meant, or null for all; it is clipped to the bitmap, and nothing left of it is no
//              failure. Its rows are counted in memory: row 0 is the one at `bits`, whether that is the
//              lowest of the picture (a positive height) or the uppermost (a negative one).
//   stride     bytes from a row to the next, negative too; 0 for rows that follow each other padded to 4
//   bytes
// They give 0, E_INVALIDARG for bad arguments, and E_NOTIMPL where a pixel type has no such operation.
// Calls on different rows may run at the same time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

// A FourCC as a number: the first character is the lowest byte.
constexpr DWORD QnMakeFourCC(char first, char second, char third, char fourth) {
  return static_cast<DWORD>(static_cast<BYTE>(first)) | static_cast<DWORD>(static_cast<BYTE>(second)) << 8 |
         static_cast<DWORD>(static_cast<BYTE>(third)) << 16 |
         static_cast<DWORD>(static_cast<BYTE>(fourth)) << 24;
}

// Compressions of this library beside BI_RGB and BI_BITFIELDS.
constexpr DWORD QNBI_GRAY = QnMakeFourCC('Q', 'N', 'G', 'S');
constexpr DWORD QNBI_DEEP = QnMakeFourCC('Q', 'N', 'D', 'B');  // RGB with alpha and deep channels
constexpr DWORD QNBI_RGBA = QnMakeFourCC('R', 'G', 'B', 'A');  // the same as BI_RGB
constexpr DWORD QNBI_A46B = QnMakeFourCC('A', '4', '6', 'B');
constexpr DWORD QNBI_F32I = QnMakeFourCC('F', '3', '2', 'I');

// Pixel types. The components of a pixel stand in memory as blue, green, red, alpha from the lowest bit up,
// pixels of less than a byte from the highest bit down.
constexpr int QNPIXEL_PALETTE1 = 16;
constexpr int QNPIXEL_GRAY1 = 17;
constexpr int QNPIXEL_GRAY2 = 18;
constexpr int QNPIXEL_GRAY4 = 19;
constexpr int QNPIXEL_GRAY8 = 20;
constexpr int QNPIXEL_GRAY16 = 21;
constexpr int QNPIXEL_GRAY32 = 22;
constexpr int QNPIXEL_PALETTE4 = 23;
constexpr int QNPIXEL_PALETTE8 = 24;
constexpr int QNPIXEL_RGB555 = 25;
constexpr int QNPIXEL_RGB565 = 26;
constexpr int QNPIXEL_RGB24 = 27;
constexpr int QNPIXEL_RGB32 = 28;  // the fourth byte means nothing
constexpr int QNPIXEL_RGBA32 = 29;
constexpr int QNPIXEL_RGB30 = 30;
constexpr int QNPIXEL_RGBA64 = 31;
constexpr int QNPIXEL_RGBAFLOAT = 32;
constexpr int QNPIXEL_A46B = 33;
constexpr int QNPIXEL_RGB30_REVERSED = 34;  // red lowest; no header tells of it
constexpr int QNPIXEL_F32I = 35;            // four floats
constexpr int QNPIXEL_UYVY = 64;
constexpr int QNPIXEL_YUYV = 65;
constexpr int QNPIXEL_Y41B = 66;
constexpr int QNPIXEL_I420 = 67;
constexpr int QNPIXEL_V210 = 68;
constexpr int QNPIXEL_P010 = 69;
constexpr int QNPIXEL_PL10 = 70;
constexpr int QNPIXEL_P210 = 71;
constexpr int QNPIXEL_P216 = 72;
constexpr int QNPIXEL_Y210 = 73;
constexpr int QNPIXEL_P410 = 74;
constexpr int QNPIXEL_NV12 = 75;
constexpr int QNPIXEL_YV12 = 76;
constexpr int QNPIXEL_YV16 = 77;
constexpr int QNPIXEL_A410 = 78;
constexpr int QNPIXEL_V216 = 79;
constexpr int QNPIXEL_Y416 = 80;
constexpr int QNPIXEL_P012 = 82;
constexpr int QNPIXEL_P212 = 83;
constexpr int QNPIXEL_P412 = 84;
constexpr int QNPIXEL_YV24 = 85;
constexpr int QNPIXEL_NV16 = 86;

// A colour by hue (0 to 1, a full turn from red over green and blue), saturation and lightness.
struct QNHSL {
  double hue;
  double saturation;
  double lightness;
  double alpha;
};
static_assert(sizeof(QNHSL) == 32 && offsetof(QNHSL, alpha) == 24);

struct QNRGBA {
  BYTE blue;
  BYTE green;
  BYTE red;
  BYTE alpha;
};
static_assert(sizeof(QNRGBA) == 4 && offsetof(QNRGBA, red) == 2);

// Components from 0 to 1.
struct QNRGBAFLOAT {
  float blue;
  float green;
  float red;
  float alpha;
};
static_assert(sizeof(QNRGBAFLOAT) == 16 && offsetof(QNRGBAFLOAT, red) == 8);

// Components from 0 to 255; for the functions that end in _Float each holds the bits of a float from 0 to 1.
struct QNDIBPIXEL {
  DWORD blue;
  DWORD green;
  DWORD red;
  DWORD alpha;
};
static_assert(sizeof(QNDIBPIXEL) == 16 && offsetof(QNDIBPIXEL, red) == 8);

// How QnDibFlip turns a rectangle; both together turn it by 180 degrees.
constexpr UINT QNDIBFLIP_HORIZONTAL = 1;
constexpr UINT QNDIBFLIP_VERTICAL = 2;

// How QnDibCopy finds a colour between pixels when it scales.
constexpr int QNDIBFILTER_NEAREST = 0;
constexpr int QNDIBFILTER_BILINEAR = 1;

// For QnDibAlloc.
constexpr int QNDIBALLOC_ZERO = 1;

extern "C" {

// --- Pixel types ------------------------------------------------------------------------------------------

// How many bits of `bits` are set.
QN_API int QnCountBits(unsigned bits);

// A mask of `count` bits from bit `first` up; 0 for a count below 1. Bits beyond the 32 fall off.
QN_API unsigned QnCreateBitMask(int first, int count);

// The pixel type of a bitmap, or 0. The masks of BI_BITFIELDS are counted, wherever their bits stand.
QN_API int QnGetPixelType(const BITMAPINFOHEADER* header);

// 1 for a compression other than BI_RGB, BI_BITFIELDS, "QNDB" and "QNGS", so for all YUV types and "RGBA"
// too, and without a pixel type.
QN_API BOOL QnVideo_IsCompressed(const BITMAPINFOHEADER* header);

// The bits of a pixel of a type from 16 to 35, and in `bits` (4 bytes, or null) those of red, green, blue and
// alpha; types of gray and of 1 bit have theirs in alpha. 0 for other types, `bits` stays.
QN_API int QnGetPixelBitsPerChannel(int type, BYTE* bits);

// The header's side of a pixel type: its bits a pixel (for a YUV type the depth of its packing), and where
// the pointers are not null the compression and the masks of red, green and blue (3 values; zero unless the
// compression is BI_BITFIELDS). 0 for a type that is none, nothing is written.
QN_API int QnPixelTypeToBitAttribs(int type, unsigned* compression, unsigned* masks);

// The bits that a pixel of a YUV type takes in memory; 0 for other types.
QN_API int QnPixelTypeToBitsPerPixelYUV(int type);

// --- Texts ------------------------------------------------------------------------------------------------

// `size` counts characters with the terminator; a text that does not fit is cut. They give 0, and
// E_INVALIDARG for null and a size below 1.

// What a compression is called: in the user's language, or its FourCC.
QN_API HRESULT QnVideo_GetFormatText(DWORD compression, WCHAR* text, int size);

// Width, height and bits: "720x576x24". The second form takes no notice of `reserved`.
QN_API HRESULT QnVideo_GetAttribsText(const BITMAPINFOHEADER* header, WCHAR* text, int size);
QN_API HRESULT QnVideo_GetAttribsTextEx(const BITMAPINFOHEADER* header, DWORD reserved, WCHAR* text,
                                        int size);

// --- Palettes ---------------------------------------------------------------------------------------------

// Convert `count` colours between the order of a palette and that of a colour table, in place too. The fourth
// byte becomes 0.
QN_API void QnVideo_PaletteRGBAFromEntry(RGBQUAD* colours, const PALETTEENTRY* entries, int count);
QN_API void QnVideo_PaletteEntryFromRGBA(PALETTEENTRY* entries, const RGBQUAD* colours, int count);

// --- Bitmaps ----------------------------------------------------------------------------------------------

// Describe a bitmap of a pixel type in `info`. `palette` has `entries` colours and is copied behind the
// header, where BI_BITFIELDS has its masks instead: `info` has room for them. A negative count is 0. With
// null and no count biClrUsed becomes one less than 2 to the power of the bits, up to 8 bits: hosts rely on
// that number, and a colour table of as many entries lies before the bits. A negative height stands for rows
// from the top. For a YUV type biBitCount is the bits that it takes in memory and biSizeImage the bytes of
// the frame. `imageBytes` receives biSizeImage, `headerBytes` what lies before the bits: 40 and 4 an entry,
// or 52 with BI_BITFIELDS. Up to 8 bits a palette needs its count: a biClrUsed of 0 stands for a full table
// that headerBytes does not have. Both may be null. 0, or E_INVALIDARG for null `info`, an unknown type, a
// negative width and sizes beyond 32 bits.
QN_API HRESULT QnVideo_InitBitmapInfo(BITMAPINFO* info, int type, LONG width, LONG height,
                                      const RGBQUAD* palette, int entries, DWORD* imageBytes);
QN_API HRESULT QnDibInfo(DWORD* headerBytes, DWORD* imageBytes, BITMAPINFO* info, int type, LONG width,
                         LONG height, const RGBQUAD* palette, int entries);

// Makes a bitmap of that description with its bits behind it in one movable, locked block of GlobalAlloc, all
// zero if `flags` has QNDIBALLOC_ZERO. Flags above bit 0 are a tag that finds the caller again in a memory
// dump; without one it is the caller's address, and negative flags leave none. Free the bitmap with
// QnDibFree. 0, E_INVALIDARG for null, an unknown type and a negative width, or E_OUTOFMEMORY, for sizes
// beyond 32 bits too. `*dib` stays as it was on failure.
QN_API HRESULT QnDibAlloc(BITMAPINFO** dib, int type, LONG width, LONG height, const RGBQUAD* palette,
                          int entries, int flags);

// Frees a bitmap of QnDibAlloc; null is none. 0, or E_INVALIDARG for a block that has no handle, which
// negative `flags` tolerate: it stays as it is.
QN_API HRESULT QnDibFree(BITMAPINFO* dib, int flags);

// --- Pixels -----------------------------------------------------------------------------------------------

// Fill a rectangle with a colour: the first at 8 bits a component (more count as 255), the second at full
// depth. A palette takes the colour nearest to the one at 8 bits, gray the luma 0.299 red + 0.587 green +
// 0.114 blue. E_NOTIMPL for types other than 16 to 35.
QN_API HRESULT QnDibSet(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                        const QNDIBPIXEL* pixel);
QN_API HRESULT QnDibFillRect(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                             const QNRGBAFLOAT* pixel);

// Read and write the pixel at column `x` and row `y` of the bitmap, at 8 bits a component. One outside of the
// rectangle and the bitmap is not written, and cannot be read: E_INVALIDARG, but 0 with nothing read where
// the rectangle has no pixel at all. Without alpha bits it reads as 255; those of types 25 and 28, which mean
// nothing, are read as they are. E_NOTIMPL for types other than 16 to 35.
QN_API HRESULT QnDibGetPixel(const BITMAPINFOHEADER* header, const void* bits, const RECT* rectangle,
                             LONG stride, int x, int y, QNDIBPIXEL* pixel);
QN_API HRESULT QnDibSetPixel(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                             int x, int y, const QNDIBPIXEL* pixel);

// Mirrors a rectangle by QNDIBFLIP flags. E_NOTIMPL for types other than 23 to 35.
QN_API HRESULT QnDibFlip(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                         UINT flags);

// Exchanges red and blue in a rectangle. E_NOTIMPL for types other than 25 to 35 (for 23 and 24 only
// if something of the rectangle is left): the colours of a palette are not those of a rectangle.
QN_API HRESULT QnDibSwapRB(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride);

// Copies a rectangle to another one, of the other's pixel type and size; the two share no memory. The centre
// of a target pixel is mapped into the source rectangle; where it falls outside of the source bitmap, the
// target stays. QNDIBFILTER_NEAREST takes the pixel that it falls in, QNDIBFILTER_BILINEAR weighs the four
// pixel centres around it, of those within the rectangle. Equal sizes give a straight copy with both. A
// component is converted to the nearest of the target's values; types without alpha, and those whose header
// has no room for it (BI_RGB, BI_BITFIELDS), count as opaque. Copies that mix nothing, of one type to the
// same, keep all bits, with palettes if these are the same. If one bitmap's height is negative and the
// other's is not, the picture is kept upright. E_NOTIMPL for types other than 16 to 35, E_INVALIDARG also for
// a rectangle of more than 2^31 - 1 columns or rows, E_OUTOFMEMORY.
QN_API HRESULT QnDibCopy(const BITMAPINFOHEADER* toHeader, void* toBits, const RECT* toRectangle,
                         LONG toStride, const BITMAPINFOHEADER* fromHeader, const void* fromBits,
                         const RECT* fromRectangle, LONG fromStride, int filter);

// --- Hue, saturation and lightness ------------------------------------------------------------------------

// The hue and saturation of black and grays are 0.
QN_API void QNRGBA_To_QNHSL(QNHSL* hsl, const QNRGBA* pixel);
QN_API void QNDIBPIXEL_To_QNHSL(QNHSL* hsl, const QNDIBPIXEL* pixel);
QN_API void QNDIBPIXEL_To_QNHSL_Float(QNHSL* hsl, const QNDIBPIXEL* pixel);
QN_API void QNRGBAFLOAT_To_QNHSL(QNHSL* hsl, const QNRGBAFLOAT* pixel);

// Components from 0 to 255 are truncated, so that white needs a lightness of exactly 1, and clipped. A hue of
// 7/6 and more, of -1/6 and less, or NaN has no colour: only alpha is written then, unless the lightness
// makes the pixel black.
QN_API void QNHSL_To_QNRGBA(QNRGBA* pixel, const QNHSL* hsl);
QN_API void QNHSL_To_QNDIBPIXEL(QNDIBPIXEL* pixel, const QNHSL* hsl);
QN_API void QNHSL_To_QNDIBPIXEL_Float(QNDIBPIXEL* pixel, const QNHSL* hsl);
QN_API void QNHSL_To_QNRGBAFLOAT(QNRGBAFLOAT* pixel, const QNHSL* hsl);

// --- Broadcast legality -----------------------------------------------------------------------------------

// 1 for a colour whose composite signal, luma and the amplitude of the chroma together, passes the limit of
// the system, and for one that is no number. Null is legal.
QN_API BOOL HotCheckNTSCYIQ(const QNRGBAFLOAT* pixel);
QN_API BOOL HotCheckNTSCYUV(const QNRGBAFLOAT* pixel);
QN_API BOOL HotCheckPALYUV(const QNRGBAFLOAT* pixel);

// The same, and such a colour is made paler in place (one that is no number black); 1 if it was changed.
// Alpha stays.
QN_API BOOL HotCheckNTSCYIQReturn(QNRGBAFLOAT* pixel);
QN_API BOOL HotCheckNTSCYUVReturn(QNRGBAFLOAT* pixel);
QN_API BOOL HotCheckPALYUVReturn(QNRGBAFLOAT* pixel);
}
