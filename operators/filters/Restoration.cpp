// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Iterative restoration: the point spread functions, the window sum conv(P, K), one
/// iteration of Van Cittert, Richardson-Lucy, Maximum Entropy, One-Step Gradient and the
/// adaptive Richardson-Lucy rule, their parameter texts and their replay.
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <type_traits>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/PageAlloc.h"
#include "engine/ParamText.h"
#include "operators/Restoration.h"
#include "operators/filters/ConvolveRows.h"

namespace astrivelle {

// ---- the window sum ---------------------------------------------------------------------

namespace conv {

namespace {

// The sums below read the window rows converted to doubles: d[dy] points at row dy at the
// left edge of the first pixel's window. Every
// pixel's taps are taken in row order, a multiply then an add (never fused), starting from 0:
// the bits of the plain sum.

inline double SumOne(const double* const* d, int side, const double* kernel, int i) {
    double a = 0.0;
    for (int dy = 0; dy < side; ++dy) {
        const double* s = d[dy] + i;
        const double* k = kernel + dy * side;
        for (int dx = 0; dx < side; ++dx)
            a += k[dx] * s[dx];
    }
    return a;
}

__attribute__((target("avx2"))) void SumAvx2(const double* const* d, int side, const double* kernel,
                                             int from, int n, double* acc) {
    int i = from;
    for (; i + 16 <= n; i += 16) {
        __m256d a0 = _mm256_setzero_pd(), a1 = _mm256_setzero_pd();
        __m256d a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
        for (int dy = 0; dy < side; ++dy) {
            const double* s = d[dy] + i;
            const double* k = kernel + dy * side;
            for (int dx = 0; dx < side; ++dx) {
                const __m256d w = _mm256_broadcast_sd(k + dx);
                const double* p = s + dx;
                a0 = _mm256_add_pd(a0, _mm256_mul_pd(w, _mm256_loadu_pd(p)));
                a1 = _mm256_add_pd(a1, _mm256_mul_pd(w, _mm256_loadu_pd(p + 4)));
                a2 = _mm256_add_pd(a2, _mm256_mul_pd(w, _mm256_loadu_pd(p + 8)));
                a3 = _mm256_add_pd(a3, _mm256_mul_pd(w, _mm256_loadu_pd(p + 12)));
            }
        }
        _mm256_storeu_pd(acc + i, a0);
        _mm256_storeu_pd(acc + i + 4, a1);
        _mm256_storeu_pd(acc + i + 8, a2);
        _mm256_storeu_pd(acc + i + 12, a3);
    }
    for (; i < n; ++i)
        acc[i] = SumOne(d, side, kernel, i);
}

/// AVX-512 implies fused multiply-add to the compiler: the explicit rounding forms keep the
/// multiply and the add apart.
__attribute__((target("avx512f"))) void SumAvx512(const double* const* d, int side,
                                                  const double* kernel, int n, double* acc) {
    constexpr int kRound = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;
    constexpr int kLanes = 8, kRegs = 8;
    int i = 0;
    for (; i + kLanes * kRegs <= n; i += kLanes * kRegs) {
        __m512d a[kRegs];
        for (int r = 0; r < kRegs; ++r)
            a[r] = _mm512_setzero_pd();
        for (int dy = 0; dy < side; ++dy) {
            const double* s = d[dy] + i;
            const double* k = kernel + dy * side;
            for (int dx = 0; dx < side; ++dx) {
                const __m512d w = _mm512_set1_pd(k[dx]);
                const double* p = s + dx;
                for (int r = 0; r < kRegs; ++r)
                    a[r] = _mm512_add_round_pd(
                        a[r], _mm512_mul_round_pd(w, _mm512_loadu_pd(p + kLanes * r), kRound),
                        kRound);
            }
        }
        for (int r = 0; r < kRegs; ++r)
            _mm512_storeu_pd(acc + i + kLanes * r, a[r]);
    }
    SumAvx2(d, side, kernel, i, n, acc);
}

/// The same sums for any processor, tap by tap over the span.
void SumPlain(const double* const* d, int side, const double* kernel, int n, double* acc) {
    for (int i = 0; i < n; ++i)
        acc[i] = 0.0;
    for (int dy = 0; dy < side; ++dy) {
        const double* k = kernel + dy * side;
        for (int dx = 0; dx < side; ++dx) {
            const double w = k[dx];
            const double* s = d[dy] + dx;
            for (int i = 0; i < n; ++i)
                acc[i] += w * s[i];
        }
    }
}

const bool kHaveAvx2 = __builtin_cpu_supports("avx2");
const bool kHaveAvx512 = __builtin_cpu_supports("avx512f");

} // namespace

void KernelBlock(const double* const* rows, int side, const double* kernel, int n, double* acc) {
    if (kHaveAvx512)
        SumAvx512(rows, side, kernel, n, acc);
    else if (kHaveAvx2)
        SumAvx2(rows, side, kernel, 0, n, acc);
    else
        SumPlain(rows, side, kernel, n, acc);
}

__attribute__((target_clones("avx2", "default"))) bool ConvertRow(const float* row, int width,
                                                                  double* out) {
    int marks = 0;
    for (int i = 0; i < width; ++i) {
        out[i] = row[i];
        marks |= row[i] == -1.0f;
    }
    return marks != 0;
}

} // namespace conv

void ConvolvePlane(const float* plane, int width, int height, const double* kernel, int h,
                   bool fast, double* out, std::uint8_t* noData) {
    if (fast) {
        conv::ConvolveRows(plane, width, height, kernel, h, true, true,
                           [&](int y, int x0, int n, const double* acc, const std::uint8_t* nd) {
                               const std::size_t at = static_cast<std::size_t>(y) * width + x0;
                               for (int i = 0; i < n; ++i) {
                                   out[at + i] = acc[i];
                                   if (noData)
                                       noData[at + i] = nd ? nd[i] : 0;
                               }
                           });
        return;
    }
    ParallelRows(height, [&](int y0, int y1) {
        double window[conv::kMaxSide * conv::kMaxSide];
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < width; ++x) {
                bool nd = false;
                const std::size_t at = static_cast<std::size_t>(y) * width + x;
                out[at] = conv::PlainAt(plane, width, height, x, y, kernel, h, true, &nd, window);
                if (noData)
                    noData[at] = nd;
            }
    });
}

