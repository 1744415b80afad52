// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Synthetic planetary video frames: scene building, per-frame rendering, seeing blur,
/// noise and the SER sample layouts.
#include "tools/synth/PlanetScene.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numeric>

#include "engine/Parallel.h"
#include "tools/synth/SerFile.h"

namespace astrivelle::synth {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kBackground = 0.02;

/// Channel (0 R, 1 G, 2 B) of the site at row parity `py`, column parity `px`, per SER
/// Bayer id; -1 for a mode that is not a mosaic.
int BayerChannel(int colorId, int py, int px) {
    static const int kCells[4][2][2] = {
        {{0, 1}, {1, 2}}, // 8  "RG,GB"
        {{1, 0}, {2, 1}}, // 9  "GR,BG"
        {{1, 2}, {0, 1}}, // 10 "GB,RG"
        {{2, 1}, {1, 0}}, // 11 "BG,GR"
    };
    if (colorId < SerBayerRGGB || colorId > SerBayerBGGR)
        return -1;
    return kCells[colorId - SerBayerRGGB][py][px];
}

double Smooth(double edgeDistance, double width) {
    return 0.5 - 0.5 * std::tanh(edgeDistance / width);
}

/// Catmull-Rom weights for a fraction t in [0, 1).
void CubicWeights(double t, double w[4]) {
    const double t2 = t * t, t3 = t2 * t;
    w[0] = 0.5 * (-t3 + 2 * t2 - t);
    w[1] = 0.5 * (3 * t3 - 5 * t2 + 2);
    w[2] = 0.5 * (-3 * t3 + 4 * t2 + t);
    w[3] = 0.5 * (t3 - t2);
}

/// Sum of exp(i 2 pi f k) over k = 0..n-1.
std::complex<double> GeometricSum(double f, int n) {
    const std::complex<double> step = std::polar(1.0, 2 * kPi * f);
    if (std::abs(1.0 - step) < 1e-12)
        return n;
    return (1.0 - std::pow(step, n)) / (1.0 - step);
}

/// Mean of cos(2 pi (fx x + fy y) + phase) over the pixels of a w x h frame.
double FrameMeanOfCos(double fx, double fy, double phase, int w, int h) {
    const std::complex<double> sum =
        std::polar(1.0, phase) * GeometricSum(fx, w) * GeometricSum(fy, h);
    return sum.real() / (static_cast<double>(w) * h);
}

} // namespace

PlanetScene::PlanetScene(const PlanetSettings& settings) : settings_(settings) {
    const int w = settings_.width, h = settings_.height;
    const double minDim = std::min(w, h);
    cx_ = 0.5 * w;
    cy_ = 0.5 * h;
    radius_ = 0.3 * minDim;
    jitterBound_ = std::clamp(0.04 * minDim, 1.0, 6.0);
    planes_ = settings_.colorId == SerMono ? 1 : 3;

    // Motion, seeing and local warps, frame by frame from one sequence so that the same seed
    // gives the same frames whatever the scene type.
    Random rng(settings_.seed);
    double dx = rng.Uniform(-0.5, 0.5), dy = rng.Uniform(-0.5, 0.5);
    truth_.resize(settings_.frames);
    for (int i = 0; i < settings_.frames; ++i) {
        if (i > 0) {
            dx = std::clamp(0.85 * dx + 0.25 * jitterBound_ * rng.Normal(), -jitterBound_,
                            jitterBound_);
            dy = std::clamp(0.85 * dy + 0.25 * jitterBound_ * rng.Normal(), -jitterBound_,
                            jitterBound_);
        }
        PlanetFrameTruth& t = truth_[i];
        t.index = i;
        t.dx = dx;
        t.dy = dy;
        t.blurSigma = rng.Uniform(settings_.blurMin, settings_.blurMax);
        for (int k = 0; k < 6; ++k) {
            PlanetWarpWave wave;
            wave.axis = k % 2;
            wave.amplitude = rng.Uniform(0.2, 0.45);
            const double wavelength = rng.Uniform(80, 240);
            const double angle = rng.Uniform(0, 2 * kPi);
            wave.fx = std::cos(angle) / wavelength;
            wave.fy = std::sin(angle) / wavelength;
            wave.phase = rng.Uniform(0, 2 * kPi);
            if (settings_.lunar) {
                t.warp.push_back(wave);
                (wave.axis == 0 ? t.warpMeanX : t.warpMeanY) +=
                    wave.amplitude * FrameMeanOfCos(wave.fx, wave.fy, wave.phase, w, h);
            }
        }
    }
    std::vector<int> order(truth_.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [this](int a, int b) { return truth_[a].blurSigma < truth_[b].blurSigma; });
    for (std::size_t r = 0; r < order.size(); ++r)
        truth_[order[r]].sharpnessRank = static_cast<int>(r);

    Random scene = Random::Stream(settings_.seed, 1);
    if (settings_.lunar)
        BuildLunarWorld(scene);
    else
        BuildPlanet(scene);

    linear_.assign(planes_, std::vector<float>(static_cast<std::size_t>(w) * h));
    scratch_.assign(static_cast<std::size_t>(w) * h, 0.0f);
}

