// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Blend of a step's pure result with its input: the 32 blend modes, opacity and mask,
/// and the blend step of an operator or a replayed record (Image::BlendMask does the pixels).
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/Image.h"
#include "engine/ProcessStructure.h"

namespace astrivelle {

/// What a blend does with the mask: "BlendOnly" ignores it, "ApplyMask" blends through it,
/// "ShowMask" puts the mask itself into the selected current planes.
enum class BlendStep : int { BlendOnly, ApplyMask, ShowMask };

/// "BlendOnly", "ApplyMask", "ShowMask".
const char* BlendStepWord(BlendStep step);
/// The step of one of those words; false for any other text.
bool ParseBlendStep(std::string_view word, BlendStep* step);

constexpr int kBlendModeCount = 32;
/// The first mode that takes the three channels together (Hue ... Lab Luminosity).
constexpr int kFirstColorBlendMode = 24;

/// The name of a blend mode by index ("Normal" ... "Lab Luminosity"); null out of range.
const char* BlendModeName(int mode);

/// Result of modes 0..23 for one channel: layer `c` (the pure result) over base `p` (the
/// input), both on the 0..65535 scale, in doubles.
double BlendChannelValue(int mode, double c, double p);

/// Result of modes 24..31 for one pixel: layer `c` over base `p`, three channels each.
void BlendColorValue(int mode, const double c[3], const double p[3], double out[3]);

/// Why BlendRecord did not blend. The current planes then hold the unblended result.
enum class BlendFailure {
    None,
    NoMemory,       ///< work rows or the mask could not be allocated
    MaskMissing,    ///< the mask comes from a file and no loaded mask was given
    ModeNeedsColor, ///< modes 24..31 on a monochrome image
    BadMode,        ///< a mode outside 0..31
};

/// The text shown for a failure: "No memory for blend or mask mode." for NoMemory.
const char* BlendFailureText(BlendFailure failure);

/// The channels a recorded blend applies to, by slot: the one slot of a monochrome image; on
/// RGB the record's channelRed/Green/Blue when its channelSelect is set, otherwise all three.
void BlendChannelsOf(const Image& image, const CProcessStructure& record, bool selected[3]);

/// True when the step reads a mask file: the mask is applied or shown and the record's mask is
/// not a luminance mask.
bool BlendNeedsMaskFile(const CProcessStructure& record, BlendStep step);

/// Where the pure result comes from.
enum class BlendWork {
    /// An operator has just written it to the current planes: work rows are allocated if
    /// needed and take it (SaveWork). The operator and replay path.
    SaveCurrent,
    /// The blend values changed: the pure result is put back from the work rows
    /// (RestoreWork), or saved first if there are none yet. One plane copy, one blend pass.
    RestoreSaved,
};

/// The blend step of an operator or a replayed record: takes the pure result into the work
/// rows (or back from them), then blends with the record's mode, opacity, mask and channels.
/// Before: previous planes = the step's input, current planes = the pure result. After: the
/// previous planes are unchanged, the work rows hold the pure result and the current planes
/// the blended result. `maskPlane` is the loaded mask file when BlendNeedsMaskFile holds.
/// On failure the current planes hold the pure result and `failure` says why.
bool BlendRecord(Image& image, const CProcessStructure& record, BlendStep step,
                 const float* maskPlane, BlendWork work, BlendFailure* failure = nullptr);

} // namespace astrivelle
