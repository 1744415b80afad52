// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The three-plane row kernels of Digital Development, four or eight pixels at a time
/// without branches. Built with floating-point contraction off (see the build file): a fused
/// multiply-add would round differently from the plain forms these must equal.
#include "operators/tone/DigitalDevelopmentRows.h"

#include <atomic>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#include <immintrin.h>
#endif

#include "engine/Hsv.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

std::atomic<int> gForcedLanes{0};

/// N lanes of doubles, of their comparison masks, and of floats.
template <int N> struct Lanes {
    typedef double D __attribute__((vector_size(8 * N)));
    typedef long long M __attribute__((vector_size(8 * N)));
    typedef float F __attribute__((vector_size(4 * N)));
};

template <class M, int N> inline bool AnyLane(const M& m) {
    long long any = 0;
    for (int j = 0; j < N; ++j)
        any |= m[j];
    return any != 0;
}

/// One pixel of the colour step by its plain form, with the blue ratio held from pixel
/// `lastRatio` (the row's start value when below 0); the pixel that now holds the ratio.
inline int ColourPixel(const double* r, const double* g, const double* b, int x, int lastRatio,
                       const DdpCurve& curve, const double weights[3], double top, float* outR,
                       float* outG, float* outB) {
    double held = lastRatio < 0 ? kDdpRowStartBlueRatio : b[lastRatio] / r[lastRatio];
    double R, G, B;
    DecompressColor(r[x], g[x], b[x], curve.Plain(r[x]), curve.Plain(g[x]), curve.Plain(b[x]),
                    weights[0], weights[1], weights[2], &held, &R, &G, &B);
    outR[x] = static_cast<float>(ClampStretch(R, 0.0, top));
    outG[x] = static_cast<float>(ClampStretch(G, 0.0, top));
    outB[x] = static_cast<float>(ClampStretch(B, 0.0, top));
    return r[x] >= g[x] && r[x] >= b[x] && r[x] != 0.0 ? x : lastRatio;
}

/// One pixel of the value swap by its plain form, from its colour (r0, g0, b0).
inline void SwapPixel(const double* v, const double* f, int x, const DdpCurve& curve, double top,
                      double r0, double g0, double b0, float* outR, float* outG, float* outB) {
    const double second = static_cast<float>(ClampStretch(curve.Filtered(v[x], f[x]), 0.0, top));
    double h, s, value, r, g, b;
    HexconeFromRgb(r0, g0, b0, &h, &s, &value);
    RgbFromHexcone(h, s, second, &r, &g, &b);
    outR[x] = static_cast<float>(ClampStretch(r, 0.0, top));
    outG[x] = static_cast<float>(ClampStretch(g, 0.0, top));
    outB[x] = static_cast<float>(ClampStretch(b, 0.0, top));
}

#define ASTRIVELLE_INLINE __attribute__((always_inline)) inline