std::size_t PlanetScene::FrameSamples() const {
    const std::size_t n = static_cast<std::size_t>(settings_.width) * settings_.height;
    return settings_.colorId == SerRGB || settings_.colorId == SerBGR ? 3 * n : n;
}

void PlanetScene::BuildPlanet(Random& rng) {
    // Belts (dark bands) at fixed places of a Jupiter-like disk, each nudged, with wavy edges.
    const double centres[] = {-0.78, -0.55, -0.30, 0.20, 0.46, 0.72};
    for (double c : centres) {
        Band b;
        b.centre = c + rng.Uniform(-0.04, 0.04);
        b.halfWidth = rng.Uniform(0.04, 0.09);
        b.depth = rng.Uniform(0.25, 0.45);
        b.wave = rng.Uniform(0.005, 0.02);
        b.waveFreq = std::floor(rng.Uniform(3, 10));
        b.wavePhase = rng.Uniform(0, 2 * kPi);
        bands_.push_back(b);
    }
    spot_.lat = 0.34 + rng.Uniform(-0.02, 0.02);
    spot_.lon = rng.Uniform(-0.5, 0.5);
    spot_.a = 0.17;
    spot_.b = 0.075;
}

std::array<double, 3> PlanetScene::PlanetAt(double u, double v) const {
    const double rho2 = (u * u + v * v) / (radius_ * radius_);
    if (rho2 >= 1)
        return {kBackground, kBackground, kBackground * 1.2};
    const double mu = std::sqrt(1 - rho2);
    const double s = v / radius_; // sine of the latitude
    const double c = std::sqrt(std::max(1e-12, 1 - s * s));
    const double lon = std::asin(std::clamp(u / radius_ / c, -1.0, 1.0));
    double belt = 0;
    for (const Band& b : bands_) {
        const double off = s - b.centre - b.wave * std::sin(b.waveFreq * lon + b.wavePhase);
        belt = std::max(belt, b.depth * Smooth(std::abs(off) - b.halfWidth, 0.01));
    }
    // Fine streaks and festoons give every frame detail for sharpness measures: some scale
    // with the disk, some are a few pixels across whatever its size.
    const double detail = 1 + 0.05 * std::sin(s * 61 + 1.3) * std::sin(lon * 13 + 0.7) +
                          0.03 * std::sin(s * 140 + 5 * lon) +
                          0.1 * std::sin(2 * kPi * v / 6 + 1.2 * std::sin(2 * kPi * u / 23)) *
                              (0.6 + 0.4 * std::sin(2 * kPi * u / 37 + 3 * s));
    const double zone[3] = {0.95, 0.90, 0.80};
    const double dark[3] = {0.55, 0.40, 0.30};
    double rgb[3];
    for (int k = 0; k < 3; ++k)
        rgb[k] = (zone[k] * (1 - belt) + dark[k] * belt) * detail;
    const double e = std::sqrt(std::pow((lon - spot_.lon) / spot_.a, 2) +
                               std::pow((s - spot_.lat) / spot_.b, 2));
    const double inSpot = 0.85 * Smooth(e - 1, 0.08);
    const double collar = 0.12 * std::exp(-std::pow((e - 1.2) / 0.12, 2));
    const double spotRgb[3] = {0.88, 0.50, 0.38};
    const double limb = 1 - 0.55 * (1 - mu);
    std::array<double, 3> out;
    for (int k = 0; k < 3; ++k)
        out[k] = kBackground +
                 0.85 * limb * ((rgb[k] * (1 - inSpot) + spotRgb[k] * inSpot) + collar * zone[k]);
    return out;
}

void PlanetScene::RenderPlanetPlanes(const PlanetFrameTruth& t) {
    const int w = settings_.width;
    const double outer = 1 + 2 / radius_, limbBand = 1.5 / radius_;
    ParallelRows(settings_.height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                const double u = x - cx_ - t.dx, v = y - cy_ - t.dy;
                const double rho = std::sqrt(u * u + v * v) / radius_;
                std::array<double, 3> rgb{kBackground, kBackground, kBackground * 1.2};
                if (std::abs(rho - 1) < limbBand) {
                    // 4x4 samples across the pixel where the limb cuts it.
                    rgb = {0, 0, 0};
                    for (int j = 0; j < 4; ++j)
                        for (int i = 0; i < 4; ++i) {
                            const auto s =
                                PlanetAt(u + (i + 0.5) / 4 - 0.5, v + (j + 0.5) / 4 - 0.5);
                            for (int k = 0; k < 3; ++k)
                                rgb[k] += s[k] / 16;
                        }
                } else if (rho < outer) {
                    rgb = PlanetAt(u, v);
                }
                const std::size_t at = static_cast<std::size_t>(y) * w + x;
                if (planes_ == 1) {
                    linear_[0][at] =
                        static_cast<float>(0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]);
                } else {
                    for (int k = 0; k < 3; ++k)
                        linear_[k][at] = static_cast<float>(rgb[k]);
                }
            }
    });
}

