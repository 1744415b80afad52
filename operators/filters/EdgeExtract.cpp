// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Edge Extract: One Pixel, Sobel, Kirsch, Laplace, Morphological, Deriche and
/// Contra-harmonic edge maps of a plane; the parameter text and replay.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Restoration.h"

namespace astrivelle {

namespace {

constexpr int kMaxWindow = kEdgeMaxWindow * kEdgeMaxWindow;

/// The common end of a pixel: binarization, brightness, clamp.
struct EdgeEnd {
    bool binarize;
    double threshold;
    double scale;
    double top;
    float operator()(double e) const {
        if (binarize)
            e = threshold > e ? 0.0 : top;
        return static_cast<float>(Image::ClampValue(e * scale, 0.0, top));
    }
};

inline bool Valid(double v) {
    return v != -1.0;
}

/// One Pixel, Sobel, Kirsch and Laplace on the 3 x 3 window w (row order).
double SmallWindowEdge(int type, const double* w) {
    switch (type) {
    case EdgeOnePixel: {
        double low = 0.0;
        bool any = false;
        for (int j = 0; j < 9; ++j)
            if (Valid(w[j]) && (!any || w[j] < low)) {
                low = w[j];
                any = true;
            }
        return w[4] - low;
    }
    case EdgeSobel: {
        static const float kx[9] = {-1, 0, 1, -2, 0, 2, -1, 0, 1};
        static const float ky[9] = {-1, -2, -1, 0, 0, 0, 1, 2, 1};
        float gx = 0.0f, gy = 0.0f;
        for (int j = 0; j < 9; ++j)
            if (Valid(w[j])) {
                const float b = static_cast<float>(w[j]);
                gx += kx[j] * b;
                gy += ky[j] * b;
            }
        return static_cast<double>(std::fabs(gx) + std::fabs(gy));
    }
    case EdgeKirsch: {
        // The ring of the window clockwise from the top left; mask k has 5 on ring places
        // k, k + 1, k + 2 and -3 on the other five.
        static const int ring[8] = {0, 1, 2, 5, 8, 7, 6, 3};
        double best = 0.0;
        for (int k = 0; k < 8; ++k) {
            double sum = 0.0;
            for (int r = 0; r < 8; ++r) {
                const double v = w[ring[r]];
                if (!Valid(v))
                    continue;
                const int place = (r - k + 8) % 8;
                sum += (place < 3 ? 5.0 : -3.0) * v;
            }
            best = std::max(best, std::fabs(sum));
        }
        return best / 15.0;
    }
    case EdgeLaplace: {
        static const double kl[9] = {0, 1, 0, 1, -4, 1, 0, 1, 0};
        double sum = 0.0;
        for (int j = 0; j < 9; ++j)
            if (Valid(w[j]))
                sum += kl[j] * w[j];
        return std::fabs(sum);
    }
    default:
        return 0.0;
    }
}

double ContraHarmonic(const double* w, int count, double p) {
    double s1 = 0, s2 = 0, s3 = 0, s4 = 0;
    for (int j = 0; j < count; ++j) {
        const double b = w[j];
        if (!Valid(b))
            continue;
        s1 += std::pow(b, p + 1.0);
        s2 += std::pow(b, p);
        s3 += std::pow(b, 1.0 - p);
        s4 += std::pow(b, -p);
    }
    if (s2 == 0.0)
        s2 = 0.01;
    if (s4 == 0.0)
        s4 = 0.01;
    const double value = s1 / s2 - s3 / s4;
    if (!std::isfinite(value) || std::fabs(value) >= 2147483647.0)
        return 0.0; // a window of zeros under a negative power has no contrast to give
    return static_cast<double>(static_cast<int>(value));
}

// ---- Morphological ------------------------------------------------------------------------

bool plainMorphology = false; // a test's switch to the gathered windows everywhere

/// The inside of an inner row of the morphological edges, x from 2 to w - 3: the truncated
/// 3 x 3 mean from rows r0..r2 (summed in the window's order, each lane on its own) and the
/// 5 x 5 extremes from the 5-row column extremes, as the unscaled edge. Cloned for the wider
/// vector units: the arithmetic is the same in every lane.
__attribute__((target_clones("avx512f", "avx2", "default"))) void
MorphologicalInnerRow(const float* r0, const float* r1, const float* r2, const float* colLo,
                      const float* colHi, int w, double top, float* edge) {
    for (int x = 2; x < w - 2; ++x) {
        double sum = r0[x - 1];
        sum += r0[x];
        sum += r0[x + 1];
        sum += r1[x - 1];
        sum += r1[x];
        sum += r1[x + 1];
        sum += r2[x - 1];
        sum += r2[x];
        sum += r2[x + 1];
        double mean = static_cast<double>(static_cast<int>(sum / 9));
        mean = mean < 0.0 ? 0.0 : (mean > top ? top : mean);
        const float c = static_cast<float>(mean);
        float l = colLo[x - 2], h = colHi[x - 2];
        for (int dx = -1; dx <= 2; ++dx) {
            l = std::min(l, colLo[x + dx]);
            h = std::max(h, colHi[x + dx]);
        }
        const double lo = std::min(top, static_cast<double>(l));
        const double hi = std::max(0.0, static_cast<double>(h));
        edge[x] = std::min(c - static_cast<float>(lo), static_cast<float>(hi) - c);
    }
}

/// Morphological edges: the truncated mean of each 3 x 3 window, then the smaller of its rise
/// above the 5 x 5 window's minimum and its fall below the maximum. Where a window lies inside
/// the plane and the plane holds no -1.0 mark (nor a NaN, which the order of comparisons would
/// let through), it is read straight from the rows: the same sum in the same order and the
/// same extremes (from the 5-row column extremes) as the window gathered with mirrored
/// borders, which the border pixels keep. One pass: each mean is taken where it is used.
void MorphologicalEdges(const float* prev, float* cur, int w, int hgt, double top,
                        const EdgeEnd& end) {
    const std::size_t n = static_cast<std::size_t>(w) * hgt;
    const bool marks = plainMorphology || std::any_of(prev, prev + n, [](float v) {
                           return v == -1.0f || std::isnan(v);
                       });
    const auto at = [&](int x, int y) { return prev[static_cast<long>(y) * w + x]; };
    ParallelRows(hgt, [&](int y0, int y1) {
        double win[25];
        std::vector<float> colLo(static_cast<std::size_t>(w)), colHi(colLo.size()),
            edge(colLo.size());
        for (int y = y0; y < y1; ++y) {
            const bool meanRow = !marks && y >= 1 && y < hgt - 1;
            const bool extremeRow = !marks && y >= 2 && y < hgt - 2;
            if (extremeRow) {
                for (int x = 0; x < w; ++x) {
                    float lo = at(x, y - 2), hi = lo;
                    for (int dy = -1; dy <= 2; ++dy) {
                        lo = std::min(lo, at(x, y + dy));
                        hi = std::max(hi, at(x, y + dy));
                    }
                    colLo[static_cast<std::size_t>(x)] = lo;
                    colHi[static_cast<std::size_t>(x)] = hi;
                }
                const float* r1 = prev + static_cast<long>(y) * w;
                MorphologicalInnerRow(r1 - w, r1, r1 + w, colLo.data(), colHi.data(), w, top,
                                      edge.data());
                for (int x = 2; x < w - 2; ++x)
                    cur[static_cast<long>(y) * w + x] = end(edge[static_cast<std::size_t>(x)]);
            }
            for (int x = 0; x < w; ++x) {
                if (extremeRow && x >= 2 && x < w - 2)
                    continue; // the inside is done
                // The truncated mean of the 3 x 3 window.
                double sum = 0.0;
                int count = 0;
                if (meanRow && x >= 1 && x < w - 1) {
                    for (int dy = -1; dy <= 1; ++dy)
                        for (int dx = -1; dx <= 1; ++dx)
                            sum += at(x + dx, y + dy);
                    count = 9;
                } else {
                    GatherMirror(prev, w, hgt, x, y, 1, win);
                    for (int j = 0; j < 9; ++j)
                        if (Valid(win[j])) {
                            sum += win[j];
                            ++count;
                        }
                }
                const double mean =
                    count ? static_cast<double>(static_cast<int>(sum / count)) : 0.0;
                const float c = static_cast<float>(Image::ClampValue(mean, 0.0, top));
                // The extremes of the 5 x 5 window.
                double lo = top, hi = 0.0;
                if (extremeRow && x >= 2 && x < w - 2) {
                    float l = colLo[static_cast<std::size_t>(x - 2)];
                    float h = colHi[static_cast<std::size_t>(x - 2)];
                    for (int dx = -1; dx <= 2; ++dx) {
                        l = std::min(l, colLo[static_cast<std::size_t>(x + dx)]);
                        h = std::max(h, colHi[static_cast<std::size_t>(x + dx)]);
                    }
                    lo = std::min(lo, static_cast<double>(l));
                    hi = std::max(hi, static_cast<double>(h));
                } else {
                    GatherMirror(prev, w, hgt, x, y, 2, win);
                    for (double v : win)
                        if (Valid(v)) {
                            lo = std::min(lo, v);
                            hi = std::max(hi, v);
                        }
                }
                cur[static_cast<long>(y) * w + x] =
                    end(std::min(c - static_cast<float>(lo), static_cast<float>(hi) - c));
            }
        }
    });
}

// ---- Deriche ------------------------------------------------------------------------------

/// The recursive filters of one alpha: smoothing (causal and anticausal numerators) and first
/// derivative, with the two feedback terms they share.
struct Deriche {
    double b1, b2;         // y[n] += b1 y[n-1] + b2 y[n-2]
    double s0, s1, s2, s3; // smoothing numerators
    double d;              // derivative numerator
    explicit Deriche(double alpha) {
        const double a = std::exp(-alpha), e2 = std::exp(-2.0 * alpha);
        const double k = (1.0 - a) * (1.0 - a) / (1.0 + 2.0 * a * alpha - e2);
        b1 = 2.0 * a; // the feedback -2a, e^(-2 alpha) moved to the right-hand side
        b2 = -e2;
        s0 = k;
        s1 = k * a * (alpha - 1.0);
        s2 = k * a * (alpha + 1.0);
        s3 = -k * e2;
        d = -(1.0 - a) * (1.0 - a);
    }

