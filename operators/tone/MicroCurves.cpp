// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Micro Curves: cubic Bezier curves tabulated into 16-bit tables, one look-up per
/// pixel, in RGB or through Lab; the presets, range checks and graph helpers of the tool; the
/// parameter text and its replay.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "engine/Parallel.h"
#include "engine/ParamText.h"
#include "operators/Curves.h"

namespace astrivelle {

namespace {

constexpr int kTableSize = 65536;

/// The 16-bit index of a value: truncated, then masked. Values far outside the int range (and
/// NaN) are brought into it first so that the conversion is defined.
inline int Index16(double v) {
    if (!(v > -2.0e9)) // NaN too
        v = v != v ? 0.0 : -2.0e9;
    else if (v > 2.0e9)
        v = 2.0e9;
    return static_cast<int>(v) & 0xFFFF;
}

/// The same for a pixel, with the common case first.
inline int PixelIndex(float f) {
    if (f >= 0.0f && f < 65536.0f)
        return static_cast<int>(f);
    return Index16(f);
}

struct Preset {
    const char* name;
    int x1, y1, x2, y2;
};

const Preset kPresets[] = {
    {"Default", 100, 100, 155, 155},       {"Min --- Max +++", 239, 16, 16, 239},
    {"Min -- Max ++", 192, 32, 32, 223},   {"Min - Max +", 127, 64, 127, 192},
    {"Min + Max -", 64, 127, 192, 127},    {"Min ++ Max --", 64, 159, 192, 96},
    {"Min +++ Max ---", 64, 192, 192, 64}, {"Min -", 127, 32, 127, 127},
    {"Min +", 32, 159, 127, 96},           {"Max -", 96, 127, 223, 64},
    {"Max +", 127, 96, 96, 223},           {"Darker", 127, 64, 192, 127},
    {"Darker -", 159, 32, 224, 96},        {"Darker --", 208, 16, 239, 32},
    {"Lighter", 64, 127, 127, 192},        {"Lighter +", 32, 159, 96, 224},
    {"Lighter ++", 16, 208, 32, 239},      {"Negative", 100, 155, 155, 100},
};

void IdentityTable(std::uint32_t maximum, std::uint16_t* table) {
    std::fill(table, table + kTableSize, std::uint16_t(0));
    const std::uint32_t top = std::min<std::uint32_t>(maximum, kTableSize - 1);
    for (std::uint32_t i = 0; i <= top; ++i)
        table[i] = static_cast<std::uint16_t>(i);
}

MicroCurve MakeCurve(int bx, int by, int wx, int wy, const std::vector<MicroCurve::Point>& pts) {
    MicroCurve c;
    c.blackX = bx;
    c.blackY = by;
    c.whiteX = wx;
    c.whiteY = wy;
    c.points = pts;
    return c;
}

} // namespace

// ---- curves and tables --------------------------------------------------------------------

bool IsDefaultCurve(const MicroCurve& c) {
    return !c.points.empty() && c.blackX == 0 && c.blackY == 0 && c.points.front().x == 100 &&
           c.points.front().y == 100 && c.points.back().x == 155 && c.points.back().y == 155 &&
           c.whiteX == 255 && c.whiteY == 255;
}

void MicroCurveBezierY(const MicroCurve& c, std::vector<double>* out) {
    out->resize(kTableSize);
    // Only Y enters the table: the X coordinates place the points in the drawing alone.
    const double yb = c.blackY * 257.0, yw = c.whiteY * 257.0;
    const double yf = c.points.empty() ? yb : c.points.front().y * 257.0;
    const double yl = c.points.empty() ? yw : c.points.back().y * 257.0;
    for (int i = 0; i < kTableSize; ++i) {
        const double t = i / 65535.0, u = 1.0 - t;
        (*out)[i] = u * u * u * yb + 3.0 * t * u * u * yf + 3.0 * t * t * u * yl + t * t * t * yw;
    }
}

void MicroCurveTable(const MicroCurve& c, double min, double max, std::uint32_t maximum,
                     std::uint16_t* table) {
    std::vector<double> curve;
    MicroCurveBezierY(c, &curve);
    const std::uint32_t top = std::min<std::uint32_t>(maximum, kTableSize - 1);
    std::fill(table, table + kTableSize, std::uint16_t(0));
    // Outside the range: the identity.
    for (int i = 0; i < kTableSize && i <= min; ++i)
        table[i] = static_cast<std::uint16_t>(std::min<std::uint32_t>(i, top));
    for (double i = std::max(0.0, std::floor(max)); i <= top; i += 1.0)
        table[static_cast<int>(i)] = static_cast<std::uint16_t>(i);
    // Inside: the curve squeezed into [min, max]; scale < 1 leaves no hole.
    const double scale = (max - min) / 65535.0;
    for (std::uint32_t i = 0; i <= top; ++i) {
        const double at = i * scale + min;
        if (!(at >= 0.0 && at < kTableSize))
            continue;
        const double v = Image::ClampValue(scale * curve[i] + min, 0.0, top);
        table[static_cast<int>(at)] = static_cast<std::uint16_t>(v);
    }
}

void Image::ApplyMicroCurves(bool pending, float* prev, float* cur, int masterBlackX,
                             int masterBlackY, int masterWhiteX, int masterWhiteY,
                             const std::vector<MicroCurve::Point>& masterPoints, int channelBlackX,
                             int channelBlackY, int channelWhiteX, int channelWhiteY,
                             const std::vector<MicroCurve::Point>& channelPoints, double masterMin,
                             double masterMax, double channelMin, double channelMax) {
    if (!prev || !cur)
        return;
    if (!pending)
        CopyPlane(prev, cur);
    const MicroCurve master =
        MakeCurve(masterBlackX, masterBlackY, masterWhiteX, masterWhiteY, masterPoints);
    const MicroCurve channel =
        MakeCurve(channelBlackX, channelBlackY, channelWhiteX, channelWhiteY, channelPoints);
    std::vector<std::uint16_t> table(kTableSize);
    if (IsDefaultCurve(master) && IsDefaultCurve(channel)) {
        IdentityTable(maxValue, table.data());
    } else {
        std::vector<std::uint16_t> m(kTableSize), c(kTableSize);
        MicroCurveTable(master, masterMin, masterMax, maxValue, m.data());
        MicroCurveTable(channel, channelMin, channelMax, maxValue, c.data());
        // The master acts as an offset added to the channel curve.
        const double top = maxValue;
        for (int i = 0; i < kTableSize; ++i)
            table[i] = static_cast<std::uint16_t>(
                ClampValue(double(m[i]) + double(c[i]) - double(i), 0.0, top));
    }
    const std::uint16_t* t = table.data();
    const int w = width;
    ParallelRows(height, [&](int y0, int y1) {
        const std::size_t end = static_cast<std::size_t>(y1) * w;
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i)
            cur[i] = static_cast<float>(t[PixelIndex(prev[i])]);
    });
}

