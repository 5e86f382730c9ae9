// Changing the format of an AIFF file.
#pragma once

#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

namespace qn {

// Writes `format`, which must have tag 1, over the first 18 bytes of the COMM chunk of an open AIFF file,
// with the frame count that its reader finds. The position must be 0. Gives the status of iff_GetAIFFWfx when
// that fails, QN_E_FILE_UNSUPPORTED for another tag, QN_E_FILE_READ, QN_E_FILE_WRITE.
HRESULT WriteAiffFormat(HANDLE file, const WAVEFORMATEX& format);

}  // namespace qn
