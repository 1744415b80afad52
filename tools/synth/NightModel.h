// SPDX-License-Identifier: GPL-3.0-or-later
/// \file A synthetic night: one star field seen through a camera with vignetting, pixel
/// response spread, dark current with hot pixels, a bias with a column pattern, read noise
/// and photon noise, as light, dark, flat, flat dark and bias frames with their ground truth.
/// All values are ADU on the 0..65535 scale. The same seed gives the same bytes whatever the
/// number of threads: every row draws from its own stream.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/synth/CfaPattern.h"
#include "tools/synth/TruthFile.h"

namespace astrivelle::synth {

struct NightConfig {
    std::uint64_t seed = 1;
    int frames = 8;
    int width = 1500;
    int height = 1000;
    std::string bayer = "MONO";
    bool motion = true;
    int darks = 4, flats = 4, flatDarks = 4, bias = 4;
    std::string format = "fits16"; ///< fits16, fits32 or tiff16
    bool meridianFlip = false;     ///< the middle frame turned by 180 degrees
    bool mirror = false;           ///< one frame mirrored left to right
    bool trail = false;            ///< a satellite trail across one frame
    bool compress = false;         ///< Rice-compressed FITS
    double exposure = 60;          ///< s
    int stars = -1;                ///< -1: about 2000 per 1500x1000 of sky
    bool noiseless = false;        ///< no read, photon or dark noise (fixed patterns stay)
    double flatLevel = 25000;
    double flatExposure = 2;
    double skyLevel = -1; ///< ADU at the centre of frame 0; -1: 800 per minute
    double skyColor[3] = {1.1, 1.0, 0.85};
};

/// Which parts make up a rendered light frame (tests take them apart).
struct LightParts {
    bool stars = true;
    bool sky = true;      ///< sky background and the trail
    bool sensor = true;   ///< bias, column pattern and dark current
    bool noise = true;    ///< photon and read noise (off anyway for a noiseless night)
    bool response = true; ///< vignetting and pixel response
};

enum class CalibrationKind { Dark, Flat, FlatDark, Bias };

/// False with a text when a configuration cannot be built (a usage error).
bool CheckNightConfig(const NightConfig& config, std::string* error);

class NightModel {
public:
    /// Draws the truth and the sensor maps; false with a text for a bad configuration.
    bool Build(const NightConfig& config, std::string* error);

    const Truth& truth() const { return truth_; }
    const NightConfig& config() const { return config_; }
    const CfaPattern& cfa() const { return cfa_; }

    /// Renders light frame `frame` into `plane` (width x height floats).
    void RenderLight(int frame, float* plane, const LightParts& parts = {}) const;
    /// Renders calibration frame `index` of a kind into `plane`.
    void RenderCalibration(CalibrationKind kind, int index, float* plane) const;

    /// Vignetting times pixel response at a pixel.
    float Response(int x, int y) const {
        return response_[static_cast<std::size_t>(y) * truth_.width + x];
    }
    float DarkRate(int x, int y) const {
        return darkRate_[static_cast<std::size_t>(y) * truth_.width + x];
    }
    float ColumnOffset(int x) const { return column_[static_cast<std::size_t>(x)]; }

private:
    struct Splat {
        float x, y; ///< frame pixel coordinates
        float peak; ///< central intensity, ADU
        int x0, x1, y0, y1;
        float weight[4][2]; ///< share of the star's light at each site of the cell
    };
    void RenderRows(int frame, CalibrationKind kind, bool light, float* plane,
                    const LightParts& parts) const;
    void CellWeights(const double rgb[3], float out[4][2]) const;

    NightConfig config_;
    Truth truth_;
    CfaPattern cfa_;
    std::vector<float> response_;
    std::vector<float> darkRate_;
    std::vector<float> column_;
};

/// Progress of WriteNight: called with the number of files written and the total.
using NightProgress = std::function<void(int done, int total)>;

/// Builds the night and writes DIR/lights, darks, flats, flatdarks, bias and truth.json.
bool WriteNight(const NightConfig& config, const std::string& dir, std::string* error,
                const NightProgress& progress = {});

} // namespace astrivelle::synth