void Image::ApplyMicroCurvesLab(bool pending, float* const prev[3], float* const cur[3],
                                const MicroCurve& curveL, const MicroCurve& curveA,
                                const MicroCurve& curveB, double Lmin, double Lmax, double amin,
                                double amax, double bmin, double bmax) {
    for (int c = 0; c < 3; ++c)
        if (!prev[c] || !cur[c])
            return;
    if (!pending)
        for (int c = 0; c < 3; ++c)
            CopyPlane(prev[c], cur[c]);
    std::vector<std::uint16_t> tl(kTableSize), ta(kTableSize), tb(kTableSize);
    if (IsDefaultCurve(curveL) && IsDefaultCurve(curveA) && IsDefaultCurve(curveB)) {
        IdentityTable(maxValue, tl.data());
        IdentityTable(maxValue, ta.data());
        IdentityTable(maxValue, tb.data());
    } else {
        MicroCurveTable(curveL, Lmin, Lmax, maxValue, tl.data());
        MicroCurveTable(curveA, amin, amax, maxValue, ta.data());
        MicroCurveTable(curveB, bmin, bmax, maxValue, tb.data());
    }
    const std::uint16_t *pl = tl.data(), *pa = ta.data(), *pb = tb.data();
    const int w = width;
    ParallelRows(height, [&](int y0, int y1) {
        const std::size_t end = static_cast<std::size_t>(y1) * w;
        for (std::size_t i = static_cast<std::size_t>(y0) * w; i < end; ++i) {
            float L, A, B;
            RgbToLab(prev[0][i], prev[1][i], prev[2][i], &L, &A, &B);
            // b spans a wider range than a.
            const int il = Index16(L / 100.0 * 65535.0);
            const int ia = Index16((A + 100.0) / 200.0 * 65535.0);
            const int ib = Index16((B + 110.0) / 220.0 * 65535.0);
            const double L2 = pl[il] * 100.0 / 65535.0;
            const double a2 = pa[ia] / 65535.0 * 200.0 - 100.0;
            const double b2 = pb[ib] / 65535.0 * 220.0 - 110.0;
            LabToRgb(static_cast<float>(L2), static_cast<float>(a2), static_cast<float>(b2),
                     &cur[0][i], &cur[1][i], &cur[2][i]);
        }
    });
}