/// The curve and decompress-colour step, N pixels at a time. Each lane makes the same
/// operations in the same order as DecompressColor. Only a pixel whose red is the largest and
/// 0 reads the held blue ratio; those are redone one at a time with the ratio of the last pixel
/// before them (in the row) that set it.
template <int N>
ASTRIVELLE_INLINE void ColourLanes(const double* r, const double* g, const double* b, int w,
                                   const DdpCurve& curve, const double weights[3], double top,
                                   float* outR, float* outG, float* outB) {
    typedef typename Lanes<N>::D D;
    typedef typename Lanes<N>::M M;
    typedef typename Lanes<N>::F F;
    const double wr = weights[0], wg = weights[1], wb = weights[2];
    int lastRatio = -1; // the last pixel whose red was the largest and not 0
    auto one = [&](int x) {
        lastRatio = ColourPixel(r, g, b, x, lastRatio, curve, weights, top, outR, outG, outB);
    };
    const D zero = {}, small = zero + 0.001, topLanes = zero + top;
    // Written out in place: vectors are neither passed nor returned by value.
#define ASTRIVELLE_PLAIN(v) ((v) / ((v) + curve.a + 1.0) * curve.top + curve.backgroundMin)
#define ASTRIVELLE_CLAMP(v) ((v) >= 0.0 ? ((v) > topLanes ? topLanes : (v)) : zero)
    int x = 0;
    for (; x + N <= w; x += N) {
        D vr, vg, vb;
        std::memcpy(&vr, r + x, sizeof vr);
        std::memcpy(&vg, g + x, sizeof vg);
        std::memcpy(&vb, b + x, sizeof vb);
        const M redMax = (vr >= vg) & (vr >= vb);
        const M greenMax = ~redMax & (vg >= vr) & (vg >= vb);
        const M blueMax = ~redMax & ~greenMax;
        const D sr = ASTRIVELLE_PLAIN(vr), sg = ASTRIVELLE_PLAIN(vg), sb = ASTRIVELLE_PLAIN(vb);
        const D m = redMax ? vr : (greenMax ? vg : vb);
        const D d = redMax ? m : (m != 0.0 ? m : small);
        const D sm = redMax ? sr : (greenMax ? sg : sb);
        const D wm = redMax ? zero + wr : (greenMax ? zero + wg : zero + wb);
        const D keep = 1.0 - wm;
        const D R = redMax ? sr : vr / d * sm * wm + keep * sr;
        const D G = greenMax ? sg : vg / d * sm * wm + keep * sg;
        const D B = blueMax ? sb : vb / d * sm * wm + keep * sb;
        const F fr = __builtin_convertvector(ASTRIVELLE_CLAMP(R), F);
        const F fg = __builtin_convertvector(ASTRIVELLE_CLAMP(G), F);
        const F fb = __builtin_convertvector(ASTRIVELLE_CLAMP(B), F);
        std::memcpy(outR + x, &fr, sizeof fr);
        std::memcpy(outG + x, &fg, sizeof fg);
        std::memcpy(outB + x, &fb, sizeof fb);
        const M held = redMax & (vr == 0.0);
        const M sets = redMax & (vr != 0.0);
        if (AnyLane<M, N>(held)) {
            for (int j = 0; j < N; ++j)
                if (held[j])
                    one(x + j);
                else if (sets[j])
                    lastRatio = x + j;
        } else {
            for (int j = N - 1; j >= 0; --j)
                if (sets[j]) {
                    lastRatio = x + j;
                    break;
                }
        }
    }
    for (; x < w; ++x)
        one(x);
#undef ASTRIVELLE_PLAIN
#undef ASTRIVELLE_CLAMP
}

