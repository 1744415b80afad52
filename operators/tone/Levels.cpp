// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Levels: the two-segment power curve per plane, its parameter text and its replay.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Curves.h"

namespace astrivelle {

namespace {

/// The transfer function with its guards applied once: a gamma of exactly 0 is 0.001, a
/// segment width of exactly 0 is 0.01.
struct LevelsCurve {
    double black, midtone, intensity, blackGamma, whiteGamma, white, outBlack, outWhite;
    double lowWidth, highWidth;

    LevelsCurve(int b, int m, int mi, double bg, double wg, int w, int ob, int ow)
        : black(b), midtone(m), intensity(mi), blackGamma(bg == 0.0 ? 0.001 : bg),
          whiteGamma(wg == 0.0 ? 0.001 : wg), white(w), outBlack(ob), outWhite(ow),
          lowWidth(m - b == 0 ? 0.01 : double(m) - double(b)),
          highWidth(w - m == 0 ? 0.01 : double(w) - double(m)) {}

    /// pow(x, 1.0) is x exactly, so a gamma of 1 skips the call and changes nothing.
    static double Power(double x, double g) { return g == 1.0 ? x : std::pow(x, g); }

    double Eval(double p) const {
        if (p <= black)
            return outBlack;
        if (p <= midtone)
            return Power((p - black) / lowWidth, blackGamma) * (intensity - outBlack) + outBlack;
        if (p < white)
            return Power((p - midtone) / highWidth, whiteGamma) * (outWhite - intensity) +
                   intensity;
        return outWhite;
    }
};

/// From this many pixels on, a table of the curve over the unit intervals of 0..65536 is made
/// once per plane (see LevelsTable) and pays for itself; smaller planes take the fast form.
constexpr std::uint32_t kTablePixels = 4u * 65536u;

/// Pixels settled together by the fast form; a block holding a pixel it cannot settle is
/// evaluated again by the curve itself.
constexpr int kBlock = 32;

/// Four lanes of doubles, of their bits, of lane masks, and four floats.
typedef double Lanes __attribute__((vector_size(32)));
typedef std::uint64_t LaneBits __attribute__((vector_size(32)));
typedef std::int64_t LaneMask __attribute__((vector_size(32)));
typedef float FloatLanes __attribute__((vector_size(16)));

/// All four lanes at `v` (a macro, so that no function passes vectors by value).
#define ASTRIVELLE_SPLAT(v) (Lanes{v, v, v, v})

/// The curve's constants for the fast form, which evaluates the power as exp(g * ln t) by
/// polynomials in doubles together with a bound on its distance from the library's pow. A
/// pixel is settled when both ends of that bound give the same float after the segment's scale,
/// offset and clamp: then the float is the one the curve itself gives, since every later step
/// is monotonic. Other pixels (rounding boundaries, powers out of range) are marked.
struct FastLevels {
    double black, midtone, white;
    double lowInverse, highInverse; ///< 1 / segment width
    double lowGamma, highGamma, lowScale, highScale, lowOffset, highOffset, top;
    double outBlack, outWhite; ///< the clamped constant segments, as floats