// ---- the tool's rules ---------------------------------------------------------------------

int MicroCurvesSlotOfChannel(const std::string& channel, const std::string& colorSpace) {
    if (channel == "Monochrome")
        return 0;
    if (colorSpace == "LAB") {
        if (channel == "L")
            return 0;
        if (channel == "a")
            return 1;
        if (channel == "b")
            return 3;
        return -1;
    }
    const char* names[] = {"RGB", "Red", "Green", "Blue"};
    for (int k = 0; k < 4; ++k)
        if (channel == names[k])
            return k;
    return -1;
}

const std::vector<std::string>& MicroCurvePresetNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Preset& p : kPresets)
            list.push_back(p.name);
        return list;
    }();
    return names;
}

bool ApplyMicroCurvePreset(MicroCurve* curve, const std::string& name) {
    for (const Preset& p : kPresets) {
        if (name != p.name)
            continue;
        curve->points = {{p.x1, p.y1}, {p.x2, p.y2}};
        const bool negative = name == "Negative";
        curve->blackX = 0;
        curve->blackY = negative ? 255 : 0;
        curve->whiteX = 255;
        curve->whiteY = negative ? 0 : 255;
        return true;
    }
    return false;
}

bool SetMicroCurveMin(MicroCurveSlot* slot, double min, std::string* message) {
    if (min >= slot->max) {
        if (message)
            *message = "Please select a min luminance less than max luminance.";
        return false;
    }
    slot->min = min;
    return true;
}

bool SetMicroCurveMax(MicroCurveSlot* slot, double max, std::string* message) {
    if (max <= slot->min) {
        if (message)
            *message = "Please select a max luminance greater than min luminance.";
        return false;
    }
    slot->max = max;
    return true;
}

std::vector<std::pair<double, double>> MicroCurveDrawPoints(const MicroCurve& c) {
    std::vector<std::pair<double, double>> out;
    const double xb = c.blackX, yb = c.blackY, xw = c.whiteX, yw = c.whiteY;
    const double xf = c.points.empty() ? xb : c.points.front().x;
    const double yf = c.points.empty() ? yb : c.points.front().y;
    const double xl = c.points.empty() ? xw : c.points.back().x;
    const double yl = c.points.empty() ? yw : c.points.back().y;
    for (int i = 0; i < kTableSize; i += 255) {
        const double t = i / 65535.0, u = 1.0 - t;
        const double b0 = u * u * u, b1 = 3.0 * t * u * u, b2 = 3.0 * t * t * u, b3 = t * t * t;
        out.emplace_back(b0 * xb + b1 * xf + b2 * xl + b3 * xw,
                         b0 * yb + b1 * yf + b2 * yl + b3 * yw);
    }
    return out;
}

int LimitDragX(const MicroCurve& c, int index, int x, int radius) {
    std::vector<int> xs{c.blackX};
    for (const MicroCurve::Point& p : c.points)
        xs.push_back(p.x);
    xs.push_back(c.whiteX);
    const int n = static_cast<int>(xs.size());
    if (index < 0 || index >= n)
        return x;
    const int lo = std::max(0, index > 0 ? xs[index - 1] + 2 * radius : 0);
    const int hi = std::min(255, index < n - 1 ? xs[index + 1] - 2 * radius : 255);
    if (lo > hi)
        return xs[index]; // no room between the neighbours: the point stays
    return std::clamp(x, lo, hi);
}

