// FITS through cfitsio: 2-D 16-bit integer mosaics in, three-plane cubes
// out. The pattern comes from BAYERPAT (or COLORTYP), its offset from
// XBAYROFF and YBAYROFF, the row order from ROWORDER.
#ifndef OQA_TOOLS_FITS_IO_H
#define OQA_TOOLS_FITS_IO_H

#include <cstdint>
#include <mutex>
#include <span>

#include "mosaic_image.h"

namespace oqa_tool {

// True when the bytes start like a FITS file.
bool looks_like_fits(std::span<const std::uint8_t> bytes);

// The primary image, rows top-down: reversed when ROWORDER says
// BOTTOM-UP, as stored otherwise. The phase is set when BAYERPAT or
// COLORTYP names a pattern; it then applies to pixel (XBAYROFF, YBAYROFF),
// so the phase at (0, 0) is that pattern moved by the offsets. Cards other
// than those describing the layout go into notes.fits_cards. Decodes in a
// child process (decoder_process.h); throws Image_io_error for anything
// but 2-D 16-bit integer images, bad keyword values and truncated data.
Mosaic_image read_fits(std::span<const std::uint8_t> bytes);

// The decode itself, in this process: what the child runs and the fuzzer
// drives.
Mosaic_image decode_fits(std::span<const std::uint8_t> bytes);

// Held around every use of cfitsio in this process. cfitsio keeps global
// state behind a lock of its own; a child forked while another thread held
// that lock would wait for it forever, so forks wait for this lock too.
std::unique_lock<std::mutex> lock_cfitsio();

}  // namespace oqa_tool

#endif  // OQA_TOOLS_FITS_IO_H
