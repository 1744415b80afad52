// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A small baseline TIFF writer for test data only: one 16-bit grey plane, uncompressed,
/// little-endian, in strips of whole rows.
#pragma once
#include <string>

namespace astrivelle::synth {

/// Writes `plane` (width x height floats on the 0..65535 scale, rounded by the levels rule)
/// to `path`. `description` goes into the ImageDescription tag when not empty. False with a
/// reason when the file cannot be written.
bool WriteTiff16(const std::string& path, const float* plane, int width, int height,
                 const std::string& description, std::string* error);

} // namespace astrivelle::synth
