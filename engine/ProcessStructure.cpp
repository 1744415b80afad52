// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Defaults of the command record and the blend test.
#include "engine/ProcessStructure.h"

namespace astrivelle {

const MaskSurface& DefaultMaskSurface() {
    static const MaskSurface surface = [] {
        MaskSurface s{};
        const double coords[4] = {-3, -1, 1, 3};
        int k = 0;
        for (double y : coords)
            for (double x : coords) {
                s[k++] = x;
                s[k++] = y;
                s[k++] = 0;
            }
        return s;
    }();
    return surface;
}

bool BlendActive(std::int32_t blendMode, double opacity, std::uint32_t maskLevel,
                 const MaskSurface& maskSurface, const std::string& maskFile) {
    return !(blendMode == 0 && opacity == 1.0 && maskLevel == 65535 &&
             maskSurface == DefaultMaskSurface() && maskFile.empty());
}

} // namespace astrivelle
