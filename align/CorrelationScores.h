// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The normalized correlation of a template with every placement in a window: the
/// plain sums, and for whole levels (0..65535) the same sums through FFTs of the levels' two
/// bytes. Products of 16-bit levels and their sums over a template below 2^53 are exact in
/// doubles in any order, and the FFT sums are rounded to the whole numbers they must be (a
/// placement whose FFT value is not within a quarter of a whole number sends the whole table
/// back to the plain sums), so both give the same scores bit for bit.
#pragma once
#include <vector>

namespace astrivelle {

/// The correlation of one block of `side` x `side` values (row stride `stride`) with the
/// template; block values of -1.0 are skipped.
double BlockCorrelation(const float* block, int stride, const float* tmpl, int side,
                        double templateNorm);

/// The score of every placement of the `side` x `side` template in the window of
/// `windowSide` = 2 * side - 1 (row order, side x side placements):
/// sum(t * w) / (sqrt(sum(w * w)) * templateNorm), 0 when the denominator is 0. `marked`: the
/// window holds -1.0 entries, which the plain sums skip. `allowExact` lets whole levels take
/// the FFT sums.
void CorrelationScores(const float* window, int windowSide, const float* tmpl, int side,
                       double templateNorm, bool marked, bool allowExact,
                       std::vector<double>* score);

namespace correlation_testing {
/// Tables made by the FFT sums since the last reset.
int ExactTables();
void ResetExactTables();
} // namespace correlation_testing

} // namespace astrivelle