std::string MicroCurveReadout(double min, double max, int x, int y, bool inside) {
    if (!inside)
        return "(,)";
    const int vx = static_cast<int>((max - min) * x / 255.0 + min);
    const int vy = static_cast<int>((max - min) * y / 255.0 + min);
    return FormatText("(%d.0, %d.0)", vx, vy);
}

// ---- parameter text -----------------------------------------------------------------------

namespace {

std::string FormatBlock(const MicroCurveSlot& s) {
    const MicroCurve& c = s.curve;
    std::string text =
        FormatText(" Black X : %d# Black Y : %d# White X : %d# White Y : %d#"
                   " Number of Control Points : %d#",
                   c.blackX, c.blackY, c.whiteX, c.whiteY, static_cast<int>(c.points.size()));
    for (std::size_t k = 0; k < c.points.size(); ++k)
        text += FormatText("  Point %d X : %d#  Point %d Y : %d#", static_cast<int>(k + 1),
                           c.points[k].x, static_cast<int>(k + 1), c.points[k].y);
    text += FormatText(" Min : %6.1f# Max : %6.1f#", s.min, s.max);
    return text;
}

bool ParseBlock(std::string* rest, MicroCurveSlot* s) {
    std::string value;
    int* ints[] = {&s->curve.blackX, &s->curve.blackY, &s->curve.whiteX, &s->curve.whiteY};
    for (int* v : ints) {
        if (!NextValue(&value, rest))
            return false;
        *v = std::atoi(value.c_str());
    }
    if (!NextValue(&value, rest))
        return false;
    const int count = std::atoi(value.c_str());
    if (count < 1 || count > 64)
        return false;
    s->curve.points.assign(count, {});
    for (MicroCurve::Point& p : s->curve.points) {
        if (!NextValue(&value, rest))
            return false;
        p.x = std::atoi(value.c_str());
        if (!NextValue(&value, rest))
            return false;
        p.y = std::atoi(value.c_str());
    }
    if (!NextValue(&value, rest))
        return false;
    s->min = std::atof(value.c_str());
    if (!NextValue(&value, rest))
        return false;
    s->max = std::atof(value.c_str());
    return true;
}

} // namespace

std::string FormatMicroCurves(const MicroCurvesParams& p) {
    std::string text = FormatText("Current Channel : %s#", p.channel.c_str());
    if (p.monochrome)
        return text + "Monochrome Curve#" + FormatBlock(p.curveSlots[0]);
    if (p.colorSpace == "LAB")
        return text + "Lab L Curve#" + FormatBlock(p.curveSlots[0]) + "Lab a Curve#" +
               FormatBlock(p.curveSlots[1]) + "Lab b Curve#" + FormatBlock(p.curveSlots[3]);
    return text + "RGB Curve#" + FormatBlock(p.curveSlots[0]) + "Red Curve#" +
           FormatBlock(p.curveSlots[1]) + "Green Curve#" + FormatBlock(p.curveSlots[2]) +
           "Blue Curve#" + FormatBlock(p.curveSlots[3]);
}

bool ParseMicroCurves(const std::string& text, MicroCurvesParams* params, std::string* error) {
    std::string rest = text, field, value;
    auto fail = [&](const std::string& what) {
        if (error)
            *error = "Micro Curves: " + what + " missing in \"" + text + "\"";
        return false;
    };
    MicroCurvesParams p;
    if (!NextValue(&value, &rest))
        return fail("channel");
    p.channel = value;
    if (!NextField(&field, &rest))
        return fail("curve");
    std::vector<std::pair<const char*, int>> blocks; // head, slot
    if (field == "Monochrome Curve") {
        p.monochrome = true;
        blocks = {{"Monochrome Curve", 0}};
    } else if (field == "RGB Curve") {
        blocks = {{"RGB Curve", 0}, {"Red Curve", 1}, {"Green Curve", 2}, {"Blue Curve", 3}};
    } else if (field == "Lab L Curve") {
        p.colorSpace = "LAB";
        blocks = {{"Lab L Curve", 0}, {"Lab a Curve", 1}, {"Lab b Curve", 3}};
    } else {
        return fail("curve");
    }
    for (std::size_t k = 0; k < blocks.size(); ++k) {
        if (k > 0 && (!NextField(&field, &rest) || field != blocks[k].first))
            return fail(blocks[k].first);
        if (!ParseBlock(&rest, &p.curveSlots[blocks[k].second]))
            return fail(std::string(blocks[k].first) + " values");
    }
    *params = p;
    return true;
}

