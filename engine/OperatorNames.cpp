// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Operator name lists.
#include "engine/OperatorNames.h"

#include <algorithm>

namespace astrivelle {

namespace {
bool In(const std::vector<std::string>& list, const std::string& name) {
    return std::find(list.begin(), list.end(), name) != list.end();
}
} // namespace

const std::vector<std::string>& ReplayOperatorNames() {
    static const std::vector<std::string> names = {
        "Image Size",
        "Edit Pixel Intensity",
        "Edit Pixel Color",
        "Pixel Math",
        "Histogram Contrast Stretch",
        "Add Noise",
        "Multi Point Flatten Background",
        "Gaussian Background Compensation",
        "Planar Bkg Comp",
        "Piece-wise Linear Bkg Comp",
        "Negative",
        "Local Mouse Effects",
        "Mirror Vertical",
        "Mirror Horizontal",
        "Rotate CW",
        "Rotate CCW",
        "Center Object",
        "Align Planet",
        "Translate",
        "Scale",
        "Rotate",
        "Add Border",
        "Bin",
        "Edge Extract",
        "Adaptive Unsharp Mask",
        "Statistical Difference",
        "Star Size Reduction/Smoothing",
        "Suppress Lines",
        "Band Suppression",
        "Multiresolution Smooth-Sharpen",
        "Feature Mask",
        "Adaptive Richardson-Lucy",
        "Mix Channels",
        "Custom Luminance Mask",
        "HSL Micro Curves",
        "Hue-Saturation-Luminance",
        "Selective Color Mask",
        "Reduce RGB",
        "Additive Color Balance",
        "Selective HSL Color Balance",
        "Color Balance",
        "Distortion Correction",
        "Star Size",
        "Brightness & Contrast",
        "General Stretch Functions",
        "ArcSinH",
        "Threshold",
        "High Pass",
        "Levels",
        "Micro Curves",
        "Digital Development",
        "Smoothing",
        "Reduce High, Low, Bloom Pixel",
        "Adaptive Contrast",
        "Unsharp Mask",
        "Background/Highlight Smoothing",
        "Enhance Lines",
        "Frequency Filter",
        "Custom Filter",
        "Non-Adaptive Iterative Restoration",
    };
    return names;
}

bool IsReplayOperator(const std::string& name) {
    return In(ReplayOperatorNames(), name);
}

bool IsNoReplayName(const std::string& name) {
    static const std::vector<std::string> names = {
        "Read",
        "New Image",
        "Split Color Component",
        "Split Frequency Component",
        "Split Bayer CFA Component",
        "Duplicate Image",
        "Copy Portion",
        "Save As Image",
        "Minimum",
        "Maximum",
        "Blend Mode, Opacity, Mask",
        "Median",
        "Align Error",
        "Addition",
        "Adaptive Addition",
        "Extended Addition",
        "Average",
        "Excluded Min/Max Average",
        "Sigma Average",
        "Manual Graded Average",
        "Auto Edge Sharpness Graded Average",
        "Norm Average",
        "Sigma Median",
        "Weighted Median",
        "Norm Median",
        "Combine R,G,B,L Into RGB",
        "Combine C,M,Y,L Into RGB",
        "Combine H,S,L Into RGB",
        "Combine R,G,B Into Bayer CFA",
        "Auto Color Combine",
        "Mix LRGB and Hue",
        "Image Math",
    };
    return In(names, name);
}

bool WorksInPlace(const std::string& name) {
    static const std::vector<std::string> names = {
        "Non-Adaptive Iterative Restoration", "Adaptive Richardson-Lucy",
        "Background/Highlight Smoothing", "Star Size Reduction/Smoothing"};
    return In(names, name);
}

bool RunsOnWorker(const std::string& name) {
    static const std::vector<std::string> names = {"Adaptive Richardson-Lucy",
                                                   "Non-Adaptive Iterative Restoration",
                                                   "ArcSinH",
                                                   "Digital Development",
                                                   "Smoothing",
                                                   "High Pass",
                                                   "Frequency Filter",
                                                   "Band Suppression",
                                                   "Background/Highlight Smoothing",
                                                   "Star Size Reduction/Smoothing",
                                                   "Feature Mask",
                                                   "Distortion Correction",
                                                   "Suppress Lines"};
    return In(names, name);
}

} // namespace astrivelle
