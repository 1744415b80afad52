// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Synthetic planetary video frames with known motion and seeing: a banded planet disk
/// or a cratered lunar surface, shifted by a random walk, blurred by a per-frame Gaussian
/// whose sigma is recorded, mosaicked or interleaved per SER colour mode, with noise.
#pragma once
#include <array>
#include <cstdint>
#include <vector>

#include "tools/synth/Random.h"

namespace astrivelle::synth {

struct PlanetSettings {
    std::uint64_t seed = 1;
    int frames = 100;
    int width = 640;
    int height = 480;
    int colorId = 0; ///< a SerColor value
    int depth = 8;   ///< 8 or 16 bits per sample
    bool lunar = false;
    double noise = 1;                    ///< multiplies the noise; 0 gives noise-free frames
    double blurMin = 0.5, blurMax = 3.0; ///< range of the per-frame seeing sigma, pixels
};

/// One wave of a lunar frame's local displacement field: the field at (x, y) adds
/// amplitude * cos(2 pi (fx x + fy y) + phase) to the x (axis 0) or y (axis 1) displacement.
/// The frame's waves minus their mean over the frame's pixels (warpMeanX, warpMeanY) move
/// the content at (x, y) beyond the global (dx, dy); on average over the frame they move
/// nothing, so (dx, dy) stays the frame's global shift.
struct PlanetWarpWave {
    int axis = 0;
    double amplitude = 0, fx = 0, fy = 0, phase = 0;
};

/// What is known about one frame. The scene content moves by (dx, dy) pixels: the planet's
/// centre in frame i is (centreX + dx, centreY + dy), x right and y down, with pixel centres
/// at whole numbers.
struct PlanetFrameTruth {
    int index = 0;
    double dx = 0, dy = 0;
    double blurSigma = 0;
    int sharpnessRank = 0;            ///< 0 = the sharpest (smallest blurSigma)
    std::vector<PlanetWarpWave> warp; ///< lunar frames only
    double warpMeanX = 0, warpMeanY = 0;
};

class PlanetScene {
public:
    explicit PlanetScene(const PlanetSettings& settings);

    const PlanetSettings& Settings() const { return settings_; }
    const std::vector<PlanetFrameTruth>& Truth() const { return truth_; }
    /// Planet disk centre at zero shift and its radius, pixels.
    double CentreX() const { return cx_; }
    double CentreY() const { return cy_; }
    double Radius() const { return radius_; }
    /// Samples per frame: width*height, times 3 for RGB/BGR.
    std::size_t FrameSamples() const;

    /// Frame `index` as SER samples (mosaicked per the Bayer pattern, interleaved R,G,B or
    /// B,G,R, or mono), quantised to the depth with noise. Not thread safe: it uses the
    /// scene's scratch planes.
    void RenderFrame(int index, std::vector<std::uint16_t>* samples);

    /// The blurred, noise-free linear frame in [0, 1]: three planes for colour modes (R, G,
    /// B) or one for mono, each width*height.
    const std::vector<std::vector<float>>& RenderLinear(int index);

private:
    struct Band {
        double centre, halfWidth, depth, wave, waveFreq, wavePhase;
    };
    struct Spot {
        double lat, lon, a, b;
    };
    void BuildPlanet(Random& rng);
    void BuildLunarWorld(Random& rng);
    /// Planet radiance (R, G, B) at an offset (u, v) pixels from the disk centre.
    std::array<double, 3> PlanetAt(double u, double v) const;
    void RenderPlanetPlanes(const PlanetFrameTruth& t);
    void RenderLunarPlanes(const PlanetFrameTruth& t);
    void Blur(std::vector<float>& plane, double sigma);

    PlanetSettings settings_;
    std::vector<PlanetFrameTruth> truth_;
    int planes_ = 1; // planes rendered: 1 for mono, 3 otherwise
    double cx_ = 0, cy_ = 0, radius_ = 0, jitterBound_ = 0;
    std::vector<Band> bands_;
    Spot spot_{};
    int worldW_ = 0, worldH_ = 0, margin_ = 0;
    std::vector<float> world_; // lunar albedo-and-shading map
    std::vector<std::vector<float>> linear_;
    std::vector<float> scratch_;
};

} // namespace astrivelle::synth
