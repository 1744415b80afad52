// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Five real 5 s frames of M13 (sky 512, noise about 23 levels, the brightest field star
/// some 190 levels above the sky) drifting about 12 px per frame, and their shifts.
#pragma once
#include <array>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace astrivelle::test {

/// The five frames by path, or an empty list when any is absent.
inline std::vector<std::string> M13Frames() {
    std::vector<std::string> files;
    for (int i = 1; i <= 5; ++i) {
        files.push_back(RealData("fits/stack_m13/M13_blue_000" + std::to_string(i) + ".fits"));
        if (files.back().empty())
            return {};
    }
    return files;
}

/// Where frames 2 to 5 lie against the first (current minus reference position). Frames 2 to
/// 4: the median over 15 or 16 stars that SEP finds at 4 sigma on the 5 x 5 median planes of
/// both (the spread of one star is 1.5 px). Frame 5 is too faint for that (7 stars); its
/// figure is the peak, in whole pixels, of the cross-correlation of the frames' star planes
/// (high-passed, smoothed and cut at 3 sigma), which puts frames 2 to 4 within 0.7 px of the
/// stars' figures.
inline constexpr std::array<std::array<double, 2>, 4> kM13Shifts = {
    {{-11.66, 0.88}, {-23.82, 4.00}, {-34.22, 3.62}, {-46.0, 3.5}}};

} // namespace astrivelle::test
