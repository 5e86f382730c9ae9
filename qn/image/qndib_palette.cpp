#include "qn/image/qndib.h"

void QnVideo_PaletteRGBAFromEntry(RGBQUAD* colours, const PALETTEENTRY* entries, int count) {
  if (!colours || !entries) return;
  for (int i = 0; i < count; ++i) {
    const PALETTEENTRY entry = entries[i];
    colours[i] = {entry.peBlue, entry.peGreen, entry.peRed, 0};
  }
}

void QnVideo_PaletteEntryFromRGBA(PALETTEENTRY* entries, const RGBQUAD* colours, int count) {
  if (!entries || !colours) return;
  for (int i = 0; i < count; ++i) {
    const RGBQUAD colour = colours[i];
    entries[i] = {colour.rgbRed, colour.rgbGreen, colour.rgbBlue, 0};
  }
}
