// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The measures of Measure.h.
#include "tools/synth/Measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "engine/Parallel.h"
#include "tools/synth/Json.h"
#include "tools/synth/StarPsf.h"

namespace astrivelle::synth {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr int kMeshCell = 64;

double MaxFwhm(const Truth& t) {
    double m = 0;
    for (const FrameTruth& f : t.frames)
        m = std::max(m, f.fwhm);
    return m > 0 ? m : 3.0;
}

/// Truth stars in the pixels of one frame.
struct FrameStar {
    double x, y, flux;
    bool saturated;
    int index;
};

std::vector<FrameStar> StarsInFrame(const Truth& t, int frame) {
    std::vector<FrameStar> out;
    out.reserve(t.stars.size());
    const Affine& m = t.frames[static_cast<std::size_t>(frame)].transform;
    for (std::size_t i = 0; i < t.stars.size(); ++i) {
        const StarTruth& s = t.stars[i];
        FrameStar f;
        m.Apply(s.x, s.y, &f.x, &f.y);
        f.flux = s.flux;
        f.saturated = s.saturated;
        f.index = static_cast<int>(i);
        out.push_back(f);
    }
    return out;
}

/// Radius within which a star adds more than `floor` ADU, for the broadest frame.
double Reach(double flux, double alpha, double floor) {
    return MoffatRadius(MoffatPeak(flux, alpha), alpha, floor);
}

/// A grid of star indices for neighbour searches.
class StarGrid {
public:
    StarGrid(const std::vector<FrameStar>& stars, int cell) : stars_(stars), cell_(cell) {
        for (std::size_t i = 0; i < stars.size(); ++i)
            cells_[Key(stars[i].x, stars[i].y)].push_back(static_cast<int>(i));
    }
    template <class Fn> void Near(double x, double y, double radius, Fn fn) const {
        const int c0 = Cell(x - radius), c1 = Cell(x + radius);
        const int r0 = Cell(y - radius), r1 = Cell(y + radius);
        for (int r = r0; r <= r1; ++r)
            for (int c = c0; c <= c1; ++c) {
                auto it = cells_.find(Pack(c, r));
                if (it == cells_.end())
                    continue;
                for (int i : it->second) {
                    const double dx = stars_[static_cast<std::size_t>(i)].x - x;
                    const double dy = stars_[static_cast<std::size_t>(i)].y - y;
                    if (dx * dx + dy * dy <= radius * radius)
                        fn(i, std::sqrt(dx * dx + dy * dy));
                }
            }
    }

private:
    int Cell(double v) const { return static_cast<int>(std::floor(v / cell_)); }
    static long long Pack(int c, int r) {
        return (static_cast<long long>(r) << 32) ^ static_cast<unsigned>(c);
    }
    long long Key(double x, double y) const { return Pack(Cell(x), Cell(y)); }
    const std::vector<FrameStar>& stars_;
    int cell_;
    std::map<long long, std::vector<int>> cells_;
};

/// True when no other star puts more than 0.2% of this star's peak (or 1 ADU) within
/// `radius` + 1 of it.
bool Isolated(const std::vector<FrameStar>& stars, const StarGrid& grid, int i, double radius,
              double alpha, double maxReach) {
    const FrameStar& s = stars[static_cast<std::size_t>(i)];
    const double floor = std::max(1.0, 0.002 * MoffatPeak(s.flux, alpha));
    bool ok = true;
    grid.Near(s.x, s.y, radius + 1 + maxReach, [&](int j, double d) {
        if (j == i || !ok)
            return;
        if (d < radius + 1 + Reach(stars[static_cast<std::size_t>(j)].flux, alpha, floor))
            ok = false;
    });
    return ok;
}

double Median(std::vector<float>& v) {
    if (v.empty())
        return 0;
    const std::size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(mid), v.end());
    double m = v[mid];
    if (v.size() % 2 == 0) {
        const float lower =
            *std::max_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(mid));
        m = 0.5 * (m + lower);
    }
    return m;
}