void PlanetScene::BuildLunarWorld(Random& rng) {
    const int w = settings_.width, h = settings_.height;
    margin_ = static_cast<int>(std::ceil(jitterBound_)) + 6;
    worldW_ = w + 2 * margin_;
    worldH_ = h + 2 * margin_;
    const std::size_t n = static_cast<std::size_t>(worldW_) * worldH_;
    std::vector<float> height(n, 0.0f), albedo(n, 0.0f);

    // Maria: a few broad waves of albedo; regolith: a fixed fine grain.
    double wave[4][4];
    for (auto& wv : wave) {
        const double angle = rng.Uniform(0, 2 * kPi), len = rng.Uniform(150, 500);
        wv[0] = std::cos(angle) / len;
        wv[1] = std::sin(angle) / len;
        wv[2] = rng.Uniform(0, 2 * kPi);
        wv[3] = rng.Uniform(0.03, 0.06);
    }
    for (int y = 0; y < worldH_; ++y)
        for (int x = 0; x < worldW_; ++x) {
            double a = 0.45;
            for (const auto& wv : wave)
                a += wv[3] * std::sin(2 * kPi * (wv[0] * x + wv[1] * y) + wv[2]);
            albedo[static_cast<std::size_t>(y) * worldW_ + x] =
                static_cast<float>(a * (1 + 0.03 * rng.Normal()));
        }

    // Craters of many sizes, small ones far more common: a bowl inside the radius and a
    // raised rim around it; fresh ones have a bright rim.
    const double rMin = 1.5, rMax = std::max(3.0, 0.12 * std::min(w, h));
    const int count = static_cast<int>(n / 300) + 4;
    for (int c = 0; c < count; ++c) {
        const double x0 = rng.Uniform(0, worldW_), y0 = rng.Uniform(0, worldH_);
        // The count of craters above a radius r falls as r^-1.6.
        const double r =
            rMin * std::pow(1 - rng.Uniform() * (1 - std::pow(rMin / rMax, 1.6)), -1 / 1.6);
        const double depth = 0.2 * r, rim = 0.05 * r;
        const double fresh = rng.Uniform() < 0.3 ? rng.Uniform(0.1, 0.25) : 0.0;
        const int xa = std::max(0, static_cast<int>(x0 - 2 * r)),
                  xb = std::min(worldW_ - 1, static_cast<int>(x0 + 2 * r) + 1);
        const int ya = std::max(0, static_cast<int>(y0 - 2 * r)),
                  yb = std::min(worldH_ - 1, static_cast<int>(y0 + 2 * r) + 1);
        for (int y = ya; y <= yb; ++y)
            for (int x = xa; x <= xb; ++x) {
                const double t = std::hypot(x - x0, y - y0) / r;
                if (t >= 2)
                    continue;
                const std::size_t at = static_cast<std::size_t>(y) * worldW_ + x;
                const double ring = std::exp(-std::pow((t - 1) / 0.18, 2));
                height[at] += static_cast<float>((t < 1 ? depth * (t * t - 1) : 0) + rim * ring);
                albedo[at] *= static_cast<float>(1 + fresh * ring);
            }
    }

    // Light from the left: slopes rising to the right are lit.
    world_.assign(n, 0.0f);
    for (int y = 0; y < worldH_; ++y)
        for (int x = 0; x < worldW_; ++x) {
            const std::size_t at = static_cast<std::size_t>(y) * worldW_ + x;
            const int xl = std::max(0, x - 1), xr = std::min(worldW_ - 1, x + 1);
            const double gx = (height[static_cast<std::size_t>(y) * worldW_ + xr] -
                               height[static_cast<std::size_t>(y) * worldW_ + xl]) /
                              (xr - xl);
            const double shade = std::clamp(0.8 + 1.6 * gx, 0.05, 1.6);
            world_[at] = static_cast<float>(std::clamp(albedo[at] * shade * 1.1, 0.0, 0.97));
        }
}

