// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The combination methods of Combine Files / HDR add and their pixel cores: per-file
/// accumulation into per-pixel planes (sum, count, minimum, maximum, deviation), the median
/// family over tiles of 16-bit rows of all frames, and the tone map of the adaptive additions.
/// Every core is a pure function over planes; rows run in parallel.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

enum class CombineMethod {
    Add,          ///< ADD
    Avg,          ///< AVG (USEALL: zero pixels are no data)
    ExcAvg,       ///< EXCAVG
    SigAvg,       ///< SIGAVG
    GradeAvg,     ///< GRADEAVG
    GradeAvgAuto, ///< GRADEAVGAUTO
    Min,          ///< MIN
    Max,          ///< MAX
    Med,          ///< MED
    SigMed,       ///< SIGMED
    WgtMed,       ///< WGTMED
    AdpAdd,       ///< ADPADD
    ExcAdpAdd,    ///< EXCADPADD
};

struct CombineMethodInfo {
    CombineMethod method;
    const char* keyword; ///< "ADD", "AVG", ...
    const char* text;    ///< the reading text of summaries: "Addition", "Average", ...
    const char* page;    ///< the option page entry: "CombineFilesAdd", ...
};

/// The thirteen methods in table order.
const std::vector<CombineMethodInfo>& CombineMethods();
/// The entry of a keyword (exact), or nullptr.
const CombineMethodInfo* FindCombineMethod(const std::string& keyword);
const CombineMethodInfo& CombineMethodOf(CombineMethod method);

inline bool IsMedianFamily(CombineMethod m) {
    return m == CombineMethod::Med || m == CombineMethod::SigMed || m == CombineMethod::WgtMed;
}
inline bool IsExcludedMethod(CombineMethod m) {
    return m == CombineMethod::ExcAvg || m == CombineMethod::ExcAdpAdd;
}
inline bool IsHdrMethod(CombineMethod m) {
    return m == CombineMethod::AdpAdd || m == CombineMethod::ExcAdpAdd;
}

/// The default sigma clip factor (entry 50 of 0.05 .. 4.00 in steps of 0.05).
constexpr double kDefaultClipFactor = 2.55;

// ---- plain stream cores (whole plane) ------------------------------------------------------

/// sum += src * weight.
void AccumulateBySum(float* sum, const float* src, std::size_t width, std::size_t height,
                     float weight = 1.0f);
/// Zero pixels are no data: sum += src and count += 1 where src is not 0.
void AccumulateNonZero(float* sum, float* count, const float* src, std::size_t width,
                       std::size_t height);
/// acc = min(acc, src) / max(acc, src).
void AccumulateMin(float* acc, const float* src, std::size_t width, std::size_t height);
void AccumulateMax(float* acc, const float* src, std::size_t width, std::size_t height);
/// sum = sum / count, 0 where the count is 0.
void FinishAverage(float* sum, const float* count, std::size_t width, std::size_t height);
/// Limits the plane to 0..65535.
void LimitTo16Bit(float* plane, std::size_t width, std::size_t height);

// ---- interior cores: rows 1..height-2, columns 1..width-2; the rim is never touched ---------

/// Excluded average, phase 1: the minimum and maximum planes (`first` starts them).
void AccumulateMinMaxInterior(float* minimum, float* maximum, const float* src, std::size_t width,
                              std::size_t height, bool first);
/// Excluded average, phase 2: sum and count of the pixels strictly between the extremes.
void AccumulateBetweenInterior(float* sum, float* count, const float* minimum, const float* maximum,
                               const float* src, std::size_t width, std::size_t height);
/// Sigma average, phase 1: sum and count of the non-zero pixels.
void AccumulateNonZeroInterior(float* sum, float* count, const float* src, std::size_t width,
                               std::size_t height);
/// Sigma average, phase 2: squares += (src - mean)^2 for the non-zero pixels.
void AccumulateSquaresInterior(float* squares, const float* mean, const float* src,
                               std::size_t width, std::size_t height);
/// Sigma average: squares = sqrt(squares / count), 0 where the count is 0.
void FinishDeviation(float* squares, const float* count, std::size_t width, std::size_t height);
/// Sigma average, phase 3: sum and count of the non-zero pixels within
/// mean - f * dev <= v <= mean + f * dev.
void AccumulateClippedInterior(float* sum, float* count, const float* mean, const float* deviation,
                               const float* src, double clipFactor, std::size_t width,
                               std::size_t height);
/// FinishAverage over the interior only.
void FinishAverageInterior(float* sum, const float* count, std::size_t width, std::size_t height);

// ---- median family -------------------------------------------------------------------------

/// A sample as the median tiles hold it: limited to 0..65535, rounded to the nearest level.
inline std::uint16_t ToTileLevel(float v) {
    if (!(v > 0.0f))
        return 0;
    if (v >= 65535.0f)
        return 65535;
    return static_cast<std::uint16_t>(v + 0.5f);
}

/// Combines `rows` rows of `width` pixels of `files` tiles (tile f holds rows * width
/// levels) into `out` (rows * width) with MED, SIGMED or WGTMED.
void CombineMedianRows(const std::uint16_t* const* tiles, int files, std::size_t width,
                       std::size_t rows, CombineMethod method, double clipFactor, float* out);

/// The value of one pixel from its n levels (in any order; `scratch` holds n and is
/// reordered). The plain form the row core is checked against.
float CombineMedianPixel(float* scratch, int n, CombineMethod method, double clipFactor);

/// How many tiles the median family uses: the first of 1, 4, 16, 64 for which width x height
/// x files x 2 bytes x channels / tiles fits in half of `freeBytes`, else 256.
int CombineSegments(std::size_t width, std::size_t height, std::size_t files, int channels,
                    unsigned long long freeBytes);

/// Free physical memory as the system reports it (MemAvailable), in bytes.
unsigned long long FreePhysicalMemory();

// ---- tone map of the adaptive additions ------------------------------------------------------

/// Maps the raw sum planes (`channels` of `count` pixels) into `out`: the log compression
/// 65535 (log(v + c) - log(a + c)) / (log(b + c) - log(a + c)), c = (b - a) compress, a and b
/// the extremes over all channels, when b is above 65535 (else the raw values), then the
/// equalization of the 65536-bin histogram towards the target with bins (h 65536 + p) /
/// ((p + 1) 65536), p the brightness. False when a scratch buffer can't be had.
bool ToneMapPlanes(const float* const* raw, int channels, std::size_t count, double compress,
                   double brightness, float* const* out);

} // namespace astrivelle