    explicit FastLevels(const LevelsCurve& c, double maxValue)
        : black(c.black), midtone(c.midtone), white(c.white), lowInverse(1.0 / c.lowWidth),
          highInverse(1.0 / c.highWidth), lowGamma(c.blackGamma), highGamma(c.whiteGamma),
          lowScale(c.intensity - c.outBlack), highScale(c.outWhite - c.intensity),
          lowOffset(c.outBlack), highOffset(c.intensity), top(maxValue),
          outBlack(static_cast<float>(Image::ClampValue(c.outBlack, 0.0, maxValue))),
          outWhite(static_cast<float>(Image::ClampValue(c.outWhite, 0.0, maxValue))) {}
};

/// exp(g * ln t) for t positive normal doubles; `y` receives g * ln t. Relative error below
/// 2.5e-13 + 7e-13 * |g| + 1e-15 * |y| while |y| <= 700 (the kernel allows about twice that).
inline void FastPower(const Lanes& t, const Lanes& g, Lanes* y, Lanes* power) {
    // t = m * 2^k with m in [sqrt(1/2), sqrt(2)).
    const LaneBits u = (LaneBits)(t);
    const LaneBits e = (u + 0x00095f619980c433ull) >> 52;
    const LaneBits mBits = u - (e << 52) + (1023ull << 52);
    const LaneBits kBits = e | 0x4330000000000000ull;
    const Lanes m = (Lanes)(mBits);
    const Lanes k = (Lanes)(kBits) - (4503599627370496.0 + 1023.0);
    // ln m = 2 atanh(s), s = (m - 1) / (m + 1), |s| < 0.172.
    const Lanes s = (m - 1.0) / (m + 1.0);
    const Lanes z = s * s;
    Lanes q = ASTRIVELLE_SPLAT(1.0 / 13); // next term below 1.4e-12 relative
    q = q * z + 1.0 / 11;
    q = q * z + 1.0 / 9;
    q = q * z + 1.0 / 7;
    q = q * z + 1.0 / 5;
    q = q * z + 1.0 / 3;
    const Lanes s2 = s + s;
    constexpr double ln2Hi = 6.93147180369123816490e-01, ln2Lo = 1.90821492927058770002e-10;
    const Lanes lnT = k * ln2Hi + (k * ln2Lo + (s2 * z * q + s2));
    const Lanes v = g * lnT;
    *y = v;
    // exp(v) = 2^n * exp(r), |r| <= ln 2 / 2.
    constexpr double magic = 6755399441055744.0; // 1.5 * 2^52: rounds to an integer
    const Lanes shifted = v * 1.44269504088896338700 + magic;
    const Lanes n = shifted - magic;
    const Lanes r = (v - n * ln2Hi) - n * ln2Lo;
    Lanes p = ASTRIVELLE_SPLAT(1.0 / 3628800); // 1 / 10!, remainder below 2.2e-13
    p = p * r + 1.0 / 362880;
    p = p * r + 1.0 / 40320;
    p = p * r + 1.0 / 5040;
    p = p * r + 1.0 / 720;
    p = p * r + 1.0 / 120;
    p = p * r + 1.0 / 24;
    p = p * r + 1.0 / 6;
    p = p * r + 0.5;
    p = p * r + 1.0;
    p = p * r + 1.0;
    const LaneBits scaleBits = ((LaneBits)(shifted) + 1023ull) << 52;
    *power = p * (Lanes)(scaleBits);
}

inline void Abs(Lanes* v) {
    const LaneBits bits = (LaneBits)(*v) & 0x7fffffffffffffffull;
    *v = (Lanes)(bits);
}

inline void Clamp(Lanes* v, double top) {
    *v = *v < 0.0 ? ASTRIVELLE_SPLAT(0.0) : *v;
    *v = *v > top ? ASTRIVELLE_SPLAT(top) : *v;
}

/// The fast form over `n` pixels, a multiple of 4; false when some pixel of them is not
/// settled.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
bool FastBlock(const FastLevels& c, const float* in, float* out, int n) {
    LaneMask unsettled = {0, 0, 0, 0};
    for (int i = 0; i < n; i += 4) {
        FloatLanes f;
        std::memcpy(&f, in + i, sizeof f);
        const Lanes p = __builtin_convertvector(f, Lanes);
        const LaneMask below = p <= c.black;
        const LaneMask low = ~below & (p <= c.midtone);
        const LaneMask high = ~below & ~low & (p < c.white);
        const LaneMask curve = low | high;
        Lanes t = low ? (p - c.black) * c.lowInverse : (p - c.midtone) * c.highInverse;
        t = curve ? t : ASTRIVELLE_SPLAT(1.0);
        const Lanes g = low ? ASTRIVELLE_SPLAT(c.lowGamma) : ASTRIVELLE_SPLAT(c.highGamma);
        const LaneMask linear = g == 1.0;
        Lanes ay, power, ag = g;
        FastPower(t, g, &ay, &power);
        Abs(&ay);
        Abs(&ag);
        // The multiply by the inverse width stays within 2^-52 of the division.
        const Lanes P = linear ? t : power;
        const Lanes bound = linear ? P * 1e-15 : P * (4e-13 + 2e-15 * ay + 1e-12 * ag);
        const Lanes scale = low ? ASTRIVELLE_SPLAT(c.lowScale) : ASTRIVELLE_SPLAT(c.highScale);
        const Lanes offset = low ? ASTRIVELLE_SPLAT(c.lowOffset) : ASTRIVELLE_SPLAT(c.highOffset);
        Lanes lo = (P - bound) * scale + offset, hi = (P + bound) * scale + offset;
        Clamp(&lo, c.top);
        Clamp(&hi, c.top);
        const Lanes flo = __builtin_convertvector(__builtin_convertvector(lo, FloatLanes), Lanes);
        const Lanes fhi = __builtin_convertvector(__builtin_convertvector(hi, FloatLanes), Lanes);
        const LaneMask settled = (flo == fhi) & (t > 1e-300) & (ay <= 700.0);
        unsettled |= curve & ~settled;
        const Lanes result =
            below ? ASTRIVELLE_SPLAT(c.outBlack) : (curve ? flo : ASTRIVELLE_SPLAT(c.outWhite));
        const FloatLanes r = __builtin_convertvector(result, FloatLanes);
        std::memcpy(out + i, &r, sizeof r);
    }
    return (unsettled[0] | unsettled[1] | unsettled[2] | unsettled[3]) == 0;
}

#undef ASTRIVELLE_SPLAT

/// Unit intervals [k, k + 1) of the table form, k = 0 .. kTableLevels - 1.
constexpr int kTableLevels = 65536;

/// The table form: on each unit interval the cubic through the curve's values and slopes at
/// both ends (in powers of u = p - k), with a bound on its distance from the curve's own
/// result. The value at an integer level is the curve's own result, with no bound. A pixel is
/// settled, as in the fast form, when both ends of the bound give the same float after the
/// clamp. Intervals where the bound cannot be had (at the black end of a segment whose gamma
/// has no bounded fourth derivative there) hold an infinite bound, so none of their
/// fractional values settles.
struct LevelsTable {
    /// One unit interval, on one cache line.
    struct alignas(64) Interval {
        double c0, c1, c2, c3; ///< the cubic's coefficients of 1, u, u^2 and u^3
        double bound;          ///< |cubic - curve's result| off the integer level
        double unused[3];
    };
    std::vector<Interval> intervals;
    double top = 0.0;
};

/// The interval's fields as offsets in doubles, for the gathers.
constexpr int kIntervalDoubles = sizeof(LevelsTable::Interval) / sizeof(double);
static_assert(kIntervalDoubles == 8, "an interval is one cache line of eight doubles");

/// The curve's own result at a pixel value, clamped as a float: kept out of line so that no
/// caller compiled for wider instructions contracts or reorders its arithmetic.
__attribute__((noinline)) float PlainLevel(const LevelsCurve& curve, double top, float p) {
    return static_cast<float>(Image::ClampValue(curve.Eval(p), 0.0, top));
}

/// True when the table form applies: the three ends ordered with room between them and both
/// gammas positive and finite.
bool TableApplies(const LevelsCurve& c) {
    return c.black >= 0.0 && c.black < c.midtone && c.midtone < c.white && c.blackGamma > 0.0 &&
           c.whiteGamma > 0.0 && std::isfinite(c.blackGamma) && std::isfinite(c.whiteGamma);
}

/// Fills the table of `curve`; the work is shared out over blocks of levels.
///
/// The bound: the cubic Hermite interpolant H of a function F on [k, k + 1] is within
/// max|F| / 384 of it, and F = scale g (g-1) (g-2) (g-3) t^(g-4) / width^4 takes its
/// largest size at an end since t^(g-4) is monotonic. The values at the ends are the curve's own
/// results and the slopes come from the library's pow; the rest of the bound (the slack) covers
/// their roundings, the pow's and the division's in the curve itself, and the sum of the cubic,
/// all well below 1e-13 of the sizes involved.
bool MakeLevelsTable(const LevelsCurve& curve, double top, LevelsTable* table) {
    try {
        table->intervals.assign(kTableLevels, LevelsTable::Interval{});
    } catch (const std::bad_alloc&) {
        return false;
    }
    table->top = top;
    LevelsTable::Interval* iv = table->intervals.data();
    ParallelRows(256, [&](int b0, int b1) {
        // The right end of the last interval, kept for the next one's left end when both lie
        // on the same segment.
        double fEnd = curve.Eval(b0 * 256), dEnd = 0.0, qEnd = 0.0;
        bool lowEnd = false, curveEnd = false;
        for (int k = b0 * 256; k < b1 * 256; ++k) {
            const double f0 = fEnd, f1 = curve.Eval(k + 1.0);
            const bool wasCurve = curveEnd, wasLow = lowEnd;
            fEnd = f1;
            curveEnd = false;
            LevelsTable::Interval& entry = iv[k];
            entry.c0 = f0;
            if (k + 1 <= curve.black || k >= curve.white)
                continue; // constant: the value itself, exactly
            const bool low = k + 1 <= curve.midtone;
            const double start = low ? curve.black : curve.midtone;
            const double width = low ? curve.lowWidth : curve.highWidth;
            const double g = low ? curve.blackGamma : curve.whiteGamma;
            const double scale =
                low ? curve.intensity - curve.outBlack : curve.outWhite - curve.intensity;
            const double offset = low ? curve.outBlack : curve.intensity;
            const double slope = scale * g / width;
            // The slope and t^(g-4) at an end; from t^g where that is a normal number.
            auto end = [&](double t, double* d, double* q) {
                const double power = std::pow(t, g);
                if (t > 0.0 && power > 1e-290 && std::isfinite(power)) {
                    *d = slope * (power / t);
                    const double t2 = t * t;
                    *q = power / (t2 * t2) * (1.0 + 1e-12);
                } else {
                    *d = g == 1.0 ? slope : slope * std::pow(t, g - 1.0);
                    *q = std::pow(t, g - 4.0);
                }
            };
            const double t0 = (k - start) / width, t1 = (k + 1.0 - start) / width;
            double d0, q0, d1, q1;
            if (wasCurve && wasLow == low && t0 > 0.0)
                d0 = dEnd, q0 = qEnd;
            else
                end(t0, &d0, &q0);
            end(t1, &d1, &q1);
            dEnd = d1, qEnd = q1, lowEnd = low, curveEnd = true;
            const double m = scale * g * (g - 1.0) * (g - 2.0) * (g - 3.0) / std::pow(width, 4.0);
            const double m4 = m == 0.0 ? 0.0 : std::fabs(m) * std::max(q0, q1);
            const double a2 = 3.0 * (f1 - f0) - 2.0 * d0 - d1;
            const double a3 = 2.0 * (f0 - f1) + d0 + d1;
            const double slack = 1e-13 * (2.0 + g) *
                                 (std::fabs(offset) + std::fabs(scale) + std::fabs(f1) +
                                  std::fabs(d0) + std::fabs(d1) + std::fabs(a2) + std::fabs(a3));
            const double bound = m4 / 384.0 * (1.0 + 1e-9) + slack;
            if (!std::isfinite(a2) || !std::isfinite(a3) || !(bound < 1e300)) {
                entry.bound = HUGE_VAL; // never settles off the integer level
                continue;
            }
            entry.c1 = d0, entry.c2 = a2, entry.c3 = a3;
            entry.bound = bound;
        }
    });
    return true;
}

/// How the table form runs: one pixel at a time, or four or eight in vector registers.
enum class TableWidth { One = 1, Four = 4, Eight = 8 };

#if defined(__x86_64__) && defined(__GNUC__)
/// The table form over `n` pixels, four at a time; a pixel that does not settle (or lies
/// outside the table) is evaluated by the curve. The clamp is taken on the floats: rounding is
/// monotonic, so clamping before or after it gives the same float.
__attribute__((target("avx2,fma"))) void TableSpan4(const LevelsTable& t, const LevelsCurve& curve,
                                                    const float* in, float* out, std::size_t n) {
    const __m256d zero = _mm256_setzero_pd(), levels = _mm256_set1_pd(kTableLevels);
    const __m128 zeroF = _mm_setzero_ps(), topF = _mm_set1_ps(static_cast<float>(t.top));
    const LevelsTable::Interval* base = t.intervals.data();
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m256d p = _mm256_cvtps_pd(_mm_loadu_ps(in + i));
        const __m256d inside =
            _mm256_and_pd(_mm256_cmp_pd(p, zero, _CMP_GE_OQ), _mm256_cmp_pd(p, levels, _CMP_LT_OQ));
        const __m256d q = _mm256_and_pd(p, inside); // 0 where outside (or NaN)
        const __m128i k = _mm256_cvttpd_epi32(q);
        const __m256d u = _mm256_sub_pd(q, _mm256_cvtepi32_pd(k));
        alignas(16) int index[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(index), k);
        const LevelsTable::Interval *i0 = base + index[0], *i1 = base + index[1],
                                    *i2 = base + index[2], *i3 = base + index[3];
        // Pairs of pixels 0 and 2, 1 and 3: unpacking them gives each field in pixel order.
        const __m256d c01a = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_load_pd(&i0->c0)),
                                                  _mm_load_pd(&i2->c0), 1);
        const __m256d c01b = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_load_pd(&i1->c0)),
                                                  _mm_load_pd(&i3->c0), 1);
        const __m256d c23a = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_load_pd(&i0->c2)),
                                                  _mm_load_pd(&i2->c2), 1);
        const __m256d c23b = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_load_pd(&i1->c2)),
                                                  _mm_load_pd(&i3->c2), 1);
        const __m256d b = _mm256_setr_pd(i0->bound, i1->bound, i2->bound, i3->bound);
        const __m256d a0 = _mm256_unpacklo_pd(c01a, c01b), a1 = _mm256_unpackhi_pd(c01a, c01b);
        const __m256d a2 = _mm256_unpacklo_pd(c23a, c23b), a3 = _mm256_unpackhi_pd(c23a, c23b);
        const __m256d v =
            _mm256_fmadd_pd(_mm256_fmadd_pd(_mm256_fmadd_pd(a3, u, a2), u, a1), u, a0);
        const __m256d bound = _mm256_andnot_pd(_mm256_cmp_pd(u, zero, _CMP_EQ_OQ), b);
        const __m128 lo =
            _mm_min_ps(_mm_max_ps(_mm256_cvtpd_ps(_mm256_sub_pd(v, bound)), zeroF), topF);
        const __m128 hi =
            _mm_min_ps(_mm_max_ps(_mm256_cvtpd_ps(_mm256_add_pd(v, bound)), zeroF), topF);
        _mm_storeu_ps(out + i, lo);
        const int settled = _mm_movemask_ps(_mm_cmpeq_ps(lo, hi)) & _mm256_movemask_pd(inside);
        if (settled != 15)
            for (int j = 0; j < 4; ++j)
                if (!(settled >> j & 1))
                    out[i + j] = PlainLevel(curve, t.top, in[i + j]);
    }
    for (; i < n; ++i)
        out[i] = PlainLevel(curve, t.top, in[i]);
}

