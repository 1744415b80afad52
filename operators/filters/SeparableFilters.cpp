// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The separable smoothing filters: box, binomial and Gaussian, as a row pass into a
/// scratch plane and a column pass into the current plane, both clamping their indices,
/// then the apply range.
///
/// Precision: the weights are doubles and every weighted sum is accumulated in doubles (the
/// float samples are widened before they are added), so each pass is correct to well below
/// one float step; the only roundings that matter are the two stores as 32-bit floats (the
/// scratch plane and the result). The result stays within a few float steps of a plain
/// double 2-D convolution. The box filter keeps running sums in doubles, so its cost does not
/// grow with the window; a 999-sample window runs as fast as a 3-sample one.
///
/// Speed: the binomial and Gaussian kernels are symmetric, so each tap adds the two mirrored
/// samples first (exact in doubles) and multiplies once. The row pass reads a clamped copy of
/// the row and works on 16 outputs at a time; the column pass keeps its inner loop along a
/// row of contiguous floats and walks the plane in strips of columns so that the window's
/// rows stay in cache. Both kernels are built for AVX-512, AVX2 and the baseline, chosen at
/// run time; they do the same arithmetic in the same order, so the choice changes no result.
#include <tbb/enumerable_thread_specific.h>

#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"
#include "operators/Filters.h"
#include "operators/filters/SmoothingKernels.h"

// The 64-byte vectors below never cross a call: the helpers are always inlined.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace astrivelle::smoothing {

namespace {

typedef double V8d __attribute__((vector_size(64)));
typedef float V8f __attribute__((vector_size(32)));

[[gnu::always_inline]] inline V8d Load8(const float* p) {
    V8f f;
    std::memcpy(&f, p, sizeof f);
    return __builtin_convertvector(f, V8d);
}

[[gnu::always_inline]] inline void Store8(float* p, V8d v) {
    const V8f f = __builtin_convertvector(v, V8f);
    std::memcpy(p, &f, sizeof f);
}

/// Columns per strip of the column pass: the window's rows of a strip stay in cache.
constexpr int kStrip = 1024;

/// One row of a symmetric kernel over a clamped copy `pad` of the row (width + 2h samples).
__attribute__((target_clones("avx512f", "avx2", "default"))) void
SymmetricRow(const float* pad, float* out, int width, const double* w, int h) {
    const double* wc = w + h; // wc[d] is the weight at offset +d and -d
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const float* c = pad + x + h;
        V8d a0 = wc[0] * Load8(c), a1 = wc[0] * Load8(c + 8);
        for (int d = 1; d <= h; ++d) {
            a0 += wc[d] * (Load8(c - d) + Load8(c + d));
            a1 += wc[d] * (Load8(c - d + 8) + Load8(c + d + 8));
        }
        Store8(out + x, a0);
        Store8(out + x + 8, a1);
    }
    for (; x < width; ++x) {
        const float* c = pad + x + h;
        double a = wc[0] * static_cast<double>(c[0]);
        for (int d = 1; d <= h; ++d)
            a += wc[d] * (static_cast<double>(c[-d]) + static_cast<double>(c[d]));
        out[x] = static_cast<float>(a);
    }
}

/// Columns [x0, x1) of one output row; `rows[k]` is the clamped source row of offset k - h.
__attribute__((target_clones("avx512f", "avx2", "default"))) void
SymmetricColumn(const float* const* rows, float* out, int x0, int x1, const double* w, int h) {
    const double* wc = w + h;
    const float* const* rc = rows + h;
    int x = x0;
    for (; x + 16 <= x1; x += 16) {
        V8d a0 = wc[0] * Load8(rc[0] + x), a1 = wc[0] * Load8(rc[0] + x + 8);
        for (int d = 1; d <= h; ++d) {
            const float* up = rc[-d] + x;
            const float* dn = rc[d] + x;
            a0 += wc[d] * (Load8(up) + Load8(dn));
            a1 += wc[d] * (Load8(up + 8) + Load8(dn + 8));
        }
        Store8(out + x, a0);
        Store8(out + x + 8, a1);
    }
    for (; x < x1; ++x) {
        double a = wc[0] * static_cast<double>(rc[0][x]);
        for (int d = 1; d <= h; ++d)
            a += wc[d] * (static_cast<double>(rc[-d][x]) + static_cast<double>(rc[d][x]));
        out[x] = static_cast<float>(a);
    }
}