bool Solve6(double a[6][6], double b[6], double x[6]) {
    for (int c = 0; c < 6; ++c) {
        int p = c;
        for (int r = c + 1; r < 6; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c]))
                p = r;
        if (std::fabs(a[p][c]) < 1e-300)
            return false;
        if (p != c) {
            for (int k = 0; k < 6; ++k)
                std::swap(a[p][k], a[c][k]);
            std::swap(b[p], b[c]);
        }
        for (int r = c + 1; r < 6; ++r) {
            const double f = a[r][c] / a[c][c];
            for (int k = c; k < 6; ++k)
                a[r][k] -= f * a[c][k];
            b[r] -= f * b[c];
        }
    }
    for (int r = 5; r >= 0; --r) {
        double s = b[r];
        for (int k = r + 1; k < 6; ++k)
            s -= a[r][k] * x[k];
        x[r] = s / a[r][r];
    }
    return true;
}

} // namespace

double RobustNoise(const Truth& t, int frame, const float* image) {
    const int w = t.width, h = t.height;
    std::vector<std::uint8_t> mask(static_cast<std::size_t>(w) * h, 0);
    const double alpha = MoffatAlpha(MaxFwhm(t));
    for (const FrameStar& s : StarsInFrame(t, frame)) {
        const double r =
            std::clamp(Reach(s.flux, alpha, 0.5 * std::max(1.0, t.readNoise)), 3.0, 60.0);
        const int x0 = std::max(0, static_cast<int>(std::floor(s.x - r)));
        const int x1 = std::min(w - 1, static_cast<int>(std::ceil(s.x + r)));
        const int y0 = std::max(0, static_cast<int>(std::floor(s.y - r)));
        const int y1 = std::min(h - 1, static_cast<int>(std::ceil(s.y + r)));
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x)
                if ((x - s.x) * (x - s.x) + (y - s.y) * (y - s.y) <= r * r)
                    mask[static_cast<std::size_t>(y) * w + x] = 1;
    }
    if (frame == t.trailFrame && t.trailSigma > 0) {
        const double tdx = t.trail[2] - t.trail[0], tdy = t.trail[3] - t.trail[1];
        const double len = std::max(1e-9, std::hypot(tdx, tdy));
        const double reach = 6 * t.trailSigma + 2;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (std::fabs((tdx * (y - t.trail[1]) - tdy * (x - t.trail[0])) / len) < reach)
                    mask[static_cast<std::size_t>(y) * w + x] = 1;
    }

    // Background mesh: the median of the free pixels of each cell.
    const int mw = (w + kMeshCell - 1) / kMeshCell, mh = (h + kMeshCell - 1) / kMeshCell;
    std::vector<double> mesh(static_cast<std::size_t>(mw) * mh, 0);
    std::vector<std::uint8_t> meshOk(mesh.size(), 0);
    std::vector<float> values;
    for (int my = 0; my < mh; ++my)
        for (int mx = 0; mx < mw; ++mx) {
            values.clear();
            const int x0 = mx * kMeshCell, y0 = my * kMeshCell;
            const int x1 = std::min(w, x0 + kMeshCell), y1 = std::min(h, y0 + kMeshCell);
            for (int y = y0; y < y1; ++y)
                for (int x = x0; x < x1; ++x)
                    if (!mask[static_cast<std::size_t>(y) * w + x])
                        values.push_back(image[static_cast<std::size_t>(y) * w + x]);
            if (values.size() * 4 >= static_cast<std::size_t>((x1 - x0) * (y1 - y0))) {
                mesh[static_cast<std::size_t>(my) * mw + mx] = Median(values);
                meshOk[static_cast<std::size_t>(my) * mw + mx] = 1;
            }
        }
    // Cells with too few free pixels take the mean of their valid neighbours, repeatedly.
    for (int pass = 0; pass < mw + mh; ++pass) {
        bool missing = false;
        std::vector<std::uint8_t> next = meshOk;
        for (int my = 0; my < mh; ++my)
            for (int mx = 0; mx < mw; ++mx) {
                const std::size_t i = static_cast<std::size_t>(my) * mw + mx;
                if (meshOk[i])
                    continue;
                double sum = 0;
                int n = 0;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int nx = mx + dx, ny = my + dy;
                        if (nx < 0 || ny < 0 || nx >= mw || ny >= mh)
                            continue;
                        const std::size_t j = static_cast<std::size_t>(ny) * mw + nx;
                        if (meshOk[j]) {
                            sum += mesh[j];
                            ++n;
                        }
                    }
                if (n) {
                    mesh[i] = sum / n;
                    next[i] = 1;
                } else {
                    missing = true;
                }
            }
        meshOk = next;
        if (!missing)
            break;
    }

    auto background = [&](int x, int y) {
        const double fx = std::clamp((x + 0.5) / kMeshCell - 0.5, 0.0, mw - 1.0);
        const double fy = std::clamp((y + 0.5) / kMeshCell - 0.5, 0.0, mh - 1.0);
        const int ix = std::min(static_cast<int>(fx), mw - 1),
                  iy = std::min(static_cast<int>(fy), mh - 1);
        const int jx = std::min(ix + 1, mw - 1), jy = std::min(iy + 1, mh - 1);
        const double ax = fx - ix, ay = fy - iy;
        auto at = [&](int cx, int cy) { return mesh[static_cast<std::size_t>(cy) * mw + cx]; };
        return (1 - ay) * ((1 - ax) * at(ix, iy) + ax * at(jx, iy)) +
               ay * ((1 - ax) * at(ix, jy) + ax * at(jx, jy));
    };
    std::vector<float> residual;
    residual.reserve(static_cast<std::size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (!mask[static_cast<std::size_t>(y) * w + x])
                residual.push_back(static_cast<float>(image[static_cast<std::size_t>(y) * w + x] -
                                                      background(x, y)));
    if (residual.size() < 16)
        return 0;
    double centre = 0, sigma = 0;
    std::vector<float> kept = residual, dev;
    for (int iteration = 0; iteration < 5; ++iteration) {
        std::vector<float> work = kept;
        centre = Median(work);
        dev.resize(kept.size());
        for (std::size_t i = 0; i < kept.size(); ++i)
            dev[i] = static_cast<float>(std::fabs(kept[i] - centre));
        sigma = 1.4826 * Median(dev);
        if (sigma <= 0)
            break;
        std::vector<float> next;
        next.reserve(residual.size());
        for (float v : residual)
            if (std::fabs(v - centre) <= 3 * sigma)
                next.push_back(v);
        if (next.size() == kept.size())
            break;
        kept.swap(next);
    }
    return sigma;
}