// GCC 12's own wide-vector headers trip its uninitialised-value warning.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
/// The same eight at a time, the intervals' fields gathered.
__attribute__((target("avx512f,avx512dq,avx512vl,avx2,fma"))) void
TableSpan8(const LevelsTable& t, const LevelsCurve& curve, const float* in, float* out,
           std::size_t n) {
    const __m512d zero = _mm512_setzero_pd(), levels = _mm512_set1_pd(kTableLevels);
    const __m256 zeroF = _mm256_setzero_ps(), topF = _mm256_set1_ps(static_cast<float>(t.top));
    const double* base = &t.intervals.data()->c0;
    const LevelsTable::Interval& first = t.intervals.front();
    const int f1 = static_cast<int>(&first.c1 - base), f2 = static_cast<int>(&first.c2 - base),
              f3 = static_cast<int>(&first.c3 - base), fb = static_cast<int>(&first.bound - base);
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m512d p = _mm512_cvtps_pd(_mm256_loadu_ps(in + i));
        const __mmask8 inside =
            _mm512_cmp_pd_mask(p, zero, _CMP_GE_OQ) & _mm512_cmp_pd_mask(p, levels, _CMP_LT_OQ);
        const __m512d q = _mm512_maskz_mov_pd(inside, p); // 0 where outside (or NaN)
        const __m256i k = _mm512_cvttpd_epi32(q);
        const __m512d u = _mm512_sub_pd(q, _mm512_cvtepi32_pd(k));
        const __m256i at = _mm256_slli_epi32(k, 3); // kIntervalDoubles
        const __m512d a0 = _mm512_i32gather_pd(at, base, 8);
        const __m512d a1 = _mm512_i32gather_pd(at, base + f1, 8);
        const __m512d a2 = _mm512_i32gather_pd(at, base + f2, 8);
        const __m512d a3 = _mm512_i32gather_pd(at, base + f3, 8);
        const __mmask8 fraction = _mm512_cmp_pd_mask(u, zero, _CMP_NEQ_UQ);
        const __m512d bound = _mm512_mask_i32gather_pd(zero, fraction, at, base + fb, 8);
        const __m512d v =
            _mm512_fmadd_pd(_mm512_fmadd_pd(_mm512_fmadd_pd(a3, u, a2), u, a1), u, a0);
        const __m256 lo =
            _mm256_min_ps(_mm256_max_ps(_mm512_cvtpd_ps(_mm512_sub_pd(v, bound)), zeroF), topF);
        const __m256 hi =
            _mm256_min_ps(_mm256_max_ps(_mm512_cvtpd_ps(_mm512_add_pd(v, bound)), zeroF), topF);
        _mm256_storeu_ps(out + i, lo);
        const unsigned settled =
            static_cast<unsigned>(_mm256_movemask_ps(_mm256_cmp_ps(lo, hi, _CMP_EQ_OQ))) & inside;
        if (settled != 0xffu)
            for (int j = 0; j < 8; ++j)
                if (!(settled >> j & 1))
                    out[i + j] = PlainLevel(curve, t.top, in[i + j]);
    }
    TableSpan4(t, curve, in + i, out + i, n - i);
}
#pragma GCC diagnostic pop
#endif