void SymmetricRowPass(const float* in, float* out, int width, int height, const double* w, int h) {
    tbb::enumerable_thread_specific<std::vector<float>> pads(
        [width, h] { return std::vector<float>(width + 2 * h); });
    ParallelRows(height, [&](int y0, int y1) {
        std::vector<float>& pad = pads.local();
        for (int y = y0; y < y1; ++y) {
            const float* row = in + static_cast<long>(y) * width;
            for (int i = 0; i < width + 2 * h; ++i)
                pad[i] = row[ClampIndex(i - h, width)];
            SymmetricRow(pad.data(), out + static_cast<long>(y) * width, width, w, h);
        }
    });
}

void SymmetricColumnPass(const float* in, float* out, int width, int height, const double* w,
                         int h) {
    const int n = 2 * h + 1;
    ParallelRows(height, [&](int y0, int y1) {
        const float* rows[2 * 499 + 1];
        for (int x0 = 0; x0 < width; x0 += kStrip) {
            const int x1 = x0 + kStrip < width ? x0 + kStrip : width;
            for (int y = y0; y < y1; ++y) {
                for (int k = 0; k < n; ++k)
                    rows[k] = in + static_cast<long>(ClampIndex(y + k - h, height)) * width;
                SymmetricColumn(rows, out + static_cast<long>(y) * width, x0, x1, w, h);
            }
        }
    });
}

/// Box rows: a running sum along each row; the clamps only where the window leaves the row.
void BoxRowPass(const float* in, float* out, int width, int height, double weight, int h) {
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* row = in + static_cast<long>(y) * width;
            float* o = out + static_cast<long>(y) * width;
            double sum = 0;
            for (int d = -h; d <= h; ++d)
                sum += row[ClampIndex(d, width)];
            const int inner0 = h, inner1 = width - 1 - h; // both ends of x - h, x + 1 + h in range
            int x = 0;
            for (; x < width && x < inner0; ++x) {
                o[x] = static_cast<float>(sum * weight);
                sum += static_cast<double>(row[ClampIndex(x + 1 + h, width)]) -
                       static_cast<double>(row[ClampIndex(x - h, width)]);
            }
            for (; x < inner1; ++x) {
                o[x] = static_cast<float>(sum * weight);
                sum += static_cast<double>(row[x + 1 + h]) - static_cast<double>(row[x - h]);
            }
            for (; x < width; ++x) {
                o[x] = static_cast<float>(sum * weight);
                sum += static_cast<double>(row[ClampIndex(x + 1 + h, width)]) -
                       static_cast<double>(row[ClampIndex(x - h, width)]);
            }
        }
    });
}

/// Box columns over [x0, x0 + m): running sums down the plane, 8 columns at a time.
__attribute__((target_clones("avx512f", "avx2", "default"))) void
BoxColumns(const float* in, float* out, int width, int height, double weight, int h, int x0, int m,
           double* sum) {
    const int vec = m - m % 8;
    for (int i = 0; i < m; ++i)
        sum[i] = 0;
    for (int d = -h; d <= h; ++d) {
        const float* r = in + static_cast<long>(ClampIndex(d, height)) * width + x0;
        for (int i = 0; i < m; ++i)
            sum[i] += r[i];
    }
    for (int y = 0; y < height; ++y) {
        float* o = out + static_cast<long>(y) * width + x0;
        const float* enter = in + static_cast<long>(ClampIndex(y + 1 + h, height)) * width + x0;
        const float* leave = in + static_cast<long>(ClampIndex(y - h, height)) * width + x0;
        for (int i = 0; i < vec; i += 8) {
            V8d v;
            std::memcpy(&v, sum + i, sizeof v);
            Store8(o + i, v * weight);
            v += Load8(enter + i) - Load8(leave + i);
            std::memcpy(sum + i, &v, sizeof v);
        }
        for (int i = vec; i < m; ++i) {
            o[i] = static_cast<float>(sum[i] * weight);
            sum[i] += static_cast<double>(enter[i]) - static_cast<double>(leave[i]);
        }
    }
}

