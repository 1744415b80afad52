// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the smoothing kernels share inside the filters folder: one plane's job, and the
/// progress and cancel state of its run that the row tasks report to and poll.
#pragma once
#include <atomic>
#include <mutex>

#include "engine/Notify.h"
#include "operators/FilterSupport.h"

namespace astrivelle::smoothing {

/// One plane of one Smoothing step: the input `prev`, the output `cur`.
struct PlaneJob {
    int type = 0;
    const float* prev = nullptr;
    float* cur = nullptr;
    int width = 0;
    int height = 0;
    int half = 1;
    double strength = 1.0;
    int order = 1;
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
    double top = 65535; ///< the image's maximum: the clamp of the output, M of the formulas
    int Side() const { return 2 * half + 1; }
    ApplyRange Range() const { return ApplyRange(applyMin, applyMax, feather); }
};

/// Progress and cancel of one plane's run. Rows report as they finish; the bar moves every
/// 100 rows. Once a poll saw the cancel flag every later poll says stop, so all row tasks
/// end soon. Without a progress owner nothing is reported and nothing stops.
class FilterRun {
public:
    FilterRun(IProgress* progress, int rows) : progress_(progress), rows_(rows) {}

    bool Stop() {
        if (stopped_.load(std::memory_order_relaxed))
            return true;
        if (progress_ && progress_->Cancelled()) {
            stopped_.store(true, std::memory_order_relaxed);
            return true;
        }
        return false;
    }
    bool Stopped() const { return stopped_.load(std::memory_order_relaxed); }

    void RowsDone(int n) {
        if (!progress_)
            return;
        const int before = done_.fetch_add(n, std::memory_order_relaxed);
        const int after = before + n;
        if (after / 100 != before / 100 || after == rows_) {
            std::lock_guard<std::mutex> hold(lock_);
            progress_->SetProgress(after, rows_);
        }
    }
    /// The separable filters' four steps.
    void Step(int step) {
        if (progress_) {
            std::lock_guard<std::mutex> hold(lock_);
            progress_->SetProgress(step, 4);
        }
    }

private:
    IProgress* progress_;
    int rows_;
    std::atomic<int> done_{0};
    std::atomic<bool> stopped_{false};
    std::mutex lock_;
};

/// Box, binomial or Gaussian: row pass into a scratch plane, column pass into `cur`, then the
/// apply range. False when the scratch plane or the kernel could not be had (`*noMemory`
/// names which text: 1 scratch, 2 kernel) or when cancelled between passes.
bool SeparableFilter(const PlaneJob& job, FilterRun* run, int* noMemory);

/// The 1-D kernel of a separable type, normalised (a sum of 0 counts as 1).
bool SeparableKernel(int type, int half, double* weights);

/// Types 4, 5, 6, 8, 9 over the whole plane, in parallel: the sliding histogram where it
/// gives the same output as the plain gather, the plain gather otherwise. False when
/// cancelled (the plane is then partly written).
bool RankFilter(const PlaneJob& job, FilterRun* run);

} // namespace astrivelle::smoothing