/// The table form one pixel at a time, for processors without those instructions.
void TableSpan1(const LevelsTable& t, const LevelsCurve& curve, const float* in, float* out,
                std::size_t n) {
    const float topF = static_cast<float>(t.top);
    for (std::size_t i = 0; i < n; ++i) {
        const double p = in[i];
        if (!(p >= 0.0 && p < kTableLevels)) {
            out[i] = PlainLevel(curve, t.top, in[i]);
            continue;
        }
        const int k = static_cast<int>(p);
        const double u = p - k;
        const LevelsTable::Interval& entry = t.intervals[k];
        const double v = ((entry.c3 * u + entry.c2) * u + entry.c1) * u + entry.c0;
        const double bound = u == 0.0 ? 0.0 : entry.bound;
        const float lo = std::min(std::max(static_cast<float>(v - bound), 0.0f), topF);
        const float hi = std::min(std::max(static_cast<float>(v + bound), 0.0f), topF);
        out[i] = lo == hi ? lo : PlainLevel(curve, t.top, in[i]);
    }
}

/// The widest form this processor runs.
TableWidth WidestTable() {
#if defined(__x86_64__) && defined(__GNUC__)
    static const TableWidth widest =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("fma")
            ? TableWidth::Eight
        : __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? TableWidth::Four
                                                                          : TableWidth::One;
    return widest;
#else
    return TableWidth::One;
#endif
}

