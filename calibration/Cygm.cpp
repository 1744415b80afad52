// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Interpolation of CYGM mosaics: each site estimates C, Y, G and M from the nearest
/// samples of each colour, then red = M - C + Y, green = (C + Y - M + G) / 2, blue = C + M - Y.
#include <cstdint>

#include "calibration/Bayer.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace {

/// How one colour is estimated at a site, from the 3 by 3 window around it.
enum Estimator : std::uint8_t {
    EstNone,       ///< no sample of the colour nearby: the pixel stays unset
    EstCentre,     ///< C
    EstRow,        ///< (L + R) / 2
    EstColumn,     ///< (U + D) / 2
    EstDiagonals,  ///< (UL + UR + DL + DR) / 4
    EstUpperPlusD, ///< (UL + UR + D) / 3: two diagonals above, straight across below
    EstLowerPlusU, ///< (DL + DR + U) / 3: two diagonals below, straight across above
};

/// The estimators of C, Y, G, M (in that order) at each of the cell's 4 by 2 sites.
struct CygmTable {
    Estimator est[4][2][4];
    bool complete = true;
};

int ColorIndex(CfaColor c) {
    switch (c) {
    case CfaColor::C:
        return 0;
    case CfaColor::Y:
        return 1;
    case CfaColor::G:
        return 2;
    case CfaColor::M:
        return 3;
    default:
        return -1;
    }
}

CygmTable BuildTable(const CfaCell& cell) {
    CygmTable t;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 2; ++c) {
            const int o = c ^ 1;
            const int up = (r + 3) % 4, down = (r + 1) % 4;
            const int here = ColorIndex(cell.site[r][c]);
            const int side = ColorIndex(cell.site[r][o]); // L and R
            const int u = ColorIndex(cell.site[up][c]);
            const int d = ColorIndex(cell.site[down][c]);
            const int ud = ColorIndex(cell.site[up][o]);   // UL and UR
            const int dd = ColorIndex(cell.site[down][o]); // DL and DR
            for (int k = 0; k < 4; ++k) {
                Estimator e = EstNone;
                if (here == k)
                    e = EstCentre;
                else if (side == k)
                    e = EstRow;
                else if (u == k && d == k)
                    e = EstColumn;
                else if (ud == k && dd == k)
                    e = EstDiagonals;
                else if (ud == k && d == k)
                    e = EstUpperPlusD;
                else if (dd == k && u == k)
                    e = EstLowerPlusU;
                t.est[r][c][k] = e;
                if (e == EstNone)
                    t.complete = false;
            }
        }
    return t;
}

inline float Estimate(Estimator e, const float* u, const float* m, const float* d, int x) {
    switch (e) {
    case EstCentre:
        return m[x];
    case EstRow:
        return (m[x - 1] + m[x + 1]) * 0.5f;
    case EstColumn:
        return (u[x] + d[x]) * 0.5f;
    case EstDiagonals:
        return (u[x - 1] + u[x + 1] + d[x - 1] + d[x + 1]) * 0.25f;
    case EstUpperPlusD:
        return (u[x - 1] + u[x + 1] + d[x]) / 3.0f;
    case EstLowerPlusU:
        return (d[x - 1] + d[x + 1] + u[x]) / 3.0f;
    default:
        return 0.0f;
    }
}

inline float Clamp(float v, float top) {
    return v < 0.0f ? 0.0f : (v > top ? top : v);
}

} // namespace

void InterpolateCygm(const float* src, int w, int h, const CfaCell& cell, float top, float* red,
                     float* green, float* blue) {
    const CygmTable table = BuildTable(cell);
    if (!table.complete)
        return; // a cell without every colour nearby: the pixels stay unset
    const int ow = w - 2, oh = h - 2;
    // The 3 by 3 window of an output pixel lies inside the mosaic (the output is shifted by
    // one), so no reflection is needed here.
    ParallelRows(oh, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const int cy = y + 1;
            const float* u = src + static_cast<std::size_t>(cy - 1) * w;
            const float* m = src + static_cast<std::size_t>(cy) * w;
            const float* d = src + static_cast<std::size_t>(cy + 1) * w;
            const auto& rowEst = table.est[cy % 4];
            float* r = red + static_cast<std::size_t>(y) * ow;
            float* g = green + static_cast<std::size_t>(y) * ow;
            float* b = blue + static_cast<std::size_t>(y) * ow;
            for (int x = 0; x < ow; ++x) {
                const int cx = x + 1;
                const Estimator* e = rowEst[cx & 1];
                const float C = Estimate(e[0], u, m, d, cx);
                const float Y = Estimate(e[1], u, m, d, cx);
                const float G = Estimate(e[2], u, m, d, cx);
                const float M = Estimate(e[3], u, m, d, cx);
                r[x] = Clamp(M - C + Y, top);
                g[x] = Clamp((C + Y - M + G) * 0.5f, top);
                b[x] = Clamp(C + M - Y, top);
            }
        }
    });
}

} // namespace astrivelle
