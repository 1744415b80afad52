// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the window operators share: the apply range with its feathered edge, the mirror
/// edge rule by which a window is gathered, and the clamped index of the separable passes.
#pragma once
#include <algorithm>
#include <array>
#include <string>

namespace astrivelle {

/// The levels an operator applies to: [applyMin - feather, applyMax + feather], inclusive,
/// with a linear soft edge of `feather` levels on either side. Outside it a pixel keeps its
/// input; inside, the change is weighted by Weight. A pixel exactly at lo has weight 0,
/// exactly at applyMin weight 1.
struct ApplyRange {
    int lo, hi, applyMin, applyMax, feather;
    ApplyRange(int mn, int mx, int f)
        : lo(mn - f), hi(mx + f), applyMin(mn), applyMax(mx), feather(f) {}

    bool Outside(double p) const { return p < lo || p > hi; }

    /// Weight of the full change at test value p (inside the range).
    double Weight(double p) const {
        if (feather != 0) {
            if (p <= applyMin)
                return (p - lo) / feather;
            if (p >= applyMax)
                return (hi - p) / feather;
        }
        return 1.0;
    }

    /// The feathered mix of the input p and the changed value m (p inside the range).
    double Feather(double p, double m) const {
        if (feather == 0)
            return m;
        const double w = Weight(p);
        return (1.0 - w) * p + w * m;
    }

    /// The whole rule for a filter with a strength: p outside the range stays; inside, the
    /// filtered r is mixed with p by the strength s, then feathered, then clamped to 0..top.
    double Mix(double p, double r, double s, double top) const {
        if (Outside(p))
            return p;
        const double m = Feather(p, (1.0 - s) * p + s * r);
        return std::clamp(m, 0.0, top);
    }
};

/// The current custom filter: a square of weights of an odd side 3..13 (row order of its own
/// side), with the flag that marks it as low-pass (its sum divides the result). The program
/// starts with "Identity" of size 3. Replay takes it through ReplayContext::customFilter.
struct CCustomFilter {
    std::string name = "Identity";
    int size = 3;
    bool lowPass = false;
    std::array<double, 169> weights{0, 0, 0, 0, 1, 0, 0, 0, 0};
};

/// The mirror edge rule: offset d from i outside [0, n) is taken as i - d, a mirror about the
/// window's centre rather than the border. A window wider than the image is clamped too, so an
/// index never leaves the plane.
inline int MirrorIndex(int i, int d, int n) {
    int j = i + d;
    if (j < 0 || j >= n)
        j = i - d;
    return std::clamp(j, 0, n - 1);
}

/// The separable passes clamp instead of mirroring.
inline int ClampIndex(int j, int n) {
    return std::clamp(j, 0, n - 1);
}

/// Gathers the (2h + 1) x (2h + 1) window about (x, y) of a width x height plane by the mirror
/// rule into `out`, row by row from the top left, as doubles.
inline void GatherMirror(const float* plane, int width, int height, int x, int y, int h,
                         double* out) {
    const int side = 2 * h + 1;
    int cols[2 * 499 + 1];
    for (int d = -h; d <= h; ++d)
        cols[d + h] = MirrorIndex(x, d, width);
    for (int dy = -h; dy <= h; ++dy) {
        const float* row = plane + static_cast<long>(MirrorIndex(y, dy, height)) * width;
        double* o = out + (dy + h) * side;
        for (int k = 0; k < side; ++k)
            o[k] = row[cols[k]];
    }
}

} // namespace astrivelle
