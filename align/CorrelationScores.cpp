// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Correlation scores of a template over a window: the plain sums, and the exact FFT
/// sums for whole levels.
#include "align/CorrelationScores.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <complex>
#include <cstdint>
#include <new>

#include "engine/Parallel.h"

namespace astrivelle {

namespace {

constexpr float kMissing = -1.0f;
/// Below this template side the plain sums are as quick.
constexpr int kExactMinSide = 25;

std::atomic<int> gExactTables{0};

/// The same where the block holds no -1.0 mark: four running sums per product, added in a
/// fixed order, so the value does not depend on where the block lies.
inline double BlockCorrelationFull(const float* block, int stride, const float* tmpl, int side,
                                   double templateNorm) {
    double tw[4] = {0, 0, 0, 0}, ww[4] = {0, 0, 0, 0};
    const int whole = side & ~3;
    for (int j = 0; j < side; ++j) {
        const float* w = block + static_cast<std::size_t>(j) * stride;
        const float* t = tmpl + static_cast<std::size_t>(j) * side;
        int i = 0;
        for (; i < whole; i += 4)
            for (int k = 0; k < 4; ++k) {
                const double v = w[i + k];
                tw[k] += static_cast<double>(t[i + k]) * v;
                ww[k] += v * v;
            }
        for (; i < side; ++i) {
            const double v = w[i];
            tw[0] += static_cast<double>(t[i]) * v;
            ww[0] += v * v;
        }
    }
    const double sumTW = (tw[0] + tw[1]) + (tw[2] + tw[3]);
    const double sumWW = (ww[0] + ww[1]) + (ww[2] + ww[3]);
    const double denominator = std::sqrt(sumWW) * templateNorm;
    return denominator > 0 ? sumTW / denominator : 0.0;
}

using Complex = std::complex<double>;

/// In-place radix-2 FFT of `n` (a power of two) values spaced `stride` apart; `inverse`
/// without the 1/n scale. `twiddle` holds exp(-2 pi i k / n) for k < n / 2.
void Fft(Complex* a, int n, std::ptrdiff_t stride, bool inverse, const Complex* twiddle) {
    for (int i = 1, j = 0; i < n; ++i) {
        int bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(a[i * stride], a[j * stride]);
    }
    for (int len = 2; len <= n; len <<= 1) {
        const int step = n / len;
        for (int i = 0; i < n; i += len)
            for (int k = 0; k < len / 2; ++k) {
                const Complex w = inverse ? std::conj(twiddle[k * step]) : twiddle[k * step];
                Complex& u = a[(i + k) * stride];
                Complex& v = a[(i + k + len / 2) * stride];
                const Complex t = v * w;
                v = u - t;
                u = u + t;
            }
    }
}

/// Transposes an n x n grid in place, in tiles.
void Transpose(std::vector<Complex>& grid, int n) {
    constexpr int kTile = 32;
    ParallelRows((n + kTile - 1) / kTile, [&](int b0, int b1) {
        for (int bi = b0; bi < b1; ++bi)
            for (int bj = bi; bj < (n + kTile - 1) / kTile; ++bj)
                for (int i = bi * kTile; i < std::min(n, (bi + 1) * kTile); ++i)
                    for (int j = std::max(bj * kTile, bi == bj ? i + 1 : 0);
                         j < std::min(n, (bj + 1) * kTile); ++j)
                        std::swap(grid[static_cast<std::size_t>(i) * n + j],
                                  grid[static_cast<std::size_t>(j) * n + i]);
    });
}

/// The 2-D FFT of an n x n grid, in parallel: the rows, then the columns as the rows of the
/// transposed grid (contiguous, unlike a strided column pass), transposed back.
void Fft2(std::vector<Complex>& grid, int n, bool inverse, const std::vector<Complex>& twiddle) {
    for (int pass = 0; pass < 2; ++pass) {
        ParallelRows(n, [&](int r0, int r1) {
            for (int r = r0; r < r1; ++r)
                Fft(grid.data() + static_cast<std::size_t>(r) * n, n, 1, inverse, twiddle.data());
        });
        Transpose(grid, n);
    }
}

/// Whether every value is a whole level 0..65535.
bool WholeLevels(const float* v, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
        if (!(v[i] >= 0.0f && v[i] <= 65535.0f && v[i] == std::floor(v[i])))
            return false;
    return true;
}

/// The rounding of an FFT value to the whole number it stands for; false when it is not
/// within a quarter of one.
inline bool Whole(double v, std::int64_t* out) {
    const double r = std::nearbyint(v);
    if (!(std::fabs(v - r) < 0.25))
        return false;
    *out = static_cast<std::int64_t>(r);
    return true;
}

/// sum(t * w) for every placement, exactly, from the FFTs of the high and low bytes of the
/// levels; false when a value does not round safely or memory can't be had.
bool ExactCrossSums(const float* window, int windowSide, const float* tmpl, int side,
                    std::vector<double>* cross) {
    int n = 1;
    while (n < windowSide)
        n <<= 1;
    const std::size_t cells = static_cast<std::size_t>(n) * n;
    std::vector<Complex> t, w, twiddle;
    try {
        t.assign(cells, Complex());
        w.assign(cells, Complex());
        twiddle.resize(static_cast<std::size_t>(n / 2));
        cross->assign(static_cast<std::size_t>(side) * side, 0.0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (int k = 0; k < n / 2; ++k)
        twiddle[static_cast<std::size_t>(k)] = std::polar(1.0, -2.0 * M_PI * k / n);
    // Two real grids in one complex one: high byte as the real part, low byte as the imaginary.
    auto pack = [&](std::vector<Complex>& grid, const float* v, int s) {
        for (int j = 0; j < s; ++j)
            for (int i = 0; i < s; ++i) {
                const int level = static_cast<int>(v[static_cast<std::size_t>(j) * s + i]);
                grid[static_cast<std::size_t>(j) * n + i] = Complex(level >> 8, level & 255);
            }
    };
    pack(t, tmpl, side);
    pack(w, window, windowSide);
    Fft2(t, n, false, twiddle);
    Fft2(w, n, false, twiddle);
    // Unpacked spectra: X(k) = (Z(k) + conj(Z(-k))) / 2 for the real part's grid, and
    // (Z(k) - conj(Z(-k))) / 2i for the imaginary part's. The correlation of the template
    // with the window is the inverse of conj(T) * W. The two real results go back in one
    // inverse: 256 x (high x high) + the mixed products as the real part, low x low as the
    // imaginary.
    std::vector<Complex> packed;
    try {
        packed.assign(cells, Complex());
    } catch (const std::bad_alloc&) {
        return false;
    }
    const Complex half(0.5, 0.0), halfI(0.0, -0.5), i1(0.0, 1.0); // 1/2, 1/(2i), i
    ParallelRows(n, [&](int r0, int r1) {
        for (int ky = r0; ky < r1; ++ky)
            for (int kx = 0; kx < n; ++kx) {
                const std::size_t k = static_cast<std::size_t>(ky) * n + kx;
                const std::size_t m = static_cast<std::size_t>((n - ky) % n) * n +
                                      static_cast<std::size_t>((n - kx) % n);
                const Complex tk = t[k], tm = std::conj(t[m]), wk = w[k], wm = std::conj(w[m]);
                const Complex th = (tk + tm) * half, tl = (tk - tm) * halfI;
                const Complex wh = (wk + wm) * half, wl = (wk - wm) * halfI;
                // The high part 256 * hh + mixed stays below 2^40, far inside what the
                // transform keeps to a small fraction of one.
                const Complex high =
                    256.0 * (std::conj(th) * wh) + (std::conj(th) * wl + std::conj(tl) * wh);
                packed[k] = high + i1 * (std::conj(tl) * wl);
            }
    });
    Fft2(packed, n, true, twiddle);
    const double scale = 1.0 / static_cast<double>(cells); // a power of two: exact
    bool whole = true;
    for (int dy = 0; dy < side && whole; ++dy)
        for (int dx = 0; dx < side; ++dx) {
            const std::size_t k = static_cast<std::size_t>(dy) * n + dx;
            std::int64_t high, low;
            if (!Whole(packed[k].real() * scale, &high) || !Whole(packed[k].imag() * scale, &low)) {
                whole = false;
                break;
            }
            (*cross)[static_cast<std::size_t>(dy) * side + dx] =
                static_cast<double>(high * 256 + low);
        }
    return whole;
}

/// The scores from exact sums: the FFT cross sums and the window's sums of squares by
/// whole-number prefix sums. False (nothing written) when the cross sums can't be had.
bool ExactScores(const float* window, int windowSide, const float* tmpl, int side,
                 double templateNorm, std::vector<double>* score) {
    std::vector<double> cross;
    if (!ExactCrossSums(window, windowSide, tmpl, side, &cross))
        return false;
    // prefix[(j + 1) * (W + 1) + i + 1]: the sum of squares above and left of (i, j).
    const int stride = windowSide + 1;
    std::vector<std::int64_t> prefix(static_cast<std::size_t>(stride) * stride, 0);
    for (int j = 0; j < windowSide; ++j) {
        std::int64_t row = 0;
        for (int i = 0; i < windowSide; ++i) {
            const std::int64_t v =
                static_cast<std::int64_t>(window[static_cast<std::size_t>(j) * windowSide + i]);
            row += v * v;
            prefix[static_cast<std::size_t>(j + 1) * stride + i + 1] =
                prefix[static_cast<std::size_t>(j) * stride + i + 1] + row;
        }
    }
    for (int dy = 0; dy < side; ++dy)
        for (int dx = 0; dx < side; ++dx) {
            const auto at = [&](int x, int y) {
                return prefix[static_cast<std::size_t>(y) * stride + x];
            };
            const std::int64_t ww =
                at(dx + side, dy + side) - at(dx, dy + side) - at(dx + side, dy) + at(dx, dy);
            const double sumWW = static_cast<double>(ww);
            const double sumTW = cross[static_cast<std::size_t>(dy) * side + dx];
            const double denominator = std::sqrt(sumWW) * templateNorm;
            (*score)[static_cast<std::size_t>(dy) * side + dx] =
                denominator > 0 ? sumTW / denominator : 0.0;
        }
    return true;
}

} // namespace

/// Correlation of a block of `side` squared values (row stride `stride`) with a template of
/// the same side; window values of -1.0 are skipped.
double BlockCorrelation(const float* block, int stride, const float* tmpl, int side,
                        double templateNorm) {
    double sumTW = 0, sumWW = 0;
    for (int j = 0; j < side; ++j) {
        const float* w = block + static_cast<std::size_t>(j) * stride;
        const float* t = tmpl + static_cast<std::size_t>(j) * side;
        for (int i = 0; i < side; ++i) {
            const float v = w[i];
            if (v == kMissing)
                continue;
            sumTW += static_cast<double>(t[i]) * v;
            sumWW += static_cast<double>(v) * v;
        }
    }
    const double denominator = std::sqrt(sumWW) * templateNorm;
    return denominator > 0 ? sumTW / denominator : 0.0;
}

namespace correlation_testing {
int ExactTables() {
    return gExactTables.load();
}
void ResetExactTables() {
    gExactTables = 0;
}
} // namespace correlation_testing

void CorrelationScores(const float* window, int windowSide, const float* tmpl, int side,
                       double templateNorm, bool marked, bool allowExact,
                       std::vector<double>* score) {
    score->assign(static_cast<std::size_t>(side) * side, 0.0);
    const std::size_t windowCount = static_cast<std::size_t>(windowSide) * windowSide;
    if (allowExact && !marked && side >= kExactMinSide && windowSide == 2 * side - 1 &&
        WholeLevels(tmpl, static_cast<std::size_t>(side) * side) &&
        WholeLevels(window, windowCount) &&
        ExactScores(window, windowSide, tmpl, side, templateNorm, score)) {
        ++gExactTables;
        return;
    }
    // Each placement's sum is formed by one task in a fixed order, so the scores (and the
    // choice among equal ones) do not depend on the scheduling.
    ParallelRows(side, [&](int row0, int row1) {
        for (int row = row0; row < row1; ++row)
            for (int col = 0; col < side; ++col) {
                // Placement (col, row): its block starts at window (col, row).
                const float* block = window + static_cast<std::size_t>(row) * windowSide + col;
                (*score)[static_cast<std::size_t>(row) * side + col] =
                    marked ? BlockCorrelation(block, windowSide, tmpl, side, templateNorm)
                           : BlockCorrelationFull(block, windowSide, tmpl, side, templateNorm);
            }
    });
}

} // namespace astrivelle