/// The window curve and the value swap, N pixels at a time. Each lane makes the same
/// operations in the same order as DdpCurve::Filtered, HexconeFromRgb and RgbFromHexcone; a
/// pixel whose hue would need wrapping round the circle is redone alone.
template <int N>
ASTRIVELLE_INLINE void SwapLanes(const double* v, const double* f, int w, const DdpCurve& curve,
                                 double top, float* outR, float* outG, float* outB) {
    typedef typename Lanes<N>::D D;
    typedef typename Lanes<N>::M M;
    typedef typename Lanes<N>::F F;
    auto one = [&](int x, double r0, double g0, double b0) {
        SwapPixel(v, f, x, curve, top, r0, g0, b0, outR, outG, outB);
    };
    const D zero = {}, topLanes = zero + top;
    const double keep = 1.0 - curve.strength;
#define ASTRIVELLE_CLAMP(v) ((v) >= 0.0 ? ((v) > topLanes ? topLanes : (v)) : zero)
    int x = 0;
    for (; x + N <= w; x += N) {
        D vv, ff;
        std::memcpy(&vv, v + x, sizeof vv);
        std::memcpy(&ff, f + x, sizeof ff);
        // The curve through the blurred value.
        const D d = keep * vv + curve.strength * ff + curve.a + 1.0;
        D o = vv / d * curve.top + curve.backgroundMin;
        if (curve.fixDefects) {
            const D o2 = vv / (curve.a + vv + 1.0) * curve.top + curve.backgroundMin;
            o = o2 > o ? o2 : o;
        }
        const D clamped = ASTRIVELLE_CLAMP(o);
        const D second = __builtin_convertvector(__builtin_convertvector(clamped, F), D);
        // The pixel's hue and saturation.
        F fr, fg, fb;
        std::memcpy(&fr, outR + x, sizeof fr);
        std::memcpy(&fg, outG + x, sizeof fg);
        std::memcpy(&fb, outB + x, sizeof fb);
        const D r = __builtin_convertvector(fr, D);
        const D g = __builtin_convertvector(fg, D);
        const D b = __builtin_convertvector(fb, D);
        const D gbMax = g > b ? g : b, gbMin = g < b ? g : b;
        const D mx = r > gbMax ? r : gbMax;
        const D mn = r < gbMin ? r : gbMin;
        const D s = mx == 0.0 ? zero : (mx - mn) / mx;
        const D span = mx - mn;
        const M redTop = r == mx, greenNot = g != mx;
        const D t = (redTop ? g - b : (greenNot ? r - g : b - r)) / span;
        D hue = redTop ? t : (greenNot ? t + 4.0 : t + 2.0);
        hue /= 6.0;
        hue = hue < 0.0 ? hue + 1.0 : hue;
        // The colour of that hue and saturation at the new value.
        const D h6 = hue * 6.0;
        const D p = (1.0 - s) * second;
        const D q = second - p;
        const D up1 = q * h6 + p;
        const D down3 = p - q * (h6 - 2.0), up3 = q * (h6 - 2.0) + p;
        const D down5 = p - q * (h6 - 4.0), up5 = q * (h6 - 4.0) + p;
        const D down6 = p + (6.0 - h6) * q;
        const M s1 = h6 <= 1.0, s3 = ~s1 & (h6 <= 3.0), s5 = ~s1 & ~s3 & (h6 < 5.0);
        D R = s1 ? second : (s3 ? (h6 < 2.0 ? down3 : p) : (s5 ? (h6 <= 4.0 ? p : up5) : second));
        D G = s1 ? up1 : (s3 ? second : (s5 ? (h6 < 4.0 ? down5 : p) : p));
        D B = s1 ? p : (s3 ? (h6 <= 2.0 ? p : up3) : (s5 ? second : down6));
        const M grey = s == 0.0, black = second == 0.0;
        R = black ? zero : (grey ? second : R);
        G = black ? zero : (grey ? second : G);
        B = black ? zero : (grey ? second : B);
        const F nr = __builtin_convertvector(ASTRIVELLE_CLAMP(R), F);
        const F ng = __builtin_convertvector(ASTRIVELLE_CLAMP(G), F);
        const F nb = __builtin_convertvector(ASTRIVELLE_CLAMP(B), F);
        std::memcpy(outR + x, &nr, sizeof nr);
        std::memcpy(outG + x, &ng, sizeof ng);
        std::memcpy(outB + x, &nb, sizeof nb);
        const M wrap = ((hue < 0.0) | (hue >= 1.0)) & ~grey & ~black;
        if (AnyLane<M, N>(wrap))
            for (int j = 0; j < N; ++j)
                if (wrap[j])
                    one(x + j, fr[j], fg[j], fb[j]);
    }
    for (; x < w; ++x)
        one(x, outR[x], outG[x], outB[x]);
#undef ASTRIVELLE_CLAMP
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ASTRIVELLE_FOUR __attribute__((target_clones("avx2", "default")))
#define ASTRIVELLE_EIGHT __attribute__((target("avx512f,avx2")))
#define ASTRIVELLE_HAVE_EIGHT 1
#else
#define ASTRIVELLE_FOUR
#define ASTRIVELLE_HAVE_EIGHT 0
#endif

ASTRIVELLE_FOUR void ColourRow4(const double* r, const double* g, const double* b, int w,
                                const DdpCurve& curve, const double weights[3], double top,
                                float* outR, float* outG, float* outB) {
    ColourLanes<4>(r, g, b, w, curve, weights, top, outR, outG, outB);
}

ASTRIVELLE_FOUR void SwapRow4(const double* v, const double* f, int w, const DdpCurve& curve,
                              double top, float* outR, float* outG, float* outB) {
    SwapLanes<4>(v, f, w, curve, top, outR, outG, outB);
}

#if ASTRIVELLE_HAVE_EIGHT
// The eight-pixel kernels in AVX-512 intrinsics, the masks in mask registers. Each comparison
// keeps the NaN rule of its generic-vector form above: ordered for ==, <, <=, >, >=,
// unordered for !=; max and min take their second operand unless the first is larger
// (smaller), as a > b ? a : b does.
#define ASTRIVELLE_SET(k, a, b) _mm512_mask_blend_pd((k), (a), (b)) /* k ? b : a */
#define ASTRIVELLE_CMP(a, b, op) _mm512_cmp_pd_mask((a), (b), (op))

/// v clamped to 0..top, NaN to 0.
ASTRIVELLE_EIGHT ASTRIVELLE_INLINE __m512d Clamp8(__m512d v, __m512d topv) {
    const __m512d zero = _mm512_setzero_pd();
    const __mmask8 ge = ASTRIVELLE_CMP(v, zero, _CMP_GE_OQ);
    const __mmask8 gt = ASTRIVELLE_CMP(v, topv, _CMP_GT_OQ);
    return ASTRIVELLE_SET(static_cast<__mmask8>(~ge), ASTRIVELLE_SET(gt, v, topv), zero);
}

/// v / (v + a + 1) * M + B.
ASTRIVELLE_EIGHT ASTRIVELLE_INLINE __m512d Plain8(__m512d v, __m512d av, __m512d mv, __m512d bv) {
    const __m512d d = _mm512_add_pd(_mm512_add_pd(v, av), _mm512_set1_pd(1.0));
    return _mm512_add_pd(_mm512_mul_pd(_mm512_div_pd(v, d), mv), bv);
}

/// v / d * sm * wm + keep * s.
ASTRIVELLE_EIGHT ASTRIVELLE_INLINE __m512d Mixed8(__m512d v, __m512d d, __m512d sm, __m512d wm,
                                                  __m512d keep, __m512d s) {
    return _mm512_add_pd(_mm512_mul_pd(_mm512_mul_pd(_mm512_div_pd(v, d), sm), wm),
                         _mm512_mul_pd(keep, s));
}

ASTRIVELLE_EIGHT void ColourRow8(const double* r, const double* g, const double* b, int w,
                                 const DdpCurve& curve, const double weights[3], double top,
                                 float* outR, float* outG, float* outB) {
    const double wr = weights[0], wg = weights[1], wb = weights[2];
    int lastRatio = -1; // the last pixel whose red was the largest and not 0
    auto one = [&](int x) {
        lastRatio = ColourPixel(r, g, b, x, lastRatio, curve, weights, top, outR, outG, outB);
    };
    const __m512d zero = _mm512_setzero_pd(), small = _mm512_set1_pd(0.001),
                  topv = _mm512_set1_pd(top), one1 = _mm512_set1_pd(1.0),
                  av = _mm512_set1_pd(curve.a), mv = _mm512_set1_pd(curve.top),
                  bv = _mm512_set1_pd(curve.backgroundMin), wrv = _mm512_set1_pd(wr),
                  wgv = _mm512_set1_pd(wg), wbv = _mm512_set1_pd(wb);
    int x = 0;
    for (; x + 8 <= w; x += 8) {
        const __m512d vr = _mm512_loadu_pd(r + x), vg = _mm512_loadu_pd(g + x),
                      vb = _mm512_loadu_pd(b + x);
        const __mmask8 redMax =
            ASTRIVELLE_CMP(vr, vg, _CMP_GE_OQ) & ASTRIVELLE_CMP(vr, vb, _CMP_GE_OQ);
        const __mmask8 greenMax = static_cast<__mmask8>(
            ~redMax & ASTRIVELLE_CMP(vg, vr, _CMP_GE_OQ) & ASTRIVELLE_CMP(vg, vb, _CMP_GE_OQ));
        const __mmask8 blueMax = static_cast<__mmask8>(~redMax & ~greenMax);
        const __m512d sr = Plain8(vr, av, mv, bv), sg = Plain8(vg, av, mv, bv),
                      sb = Plain8(vb, av, mv, bv);
        const __m512d m = ASTRIVELLE_SET(redMax, ASTRIVELLE_SET(greenMax, vb, vg), vr);
        const __mmask8 keepM = redMax | ASTRIVELLE_CMP(m, zero, _CMP_NEQ_UQ);
        const __m512d d = ASTRIVELLE_SET(keepM, small, m);
        const __m512d sm = ASTRIVELLE_SET(redMax, ASTRIVELLE_SET(greenMax, sb, sg), sr);
        const __m512d wm = ASTRIVELLE_SET(redMax, ASTRIVELLE_SET(greenMax, wbv, wgv), wrv);
        const __m512d keep = _mm512_sub_pd(one1, wm);
        const __m512d R = ASTRIVELLE_SET(redMax, Mixed8(vr, d, sm, wm, keep, sr), sr);
        const __m512d G = ASTRIVELLE_SET(greenMax, Mixed8(vg, d, sm, wm, keep, sg), sg);
        const __m512d B = ASTRIVELLE_SET(blueMax, Mixed8(vb, d, sm, wm, keep, sb), sb);
        _mm256_storeu_ps(outR + x, _mm512_cvtpd_ps(Clamp8(R, topv)));
        _mm256_storeu_ps(outG + x, _mm512_cvtpd_ps(Clamp8(G, topv)));
        _mm256_storeu_ps(outB + x, _mm512_cvtpd_ps(Clamp8(B, topv)));
        const __mmask8 zeroRed = ASTRIVELLE_CMP(vr, zero, _CMP_EQ_OQ);
        const unsigned held = redMax & zeroRed;
        const unsigned sets = redMax & static_cast<__mmask8>(~zeroRed);
        if (held != 0) {
            for (int j = 0; j < 8; ++j)
                if (held >> j & 1u)
                    one(x + j);
                else if (sets >> j & 1u)
                    lastRatio = x + j;
        } else if (sets != 0) {
            lastRatio = x + 31 - __builtin_clz(sets);
        }
    }
    for (; x < w; ++x)
        one(x);
}

ASTRIVELLE_EIGHT void SwapRow8(const double* v, const double* f, int w, const DdpCurve& curve,
                               double top, float* outR, float* outG, float* outB) {
    auto one = [&](int x, double r0, double g0, double b0) {
        SwapPixel(v, f, x, curve, top, r0, g0, b0, outR, outG, outB);
    };
    const __m512d zero = _mm512_setzero_pd(), topv = _mm512_set1_pd(top),
                  one1 = _mm512_set1_pd(1.0), two = _mm512_set1_pd(2.0),
                  three = _mm512_set1_pd(3.0), four = _mm512_set1_pd(4.0),
                  five = _mm512_set1_pd(5.0), six = _mm512_set1_pd(6.0),
                  keep = _mm512_set1_pd(1.0 - curve.strength),
                  strength = _mm512_set1_pd(curve.strength), av = _mm512_set1_pd(curve.a),
                  mv = _mm512_set1_pd(curve.top), bv = _mm512_set1_pd(curve.backgroundMin);
    int x = 0;
    for (; x + 8 <= w; x += 8) {
        const __m512d vv = _mm512_loadu_pd(v + x), ff = _mm512_loadu_pd(f + x);
        // The curve through the blurred value.
        const __m512d d = _mm512_add_pd(
            _mm512_add_pd(_mm512_add_pd(_mm512_mul_pd(keep, vv), _mm512_mul_pd(strength, ff)), av),
            one1);
        __m512d o = _mm512_add_pd(_mm512_mul_pd(_mm512_div_pd(vv, d), mv), bv);
        if (curve.fixDefects) {
            const __m512d d2 = _mm512_add_pd(_mm512_add_pd(av, vv), one1);
            const __m512d o2 = _mm512_add_pd(_mm512_mul_pd(_mm512_div_pd(vv, d2), mv), bv);
            o = ASTRIVELLE_SET(ASTRIVELLE_CMP(o2, o, _CMP_GT_OQ), o, o2);
        }
        const __m512d second = _mm512_cvtps_pd(_mm512_cvtpd_ps(Clamp8(o, topv)));
        // The pixel's hue and saturation.
        const __m256 fr = _mm256_loadu_ps(outR + x), fg = _mm256_loadu_ps(outG + x),
                     fb = _mm256_loadu_ps(outB + x);
        const __m512d r = _mm512_cvtps_pd(fr), g = _mm512_cvtps_pd(fg), b = _mm512_cvtps_pd(fb);
        const __m512d mx = _mm512_max_pd(r, _mm512_max_pd(g, b));
        const __m512d mn = _mm512_min_pd(r, _mm512_min_pd(g, b));
        const __m512d span = _mm512_sub_pd(mx, mn);
        const __m512d s =
            ASTRIVELLE_SET(ASTRIVELLE_CMP(mx, zero, _CMP_EQ_OQ), _mm512_div_pd(span, mx), zero);
        const __mmask8 redTop = ASTRIVELLE_CMP(r, mx, _CMP_EQ_OQ);
        const __mmask8 greenNot = ASTRIVELLE_CMP(g, mx, _CMP_NEQ_UQ);
        const __m512d num = ASTRIVELLE_SET(
            redTop, ASTRIVELLE_SET(greenNot, _mm512_sub_pd(b, r), _mm512_sub_pd(r, g)),
            _mm512_sub_pd(g, b));
        const __m512d t = _mm512_div_pd(num, span);
        __m512d hue = ASTRIVELLE_SET(
            redTop, ASTRIVELLE_SET(greenNot, _mm512_add_pd(t, two), _mm512_add_pd(t, four)), t);
        hue = _mm512_div_pd(hue, six);
        const __mmask8 negative = ASTRIVELLE_CMP(hue, zero, _CMP_LT_OQ);
        hue = ASTRIVELLE_SET(negative, hue, _mm512_add_pd(hue, one1));
        // The colour of that hue and saturation at the new value.
        const __m512d h6 = _mm512_mul_pd(hue, six);
        const __m512d p = _mm512_mul_pd(_mm512_sub_pd(one1, s), second);
        const __m512d q = _mm512_sub_pd(second, p);
        const __m512d h2 = _mm512_sub_pd(h6, two), h4 = _mm512_sub_pd(h6, four);
        const __m512d up1 = _mm512_add_pd(_mm512_mul_pd(q, h6), p);
        const __m512d down3 = _mm512_sub_pd(p, _mm512_mul_pd(q, h2));
        const __m512d up3 = _mm512_add_pd(_mm512_mul_pd(q, h2), p);
        const __m512d down5 = _mm512_sub_pd(p, _mm512_mul_pd(q, h4));
        const __m512d up5 = _mm512_add_pd(_mm512_mul_pd(q, h4), p);
        const __m512d down6 = _mm512_add_pd(p, _mm512_mul_pd(_mm512_sub_pd(six, h6), q));
        const __mmask8 s1 = ASTRIVELLE_CMP(h6, one1, _CMP_LE_OQ);
        const __mmask8 s3 = static_cast<__mmask8>(~s1 & ASTRIVELLE_CMP(h6, three, _CMP_LE_OQ));
        const __mmask8 s5 = static_cast<__mmask8>(~s1 & ~s3 & ASTRIVELLE_CMP(h6, five, _CMP_LT_OQ));
        const __mmask8 below2 = ASTRIVELLE_CMP(h6, two, _CMP_LT_OQ);
        const __mmask8 upTo2 = ASTRIVELLE_CMP(h6, two, _CMP_LE_OQ);
        const __mmask8 below4 = ASTRIVELLE_CMP(h6, four, _CMP_LT_OQ);
        const __mmask8 upTo4 = ASTRIVELLE_CMP(h6, four, _CMP_LE_OQ);
        // Sector by sector: 1, 3, 5, else 6.
        __m512d R = second, G = p, B = down6;
        R = ASTRIVELLE_SET(s5, R, ASTRIVELLE_SET(upTo4, up5, p));
        G = ASTRIVELLE_SET(s5, G, ASTRIVELLE_SET(below4, p, down5));
        B = ASTRIVELLE_SET(s5, B, second);
        R = ASTRIVELLE_SET(s3, R, ASTRIVELLE_SET(below2, p, down3));
        G = ASTRIVELLE_SET(s3, G, second);
        B = ASTRIVELLE_SET(s3, B, ASTRIVELLE_SET(upTo2, up3, p));
        R = ASTRIVELLE_SET(s1, R, second);
        G = ASTRIVELLE_SET(s1, G, up1);
        B = ASTRIVELLE_SET(s1, B, p);
        const __mmask8 grey = ASTRIVELLE_CMP(s, zero, _CMP_EQ_OQ);
        const __mmask8 black = ASTRIVELLE_CMP(second, zero, _CMP_EQ_OQ);
        R = ASTRIVELLE_SET(black, ASTRIVELLE_SET(grey, R, second), zero);
        G = ASTRIVELLE_SET(black, ASTRIVELLE_SET(grey, G, second), zero);
        B = ASTRIVELLE_SET(black, ASTRIVELLE_SET(grey, B, second), zero);
        _mm256_storeu_ps(outR + x, _mm512_cvtpd_ps(Clamp8(R, topv)));
        _mm256_storeu_ps(outG + x, _mm512_cvtpd_ps(Clamp8(G, topv)));
        _mm256_storeu_ps(outB + x, _mm512_cvtpd_ps(Clamp8(B, topv)));
        const unsigned wrap =
            (ASTRIVELLE_CMP(hue, zero, _CMP_LT_OQ) | ASTRIVELLE_CMP(hue, one1, _CMP_GE_OQ)) &
            static_cast<__mmask8>(~grey & ~black);
        if (wrap != 0) {
            alignas(32) float r0[8], g0[8], b0[8];
            _mm256_store_ps(r0, fr);
            _mm256_store_ps(g0, fg);
            _mm256_store_ps(b0, fb);
            for (int j = 0; j < 8; ++j)
                if (wrap >> j & 1u)
                    one(x + j, r0[j], g0[j], b0[j]);
        }
    }
    for (; x < w; ++x)
        one(x, outR[x], outG[x], outB[x]);
}
#undef ASTRIVELLE_SET
#undef ASTRIVELLE_CMP
#endif

/// The widest kernels this processor runs: 8 with AVX-512, else 4.
int WidestLanes() {
#if ASTRIVELLE_HAVE_EIGHT
    static const int widest =
        __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw")
            ? 8
            : 4;
    return widest;
#else
    return 4;
#endif
}

} // namespace