/// The table form over a span in the given width (which the processor must run).
void TableSpan(TableWidth width, const LevelsTable& t, const LevelsCurve& curve, const float* in,
               float* out, std::size_t n) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (width == TableWidth::Eight)
        return TableSpan8(t, curve, in, out, n);
    if (width == TableWidth::Four)
        return TableSpan4(t, curve, in, out, n);
#endif
    TableSpan1(t, curve, in, out, n);
}

} // namespace

namespace levels_testing {

bool TableForm(int black, int midtone, int midtoneIntensity, double blackGamma, double whiteGamma,
               int white, int outputBlack, int outputWhite, double top, const float* in, float* out,
               std::size_t n, int lanes) {
    const LevelsCurve curve(black, midtone, midtoneIntensity, blackGamma, whiteGamma, white,
                            outputBlack, outputWhite);
    LevelsTable table;
    if ((lanes != 1 && lanes != 4 && lanes != 8) || lanes > static_cast<int>(WidestTable()) ||
        !TableApplies(curve) || !MakeLevelsTable(curve, top, &table))
        return false;
    TableSpan(static_cast<TableWidth>(lanes), table, curve, in, out, n);
    return true;
}

} // namespace levels_testing

double LevelsTransfer(const LevelsSet& s, double p) {
    const LevelsCurve curve(s.black, s.midtone, s.midtoneIntensity, s.blackGamma, s.whiteGamma,
                            s.white, s.outputBlack, s.outputWhite);
    return curve.Eval(p);
}