bool FitMoffat(const float* image, int width, int height, double x, double y, int radius,
               double fwhmGuess, double* fwhm, double* cx, double* cy) {
    const int ix = static_cast<int>(std::lround(x)), iy = static_cast<int>(std::lround(y));
    if (ix - radius < 0 || iy - radius < 0 || ix + radius >= width || iy + radius >= height)
        return false;
    const int side = 2 * radius + 1;
    std::vector<double> data(static_cast<std::size_t>(side) * side);
    std::vector<float> border;
    double peak = -1e30;
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) {
            const double v =
                image[static_cast<std::size_t>(iy - radius + j) * width + ix - radius + i];
            data[static_cast<std::size_t>(j) * side + i] = v;
            if (i == 0 || j == 0 || i == side - 1 || j == side - 1)
                border.push_back(static_cast<float>(v));
            peak = std::max(peak, v);
        }
    // p: background, amplitude, x, y, log alpha, log (beta - 1); x and y relative to (ix, iy).
    double p[6] = {Median(border), 0, x - ix, y - iy, std::log(MoffatAlpha(fwhmGuess)),
                   std::log(2.0)};
    p[1] = peak - p[0];
    if (p[1] <= 0)
        return false;

    auto evaluate = [&](const double* q, std::array<double, 6>* jac, double* chi2) {
        const double alpha = std::exp(q[4]), beta = 1 + std::exp(q[5]);
        const double ia2 = 1 / (alpha * alpha);
        double sum = 0;
        for (int j = 0; j < side; ++j)
            for (int i = 0; i < side; ++i) {
                double f = 0, dfx = 0, dfy = 0, dfa = 0, dfb = 0;
                for (int sj = 0; sj < 3; ++sj)
                    for (int si = 0; si < 3; ++si) {
                        const double dx = (i - radius) + (si - 1) / 3.0 - q[2];
                        const double dy = (j - radius) + (sj - 1) / 3.0 - q[3];
                        const double qq = (dx * dx + dy * dy) * ia2;
                        const double u = 1 + qq;
                        const double lu = std::log(u);
                        const double v = std::exp(-beta * lu);
                        f += v;
                        const double g = v * beta / u * 2 * ia2;
                        dfx += g * dx;
                        dfy += g * dy;
                        dfa += v * beta * 2 * qq / u;
                        dfb += -lu * v * (beta - 1);
                    }
                f /= 9;
                const std::size_t k = static_cast<std::size_t>(j) * side + i;
                const double r = data[k] - (q[0] + q[1] * f);
                sum += r * r;
                if (jac) {
                    double* d = jac[k].data();
                    d[0] = 1;
                    d[1] = f;
                    d[2] = q[1] * dfx / 9;
                    d[3] = q[1] * dfy / 9;
                    d[4] = q[1] * dfa / 9;
                    d[5] = q[1] * dfb / 9;
                }
            }
        *chi2 = sum;
    };

    std::vector<std::array<double, 6>> jac(static_cast<std::size_t>(side) * side);
    double chi2 = 0;
    evaluate(p, jac.data(), &chi2);
    double lambda = 1e-3;
    for (int iteration = 0; iteration < 60; ++iteration) {
        double a[6][6] = {}, b[6] = {};
        // The residuals of the current model: its profile column is the Jacobian's second.
        for (std::size_t k = 0; k < data.size(); ++k) {
            const double r = data[k] - (p[0] + p[1] * jac[k][1]);
            for (int m = 0; m < 6; ++m) {
                b[m] += jac[k][m] * r;
                for (int n = 0; n <= m; ++n)
                    a[m][n] += jac[k][m] * jac[k][n];
            }
        }
        for (int m = 0; m < 6; ++m)
            for (int n = m + 1; n < 6; ++n)
                a[m][n] = a[n][m];
        bool improved = false;
        for (int tries = 0; tries < 12 && !improved; ++tries) {
            double aa[6][6], bb[6], step[6];
            for (int m = 0; m < 6; ++m) {
                for (int n = 0; n < 6; ++n)
                    aa[m][n] = a[m][n];
                aa[m][m] *= 1 + lambda;
                bb[m] = b[m];
            }
            if (!Solve6(aa, bb, step))
                return false;
            double trial[6];
            for (int m = 0; m < 6; ++m)
                trial[m] = p[m] + step[m];
            trial[5] = std::clamp(trial[5], std::log(0.05), std::log(20.0));
            trial[4] = std::clamp(trial[4], std::log(0.2), std::log(30.0));
            double trialChi2 = 0;
            evaluate(trial, nullptr, &trialChi2);
            if (trialChi2 < chi2) {
                const double gain = chi2 - trialChi2;
                std::copy(trial, trial + 6, p);
                evaluate(p, jac.data(), &chi2);
                lambda = std::max(lambda * 0.3, 1e-9);
                improved = true;
                if (gain <= 1e-12 * chi2)
                    iteration = 1000;
            } else {
                lambda *= 10;
            }
        }
        if (!improved)
            break;
    }
    const double alpha = std::exp(p[4]), beta = 1 + std::exp(p[5]);
    if (!(p[1] > 0) || std::fabs(p[2] - (x - ix)) > 2 || std::fabs(p[3] - (y - iy)) > 2)
        return false;
    *fwhm = MoffatFwhm(alpha, beta);
    *cx = ix + p[2];
    *cy = iy + p[3];
    return std::isfinite(*fwhm) && *fwhm > 0.5 && *fwhm < 2.0 * radius;
}