    /// One line of n samples (x, in steps of `step`) into out (steps of `outStep`); the line
    /// is taken as continuing with its end values, so a flat line stays flat.
    template <class In, class Out>
    void Line(const In* x, long step, int n, bool derivative, double* xb, double* yb, double* zb,
              Out* out, long outStep) const {
        for (int i = 0; i < n; ++i)
            xb[i] = x[i * step];
        const double g = 1.0 - b1 - b2;
        const double c0 = derivative ? 0.0 : s0, c1 = derivative ? -d : s1;
        const double a1 = derivative ? d : s2, a2 = derivative ? 0.0 : s3;
        // causal: y[i] = c0 x[i] + c1 x[i-1] + b1 y[i-1] + b2 y[i-2]
        double y1 = (c0 + c1) * xb[0] / g, y2 = y1, xp = xb[0];
        for (int i = 0; i < n; ++i) {
            const double y = c0 * xb[i] + c1 * xp + b1 * y1 + b2 * y2;
            yb[i] = y;
            y2 = y1;
            y1 = y;
            xp = xb[i];
        }
        // anticausal: z[i] = a1 x[i+1] + a2 x[i+2] + b1 z[i+1] + b2 z[i+2]
        const double xl = xb[n - 1];
        double z1 = (a1 + a2) * xl / g, z2 = z1, xn1 = xl, xn2 = xl;
        for (int i = n - 1; i >= 0; --i) {
            const double z = a1 * xn1 + a2 * xn2 + b1 * z1 + b2 * z2;
            zb[i] = z;
            z2 = z1;
            z1 = z;
            xn2 = xn1;
            xn1 = xb[i];
        }
        for (int i = 0; i < n; ++i)
            out[i * outStep] = static_cast<Out>(yb[i] + zb[i]);
    }
};

bool DericheEdges(Image& img, const float* prev, float* cur, double alpha, const EdgeEnd& end) {
    const int w = img.width, h = img.height;
    const std::size_t count = static_cast<std::size_t>(w) * h;
    float* a = AllocPlane(count);
    float* b = AllocPlane(count);
    if (!a || !b) {
        PageFree(a);
        PageFree(b);
        return false;
    }
    const Deriche f(alpha);
    const int longest = std::max(w, h);
    auto lines = [&](int n0, int n1, auto body) {
        std::vector<double> xb(longest), yb(longest), zb(longest), row(longest);
        for (int i = n0; i < n1; ++i)
            body(i, xb.data(), yb.data(), zb.data(), row.data());
    };
    // Smoothing along rows, then the vertical derivative over columns: Gy in b.
    ParallelRows(h, [&](int y0, int y1) {
        lines(y0, y1, [&](int y, double* xb, double* yb, double* zb, double*) {
            f.Line(prev + static_cast<long>(y) * w, 1, w, false, xb, yb, zb,
                   a + static_cast<long>(y) * w, 1);
        });
    });
    ParallelRows(w, [&](int x0, int x1) {
        lines(x0, x1, [&](int x, double* xb, double* yb, double* zb, double*) {
            f.Line(a + x, w, h, true, xb, yb, zb, b + x, w);
        });
    });
    // Smoothing over columns, then the horizontal derivative along rows, joined with Gy.
    ParallelRows(w, [&](int x0, int x1) {
        lines(x0, x1, [&](int x, double* xb, double* yb, double* zb, double*) {
            f.Line(prev + x, w, h, false, xb, yb, zb, a + x, w);
        });
    });
    ParallelRows(h, [&](int y0, int y1) {
        lines(y0, y1, [&](int y, double* xb, double* yb, double* zb, double* gx) {
            const long at = static_cast<long>(y) * w;
            f.Line(a + at, 1, w, true, xb, yb, zb, gx, 1);
            for (int x = 0; x < w; ++x) {
                const double gy = b[at + x];
                cur[at + x] = end(std::sqrt(gx[x] * gx[x] + gy * gy));
            }
        });
    });
    PageFree(a);
    PageFree(b);
    return true;
}

} // namespace

bool Image::EdgeExtract(bool pending, float* prev, float* cur, int type, bool binarize,
                        int threshold, double scale, int radius, double edgeWidth) {
    if (!prev || !cur)
        return false;
    const int w = width, hgt = height;
    if (!pending)
        CopyPlane(prev, cur);
    const EdgeEnd end{binarize, static_cast<double>(threshold), scale,
                      static_cast<double>(maxValue)};
    const double top = maxValue;
    switch (type) {
    case EdgeOnePixel:
    case EdgeSobel:
    case EdgeKirsch:
    case EdgeLaplace:
        ParallelRows(hgt, [&](int y0, int y1) {
            double win[9];
            for (int y = y0; y < y1; ++y)
                for (int x = 0; x < w; ++x) {
                    GatherMirror(prev, w, hgt, x, y, 1, win);
                    cur[static_cast<long>(y) * w + x] = end(SmallWindowEdge(type, win));
                }
        });
        break;
    case EdgeMorphological:
        MorphologicalEdges(prev, cur, w, hgt, top, end);
        break;
    case EdgeDeriche:
        return DericheEdges(*this, prev, cur, edgeWidth, end);
    case EdgeContraHarmonic: {
        const int r = std::clamp(radius, 1, (kEdgeMaxWindow - 1) / 2);
        const int count = (2 * r + 1) * (2 * r + 1);
        ParallelRows(hgt, [&](int y0, int y1) {
            double win[kMaxWindow];
            for (int y = y0; y < y1; ++y)
                for (int x = 0; x < w; ++x) {
                    GatherMirror(prev, w, hgt, x, y, r, win);
                    cur[static_cast<long>(y) * w + x] = end(ContraHarmonic(win, count, edgeWidth));
                }
        });
        break;
    }
    default:
        break; // no such type: the plane stays as it is
    }
    return true;
}

namespace edge_testing {
void SetPlainMorphology(bool plain) {
    plainMorphology = plain;
}
} // namespace edge_testing

// ---- parameter text ---------------------------------------------------------------------

const char* EdgeTypeWord(int type) {
    static const char* words[] = {"",        "One Pixel",     "Sobel",   "Kirsch",
                                  "Laplace", "Morphological", "Deriche", "Contra-harmonic"};
    return type >= 1 && type <= 7 ? words[type] : "";
}

const char* EdgeFailureText(int type) {
    return type == EdgeDeriche ? "Could not allocate memory.\n Please close some programs and "
                                 "try again."
                               : kCantAllocateText;
}

std::string FormatEdge(const EdgeParams& p) {
    std::string head;
    if (p.type == EdgeContraHarmonic)
        head = FormatText("Type : %s#Edge Width : %6.4f#Window Size : %dx%d#", EdgeTypeWord(p.type),
                          p.edgeWidth, p.window, p.window);
    else if (p.type == EdgeDeriche)
        head = FormatText("Type : %s#Edge Width : %6.4f#Window Size Disabled: %dx%d#",
                          EdgeTypeWord(p.type), p.edgeWidth, p.window, p.window);
    else
        head = FormatText("Type : %s#Edge Width Disabled : %6.4f#Window Size Disabled: %dx%d#",
                          EdgeTypeWord(p.type), p.edgeWidth, p.window, p.window);
    return head + FormatText("Binarization : %s#Threshold : %d#Brightness : %6.4f#",
                             p.binarize ? "Yes" : "No", p.threshold, p.brightness);
}

bool ParseEdge(const std::string& text, EdgeParams* params, std::string* error) {
    std::string rest = text, v;
    auto fail = [&](const char* what) {
        if (error)
            *error = std::string("Edge Extract: ") + what + " missing in \"" + text + "\"";
        return false;
    };
    EdgeParams p;
    if (!NextValue(&v, &rest))
        return fail("type");
    p.type = 0;
    for (int k = 1; k <= 7; ++k)
        if (v == EdgeTypeWord(k))
            p.type = k;
    if (p.type == 0)
        return fail("type");
    if (!NextValue(&v, &rest))
        return fail("edge width");
    p.edgeWidth = std::atof(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("window size");
    p.window = std::atoi(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("binarization");
    p.binarize = IsYes(v);
    if (!NextValue(&v, &rest))
        return fail("threshold");
    p.threshold = std::atoi(v.c_str());
    if (!NextValue(&v, &rest))
        return fail("brightness");
    p.brightness = std::atof(v.c_str());
    *params = p;
    return true;
}

bool ApplyEdge(Image& image, const EdgeParams& p, std::string* error) {
    for (int s : image.Slots())
        if (!image.EdgeExtract(false, image.prevPlane[s], image.curPlane[s], p.type, p.binarize,
                               p.threshold, p.brightness, (p.window - 1) / 2, p.edgeWidth)) {
            if (error)
                *error = EdgeFailureText(p.type);
            return false;
        }
    return true;
}

namespace {

bool ReplayEdge(Image& image, const std::string& text, const ReplayContext&, std::string* error) {
    EdgeParams p;
    return ParseEdge(text, &p, error) && ApplyEdge(image, p, error);
}

bool RoundTripEdge(const std::string& text, std::string* formatted) {
    EdgeParams p;
    if (!ParseEdge(text, &p, nullptr))
        return false;
    *formatted = FormatEdge(p);
    return true;
}

} // namespace

OperatorDescriptor EdgeExtractDescriptor() {
    OperatorDescriptor d;
    d.name = "Edge Extract";
    d.replay = ReplayEdge;
    d.roundTrip = RoundTripEdge;
    for (int type = EdgeOnePixel; type <= EdgeContraHarmonic; ++type) {
        EdgeParams p;
        p.type = type;
        p.edgeWidth = type == EdgeDeriche ? 0.8 : (type == EdgeContraHarmonic ? 1.5 : 1.0);
        p.window = type == EdgeContraHarmonic ? 5 : 3;
        p.binarize = type == EdgeSobel;
        p.threshold = type == EdgeSobel ? 300 : 1000;
        p.brightness = type == EdgeLaplace ? 2.5 : 1.0;
        d.examples.push_back(FormatEdge(p));
    }
    return d;
}

} // namespace astrivelle