namespace stretch_testing {
bool SetDdpRowLanes(int lanes) {
    if (lanes != 0 && lanes != 4 && !(lanes == 8 && WidestLanes() == 8))
        return false;
    gForcedLanes = lanes;
    return true;
}
int DdpRowLanes() {
    const int forced = gForcedLanes.load();
    return forced != 0 ? forced : WidestLanes();
}
} // namespace stretch_testing

void DdpColourRow(const double* r, const double* g, const double* b, int w, const DdpCurve& curve,
                  const double weights[3], double top, float* outR, float* outG, float* outB) {
#if ASTRIVELLE_HAVE_EIGHT
    if (stretch_testing::DdpRowLanes() == 8)
        return ColourRow8(r, g, b, w, curve, weights, top, outR, outG, outB);
#endif
    ColourRow4(r, g, b, w, curve, weights, top, outR, outG, outB);
}

void DdpSwapRow(const double* v, const double* f, int w, const DdpCurve& curve, double top,
                float* outR, float* outG, float* outB) {
#if ASTRIVELLE_HAVE_EIGHT
    if (stretch_testing::DdpRowLanes() == 8)
        return SwapRow8(v, f, w, curve, top, outR, outG, outB);
#endif
    SwapRow4(v, f, w, curve, top, outR, outG, outB);
}

} // namespace astrivelle