bool ApplyMicroCurvesParams(Image& image, const MicroCurvesParams& p, bool pending) {
    const MicroCurveSlot& m = p.curveSlots[0];
    auto run = [&](int plane) {
        const MicroCurveSlot& c = p.curveSlots[plane + 1];
        float* prev = image.prevPlane[plane];
        float* cur = image.curPlane[plane];
        if (!prev || !cur)
            return false;
        image.ApplyMicroCurves(pending, prev, cur, m.curve.blackX, m.curve.blackY, m.curve.whiteX,
                               m.curve.whiteY, m.curve.points, c.curve.blackX, c.curve.blackY,
                               c.curve.whiteX, c.curve.whiteY, c.curve.points, m.min, m.max, c.min,
                               c.max);
        return true;
    };
    if (image.colorType == ColorRGB) {
        if (p.colorSpace == "LAB" && !p.monochrome) {
            for (int c = 0; c < 3; ++c)
                if (!image.prevPlane[c] || !image.curPlane[c])
                    return false;
            image.ApplyMicroCurvesLab(pending, image.prevPlane, image.curPlane, m.curve,
                                      p.curveSlots[1].curve, p.curveSlots[3].curve, m.min, m.max,
                                      p.curveSlots[1].min, p.curveSlots[1].max, p.curveSlots[3].min,
                                      p.curveSlots[3].max);
            return true;
        }
        for (int plane = 0; plane < 3; ++plane)
            if (!run(plane))
                return false;
        return true;
    }
    // A single-plane image pairs the master with its plane's own slot.
    const int plane = SlotOfColorType(image.colorType);
    return plane >= 0 && run(plane);
}

namespace {

bool ReplayMicroCurves(Image& image, const std::string& text, const ReplayContext&,
                       std::string* error) {
    MicroCurvesParams p;
    return ParseMicroCurves(text, &p, error) && ApplyMicroCurvesParams(image, p);
}

bool RoundTripMicroCurves(const std::string& text, std::string* formatted) {
    MicroCurvesParams p;
    if (!ParseMicroCurves(text, &p, nullptr))
        return false;
    *formatted = FormatMicroCurves(p);
    return true;
}

} // namespace

OperatorDescriptor MicroCurvesDescriptor() {
    OperatorDescriptor d;
    d.name = "Micro Curves";
    d.replay = ReplayMicroCurves;
    d.roundTrip = RoundTripMicroCurves;
    MicroCurvesParams p;
    d.examples.push_back(FormatMicroCurves(p));
    p.channel = "Red";
    ApplyMicroCurvePreset(&p.curveSlots[1].curve, "Lighter +");
    p.curveSlots[1].min = 1000;
    p.curveSlots[1].max = 60000;
    d.examples.push_back(FormatMicroCurves(p));
    MicroCurvesParams lab;
    lab.colorSpace = "LAB";
    lab.channel = "b";
    ApplyMicroCurvePreset(&lab.curveSlots[3].curve, "Min - Max +");
    ApplyMicroCurvePreset(&lab.curveSlots[0].curve, "Darker");
    d.examples.push_back(FormatMicroCurves(lab));
    MicroCurvesParams mono;
    mono.monochrome = true;
    mono.channel = "Monochrome";
    ApplyMicroCurvePreset(&mono.curveSlots[0].curve, "Negative");
    mono.curveSlots[0].min = 20000;
    d.examples.push_back(FormatMicroCurves(mono));
    return d;
}

} // namespace astrivelle
