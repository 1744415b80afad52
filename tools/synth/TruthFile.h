// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The ground truth of a synthetic night as written to truth.json, and reading it back.
/// Sky coordinates are the pixel coordinates of light frame 0 (0-based, pixel centres at whole
/// numbers); each frame's transform maps them to that frame's pixels:
/// x' = m00 x + m01 y + m02, y' = m10 x + m11 y + m12.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle::synth {

/// A 2-D affine map in the 6-number form above.
struct Affine {
    double m[6] = {1, 0, 0, 0, 1, 0};
    void Apply(double x, double y, double* ox, double* oy) const {
        *ox = m[0] * x + m[1] * y + m[2];
        *oy = m[3] * x + m[4] * y + m[5];
    }
    /// The inverse map; false when singular.
    bool Inverse(Affine* out) const;
};

struct FrameTruth {
    int index = 0;
    std::string file; ///< relative to the night's folder
    double dx = 0, dy = 0;
    double rotationDeg = 0;
    std::string flip = "none";      ///< "none", "rot180" or "mirror"
    double fwhm = 2.5;              ///< of the star profile before pixel sampling, px
    double skyLevel = 0;            ///< ADU at the frame centre, before vignetting
    double skyGradient[2] = {0, 0}; ///< ADU per pixel along the frame's x and y
    Affine transform;
};

struct StarTruth {
    double x = 0, y = 0;
    double flux = 0;             ///< ADU summed over the profile, before vignetting
    bool saturated = false;      ///< the peak may reach 65535 in some light frame
    double color[3] = {1, 1, 1}; ///< red, green, blue shares (green 1)
};

struct HotPixelTruth {
    int x = 0, y = 0;
    double rate = 0; ///< ADU per second
};

struct Truth {
    std::uint64_t seed = 1;
    int width = 0, height = 0;
    std::vector<FrameTruth> frames;
    std::vector<StarTruth> stars;
    double skyLevel = 0;
    double skyGradient[2] = {0, 0};
    double skyColor[3] = {1, 1, 1};
    double vignetteCx = 0, vignetteCy = 0, vignetteR0 = 1; ///< V(r) = (1 + (r/r0)^2)^-2
    double prnuSigma = 0;                                  ///< relative pixel response spread
    double bias = 0;                                       ///< ADU, before the column pattern
    double columnSigma = 0;  ///< ADU spread of the fixed column offsets
    double readNoise = 0;    ///< ADU
    double gain = 1;         ///< electrons per ADU
    double darkCurrent = 0;  ///< ADU per second of an ordinary pixel
    double exposure = 0;     ///< s, lights and darks
    double flatLevel = 0;    ///< ADU of the flat field where vignetting is 1
    double flatExposure = 0; ///< s, flats and flat darks
    double ccdTemp = -10;
    std::string bayer = "MONO";
    std::string format = "fits16";
    bool noiseless = false;
    int trailFrame = -1;
    double trail[4] = {0, 0, 0, 0}; ///< x0, y0, x1, y1 of the trail in that frame's pixels
    double trailPeak = 0, trailSigma = 0;
    std::vector<HotPixelTruth> hotPixels;
    std::vector<std::string> darks, flats, flatDarks, biasFrames; ///< relative file names

    /// Vignetting at frame pixel (x, y).
    double Vignetting(double x, double y) const {
        const double dx = x - vignetteCx, dy = y - vignetteCy;
        const double q = 1.0 + (dx * dx + dy * dy) / (vignetteR0 * vignetteR0);
        return 1.0 / (q * q);
    }
};

/// The JSON text of a truth (stable key order).
std::string TruthToJson(const Truth& truth);
bool WriteTruth(const std::string& path, const Truth& truth, std::string* error);
/// Reads a truth.json; false with a reason when it cannot be read or lacks a field.
bool ReadTruth(const std::string& path, Truth* truth, std::string* error);
bool TruthFromJson(const std::string& text, Truth* truth, std::string* error);

} // namespace astrivelle::synth