void Image::ApplyLevels(bool pending, float* prev, float* cur, int black, int midtone,
                        int midtoneIntensity, double blackGamma, double whiteGamma, int white,
                        int outputBlack, int outputWhite) {
    if (!prev || !cur)
        return;
    if (!pending)
        CopyPlane(prev, cur);
    const LevelsCurve curve(black, midtone, midtoneIntensity, blackGamma, whiteGamma, white,
                            outputBlack, outputWhite);
    const double top = maxValue;
    const FastLevels fast(curve, top);
    const int w = width;
    auto value = [&curve, top](double p) {
        return static_cast<float>(ClampValue(curve.Eval(p), 0.0, top));
    };
    // The fast form over a span, each unsettled block by the curve itself.
    auto span = [&](std::size_t begin, std::size_t end) {
        std::size_t i = begin;
        for (; i + 4 <= end; i += kBlock) {
            const int n = static_cast<int>(std::min<std::size_t>(kBlock, end - i)) & ~3;
            if (!FastBlock(fast, prev + i, cur + i, n))
                for (std::size_t j = i; j < i + n; ++j)
                    cur[j] = value(prev[j]);
            if (n < kBlock) {
                i += n;
                break;
            }
        }
        for (; i < end; ++i)
            cur[i] = value(prev[i]);
    };
    LevelsTable table;
    if (pixelCount < kTablePixels || !TableApplies(curve) || !MakeLevelsTable(curve, top, &table)) {
        ParallelRows(height, [&](int y0, int y1) {
            span(static_cast<std::size_t>(y0) * w, static_cast<std::size_t>(y1) * w);
        });
        return;
    }
    const TableWidth width = WidestTable();
    ParallelRows(height, [&](int y0, int y1) {
        const std::size_t begin = static_cast<std::size_t>(y0) * w;
        TableSpan(width, table, curve, prev + begin, cur + begin,
                  static_cast<std::size_t>(y1 - y0) * w);
    });
}

