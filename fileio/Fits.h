// SPDX-License-Identifier: GPL-3.0-or-later
/// \file FITS through cfitsio: the free functions beside Image::ReadFITS, Image::WriteFITS and
/// Image::WriteFITSFloatPlanes (declared in engine/Image.h). Every function holds
/// ImageFileLock for its whole duration; on failure LastFileError() says why.
#pragma once
#include <cstdint>
#include <string>

namespace astrivelle {

/// What a FITS file holds, found without reading pixels.
struct FitsGeometry {
    std::int32_t width = 0;     ///< NAXIS1
    std::int32_t height = 0;    ///< NAXIS2
    int naxis = 0;              ///< NAXIS of the image HDU (after an empty primary)
    int bitpix = 0;             ///< BITPIX of the image HDU
    std::uint32_t dataType = 0; ///< PixelDataType of BITPIX, 0 for an unsupported BITPIX
    bool compressed = false;    ///< the image sits behind an empty (NAXIS 0) primary HDU
    bool isColor = false;       ///< NAXIS 3, or a second and third HDU of the same size
};

/// Tells colour from mono without reading pixels: NAXIS 3, or a second and a third HDU both
/// of the first image's size, is colour; anything else is mono. False only when the file
/// cannot be opened or holds no image in its first place.
bool ProbeFITS(const std::string& path, bool* isColor);

/// The same probe with the image size, so that a caller can allocate rows for ReadFITSRows.
bool ProbeFITSGeometry(const std::string& path, FitsGeometry* geometry);

/// Reads a FITS image into row-pointer arrays the caller allocated (`height` rows of `width`
/// floats each, as ProbeFITSGeometry reports them), with the same locating, conversion and
/// clamping as Image::ReadFITS; the header is not read. When greenRows or blueRows is null
/// only the first plane is read and colour is not looked for. Fails when the file's size
/// differs from width x height. `found`, when given, receives what was read (isColor true when
/// green and blue were filled).
bool ReadFITSRows(float** redRows, float** greenRows, float** blueRows, const std::string& path,
                  std::int32_t width, std::int32_t height, FitsGeometry* found = nullptr);

/// The PixelDataType of a BITPIX (8 -> 1, 16 -> 2, 32 -> 3, -32 -> 4, -64 -> 5), 0 otherwise.
std::uint32_t DataTypeOfBitpix(int bitpix);

} // namespace astrivelle