void PlanetScene::RenderLunarPlanes(const PlanetFrameTruth& t) {
    const int w = settings_.width;
    const double tint[3] = {1.0, 0.96, 0.90};
    ParallelRows(settings_.height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            for (int x = 0; x < w; ++x) {
                // The content at this pixel came from (x, y) minus the shift and the warp.
                double sx = x - t.dx + t.warpMeanX + margin_, sy = y - t.dy + t.warpMeanY + margin_;
                for (const PlanetWarpWave& wv : t.warp) {
                    const double d =
                        wv.amplitude * std::cos(2 * kPi * (wv.fx * x + wv.fy * y) + wv.phase);
                    (wv.axis == 0 ? sx : sy) -= d;
                }
                const int ix = static_cast<int>(std::floor(sx)),
                          iy = static_cast<int>(std::floor(sy));
                double wx[4], wy[4];
                CubicWeights(sx - ix, wx);
                CubicWeights(sy - iy, wy);
                double v = 0;
                for (int j = 0; j < 4; ++j) {
                    const int yy = std::clamp(iy - 1 + j, 0, worldH_ - 1);
                    const float* row = world_.data() + static_cast<std::size_t>(yy) * worldW_;
                    for (int i = 0; i < 4; ++i)
                        v += wy[j] * wx[i] * row[std::clamp(ix - 1 + i, 0, worldW_ - 1)];
                }
                v = std::max(0.0, v);
                const std::size_t at = static_cast<std::size_t>(y) * w + x;
                for (int k = 0; k < planes_; ++k)
                    linear_[k][at] = static_cast<float>(planes_ == 1 ? v : v * tint[k]);
            }
    });
}

void PlanetScene::Blur(std::vector<float>& plane, double sigma) {
    const int w = settings_.width, h = settings_.height;
    const int radius = std::max(1, static_cast<int>(std::ceil(3.5 * sigma)));
    std::vector<float> kernel(2 * radius + 1);
    double sum = 0;
    for (int k = -radius; k <= radius; ++k)
        sum += kernel[k + radius] = static_cast<float>(std::exp(-0.5 * k * k / (sigma * sigma)));
    for (float& k : kernel)
        k = static_cast<float>(k / sum);
    const float* kern = kernel.data() + radius;
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* src = plane.data() + static_cast<std::size_t>(y) * w;
            float* dst = scratch_.data() + static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                float acc = 0;
                for (int k = -radius; k <= radius; ++k)
                    acc += kern[k] * src[std::clamp(x + k, 0, w - 1)];
                dst[x] = acc;
            }
        }
    });
    ParallelRows(h, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* dst = plane.data() + static_cast<std::size_t>(y) * w;
            std::fill(dst, dst + w, 0.0f);
            for (int k = -radius; k <= radius; ++k) {
                const float* src =
                    scratch_.data() + static_cast<std::size_t>(std::clamp(y + k, 0, h - 1)) * w;
                const float wk = kern[k];
                for (int x = 0; x < w; ++x)
                    dst[x] += wk * src[x];
            }
        }
    });
}

const std::vector<std::vector<float>>& PlanetScene::RenderLinear(int index) {
    const PlanetFrameTruth& t = truth_.at(index);
    if (settings_.lunar)
        RenderLunarPlanes(t);
    else
        RenderPlanetPlanes(t);
    for (auto& plane : linear_)
        Blur(plane, t.blurSigma);
    return linear_;
}

void PlanetScene::RenderFrame(int index, std::vector<std::uint16_t>* samples) {
    RenderLinear(index);
    const int w = settings_.width, colorId = settings_.colorId;
    const double top = std::ldexp(1.0, settings_.depth) - 1;
    const double noise = settings_.noise;
    const std::uint64_t seed = settings_.seed;
    const std::uint64_t height = static_cast<std::uint64_t>(settings_.height);
    samples->resize(FrameSamples());
    std::uint16_t* out = samples->data();
    const bool rgb = colorId == SerRGB || colorId == SerBGR;
    ParallelRows(settings_.height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            // One noise stream per frame row keeps the result independent of the scheduling.
            Random rng = Random::Stream(seed, 1000 + static_cast<std::uint64_t>(index) * height +
                                                  static_cast<std::uint64_t>(y));
            auto quantise = [&](double v) {
                const double sd = noise * std::sqrt(1.6e-5 + 1e-4 * std::max(0.0, v));
                const double q = std::floor((v + sd * rng.Normal()) * top + 0.5);
                return static_cast<std::uint16_t>(std::clamp(q, 0.0, top));
            };
            const std::size_t row = static_cast<std::size_t>(y) * w;
            for (int x = 0; x < w; ++x) {
                if (rgb) {
                    for (int k = 0; k < 3; ++k) {
                        const int ch = colorId == SerRGB ? k : 2 - k;
                        out[3 * (row + x) + k] = quantise(linear_[ch][row + x]);
                    }
                } else {
                    const int ch = planes_ == 1 ? 0 : BayerChannel(colorId, y & 1, x & 1);
                    out[row + x] = quantise(linear_[ch][row + x]);
                }
            }
        }
    });
}

} // namespace astrivelle::synth