double SingleFrameSnr(const Truth& t, const StarTruth& star, int frame) {
    const FrameTruth& f = t.frames[static_cast<std::size_t>(frame)];
    double x, y;
    f.transform.Apply(star.x, star.y, &x, &y);
    const double flux = star.flux * t.Vignetting(x, y);
    const double g = t.gain;
    const double perPixel =
        f.skyLevel / g + t.darkCurrent * t.exposure / g + t.readNoise * t.readNoise;
    const double variance = flux / g + kPi * f.fwhm * f.fwhm * perPixel;
    return variance > 0 ? flux / std::sqrt(variance) : 0;
}

double CornerError(const Truth& t, int frame, const Affine& estimate) {
    Affine truth;
    if (!t.frames[static_cast<std::size_t>(frame)].transform.Inverse(&truth))
        return INFINITY;
    const double w = t.width - 1, h = t.height - 1;
    const double corners[4][2] = {{0, 0}, {w, 0}, {0, h}, {w, h}};
    double worst = 0;
    for (const auto& c : corners) {
        double ax, ay, bx, by;
        estimate.Apply(c[0], c[1], &ax, &ay);
        truth.Apply(c[0], c[1], &bx, &by);
        worst = std::max(worst, std::hypot(ax - bx, ay - by));
    }
    return worst;
}

