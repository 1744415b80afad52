// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The command record: one step of an image's history, and the blend test.
#pragma once
#include <array>
#include <cstdint>
#include <string>

namespace astrivelle {

/// 4 x 4 control points (x, y, z) of the mask surface.
using MaskSurface = std::array<double, 48>;

/// The flat default surface: rows y in -3, -1, 1, 3 of points (-3,y,0), (-1,y,0), (1,y,0), (3,y,0).
const MaskSurface& DefaultMaskSurface();

struct CProcessStructure {
    std::string prevImageFile;
    std::string curImageFile;
    std::string filterFile;
    std::int32_t blendMode = 0;
    double opacity = 1.0;
    std::uint8_t applyMask = 1;
    std::uint8_t luminanceMask = 1;
    std::uint32_t maskLevel = 65535;
    MaskSurface maskSurface = DefaultMaskSurface();
    std::string maskFile;
    std::string operation;
    std::string parameters;
    std::uint8_t channelSelect = 0;
    std::uint8_t channelRed = 1;
    std::uint8_t channelGreen = 1;
    std::uint8_t channelBlue = 1;
};

/// False only when nothing would change the pure operator result: mode 0, opacity exactly 1.0,
/// mask level 65535, the default surface and no mask file.
bool BlendActive(std::int32_t blendMode, double opacity, std::uint32_t maskLevel,
                 const MaskSurface& maskSurface, const std::string& maskFile);

inline bool BlendActive(const CProcessStructure& r) {
    return BlendActive(r.blendMode, r.opacity, r.maskLevel, r.maskSurface, r.maskFile);
}

} // namespace astrivelle