// ---- point spread functions ---------------------------------------------------------------

namespace {

const double kBinomialRows[5][11] = {
    {1, 2, 1},
    {1, 4, 6, 4, 1},
    {1, 6, 15, 20, 15, 6, 1},
    {1, 8, 28, 56, 70, 56, 28, 8, 1},
    {1, 10, 45, 120, 210, 252, 210, 120, 45, 10, 1},
};

} // namespace

const char* PsfTypeWord(int psfType) {
    switch (psfType) {
    case PsfBox:
        return "Box";
    case PsfGauss:
        return "Gauss";
    case PsfBinomial:
        return "Binomial";
    case PsfCustom:
        return "Custom";
    default:
        return "";
    }
}

std::vector<int> PsfSides(int psfType) {
    std::vector<int> sides;
    const int top = psfType == PsfBinomial ? 11 : (psfType == PsfCustom ? 13 : 65);
    for (int s = 3; s <= top; s += 2)
        sides.push_back(s);
    return sides;
}

bool BuildPsf(int psfType, int h, const CCustomPSF* custom, std::vector<double>* psf,
              std::vector<double>* reversed, int* side) {
    int w = 2 * h + 1;
    switch (psfType) {
    case PsfBox:
    case PsfGauss:
        if (h < 1 || h > conv::kMaxHalf)
            return false;
        break;
    case PsfBinomial:
        if (h < 1 || h > 5) // the rows stop at 11
            return false;
        break;
    case PsfCustom:
        if (!custom || custom->size < 3 || custom->size > 13 || custom->size % 2 == 0)
            return false;
        w = custom->size;
        h = (w - 1) / 2;
        break;
    default:
        return false;
    }
    try {
        psf->assign(static_cast<std::size_t>(w) * w, 0.0);
        reversed->assign(static_cast<std::size_t>(w) * w, 0.0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    const double v = double(w - 1) * double(w - 1) / 9.0;
    for (int y = -h; y <= h; ++y)
        for (int x = -h; x <= h; ++x) {
            const std::size_t j = static_cast<std::size_t>((y + h) * w + (x + h));
            double value = 1.0;
            if (psfType == PsfGauss)
                value = std::exp(-(x * x + y * y) / v);
            else if (psfType == PsfBinomial)
                value = kBinomialRows[h - 1][y + h] * kBinomialRows[h - 1][x + h];
            else if (psfType == PsfCustom)
                value = custom->values[j];
            (*psf)[j] = value;
        }
    double sum = 0.0;
    for (double value : *psf)
        sum += value;
    if (sum == 0.0)
        return false;
    for (double& value : *psf)
        value /= sum;
    const std::size_t count = psf->size();
    for (std::size_t j = 0; j < count; ++j)
        (*reversed)[j] = (*psf)[count - 1 - j];
    *side = w;
    return true;
}

// ---- one iteration ------------------------------------------------------------------------

namespace {

/// The per-pixel end of a second pass: the range test on `tested` (outside, `outside` is
/// stored), the feather mix of n with the tested value, the unclamped estimate, and the
/// output with Reduce Artifacts and the clamp.
struct Finish {
    ApplyRange range;
    bool rangeTest;
    bool reduce;
    double top;

    double Stored(double tested, double outside, double n) const {
        if (!rangeTest)
            return n;
        if (range.Outside(tested))
            return outside;
        return range.Feather(tested, n);
    }
    float Output(double g, double stored) const {
        double out = reduce && g > stored ? g : stored;
        out = out < 0.0 ? 0.0 : (out > top ? top : out);
        return static_cast<float>(out);
    }
};

using Rows = const std::uint8_t*;

/// The common end of a span (no feather, no missing data), written with selects so that it
/// vectorises, and built for AVX2 as well: the same values either way. The estimate may be
/// read and written in place, so the results wait in local rows.
__attribute__((target_clones("avx2", "default"))) void
FinishSpan(const float* g, const float* x, const double* nv, int n, double lo, double hi,
           double top, bool testOnG, bool outsideIsG, bool reduce, float* next, float* cur) {
    // Reduce Artifacts as a floor: max(st, g) when on, max(st, -inf) = st when off.
    const double noFloor = -std::numeric_limits<double>::infinity();
    double stored[conv::kBlock], shown[conv::kBlock];
    const float* tp = testOnG ? g : x;
    const float* op = outsideIsG ? g : x;
    for (int i = 0; i < n; ++i) {
        const double gv = g[i], t = tp[i], o = op[i];
        const bool outside = (t < lo) | (t > hi);
        const double st = outside ? o : nv[i];
        stored[i] = st;
        shown[i] = std::min(std::max(std::max(st, reduce ? gv : noFloor), 0.0), top);
    }
    for (int i = 0; i < n; ++i) {
        next[i] = static_cast<float>(stored[i]);
        cur[i] = static_cast<float>(shown[i]);
    }
}

/// Richardson-Lucy's first pass end: q = g / c, with c of exactly 0 taken as 1.
__attribute__((target_clones("avx2", "default"))) void QuotientSpan(const float* g, const double* c,
                                                                    int n, float* q) {
    for (int i = 0; i < n; ++i)
        q[i] = static_cast<float>(g[i] / (c[i] == 0.0 ? 1.0 : c[i]));
}

/// RL's first pass marker: FirstPass hands the span to QuotientSpan.
struct RlQuotient {};

/// The first pass of the rules that have one: scratch = f(g, x, conv(x, PSF)), with entries of
/// -1.0 left out of the sum.
template <class Rule>
void FirstPass(const Image& img, const float* x, const float* g, float* scratch, const double* psf,
               int h, bool parallel, Rule rule) {
    const int w = img.width;
    conv::ConvolveRows(x, w, img.height, psf, h, true, parallel,
                       [&](int y, int x0, int n, const double* acc, Rows) {
                           const std::size_t at = static_cast<std::size_t>(y) * w + x0;
                           const float* gp = g + at;
                           const float* xp = x + at;
                           float* sp = scratch + at;
                           if constexpr (std::is_same_v<Rule, RlQuotient>) {
                               QuotientSpan(gp, acc, n, sp);
                           } else {
                               for (int i = 0; i < n; ++i)
                                   sp[i] = static_cast<float>(rule(gp[i], xp[i], acc[i]));
                           }
                       });
}

/// The second pass: n = rule(g, x, conv(src, K)) (n = x where the window held no data), then
/// the mixing and output. The new estimate goes to `next`, the output to `cur`.
template <class Rule>
void SecondPass(const Image& img, const float* src, const float* x, const float* g, float* next,
                float* cur, const double* kernel, int h, bool parallel, const Finish& finish,
                bool testOnG, bool outsideIsG, Rule rule) {
    const int w = img.width;
    auto block = [&](int y, int x0, int n, const double* acc, Rows nd) {
        const std::size_t at = static_cast<std::size_t>(y) * w + x0;
        const float* gp = g + at;
        const float* xp = x + at;
        float* np = next + at;
        float* cp = cur + at;
        if (!nd && finish.rangeTest && finish.range.feather == 0) {
            double nv[conv::kBlock];
            for (int i = 0; i < n; ++i)
                nv[i] = rule(gp[i], xp[i], acc[i]);
            FinishSpan(gp, xp, nv, n, finish.range.lo, finish.range.hi, finish.top, testOnG,
                       outsideIsG, finish.reduce, np, cp);
            return;
        }
        for (int i = 0; i < n; ++i) {
            const double gv = gp[i], xv = xp[i];
            const double nv = (nd && nd[i]) ? xv : rule(gv, xv, acc[i]);
            const double stored = finish.Stored(testOnG ? gv : xv, outsideIsG ? gv : xv, nv);
            np[i] = static_cast<float>(stored);
            cp[i] = finish.Output(gv, stored);
        }
    };
    conv::ConvolveRows(src, w, img.height, kernel, h, true, parallel, block);
}

} // namespace

bool Image::RestoreIteration(float* estimate, float* scratch1, float* scratch2, bool pending,
                             float* prev, float* cur, const CCustomPSF* customPsf, int type,
                             int psfType, double relax, int halfSize, bool first, int applyMin,
                             int applyMax, int feather, bool reduceArtifacts) {
    if (!estimate || !scratch1 || !scratch2 || !prev || !cur)
        return false;
    if (type < VanCittert || type > OneStepGradient)
        return false;
    std::vector<double> psf, rev;
    int side = 0;
    if (!BuildPsf(psfType, halfSize, customPsf, &psf, &rev, &side))
        return false;
    const int h = (side - 1) / 2;
    if (!pending)
        CopyPlane(prev, cur);
    if (first)
        CopyPlane(estimate, cur);
    const float* g = prev;
    const double r = relax;
    Finish finish{ApplyRange(applyMin, applyMax, feather), true, reduceArtifacts,
                  static_cast<double>(maxValue)};
    switch (type) {
    case VanCittert:
        // The one pass reads the estimate's neighbours: the new estimate waits in scratch2.
        SecondPass(*this, estimate, estimate, g, scratch2, cur, psf.data(), h, true, finish, false,
                   false, [r](double gv, double xv, double c) { return xv + r * (gv - c); });
        CopyPlane(estimate, scratch2);
        break;
    case RichardsonLucy:
        FirstPass(*this, estimate, g, scratch1, psf.data(), h, true, RlQuotient{});
        SecondPass(*this, scratch1, estimate, g, estimate, cur, rev.data(), h, true, finish, false,
                   false, [r](double, double xv, double d) { return xv * d * r; });
        break;
    case MaximumEntropy: {
        // Single-threaded, with the PSF itself in both sums; twice in a row after the first
        // call.
        finish.rangeTest = false;
        const int rounds = first ? 1 : 2;
        for (int k = 0; k < rounds; ++k) {
            FirstPass(*this, estimate, g, scratch1, psf.data(), h, false,
                      [](double gv, double, double c) { return c - gv; });
            SecondPass(*this, scratch1, estimate, g, estimate, cur, psf.data(), h, false, finish,
                       false, false, [r](double gv, double, double d) { return gv - r * d; });
        }
        break;
    }
    case OneStepGradient:
        FirstPass(*this, estimate, g, scratch1, psf.data(), h, true,
                  [](double gv, double, double c) { return gv - c; });
        SecondPass(*this, scratch1, estimate, g, estimate, cur, rev.data(), h, true, finish, true,
                   false, [r](double, double xv, double d) { return xv + r * d; });
        break;
    }
    return true;
}

bool Image::RestoreIterationAdaptive(float* estimate, float* scratch1, float* scratch2,
                                     bool pending, float* prev, float* cur,
                                     const CCustomPSF* customPsf, int psfType,
                                     double noiseThreshold, int halfSize, bool first, int applyMin,
                                     int applyMax, int feather, bool reduceArtifacts) {
    if (!estimate || !scratch1 || !scratch2 || !prev || !cur)
        return false;
    std::vector<double> psf, rev;
    int side = 0;
    if (!BuildPsf(psfType, halfSize, customPsf, &psf, &rev, &side))
        return false;
    const int h = (side - 1) / 2;
    if (!pending)
        CopyPlane(prev, cur);
    if (first)
        CopyPlane(estimate, cur);
    const double t = noiseThreshold == 0.0 ? 0.01 : noiseThreshold;
    const double factor = -2.0 / (t * t);
    FirstPass(*this, estimate, prev, scratch1, psf.data(), h, true,
              [first, factor](double gv, double xv, double c) {
                  if (c == 0.0)
                      c = 1.0;
                  if (first)
                      return gv / c;
                  const double g0 = gv == 0.0 ? 1.0 : gv;
                  double u = (g0 * std::log(xv / g0) - xv + g0) * factor;
                  if (u > 1.0)
                      u = 1.0;
                  const double d = std::pow(u, 9.0) * (10.0 - 9.0 * u);
                  return (gv - c) / c * d + 1.0;
              });
    Finish finish{ApplyRange(applyMin, applyMax, feather), true, reduceArtifacts,
                  static_cast<double>(maxValue)};
    SecondPass(*this, scratch1, estimate, prev, estimate, cur, rev.data(), h, true, finish, true,
               true, [](double, double xv, double d) { return xv * d; });
    return true;
}

// ---- the planes of a run -------------------------------------------------------------------

RestorationPlanes::~RestorationPlanes() {
    Free();
}

void RestorationPlanes::Free() {
    for (int s = 0; s < 3; ++s) {
        PageFree(estimate[s]);
        PageFree(scratch1[s]);
        PageFree(scratch2[s]);
        estimate[s] = scratch1[s] = scratch2[s] = nullptr;
    }
}

bool RestorationPlanes::Allocate(const Image& image) {
    Free();
    const std::size_t count = static_cast<std::size_t>(image.width) * image.height;
    for (int s : image.Slots()) {
        estimate[s] = AllocPlane(count);
        scratch1[s] = AllocPlane(count);
        scratch2[s] = AllocPlane(count);
        if (!estimate[s] || !scratch1[s] || !scratch2[s]) {
            Free();
            return false;
        }
    }
    return true;
}

// ---- parameter texts ---------------------------------------------------------------------

const char* RestorationTypeWord(int type) {
    switch (type) {
    case VanCittert:
        return "Van Cittert";
    case RichardsonLucy:
        return "Richardson-Lucy";
    case MaximumEntropy:
        return "Maximum Entropy";
    case OneStepGradient:
        return "One-Step Gradient";
    default:
        return "";
    }
}

double DefaultRelax(int type) {
    return type == VanCittert ? 0.20 : (type == MaximumEntropy ? 1.30 : 1.00);
}

namespace {

const char* YesNo(bool on) {
    return on ? "Yes" : "No";
}

/// The side a text records: 2h + 1 (for Custom, h is taken from the PSF's own size).
int PsfSideOf(int, int halfSize) {
    return 2 * halfSize + 1;
}

int WordIndex(const std::string& word, const char* (*wordOf)(int), int first, int last) {
    for (int k = first; k <= last; ++k)
        if (word == wordOf(k))
            return k;
    return 0;
}

/// Positional reader of a `#` text with the error text of the operator.
struct FieldReader {
    std::string rest;
    std::string* error;
    const char* op;
    std::string text;
    bool Next(std::string* value, const char* what) {
        if (NextValue(value, &rest))
            return true;
        if (error)
            *error = std::string(op) + ": " + what + " missing in \"" + text + "\"";
        return false;
    }
    bool Bad(const char* what) {
        if (error)
            *error = std::string(op) + ": " + what + " not known in \"" + text + "\"";
        return false;
    }
};

bool ReadRangeTail(FieldReader& in, bool* reduce, int* mn, int* mx, int* f, int* iterations,
                   bool* hasIterations) {
    std::string v;
    if (!in.Next(&v, "reduce artifacts"))
        return false;
    *reduce = IsYes(v);
    if (!in.Next(&v, "apply min"))
        return false;
    *mn = std::atoi(v.c_str());
    if (!in.Next(&v, "apply max"))
        return false;
    *mx = std::atoi(v.c_str());
    if (!in.Next(&v, "feather range"))
        return false;
    *f = std::atoi(v.c_str());
    std::string rest = in.rest;
    const bool has = NextValue(&v, &rest);
    if (has)
        *iterations = std::atoi(v.c_str());
    if (hasIterations)
        *hasIterations = has;
    return true;
}

} // namespace

std::string FormatIterations(int done) {
    return FormatText("Iterations : %d#", done);
}

std::string FormatRestoration(const RestorationParams& p) {
    const int side = PsfSideOf(p.psfType, p.halfSize);
    return FormatText("Restoration Type : %s#PSF Type : %s#PSF Size : %dx%d#Relax Value : %5.2f#"
                      "Reduce Artifacts : %s#Apply Min : %d#Apply Max : %d#Feather Range : %d#",
                      RestorationTypeWord(p.type), PsfTypeWord(p.psfType), side, side, p.relax,
                      YesNo(p.reduceArtifacts), p.applyMin, p.applyMax, p.feather);
}

std::string FormatAdaptiveRestoration(const AdaptiveRestorationParams& p) {
    const int side = PsfSideOf(p.psfType, p.halfSize);
    return FormatText("PSF Type : %s#PSF Size : %dx%d#Noise Threshold : %5.2f#"
                      "Reduce Artifacts : %s#Apply Min : %d#Apply Max : %d#Feather Range : %d#",
                      PsfTypeWord(p.psfType), side, side, p.noiseThreshold,
                      YesNo(p.reduceArtifacts), p.applyMin, p.applyMax, p.feather);
}

/// The PSF type word and the "%dx%d" size of both restoration texts.
static bool ReadPsfFields(FieldReader& in, int* psfType, int* halfSize) {
    std::string v;
    if (!in.Next(&v, "PSF type"))
        return false;
    *psfType = WordIndex(v, PsfTypeWord, 1, 4);
    if (*psfType == 0)
        return in.Bad("PSF type");
    if (!in.Next(&v, "PSF size"))
        return false;
    *halfSize = WindowSizeRadius(v);
    return true;
}

bool ParseRestoration(const std::string& text, RestorationParams* params, std::string* error,
                      bool* hasIterations) {
    FieldReader in{text, error, "Non-Adaptive Iterative Restoration", text};
    RestorationParams p = *params;
    std::string v;
    if (!in.Next(&v, "restoration type"))
        return false;
    p.type = WordIndex(v, RestorationTypeWord, 1, 4);
    if (p.type == 0)
        return in.Bad("restoration type");
    if (!ReadPsfFields(in, &p.psfType, &p.halfSize))
        return false;
    if (!in.Next(&v, "relax value"))
        return false;
    p.relax = std::atof(v.c_str());
    if (!ReadRangeTail(in, &p.reduceArtifacts, &p.applyMin, &p.applyMax, &p.feather, &p.iterations,
                       hasIterations))
        return false;
    *params = p;
    return true;
}

bool ParseAdaptiveRestoration(const std::string& text, AdaptiveRestorationParams* params,
                              std::string* error, bool* hasIterations) {
    FieldReader in{text, error, "Adaptive Richardson-Lucy", text};
    AdaptiveRestorationParams p = *params;
    std::string v;
    if (!ReadPsfFields(in, &p.psfType, &p.halfSize))
        return false;
    if (!in.Next(&v, "noise threshold"))
        return false;
    p.noiseThreshold = std::atof(v.c_str());
    if (!ReadRangeTail(in, &p.reduceArtifacts, &p.applyMin, &p.applyMax, &p.feather, &p.iterations,
                       hasIterations))
        return false;
    *params = p;
    return true;
}

// ---- replay -------------------------------------------------------------------------------

namespace {

/// The run of `iterations` iterations on every slot; `one(s, pending, first)` is one
/// iteration of slot s.
template <class One>
bool RunIterations(Image& image, int iterations, IProgress* progress, std::string* error, One one) {
    for (int it = 1; it <= iterations; ++it) {
        if (it > 1 && progress && progress->Cancelled()) {
            if (error)
                *error = "Cancelled";
            return false;
        }
        for (int s : image.Slots())
            if (!one(s, it > 1, it == 1)) {
                if (error)
                    *error = kCantAllocateText;
                return false;
            }
        if (progress)
            progress->SetProgress(it, iterations);
    }
    return true;
}

const CCustomPSF* PsfFor(int psfType, const CCustomPSF* custom) {
    if (psfType != PsfCustom)
        return nullptr;
    return custom ? custom : &CurrentCustomPsf();
}

bool CheckPsf(int psfType, int halfSize, const CCustomPSF* custom, std::string* error) {
    std::vector<double> a, b;
    int side = 0;
    if (!BuildPsf(psfType, halfSize, custom, &a, &b, &side)) {
        if (error)
            *error = "The PSF " + std::string(PsfTypeWord(psfType)) + " of size " +
                     std::to_string(2 * halfSize + 1) + " can't be built.";
        return false;
    }
    if (psfType == PsfCustom && side != 2 * halfSize + 1) {
        if (error)
            *error = "The custom PSF \"" + custom->name + "\" is not of the recorded size " +
                     std::to_string(2 * halfSize + 1) + ".";
        return false;
    }
    return true;
}

} // namespace

bool ApplyRestoration(Image& image, const RestorationParams& p, const CCustomPSF* custom,
                      IProgress* progress, std::string* error) {
    const CCustomPSF* psf = PsfFor(p.psfType, custom);
    if (!CheckPsf(p.psfType, p.halfSize, psf, error))
        return false;
    RestorationPlanes planes;
    if (!planes.Allocate(image)) {
        if (error)
            *error = kCantAllocateText;
        return false;
    }
    return RunIterations(
        image, p.iterations, progress, error, [&](int s, bool pending, bool first) {
            return image.RestoreIteration(
                planes.estimate[s], planes.scratch1[s], planes.scratch2[s], pending,
                image.prevPlane[s], image.curPlane[s], psf, p.type, p.psfType, p.relax, p.halfSize,
                first, p.applyMin, p.applyMax, p.feather, p.reduceArtifacts);
        });
}

bool ApplyAdaptiveRestoration(Image& image, const AdaptiveRestorationParams& p,
                              const CCustomPSF* custom, IProgress* progress, std::string* error) {
    const CCustomPSF* psf = PsfFor(p.psfType, custom);
    if (!CheckPsf(p.psfType, p.halfSize, psf, error))
        return false;
    RestorationPlanes planes;
    if (!planes.Allocate(image)) {
        if (error)
            *error = kCantAllocateText;
        return false;
    }
    return RunIterations(
        image, p.iterations, progress, error, [&](int s, bool pending, bool first) {
            return image.RestoreIterationAdaptive(
                planes.estimate[s], planes.scratch1[s], planes.scratch2[s], pending,
                image.prevPlane[s], image.curPlane[s], psf, p.psfType, p.noiseThreshold, p.halfSize,
                first, p.applyMin, p.applyMax, p.feather, p.reduceArtifacts);
        });
}

namespace {

bool ReplayRestoration(Image& image, const std::string& text, const ReplayContext& context,
                       std::string* error) {
    RestorationParams p;
    if (!ParseRestoration(text, &p, error))
        return false;
    return ApplyRestoration(image, p, static_cast<const CCustomPSF*>(context.customPsf),
                            context.progress, error);
}

bool RoundTripRestoration(const std::string& text, std::string* formatted) {
    RestorationParams p;
    bool has = false;
    if (!ParseRestoration(text, &p, nullptr, &has))
        return false;
    *formatted = FormatRestoration(p) + (has ? FormatIterations(p.iterations) : "");
    return true;
}

bool ReplayAdaptive(Image& image, const std::string& text, const ReplayContext& context,
                    std::string* error) {
    AdaptiveRestorationParams p;
    if (!ParseAdaptiveRestoration(text, &p, error))
        return false;
    return ApplyAdaptiveRestoration(image, p, static_cast<const CCustomPSF*>(context.customPsf),
                                    context.progress, error);
}

bool RoundTripAdaptive(const std::string& text, std::string* formatted) {
    AdaptiveRestorationParams p;
    bool has = false;
    if (!ParseAdaptiveRestoration(text, &p, nullptr, &has))
        return false;
    *formatted = FormatAdaptiveRestoration(p) + (has ? FormatIterations(p.iterations) : "");
    return true;
}

} // namespace

OperatorDescriptor IterativeRestorationDescriptor() {
    OperatorDescriptor d;
    d.name = "Non-Adaptive Iterative Restoration";
    d.replay = ReplayRestoration;
    d.roundTrip = RoundTripRestoration;
    for (int type = VanCittert; type <= OneStepGradient; ++type) {
        RestorationParams p;
        p.type = type;
        p.psfType = type == MaximumEntropy ? PsfBinomial : (type == VanCittert ? PsfBox : PsfGauss);
        p.halfSize = type == OneStepGradient ? 1 : 2;
        p.relax = DefaultRelax(type);
        p.iterations = type == RichardsonLucy ? 5 : 3;
        p.reduceArtifacts = type == RichardsonLucy;
        p.applyMin = type == OneStepGradient ? 100 : 0;
        p.applyMax = type == OneStepGradient ? 60000 : 65535;
        p.feather = type == OneStepGradient ? 50 : 0;
        d.examples.push_back(FormatRestoration(p) + FormatIterations(p.iterations));
    }
    return d;
}

OperatorDescriptor AdaptiveRestorationDescriptor() {
    OperatorDescriptor d;
    d.name = "Adaptive Richardson-Lucy";
    d.replay = ReplayAdaptive;
    d.roundTrip = RoundTripAdaptive;
    AdaptiveRestorationParams p;
    d.examples.push_back(FormatAdaptiveRestoration(p) + FormatIterations(p.iterations));
    p.psfType = PsfBox;
    p.halfSize = 1;
    p.noiseThreshold = 0.5;
    p.iterations = 4;
    p.reduceArtifacts = true;
    p.applyMin = 200;
    p.applyMax = 50000;
    p.feather = 100;
    d.examples.push_back(FormatAdaptiveRestoration(p) + FormatIterations(p.iterations));
    return d;
}

} // namespace astrivelle