/// Box columns: each task takes whole strips of columns, so no task starts a sum twice.
void BoxColumnPass(const float* in, float* out, int width, int height, double weight, int h) {
    constexpr int kBoxStrip = 256;
    const int strips = (width + kBoxStrip - 1) / kBoxStrip;
    ParallelRows(strips, [&](int s0, int s1) {
        double sum[kBoxStrip];
        for (int s = s0; s < s1; ++s) {
            const int x0 = s * kBoxStrip;
            const int m = (x0 + kBoxStrip < width ? x0 + kBoxStrip : width) - x0;
            BoxColumns(in, out, width, height, weight, h, x0, m, sum);
        }
    });
}

/// The apply range with p from the previous plane and r from the current one.
void ApplyPass(const PlaneJob& job) {
    const ApplyRange range = job.Range();
    const int w = job.width;
    ParallelRows(job.height, [&](int y0, int y1) {
        for (long i = static_cast<long>(y0) * w; i < static_cast<long>(y1) * w; ++i)
            job.cur[i] =
                static_cast<float>(range.Mix(job.prev[i], job.cur[i], job.strength, job.top));
    });
}

} // namespace

bool SeparableKernel(int type, int half, double* w) {
    const int n = 2 * half + 1;
    switch (type) {
    case SmoothBox:
        for (int k = 0; k < n; ++k)
            w[k] = 1.0;
        break;
    case SmoothBinomial: {
        const double top = Image::Factorial(n - 1);
        for (int k = 0; k < n; ++k)
            w[k] = top / (Image::Factorial(k) * Image::Factorial(n - 1 - k));
        break;
    }
    case SmoothGaussian: {
        const double v = static_cast<double>(n - 1) * (n - 1) / 9.0;
        for (int i = -half; i <= half; ++i)
            w[i + half] = std::exp(-static_cast<double>(i) * i / v);
        break;
    }
    default:
        return false;
    }
    double sum = 0;
    for (int k = 0; k < n; ++k)
        sum += w[k];
    if (sum == 0)
        sum = 1;
    for (int k = 0; k < n; ++k)
        w[k] /= sum;
    return true;
}

bool SeparableFilter(const PlaneJob& job, FilterRun* run, int* noMemory) {
    const int h = job.half;
    const int n = 2 * h + 1;
    std::vector<double> weights;
    try {
        weights.resize(n);
    } catch (const std::bad_alloc&) {
        *noMemory = 2;
        return false;
    }
    SeparableKernel(job.type, h, weights.data());
    float* scratch = AllocPlane(static_cast<std::size_t>(job.width) * job.height);
    if (!scratch) {
        *noMemory = 1;
        return false;
    }
    bool ok = true;
    run->Step(1);
    if (run->Stop())
        ok = false;
    if (ok) {
        if (job.type == SmoothBox)
            BoxRowPass(job.prev, scratch, job.width, job.height, weights[0], h);
        else
            SymmetricRowPass(job.prev, scratch, job.width, job.height, weights.data(), h);
        run->Step(2);
        ok = !run->Stop();
    }
    if (ok) {
        if (job.type == SmoothBox)
            BoxColumnPass(scratch, job.cur, job.width, job.height, weights[0], h);
        else
            SymmetricColumnPass(scratch, job.cur, job.width, job.height, weights.data(), h);
        run->Step(3);
        ok = !run->Stop();
    }
    PageFree(scratch);
    if (!ok)
        return false;
    ApplyPass(job);
    run->Step(4);
    return true;
}

} // namespace astrivelle::smoothing
