// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The vectorisable float rounding must give RoundLevel's level for every float.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "engine/Levels.h"

using namespace astrivelle;

TEST(RoundLevel16, SameLevelAsRoundLevelAcrossTheRangeAndAtEveryHalf) {
    long checked = 0;
    auto same = [&](float f) {
        ++checked;
        ASSERT_EQ(RoundLevel16(f), RoundLevel(f, 0, 65535)) << std::hexfloat << f;
    };
    for (int n = -3; n <= 65540; ++n) {
        for (int k = 0; k < 16; ++k)
            same(n + k / 16.0f);
        // Around the half: below, exactly, above.
        const float half = n + 0.5f;
        same(std::nextafter(half, -1e9f));
        same(half);
        same(std::nextafter(half, 1e9f));
        same(std::nextafter(static_cast<float>(n), 1e9f));
        same(std::nextafter(static_cast<float>(n), -1e9f));
    }
    const float inf = std::numeric_limits<float>::infinity();
    for (float f : {std::numeric_limits<float>::quiet_NaN(), inf, -inf, 1e30f, -1e30f, 3e9f, -3e9f,
                    std::numeric_limits<float>::denorm_min(), -0.0f, 65535.49f, 65535.51f})
        same(f);
    EXPECT_GT(checked, 1000000);
}