namespace {

/// Aperture flux minus the annulus median; false when the annulus leaves the image.
bool ApertureFlux(const float* image, int w, int h, double x, double y, double rAp, double rIn,
                  double rOut, double* flux) {
    const int r = static_cast<int>(std::ceil(rOut));
    const int ix = static_cast<int>(std::lround(x)), iy = static_cast<int>(std::lround(y));
    if (ix - r < 0 || iy - r < 0 || ix + r >= w || iy + r >= h)
        return false;
    double sum = 0;
    int n = 0;
    std::vector<float> ring;
    for (int yy = iy - r; yy <= iy + r; ++yy)
        for (int xx = ix - r; xx <= ix + r; ++xx) {
            const double d2 = (xx - x) * (xx - x) + (yy - y) * (yy - y);
            const float v = image[static_cast<std::size_t>(yy) * w + xx];
            if (d2 <= rAp * rAp) {
                sum += v;
                ++n;
            } else if (d2 >= rIn * rIn && d2 <= rOut * rOut) {
                ring.push_back(v);
            }
        }
    if (ring.size() < 8)
        return false;
    *flux = sum - n * Median(ring);
    return true;
}

} // namespace

bool Measure(const Truth& t, const MeasureRequest& req, MeasureResult* result, std::string* error) {
    *result = MeasureResult();
    const int frames = static_cast<int>(t.frames.size());
    if (req.frame < 0 || req.frame >= frames) {
        *error = "frame " + std::to_string(req.frame) + " is not in the truth (0 to " +
                 std::to_string(frames - 1) + ")";
        return false;
    }
    if (req.reference && (req.referenceFrame < 0 || req.referenceFrame >= frames)) {
        *error = "reference frame " + std::to_string(req.referenceFrame) + " is not in the truth";
        return false;
    }
    const int w = t.width, h = t.height;
    const double maxFwhm = MaxFwhm(t);
    const double alpha = MoffatAlpha(maxFwhm);
    double maxFlux = 0;
    for (const StarTruth& s : t.stars)
        maxFlux = std::max(maxFlux, s.flux);
    const double maxReach = std::min(200.0, Reach(maxFlux, alpha, 1.0));

    if (req.image) {
        const double noise = RobustNoise(t, req.frame, req.image);
        result->noise = noise;
        const std::vector<FrameStar> stars = StarsInFrame(t, req.frame);
        const StarGrid grid(stars, 32);

        // FWHM.
        const int radius = static_cast<int>(std::ceil(2.5 * maxFwhm)) + 1;
        std::vector<int> order(stars.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = static_cast<int>(i);
        std::sort(order.begin(), order.end(), [&](int a, int b) {
            return stars[static_cast<std::size_t>(a)].flux >
                   stars[static_cast<std::size_t>(b)].flux;
        });
        std::vector<float> widths;
        const double frameAlpha = MoffatAlpha(t.frames[static_cast<std::size_t>(req.frame)].fwhm);
        for (int i : order) {
            if (widths.size() >= 40)
                break;
            const FrameStar& s = stars[static_cast<std::size_t>(i)];
            if (s.saturated || s.x < radius + 1 || s.y < radius + 1 || s.x > w - radius - 2 ||
                s.y > h - radius - 2)
                continue;
            if (MoffatPeak(s.flux, frameAlpha) * t.Vignetting(s.x, s.y) < 30 * noise)
                break; // the rest are fainter still
            if (!Isolated(stars, grid, i, radius * 1.5, alpha, maxReach))
                continue;
            double f, fx, fy;
            if (FitMoffat(req.image, w, h, s.x, s.y, radius, maxFwhm, &f, &fx, &fy))
                widths.push_back(static_cast<float>(f));
        }
        result->fwhmStars = static_cast<int>(widths.size());
        if (!widths.empty())
            result->fwhm = Median(widths);

        // Completeness and position error.
        if (req.stars) {
            std::vector<FrameStar> listed;
            for (const StarPoint& p : *req.stars)
                listed.push_back({p.x, p.y, 0, false, 0});
            const StarGrid listedGrid(listed, 16);
            std::vector<std::uint8_t> used(listed.size(), 0);
            int eligible = 0, matched = 0;
            double sum2 = 0;
            for (int i : order) {
                const FrameStar& s = stars[static_cast<std::size_t>(i)];
                if (s.x < 0 || s.y < 0 || s.x > w - 1 || s.y > h - 1)
                    continue;
                if (SingleFrameSnr(t, t.stars[static_cast<std::size_t>(s.index)], req.frame) <= 20)
                    continue;
                ++eligible;
                int best = -1;
                double bestD = 1e30;
                listedGrid.Near(s.x, s.y, 1.5, [&](int j, double d) {
                    if (!used[static_cast<std::size_t>(j)] && d < bestD) {
                        bestD = d;
                        best = j;
                    }
                });
                if (best >= 0) {
                    used[static_cast<std::size_t>(best)] = 1;
                    ++matched;
                    sum2 += bestD * bestD;
                }
            }
            result->eligibleStars = eligible;
            result->matchedStars = matched;
            if (eligible)
                result->completeness = static_cast<double>(matched) / eligible;
            if (matched)
                result->positionError = std::sqrt(sum2 / matched);
        }

        // SNR gain over the reference.
        if (req.reference) {
            const double refNoise = RobustNoise(t, req.referenceFrame, req.reference);
            const std::vector<FrameStar> refStars = StarsInFrame(t, req.referenceFrame);
            const double rAp = 1.5 * maxFwhm, rIn = rAp + 3, rOut = rAp + 8;
            const double refAlpha =
                MoffatAlpha(t.frames[static_cast<std::size_t>(req.referenceFrame)].fwhm);
            double sImage = 0, sRef = 0;
            int used = 0;
            for (int i : order) {
                if (used >= 200)
                    break;
                const FrameStar& s = stars[static_cast<std::size_t>(i)];
                const FrameStar& r = refStars[static_cast<std::size_t>(i)];
                if (s.saturated)
                    continue;
                if (MoffatPeak(s.flux, refAlpha) * t.Vignetting(r.x, r.y) < 10 * refNoise)
                    break;
                if (!Isolated(stars, grid, i, rOut, alpha, maxReach))
                    continue;
                double fi, fr;
                if (!ApertureFlux(req.image, w, h, s.x, s.y, rAp, rIn, rOut, &fi) ||
                    !ApertureFlux(req.reference, w, h, r.x, r.y, rAp, rIn, rOut, &fr))
                    continue;
                sImage += fi;
                sRef += fr;
                ++used;
            }
            result->snrStars = used;
            if (used && noise > 0 && refNoise > 0 && sRef > 0)
                result->snrGain = (sImage / noise) / (sRef / refNoise);
        }
    }
    if (req.transform)
        result->cornerError = CornerError(t, req.frame, *req.transform);
    return true;
}

bool ReadStarList(const std::string& path, std::vector<StarPoint>* stars, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot open " + path;
        return false;
    }
    stars->clear();
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        const std::size_t hash = line.find('#');
        if (hash != std::string::npos)
            line.erase(hash);
        std::istringstream ss(line);
        StarPoint p;
        std::string extra;
        if (!(ss >> p.x)) {
            if (line.find_first_not_of(" \t\r") == std::string::npos)
                continue;
            *error = path + ":" + std::to_string(number) + ": expected \"x y\"";
            return false;
        }
        if (!(ss >> p.y)) {
            *error = path + ":" + std::to_string(number) + ": expected \"x y\"";
            return false;
        }
        stars->push_back(p);
    }
    return true;
}