// ---- parameter text ---------------------------------------------------------------------

namespace {

const char* kSetHeads[4] = {"RGB LEVELS", "RED LEVELS", "GREEN LEVELS", "BLUE LEVELS"};

} // namespace

std::string FormatLevels(const LevelsParams& p) {
    std::string text = "Channel : " + p.channel + "#" + "Level :" + LevelsEntryName(p.level) + "#";
    for (int k = 0; k < 4; ++k) {
        const LevelsSet& s = p.sets[k];
        text += FormatText("%s#  Black : %d#  MidTone : %d#  MidTone Intensity : %d#  White : %d#"
                           "  Black Gamma : %6.5f#  White Gamma : %6.5f#  Output Black : %d#"
                           "  Output White : %d#",
                           kSetHeads[k], s.black, s.midtone, s.midtoneIntensity, s.white,
                           s.blackGamma, s.whiteGamma, s.outputBlack, s.outputWhite);
    }
    return text;
}

bool ParseLevels(const std::string& text, LevelsParams* params, std::string* error) {
    std::string rest = text, field, value;
    auto fail = [&](const std::string& what) {
        if (error)
            *error = "Levels: " + what + " missing in \"" + text + "\"";
        return false;
    };
    LevelsParams p;
    if (!NextValue(&value, &rest))
        return fail("channel");
    p.channel = value;
    if (!NextValue(&value, &rest) || !LevelsEntryOf(value, &p.level))
        return fail("level");
    for (int k = 0; k < 4; ++k) {
        if (!NextField(&field, &rest) || field.find(kSetHeads[k]) == std::string::npos)
            return fail(kSetHeads[k]);
        LevelsSet& s = p.sets[k];
        int* ints[] = {&s.black, &s.midtone, &s.midtoneIntensity, &s.white};
        for (int* v : ints) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " values");
            *v = std::atoi(value.c_str());
        }
        for (double* v : {&s.blackGamma, &s.whiteGamma}) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " gamma");
            *v = std::atof(value.c_str());
        }
        for (int* v : {&s.outputBlack, &s.outputWhite}) {
            if (!NextValue(&value, &rest))
                return fail(std::string(kSetHeads[k]) + " output");
            *v = std::atoi(value.c_str());
        }
    }
    *params = p;
    return true;
}

