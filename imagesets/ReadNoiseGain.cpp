// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Read noise and gain by the photon transfer method.
#include "imagesets/ReadNoiseGain.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <new>

#include "calibration/CalibrationSetup.h"
#include "engine/Image.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace fs = std::filesystem;

double CountFactorOfAdc(int bits) {
    switch (bits) {
    case 8:
        return 256.0;
    case 10:
        return 64.0;
    case 12:
        return 16.0;
    case 14:
        return 4.0;
    case 16:
        return 1.0;
    default:
        return 0.0;
    }
}

namespace {

/// Divides a plane in place with Pixel Math over the whole range, no feather.
void DividePlane(float* plane, std::size_t count, double factor) {
    Image img;
    img.SetGeometryFits(KindFITS, ColorGray, 0, DataFloat, static_cast<std::int32_t>(count), 1);
    // The plane is borrowed: the image's own planes are put back before it goes.
    std::vector<float> prev(count);
    img.curPlane[2] = plane;
    img.prevPlane[2] = prev.data();
    img.PixelDivide(false, img.prevPlane[2], img.curPlane[2], factor, 0, 65535, 0);
    img.curPlane[2] = nullptr;
    img.prevPlane[2] = nullptr;
}

double Mean(const float* p, std::size_t n) {
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += p[i];
    return sum / static_cast<double>(n);
}

} // namespace

bool MeasurePair(float* a, float* b, std::size_t n, double countFactor, int pedestal,
                 PairMeasure* out) {
    if (n == 0)
        return false;
    if (countFactor != 1.0 && countFactor > 0) {
        DividePlane(a, n, countFactor);
        DividePlane(b, n, countFactor);
    }
    out->mean1 = Mean(a, n);
    out->mean2 = Mean(b, n);
    const float p = pedestal > 0 ? static_cast<float>(pedestal) : 0.0f;
    if (pedestal > 0) {
        out->mean1 -= static_cast<double>(pedestal) / static_cast<double>(n);
        out->mean2 -= static_cast<double>(pedestal) / static_cast<double>(n);
    }
    std::vector<float> diff;
    try {
        diff.resize(n);
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (std::size_t i = 0; i < n; ++i)
        diff[i] = (a[i] - p) - (b[i] - p);
    const double m = Mean(diff.data(), n);
    double ss = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double d = diff[i] - m;
        ss += d * d;
    }
    out->sigma = std::sqrt(ss / static_cast<double>(n));
    return true;
}

void GainAndReadNoise(const PairMeasure& f, const PairMeasure& b, double* gain, double* readNoise) {
    *gain = ((f.mean1 + f.mean2) - (b.mean1 + b.mean2)) / (f.sigma * f.sigma - b.sigma * b.sigma);
    *readNoise = *gain * b.sigma / std::sqrt(2.0);
}

std::string FormatGainValue(double value) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%4.3f", value);
    return buf;
}

bool CheckDistinctFrames(const ReadNoiseGainRequest& r, std::string* text) {
    const std::pair<const char*, const std::string*> frames[] = {
        {"Flat 1", &r.flat1}, {"Flat 2", &r.flat2}, {"Bias 1", &r.bias1}, {"Bias 2", &r.bias2}};
    for (const auto& a : frames)
        for (const auto& b : frames) {
            if (a.second == b.second || a.second->empty() || b.second->empty())
                continue;
            std::error_code ec;
            const bool same =
                *a.second == *b.second || (fs::exists(*a.second, ec) && fs::exists(*b.second, ec) &&
                                           fs::equivalent(*a.second, *b.second, ec));
            if (same) {
                *text = std::string("Please select a ") + a.first +
                        " frame that is different than " + b.first + ".";
                return false;
            }
        }
    return true;
}

namespace {

struct Worker {
    const ReadNoiseGainRequest& r;
    IProgress* progress;
    ReadNoiseGainResult result;
    bool colour = false;
    double factor = 1.0;
    int width = 0, height = 0;
    PairMeasure flats[3], bias[3];

    Worker(const ReadNoiseGainRequest& request, IProgress* owner) : r(request), progress(owner) {}

    void Status(const std::string& s) {
        if (progress)
            progress->SetStatus(s);
    }
    bool Fail(const std::string& s) {
        result.status = s;
        Status(s);
        return false;
    }
    bool Cancelled() {
        if (progress && progress->Cancelled()) {
            result.status = "Thread Canceled";
            Status(result.status);
            return true;
        }
        return false;
    }