bool ParseAffine(const std::string& text, Affine* out) {
    Affine a;
    const char* s = text.c_str();
    for (int i = 0; i < 6; ++i) {
        char* end = nullptr;
        a.m[i] = std::strtod(s, &end);
        if (end == s)
            return false;
        s = end;
        while (*s == ' ')
            ++s;
        if (i < 5) {
            if (*s != ',')
                return false;
            ++s;
        }
    }
    if (*s)
        return false;
    *out = a;
    return true;
}

namespace {

struct Field {
    const char* name;
    const std::optional<double>* value;
};

} // namespace

std::string MeasureToJson(const MeasureResult& r) {
    JsonWriter w(0);
    w.BeginObject();
    const Field fields[] = {{"noise", &r.noise},
                            {"snrGain", &r.snrGain},
                            {"fwhm", &r.fwhm},
                            {"completeness", &r.completeness},
                            {"positionError", &r.positionError},
                            {"cornerError", &r.cornerError}};
    for (const Field& f : fields) {
        w.Key(f.name);
        if (*f.value)
            w.Number(**f.value);
        else
            w.Null();
    }
    w.Key("fwhmStars").Integer(r.fwhmStars);
    w.Key("snrStars").Integer(r.snrStars);
    w.Key("eligibleStars").Integer(r.eligibleStars);
    w.Key("matchedStars").Integer(r.matchedStars);
    w.EndObject();
    return w.Text() + "\n";
}

std::string MeasureToText(const MeasureResult& r) {
    std::string out;
    auto line = [&](const char* name, const std::optional<double>& v, const char* extra) {
        char buf[128];
        if (v)
            std::snprintf(buf, sizeof buf, "%-14s %.6g%s\n", name, *v, extra);
        else
            std::snprintf(buf, sizeof buf, "%-14s -\n", name);
        out += buf;
    };
    std::string fwhmNote = "  (" + std::to_string(r.fwhmStars) + " stars)";
    std::string snrNote = "  (" + std::to_string(r.snrStars) + " stars)";
    std::string matchNote = "  (" + std::to_string(r.matchedStars) + " of " +
                            std::to_string(r.eligibleStars) + " stars)";
    line("noise", r.noise, "");
    line("snrGain", r.snrGain, snrNote.c_str());
    line("fwhm", r.fwhm, fwhmNote.c_str());
    line("completeness", r.completeness, matchNote.c_str());
    line("positionError", r.positionError, "");
    line("cornerError", r.cornerError, "");
    return out;
}

} // namespace astrivelle::synth