bool ApplyLevelsParams(Image& image, const LevelsParams& p, bool pending) {
    // Slot s takes set s + 1: Red, Green, Blue; a monochrome image's slot 0 takes Red.
    for (int s : image.Slots()) {
        float* prev = image.prevPlane[s];
        float* cur = image.curPlane[s];
        if (!prev || !cur)
            return false;
        const LevelsSet& set = p.sets[s + 1];
        image.ApplyLevels(pending, prev, cur, set.black, set.midtone, set.midtoneIntensity,
                          set.blackGamma, set.whiteGamma, set.white, set.outputBlack,
                          set.outputWhite);
    }
    return true;
}

namespace {

bool ReplayLevels(Image& image, const std::string& text, const ReplayContext&, std::string* error) {
    LevelsParams p;
    return ParseLevels(text, &p, error) && ApplyLevelsParams(image, p);
}

bool RoundTripLevels(const std::string& text, std::string* formatted) {
    LevelsParams p;
    if (!ParseLevels(text, &p, nullptr))
        return false;
    *formatted = FormatLevels(p);
    return true;
}

} // namespace

OperatorDescriptor LevelsDescriptor() {
    OperatorDescriptor d;
    d.name = "Levels";
    d.replay = ReplayLevels;
    d.roundTrip = RoundTripLevels;
    LevelsParams p;
    d.examples.push_back(FormatLevels(p));
    p.channel = "Green";
    p.level = LevelsEntry::WhiteGamma;
    p.sets[2].white = 50000;
    p.sets[2].midtone = 20000;
    p.sets[2].whiteGamma = 0.75;
    p.sets[1].black = 1200;
    p.sets[1].blackGamma = 2.5;
    p.sets[3].outputWhite = 60000;
    p.sets[0].black = 1200;
    d.examples.push_back(FormatLevels(p));
    p.channel = "Monochrome";
    p.level = LevelsEntry::OutputBlack;
    p.sets[1].outputBlack = 500;
    d.examples.push_back(FormatLevels(p));
    return d;
}

} // namespace astrivelle
