// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The operator functions of an open image for Unsharp Mask, the iterative restorations
/// and Edge Extract: record, then pixel work on the selected channels.
#include "engine/ParamText.h"
#include "engine/ProcessWindow.h"
#include "operators/Restoration.h"

namespace astrivelle {

namespace {

/// A restoration run: iteration 1 opens the step, the later ones repeat it (pending), cancel
/// and Step Through act between iterations, and the record ends with the count done.
template <class Iterate>
bool RunRestoration(CProcessWindow& w, const char* name, const std::string& text, int iterations,
                    IProgress* progress, const std::function<bool(int)>& stepThrough,
                    Iterate iterate) {
    RestorationPlanes planes;
    if (!planes.Allocate(w.image)) {
        w.notify().Message(kCantAllocateText);
        return false;
    }
    int done = 0;
    for (int it = 1; it <= iterations; ++it) {
        if (it > 1 && progress && progress->Cancelled())
            break;
        const bool ok = w.RunOperator(name, text, [&](bool pending) {
            for (int s : w.SelectedSlots())
                if (!iterate(planes, s, pending, it == 1)) {
                    w.notify().Message(kCantAllocateText);
                    return false;
                }
            return true;
        });
        if (!ok)
            break;
        done = it;
        if (progress) {
            progress->SetProgress(it, iterations);
            progress->SetStatus(FormatText("Iterations Done: %d", it));
        }
        if (stepThrough && it < iterations && !stepThrough(it))
            break;
    }
    if (done > 0 && w.currentStep >= 0 && w.currentStep < static_cast<int>(w.history.size()) &&
        w.history[w.currentStep].operation == name) {
        w.history[w.currentStep].parameters = text + FormatIterations(done);
        w.notify().HistoryChanged();
    }
    return done > 0;
}

/// The PSF of a run, checked before anything is recorded; false with the text shown.
bool CheckRunPsf(CProcessWindow& w, int psfType, int* halfSize, const CCustomPSF* custom) {
    std::vector<double> a, b;
    int side = 0;
    if (psfType == PsfCustom) {
        std::string why;
        if (!PsfUsable(*custom, &why)) {
            w.notify().Message(why);
            return false;
        }
    }
    if (!BuildPsf(psfType, *halfSize, custom, &a, &b, &side)) {
        w.notify().Message(kCantAllocateText);
        return false;
    }
    *halfSize = (side - 1) / 2;
    return true;
}

} // namespace

bool CProcessWindow::UnsharpMask(const UnsharpParams& params, const CCustomFilter* custom) {
    UnsharpParams p = params;
    std::vector<double> weights;
    if (p.filter == UnsharpParams::Custom) {
        static const CCustomFilter identity;
        const CCustomFilter& filter = custom ? *custom : identity;
        std::string why;
        if (!CustomFilterWeights(filter, &weights, &why)) {
            notify().Message(why.empty() ? kCustomFilterSumZeroText : why);
            return false;
        }
        p.radius = (filter.size - 1) / 2;
        p.customName = filter.name;
    }
    return RunOperator("Unsharp Mask", FormatUnsharp(p), [&](bool pending) {
        for (int s : SelectedSlots())
            if (!image.UnsharpMask(pending, image.prevPlane[s], image.curPlane[s],
                                   weights.empty() ? nullptr : weights.data(), p.radius, p.variant,
                                   p.filter, p.backgroundWeight, p.threshold, p.strength,
                                   p.applyMin, p.applyMax, p.feather, p.reduceArtifacts)) {
                notify().Message(kCantAllocateText);
                return false;
            }
        return true;
    });
}

bool CProcessWindow::IterativeRestoration(const RestorationParams& params, const CCustomPSF* custom,
                                          IProgress* progress,
                                          const std::function<bool(int)>& stepThrough) {
    RestorationParams p = params;
    const CCustomPSF* psf =
        p.psfType == PsfCustom ? (custom ? custom : &CurrentCustomPsf()) : nullptr;
    if (!CheckRunPsf(*this, p.psfType, &p.halfSize, psf))
        return false;
    return RunRestoration(
        *this, "Non-Adaptive Iterative Restoration", FormatRestoration(p), p.iterations, progress,
        stepThrough, [&](RestorationPlanes& planes, int s, bool pending, bool first) {
            return image.RestoreIteration(
                planes.estimate[s], planes.scratch1[s], planes.scratch2[s], pending,
                image.prevPlane[s], image.curPlane[s], psf, p.type, p.psfType, p.relax, p.halfSize,
                first, p.applyMin, p.applyMax, p.feather, p.reduceArtifacts);
        });
}

bool CProcessWindow::AdaptiveRestoration(const AdaptiveRestorationParams& params,
                                         const CCustomPSF* custom, IProgress* progress,
                                         const std::function<bool(int)>& stepThrough) {
    AdaptiveRestorationParams p = params;
    const CCustomPSF* psf =
        p.psfType == PsfCustom ? (custom ? custom : &CurrentCustomPsf()) : nullptr;
    if (!CheckRunPsf(*this, p.psfType, &p.halfSize, psf))
        return false;
    return RunRestoration(
        *this, "Adaptive Richardson-Lucy", FormatAdaptiveRestoration(p), p.iterations, progress,
        stepThrough, [&](RestorationPlanes& planes, int s, bool pending, bool first) {
            return image.RestoreIterationAdaptive(
                planes.estimate[s], planes.scratch1[s], planes.scratch2[s], pending,
                image.prevPlane[s], image.curPlane[s], psf, p.psfType, p.noiseThreshold, p.halfSize,
                first, p.applyMin, p.applyMax, p.feather, p.reduceArtifacts);
        });
}

bool CProcessWindow::EdgeExtract(const EdgeParams& p) {
    return RunOperator("Edge Extract", FormatEdge(p), [&](bool pending) {
        for (int s : SelectedSlots())
            if (!image.EdgeExtract(pending, image.prevPlane[s], image.curPlane[s], p.type,
                                   p.binarize, p.threshold, p.brightness, (p.window - 1) / 2,
                                   p.edgeWidth)) {
                notify().Message(EdgeFailureText(p.type));
                return false;
            }
        return true;
    });
}

} // namespace astrivelle