    /// Reads a pair and checks it; `kind` is "Flat" or "Bias".
    bool ReadPair(Image& a, Image& b, bool isFlat) {
        const std::string k1 = isFlat ? "Flat 1" : "Bias 1", k2 = isFlat ? "Flat 2" : "Bias 2";
        const std::string& p1 = isFlat ? r.flat1 : r.bias1;
        const std::string& p2 = isFlat ? r.flat2 : r.bias2;
        if (!a.ReadFile(p1, fs::path(p1).extension().string()))
            return Fail("Error reading " + k1);
        if (!b.ReadFile(p2, fs::path(p2).extension().string()))
            return Fail("Error reading " + k2);
        Status(isFlat ? "Checking flat frame width, height, and type..."
                      : "Checking Bias frame width, height, and type...");
        if (isFlat) {
            if (a.width != b.width || a.height != b.height)
                return Fail("Flat 1 width or height does not match Flat 2");
            width = a.width;
            height = a.height;
        } else {
            if (a.width != width || a.height != height)
                return Fail("Bias 1 width or height does not match Flats");
            if (b.width != width || b.height != height)
                return Fail("Bias 2 width or height does not match Flats");
        }
        if (colour && isFlat && (width % 2 != 0 || height % 2 != 0))
            return Fail("Flat width or height not a multiple of 2");
        const char* tail =
            colour ? " is not a single channel Bayer image." : " is not a single channel image.";
        if (a.NumberOfChannels() != 1)
            return Fail(k1 + tail);
        if (b.NumberOfChannels() != 1)
            return Fail(k2 + tail);
        return true;
    }

    bool Measure(Image& a, Image& b, bool isFlat) {
        PairMeasure* out = isFlat ? flats : bias;
        float* pa = a.curPlane[a.Slots().front()];
        float* pb = b.curPlane[b.Slots().front()];
        const std::size_t n = static_cast<std::size_t>(width) * height;
        if (!colour) {
            Status(isFlat ? "Compute flat data..." : "Compute Bias data...");
            if (!MeasurePair(pa, pb, n, factor, r.pedestal, &out[0]))
                return Fail(kReadNoiseGainNoMemoryText);
            return true;
        }
        BayerSplitFn split = BayerSplitSeam();
        if (!split)
            return Fail(kBayerSeamMissingText);
        static const char* colours[3] = {"red", "green", "blue"};
        const std::size_t quarter = static_cast<std::size_t>(width / 2) * (height / 2);
        std::vector<float> sa[3], sb[3];
        try {
            for (int c = 0; c < 3; ++c) {
                sa[c].resize(c == 1 ? quarter * 2 : quarter);
                sb[c].resize(c == 1 ? quarter * 2 : quarter);
            }
        } catch (const std::bad_alloc&) {
            return Fail(kReadNoiseGainNoMemoryText);
        }
        const std::string which = isFlat ? "flat" : "Bias";
        if (!split(pa, width, height, r.cfaPattern, sa[0].data(), sa[1].data(), sa[2].data()))
            return Fail("Error splitting " + which + " 1 into red data");
        if (!split(pb, width, height, r.cfaPattern, sb[0].data(), sb[1].data(), sb[2].data()))
            return Fail("Error splitting " + which + " 2 into red data");
        for (int c = 0; c < 3; ++c) {
            if (Cancelled())
                return false;
            Status("Compute " + which + " " + colours[c] + " data...");
            if (!MeasurePair(sa[c].data(), sb[c].data(), sa[c].size(), factor, r.pedestal, &out[c]))
                return Fail(kReadNoiseGainNoMemoryText);
        }
        return true;
    }

    bool Run() {
        if (r.frameType != "CCD" && r.frameType != "OSCCCD" && r.frameType != "DSLR")
            return Fail("Unknown frame type " + r.frameType);
        colour = r.frameType != "CCD";
        factor = CountFactorOfAdc(r.adcBits);
        if (factor == 0)
            return Fail("Unknown A/D converter depth " + std::to_string(r.adcBits));
        {
            Status("Processing flat frames...");
            Image f1, f2;
            if (!ReadPair(f1, f2, true))
                return false;
            if (Cancelled())
                return false;
            if (!Measure(f1, f2, true))
                return false;
        } // the flats go before the bias frames are read
        if (Cancelled())
            return false;
        {
            Status("Processing bias frames...");
            Image b1, b2;
            if (!ReadPair(b1, b2, false))
                return false;
            if (Cancelled())
                return false;
            if (!Measure(b1, b2, false))
                return false;
        }
        if (Cancelled())
            return false;
        static const char* names[3] = {"Red", "Green", "Blue"};
        for (int c = 0; c < (colour ? 3 : 1); ++c) {
            GainRow row;
            row.name = colour ? names[c] : "Luminance";
            GainAndReadNoise(flats[c], bias[c], &row.gain, &row.readNoise);
            result.rows.push_back(row);
        }
        result.ok = true;
        return true;
    }
};

} // namespace

ReadNoiseGainResult ComputeReadNoiseGain(const ReadNoiseGainRequest& request, IProgress* progress) {
    Worker w(request, progress);
    w.Run();
    return w.result;
}

} // namespace astrivelle
