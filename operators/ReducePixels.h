// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Reduce High, Low, Bloom Pixel: isolated hot or cold pixels and bloom streaks replaced
/// from their surroundings; its parameter text, its three fixed presets and its replay.
#pragma once
#include <string>
#include <vector>

#include "operators/Registry.h"

namespace astrivelle {

inline constexpr const char* kReducePixelsName = "Reduce High, Low, Bloom Pixel";
inline constexpr const char* kReducePixelsNoMemoryText = "No memory for operation";

/// What is looked for: "High", "Low", "Both" (high first, then low) or "Bloom".
enum class ReducePixelKind : int { High = 0, Low = 1, Both = 2, Bloom = 3 };

/// One application. Window and effect sizes are sides of the list 3, 5, 7, 9, 11.
struct ReducePixelsParams {
    ReducePixelKind reduce = ReducePixelKind::High;
    bool lowStrength = false; ///< "Low": the mean replaces; "Normal": the median
    double difference = 0.5;  ///< 0 to 1
    int windowSize = 5;
    int effectSize = 5;
};

/// "High", "Low", "Both", "Bloom".
const char* ReducePixelKindWord(ReducePixelKind kind);
/// True for a side of the size list (3, 5, 7, 9, 11).
bool IsReducePixelsSize(int side);
/// True when every field lies in its range.
bool ReducePixelsParamsValid(const ReducePixelsParams& params);

/// "Reduce : %s#Reduce Strength : %s#Difference : %6.5f#Window Size : %d x %d#Effect Size :
/// %d x %d#".
std::string FormatReducePixels(const ReducePixelsParams& params);
/// Reads the text back by position. False with the reason when a field is missing, a word is
/// not one of its list, the difference is not a number from 0 to 1, or a size is not a square
/// of the size list.
bool ParseReducePixels(const std::string& text, ReducePixelsParams* params, std::string* error);

/// One saved entry: its name, then the parameter text ("Default High Pixel Reduction#Reduce :
/// High#...").
std::string FormatReducePixelsPreset(const std::string& name, const ReducePixelsParams& params);
/// Splits an entry at its first '#' and reads the rest; false when the name is empty or the
/// parameter text is refused.
bool ParseReducePixelsPreset(const std::string& entry, std::string* name,
                             ReducePixelsParams* params, std::string* error);
/// The three entries that always exist and cannot be changed: "Default High Pixel Reduction"
/// (High, Normal, 0.5, 5 x 5, 5 x 5), "Default Small Bloom Pixel Reduction" (Bloom, Normal,
/// 0.6, 5 x 5, 5 x 5), "Default Large Bloom Pixel Reduction" (Bloom, Normal, 0.084, 9 x 9,
/// 11 x 11).
std::vector<std::string> ReducePixelsDefaultPresets();
/// True for the name of one of the three default entries.
bool IsReducePixelsDefaultName(const std::string& name);

/// Applies the operator to every slot of the image (pending false, as replay does); false
/// with kReducePixelsNoMemoryText (or the parameter refusal) in `error`.
bool ApplyReducePixels(class Image& image, const ReducePixelsParams& params,
                       std::string* error = nullptr);

OperatorDescriptor ReducePixelsDescriptor();

} // namespace astrivelle
