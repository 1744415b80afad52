// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Tone curves family: Levels, Micro Curves and Histogram Contrast Stretch. Parameter
/// sets, their `#` texts, and the editing rules the tools share (Levels entry checks, master
/// set editing, the gamma slider; Micro Curves presets, range checks, drawing and dragging).
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "engine/Image.h"
#include "operators/Registry.h"

namespace astrivelle {

// ---- Levels -------------------------------------------------------------------------------

/// The largest level the Levels and Micro Curves tools work with.
constexpr int kToneMaximum = 65535;

/// The eight values of one Levels channel set.
struct LevelsSet {
    int black = 0;
    int midtone = kToneMaximum / 2;
    int midtoneIntensity = kToneMaximum / 2;
    double blackGamma = 1.0;
    double whiteGamma = 1.0;
    int white = kToneMaximum;
    int outputWhite = kToneMaximum;
    int outputBlack = 0;
};

/// The entries of the value selector, in its order.
enum class LevelsEntry {
    Black,
    White,
    Midtone,
    MidtoneIntensity,
    BlackGamma,
    WhiteGamma,
    OutputBlack,
    OutputWhite
};

/// "Black", "White", "Midtone", "Midtone Intensity", "Black Gamma", "White Gamma",
/// "Output Black", "Output White".
const char* LevelsEntryName(LevelsEntry entry);
/// The entry of a selector text; false when there is none.
bool LevelsEntryOf(const std::string& name, LevelsEntry* entry);

/// The four sets in their order.
enum LevelsSetIndex { LevelsMaster = 0, LevelsRed = 1, LevelsGreen = 2, LevelsBlue = 3 };

struct LevelsParams {
    /// "RGB", "Red", "Green", "Blue" on a colour image, "Monochrome" on any other.
    std::string channel = "RGB";
    LevelsEntry level = LevelsEntry::Black;
    std::array<LevelsSet, 4> sets{};
};

/// The set a channel text edits: 0 for "RGB", 1..3 for "Red", "Green", "Blue"; "Monochrome"
/// edits the Red set, which is the one a monochrome image applies. -1 for any other text.
int LevelsSetOfChannel(const std::string& channel);

/// The value of an entry of a set (integers as doubles).
double LevelsValue(const LevelsSet& set, LevelsEntry entry);

/// Sets one entry as the tool does. Channel "RGB": the master takes the value and the same
/// delta goes to the three channel sets, each clamped to 0..maximum (gammas 0..10). One
/// channel: only that set changes, then the master is folded from itself and the channels
/// (Black, Output Black: the largest, not below 0; White, Midtone, Midtone Intensity, Output
/// White: the smallest; gammas unchanged). Midtone follows every Black or White change.
void SetLevelsValue(LevelsParams* params, const std::string& channel, LevelsEntry entry,
                    double value, int maximum = kToneMaximum);

/// Moves Black (or White) of a set while Midtone keeps its relative place between them.
void MoveLevelsEnd(LevelsSet* set, bool white, int value);

/// Checks a typed entry against the set it edits. False with the message text to show (the
/// value then stays as it was); true with the value.
bool ValidateLevelsEntry(const LevelsSet& set, LevelsEntry entry, const std::string& text,
                         int maximum, double* value, std::string* message);

/// Gamma sliders run 0..1000 with 500 at 1.0.
double GammaFromSlider(int position);
int SliderFromGamma(double gamma);
/// A gamma as the entry shows it ("%6.4f").
std::string FormatGamma(double gamma);

/// The `#` text of a Levels application.
std::string FormatLevels(const LevelsParams& params);
bool ParseLevels(const std::string& text, LevelsParams* params, std::string* error);

/// The transfer function of one set for one value, as the pixel function computes it
/// (without the final clamp to the image's maximum).
double LevelsTransfer(const LevelsSet& set, double p);

/// Applies the sets to the planes the colour mode selects (pending false, as replay does).
bool ApplyLevelsParams(Image& image, const LevelsParams& params, bool pending = false);

namespace levels_testing {
/// The table form of large images over `n` values, `lanes` (1, 4 or 8) at a time. False when
/// the processor cannot run that many or the curve takes no table.
bool TableForm(int black, int midtone, int midtoneIntensity, double blackGamma, double whiteGamma,
               int white, int outputBlack, int outputWhite, double top, const float* in, float* out,
               std::size_t n, int lanes);
} // namespace levels_testing

// ---- Micro Curves -------------------------------------------------------------------------

/// One slot: its curve and the range it applies to (0..65535 in the tool).
struct MicroCurveSlot {
    MicroCurve curve;
    double min = 0.0;
    double max = 65535.0;
};

struct MicroCurvesParams {
    /// The selector's text: "RGB", "Red", "Green", "Blue"; "L", "a", "b"; or "Monochrome".
    std::string channel = "RGB";
    /// "RGB" or "LAB".
    std::string colorSpace = "RGB";
    /// Slot 0 RGB or L, 1 Red or a, 2 Green, 3 Blue or b.
    std::array<MicroCurveSlot, 4> curveSlots{};
    /// True when the text is the one-curve form of a monochrome image.
    bool monochrome = false;
};

/// The slot the channel selector's text addresses in a colour space ("b" is slot 3,
/// "Monochrome" slot 0); -1 for an unknown text.
int MicroCurvesSlotOfChannel(const std::string& channel, const std::string& colorSpace);

/// True for the "Default" curve: black (0, 0), first point (100, 100), last (155, 155), white
/// (255, 255).
bool IsDefaultCurve(const MicroCurve& curve);

/// The names of the presets, in their list order ("Default" first).
const std::vector<std::string>& MicroCurvePresetNames();
/// Replaces the two control points and the black and white points by a preset; false for an
/// unknown name.
bool ApplyMicroCurvePreset(MicroCurve* curve, const std::string& name);

/// The range checks of the tool: false with the message, the range unchanged.
bool SetMicroCurveMin(MicroCurveSlot* slot, double min, std::string* message);
bool SetMicroCurveMax(MicroCurveSlot* slot, double max, std::string* message);

/// The 65536-entry Bezier of the Y values (times 257), t = i / 65535, in 64-bit floats.
void MicroCurveBezierY(const MicroCurve& curve, std::vector<double>* out);
/// Steps 2 to 5 of the tabulation: the curve's 16-bit table over its range.
void MicroCurveTable(const MicroCurve& curve, double min, double max, std::uint32_t maximum,
                     std::uint16_t* table);

/// The points the tool draws: the Bezier in X and Y at every 255th of its 65536 steps, on the
/// 0..255 scale.
std::vector<std::pair<double, double>> MicroCurveDrawPoints(const MicroCurve& curve);
/// The X to which a dragged point (0 black, 1 and 2 the control points, 3 white) is limited:
/// its neighbours' X plus or minus twice the pick radius, and 0..255.
int LimitDragX(const MicroCurve& curve, int index, int x, int radius);
/// The readout of a graph position (0..255 each): "(%d.0, %d.0)" on the range's scale, or
/// "(,)" outside the graph.
std::string MicroCurveReadout(double min, double max, int x, int y, bool inside);

std::string FormatMicroCurves(const MicroCurvesParams& params);
bool ParseMicroCurves(const std::string& text, MicroCurvesParams* params, std::string* error);

/// Applies the curves to the planes the colour mode selects (pending false, as replay does).
bool ApplyMicroCurvesParams(Image& image, const MicroCurvesParams& params, bool pending = false);

// ---- Histogram Contrast Stretch -----------------------------------------------------------

struct HistogramStretchParams {
    int type = 1; ///< 1 Uniform .. 6 Bkg-High Contrast
    double scale = 0.5;
    double highlightScale = 0.5;
    double highlightBreak = 0.75;
    double backgroundScale = 0.5;
    double backgroundBreak = 0.25;
};

/// "Uniform", "Exponential", "Rayleigh", "Hyperbolic", "Logarithmic", "Bkg-High Contrast";
/// empty for a type outside 1..6.
const char* HistogramStretchTypeName(int type);

std::string FormatHistogramStretch(const HistogramStretchParams& params);
bool ParseHistogramStretch(const std::string& text, HistogramStretchParams* params,
                           std::string* error);

/// Stretches each plane of the colour mode (pending false, as replay does).
bool ApplyHistogramStretchParams(Image& image, const HistogramStretchParams& params,
                                 bool pending = false);

OperatorDescriptor LevelsDescriptor();
OperatorDescriptor MicroCurvesDescriptor();
OperatorDescriptor HistogramStretchDescriptor();

} // namespace astrivelle
