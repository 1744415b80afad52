// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Levels: the two-segment power curve per plane, its parameter text and its replay.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

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

/// Above this many pixels the results of the 65536 integer levels are computed once and looked
/// up: the same function of the same value, so the pixels are the same as without the cache.
constexpr std::uint32_t kCachePixels = 4u * 65536u;

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

} // namespace

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
    if (pixelCount < kCachePixels) {
        ParallelRows(height, [&](int y0, int y1) {
            span(static_cast<std::size_t>(y0) * w, static_cast<std::size_t>(y1) * w);
        });
        return;
    }
    std::vector<float> levels(65536);
    ParallelRows(256, [&](int b0, int b1) {
        for (int k = b0 * 256; k < b1 * 256; ++k)
            levels[k] = value(k);
    });
    const float* table = levels.data();
    ParallelRows(height, [&](int y0, int y1) {
        bool lookUp = true; // the last row was all integer levels
        for (int y = y0; y < y1; ++y) {
            const std::size_t begin = static_cast<std::size_t>(y) * w, end = begin + w;
            if (!lookUp) {
                span(begin, end);
                // Back to the table once a row is all integer levels.
                bool whole = true;
                for (std::size_t i = begin; i < end; ++i) {
                    const float f = prev[i];
                    const float c = f > 0.0f ? (f < 65535.0f ? f : 65535.0f) : 0.0f;
                    whole &= static_cast<float>(static_cast<int>(c)) == f;
                }
                lookUp = whole;
                continue;
            }
            // Branch-free look-up of the integer level; a row holding any other value is
            // evaluated again by the fast form.
            bool exact = true;
            for (std::size_t i = begin; i < end; ++i) {
                const float f = prev[i];
                const float c = f > 0.0f ? (f < 65535.0f ? f : 65535.0f) : 0.0f;
                const int k = static_cast<int>(c);
                cur[i] = table[k];
                exact &= static_cast<float>(k) == f;
            }
            if (!exact) {
                span(begin, end);
                lookUp = false;
            }
        }
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
