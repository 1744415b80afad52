// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The iterative restoration tools: "Non-Adaptive Iterative Restoration" (four rules) and
/// "Adaptive Richardson-Lucy". A run is a worker with progress and Cancel; with "Step Through"
/// it stops after each iteration until "Next" is pressed; "Iterations Done:" shows the count.
#pragma once
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "operators/Restoration.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QGridLayout;
class QLabel;
class QPushButton;
class QRadioButton;
class QSpinBox;

namespace astrivelle {

/// Holds a stepping worker between iterations until Next (or Cancel) releases it.
class StepGate {
public:
    /// On the worker: waits for Next; false when `progress` was cancelled meanwhile.
    bool Wait(IProgress& progress);
    void Release();
    bool Waiting() const;

private:
    mutable std::mutex lock_;
    std::condition_variable wake_;
    bool released_ = false;
    bool waiting_ = false;
};

/// What both restoration tools share: the PSF, iterations, Reduce Artifacts, the apply range,
/// Step Through and Next.
class CRestorationToolBase : public ToolFrame {
    Q_OBJECT
public:
    CRestorationToolBase(ShellContext& context, const QString& title, const std::string& className);

    QComboBox* psfType = nullptr;
    QComboBox* psfSize = nullptr;
    QPushButton* customPsfButton = nullptr;
    QSpinBox* iterations = nullptr;
    QCheckBox* reduceArtifacts = nullptr;
    QSpinBox* minApply = nullptr;
    QSpinBox* maxApply = nullptr;
    QSpinBox* featherRange = nullptr;
    QCheckBox* stepThrough = nullptr;
    QPushButton* nextButton = nullptr;
    QLabel* iterationsDone = nullptr;

    /// True while a stepping run waits for Next.
    bool WaitingForNext() const { return gate_ && gate_->Waiting(); }

protected:
    /// Builds the rows above the shared controls (the rule and its value).
    QGridLayout* ValueGrid() { return valueGrid_; }
    void FillPsfSizes();
    int PsfHalfSize() const;
    void SetPsf(int psfType, int halfSize);
    /// Runs `run(progress, hook)` on the worker; the hook shows the count and steps.
    void
    StartRun(CProcessWindow& window, const std::string& operation,
             std::function<bool(CProcessWindow&, IProgress&, const std::function<bool(int)>&)> run);
    bool RangeOk(int applyMin, int applyMax);

    /// Reads the shared controls into the fields both parameter sets have (defined in the
    /// source, where both tools use it).
    template <class P> void ReadShared(P& p) const;
    /// Shows those fields in the shared controls.
    template <class P> void WriteShared(const P& p);

private:
    QGridLayout* valueGrid_ = nullptr;
    std::shared_ptr<StepGate> gate_;
    bool minEditedLast_ = false;
    void ShowDone(int done);
};

class CIterativeRestoration : public CRestorationToolBase {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CIterativeRestoration";
    static constexpr const char* kTitle = "Non-Adaptive Iterative Restoration";
    static constexpr bool kNeedsImage = true;

    static CIterativeRestoration* Show(ShellContext& context);
    explicit CIterativeRestoration(ShellContext& context);

    RestorationParams Values() const;
    void SetValues(const RestorationParams& params);
    bool LoadParameters(const std::string& text);

    QRadioButton* typeButtons[4] = {};
    QDoubleSpinBox* relax = nullptr;

protected:
    void OnApply() override;
};

class CAdaptiveIterativeRestoration : public CRestorationToolBase {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CAdaptiveIterativeRestoration";
    static constexpr const char* kTitle = "Adaptive Richardson-Lucy";
    static constexpr bool kNeedsImage = true;

    static CAdaptiveIterativeRestoration* Show(ShellContext& context);
    explicit CAdaptiveIterativeRestoration(ShellContext& context);

    AdaptiveRestorationParams Values() const;
    void SetValues(const AdaptiveRestorationParams& params);
    bool LoadParameters(const std::string& text);

    QDoubleSpinBox* noiseThreshold = nullptr;

protected:
    void OnApply() override;
};

OperatorTool IterativeRestorationToolEntry();
OperatorTool AdaptiveRestorationToolEntry();

} // namespace astrivelle
