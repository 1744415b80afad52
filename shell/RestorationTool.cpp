// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The iterative restoration tools.
#include "shell/RestorationTool.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaObject>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>

#include "engine/ParamText.h"
#include "engine/workbench/MainWindow.h"
#include "operators/Filters.h"
#include "shell/PsfEditor.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

// ---- the step gate -----------------------------------------------------------------------

bool StepGate::Wait(IProgress& progress) {
    std::unique_lock<std::mutex> hold(lock_);
    waiting_ = true;
    while (!released_ && !progress.Cancelled())
        wake_.wait_for(hold, std::chrono::milliseconds(20));
    const bool go = released_ && !progress.Cancelled();
    released_ = false;
    waiting_ = false;
    return go;
}

void StepGate::Release() {
    std::lock_guard<std::mutex> hold(lock_);
    released_ = true;
    wake_.notify_all();
}

bool StepGate::Waiting() const {
    std::lock_guard<std::mutex> hold(lock_);
    return waiting_;
}

// ---- the shared part ---------------------------------------------------------------------

CRestorationToolBase::CRestorationToolBase(ShellContext& context, const QString& title,
                                           const std::string& className)
    : ToolFrame(context, title, className) {
    valueGrid_ = new QGridLayout;
    Body()->addLayout(valueGrid_);

    auto* psf = new QGroupBox("Point Spread Function", this);
    auto* psfRow = new QHBoxLayout(psf);
    psfType = new QComboBox(psf);
    psfType->setObjectName("psfType");
    for (int t = PsfBox; t <= PsfCustom; ++t)
        psfType->addItem(PsfTypeWord(t));
    psfSize = new QComboBox(psf);
    psfSize->setObjectName("psfSize");
    customPsfButton = new QPushButton("Custom PSF...", psf);
    customPsfButton->setObjectName("customPsf");
    psfRow->addWidget(psfType);
    psfRow->addWidget(psfSize);
    psfRow->addWidget(customPsfButton);
    Body()->addWidget(psf);

    auto* grid = new QGridLayout;
    iterations = new QSpinBox(this);
    iterations->setObjectName("iterations");
    iterations->setRange(1, kMaxIterations);
    iterations->setValue(10);
    reduceArtifacts = new QCheckBox("Reduce Artifacts", this);
    reduceArtifacts->setObjectName("reduceArtifacts");
    minApply = new QSpinBox(this);
    minApply->setObjectName("minApply");
    maxApply = new QSpinBox(this);
    maxApply->setObjectName("maxApply");
    featherRange = new QSpinBox(this);
    featherRange->setObjectName("featherRange");
    minApply->setRange(0, 65535);
    maxApply->setRange(0, 65535);
    maxApply->setValue(65535);
    featherRange->setRange(0, 20000);
    grid->addWidget(new QLabel("Iterations", this), 0, 0);
    grid->addWidget(iterations, 0, 1);
    grid->addWidget(reduceArtifacts, 1, 0, 1, 2);
    grid->addWidget(new QLabel("Min Apply", this), 2, 0);
    grid->addWidget(minApply, 2, 1);
    grid->addWidget(new QLabel("Max Apply", this), 3, 0);
    grid->addWidget(maxApply, 3, 1);
    grid->addWidget(new QLabel("Feather Range", this), 4, 0);
    grid->addWidget(featherRange, 4, 1);
    Body()->addLayout(grid);

    auto* stepRow = new QHBoxLayout;
    stepThrough = new QCheckBox("Step Through", this);
    stepThrough->setObjectName("stepThrough");
    nextButton = new QPushButton("Next", this);
    nextButton->setObjectName("next");
    nextButton->setEnabled(false);
    iterationsDone = new QLabel("Iterations Done: 0", this);
    iterationsDone->setObjectName("iterationsDone");
    stepRow->addWidget(stepThrough);
    stepRow->addWidget(nextButton);
    stepRow->addWidget(iterationsDone, 1);
    Body()->addLayout(stepRow);

    connect(psfType, &QComboBox::currentIndexChanged, this, [this] { FillPsfSizes(); });
    connect(minApply, &QSpinBox::valueChanged, this, [this] { minEditedLast_ = true; });
    connect(maxApply, &QSpinBox::valueChanged, this, [this] { minEditedLast_ = false; });
    connect(nextButton, &QPushButton::clicked, this, [this] {
        if (gate_)
            gate_->Release();
        nextButton->setEnabled(false);
    });
    connect(customPsfButton, &QPushButton::clicked, this, [this] {
        CCustomPSFDlg editor(Context(), this);
        if (editor.exec() == QDialog::Accepted && psfType->currentIndex() + 1 == PsfCustom)
            FillPsfSizes();
    });
    // Cancel also frees a worker that waits for Next.
    connect(cancelButton, &QPushButton::clicked, this, [this] {
        if (gate_)
            gate_->Release();
    });
}

void CRestorationToolBase::FillPsfSizes() {
    const int type = psfType->currentIndex() + 1;
    const int keep = PsfHalfSize();
    const QSignalBlocker quiet(psfSize);
    psfSize->clear();
    if (type == PsfCustom) {
        const int side = CurrentCustomPsf().size;
        psfSize->addItem(QString("%1x%1").arg(side), (side - 1) / 2);
    } else {
        for (int side : PsfSides(type))
            psfSize->addItem(QString("%1x%1").arg(side), (side - 1) / 2);
    }
    const int at = psfSize->findData(keep);
    psfSize->setCurrentIndex(at >= 0 ? at : std::min(1, psfSize->count() - 1));
}

int CRestorationToolBase::PsfHalfSize() const {
    return psfSize->count() ? psfSize->currentData().toInt() : 2;
}

void CRestorationToolBase::SetPsf(int type, int halfSize) {
    psfType->setCurrentIndex(std::clamp(type, 1, 4) - 1);
    FillPsfSizes();
    const int at = psfSize->findData(halfSize);
    if (at >= 0)
        psfSize->setCurrentIndex(at);
}

bool CRestorationToolBase::RangeOk(int applyMin, int applyMax) {
    const std::string text = SmoothingRangeText(applyMin, applyMax, minEditedLast_);
    if (text.empty())
        return true;
    Context().Model().notify().Message(text);
    return false;
}

template <class P> void CRestorationToolBase::ReadShared(P& p) const {
    p.psfType = psfType->currentIndex() + 1;
    p.halfSize = PsfHalfSize();
    p.iterations = iterations->value();
    p.reduceArtifacts = reduceArtifacts->isChecked();
    p.applyMin = minApply->value();
    p.applyMax = maxApply->value();
    p.feather = featherRange->value();
}

template <class P> void CRestorationToolBase::WriteShared(const P& p) {
    SetPsf(p.psfType, p.halfSize);
    iterations->setValue(p.iterations);
    reduceArtifacts->setChecked(p.reduceArtifacts);
    minApply->setValue(p.applyMin);
    maxApply->setValue(p.applyMax);
    featherRange->setValue(p.feather);
}

void CRestorationToolBase::ShowDone(int done) {
    iterationsDone->setText(QString("Iterations Done: %1").arg(done));
}

void CRestorationToolBase::StartRun(
    CProcessWindow& window, const std::string& operation,
    std::function<bool(CProcessWindow&, IProgress&, const std::function<bool(int)>&)> run) {
    gate_ = std::make_shared<StepGate>();
    ShowDone(0);
    const bool stepping = stepThrough->isChecked();
    QPointer<CRestorationToolBase> self(this);
    std::shared_ptr<StepGate> gate = gate_;
    CProcessWindow* target = &window;
    StartWorker(
        window,
        [run, target, gate, stepping, self](IProgress& progress) {
            auto hook = [&progress, gate, stepping, self](int done) {
                QMetaObject::invokeMethod(
                    qApp,
                    [self, done, stepping] {
                        if (!self)
                            return;
                        self->ShowDone(done);
                        if (stepping)
                            self->nextButton->setEnabled(true);
                    },
                    Qt::QueuedConnection);
                return stepping ? gate->Wait(progress) : !progress.Cancelled();
            };
            return run(*target, progress, hook);
        },
        [this, target, operation](bool) {
            nextButton->setEnabled(false);
            if (!Context().Model().IsOpen(target))
                return;
            // The count the record holds is the count really done.
            if (target->currentStep >= 0 &&
                target->currentStep < static_cast<int>(target->history.size())) {
                const CProcessStructure& r = target->history[target->currentStep];
                RestorationParams rp;
                AdaptiveRestorationParams ap;
                bool has = false;
                if (r.operation == operation &&
                    (operation == "Adaptive Richardson-Lucy"
                         ? ParseAdaptiveRestoration(r.parameters, &ap, nullptr, &has)
                         : ParseRestoration(r.parameters, &rp, nullptr, &has)) &&
                    has)
                    ShowDone(operation == "Adaptive Richardson-Lucy" ? ap.iterations
                                                                     : rp.iterations);
            }
            Context().ImageChanged(target);
        });
}

// ---- Non-Adaptive Iterative Restoration --------------------------------------------------

namespace {
const char* kTypeObjectNames[4] = {"vanCittert", "richardsonLucy", "maximumEntropy",
                                   "oneStepGradient"};
}

CIterativeRestoration* CIterativeRestoration::Show(ShellContext& context) {
    return ShowTool<CIterativeRestoration>(context);
}

CIterativeRestoration::CIterativeRestoration(ShellContext& context)
    : CRestorationToolBase(context, kTitle, kClassName) {
    auto* types = new QGroupBox("Restoration Type", this);
    auto* typeRow = new QVBoxLayout(types);
    for (int k = 0; k < 4; ++k) {
        typeButtons[k] = new QRadioButton(RestorationTypeWord(k + 1), types);
        typeButtons[k]->setObjectName(kTypeObjectNames[k]);
        typeRow->addWidget(typeButtons[k]);
        connect(typeButtons[k], &QRadioButton::toggled, this, [this, k](bool on) {
            if (on)
                relax->setValue(DefaultRelax(k + 1));
        });
    }
    relax = new QDoubleSpinBox(this);
    relax->setObjectName("relax");
    relax->setRange(0.0, 2.0);
    relax->setDecimals(2);
    relax->setSingleStep(0.01);
    ValueGrid()->addWidget(types, 0, 0, 1, 2);
    ValueGrid()->addWidget(new QLabel("Relax Value", this), 1, 0);
    ValueGrid()->addWidget(relax, 1, 1);
    SetValues(RestorationParams{});
}

RestorationParams CIterativeRestoration::Values() const {
    RestorationParams p;
    for (int k = 0; k < 4; ++k)
        if (typeButtons[k]->isChecked())
            p.type = k + 1;
    ReadShared(p);
    p.relax = relax->value();
    return p;
}

void CIterativeRestoration::SetValues(const RestorationParams& p) {
    typeButtons[std::clamp(p.type, 1, 4) - 1]->setChecked(true);
    relax->setValue(p.relax);
    WriteShared(p);
}

bool CIterativeRestoration::LoadParameters(const std::string& text) {
    RestorationParams p;
    if (!ParseRestoration(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CIterativeRestoration::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const RestorationParams p = Values();
    if (!RangeOk(p.applyMin, p.applyMax))
        return;
    StartRun(*target, kTitle,
             [p](CProcessWindow& w, IProgress& progress, const std::function<bool(int)>& hook) {
                 return w.IterativeRestoration(p, &CurrentCustomPsf(), &progress, hook);
             });
}

// ---- Adaptive Richardson-Lucy --------------------------------------------------------------

CAdaptiveIterativeRestoration* CAdaptiveIterativeRestoration::Show(ShellContext& context) {
    return ShowTool<CAdaptiveIterativeRestoration>(context);
}

CAdaptiveIterativeRestoration::CAdaptiveIterativeRestoration(ShellContext& context)
    : CRestorationToolBase(context, kTitle, kClassName) {
    noiseThreshold = new QDoubleSpinBox(this);
    noiseThreshold->setObjectName("noiseThreshold");
    noiseThreshold->setRange(0.0, 10.0);
    noiseThreshold->setDecimals(2);
    noiseThreshold->setSingleStep(0.01);
    ValueGrid()->addWidget(new QLabel("Noise Threshold", this), 0, 0);
    ValueGrid()->addWidget(noiseThreshold, 0, 1);
    SetValues(AdaptiveRestorationParams{});
}

AdaptiveRestorationParams CAdaptiveIterativeRestoration::Values() const {
    AdaptiveRestorationParams p;
    ReadShared(p);
    p.noiseThreshold = noiseThreshold->value();
    return p;
}

void CAdaptiveIterativeRestoration::SetValues(const AdaptiveRestorationParams& p) {
    noiseThreshold->setValue(p.noiseThreshold);
    WriteShared(p);
}

bool CAdaptiveIterativeRestoration::LoadParameters(const std::string& text) {
    AdaptiveRestorationParams p;
    if (!ParseAdaptiveRestoration(text, &p, nullptr))
        return false;
    SetValues(p);
    return true;
}

void CAdaptiveIterativeRestoration::OnApply() {
    CProcessWindow* target = Target();
    if (!target)
        return;
    const AdaptiveRestorationParams p = Values();
    if (!RangeOk(p.applyMin, p.applyMax))
        return;
    StartRun(*target, kTitle,
             [p](CProcessWindow& w, IProgress& progress, const std::function<bool(int)>& hook) {
                 return w.AdaptiveRestoration(p, &CurrentCustomPsf(), &progress, hook);
             });
}

// ---- menu entries ---------------------------------------------------------------------------

OperatorTool IterativeRestorationToolEntry() {
    return MakeOperatorTool<CIterativeRestoration>(
        CIterativeRestoration::kTitle, QStringLiteral("&Filters"),
        QStringLiteral("&Iterative Restoration..."), QStringLiteral("actionIterativeRestoration"));
}

OperatorTool AdaptiveRestorationToolEntry() {
    return MakeOperatorTool<CAdaptiveIterativeRestoration>(
        CAdaptiveIterativeRestoration::kTitle, QStringLiteral("&Filters"),
        QStringLiteral("&Adaptive Richardson-Lucy..."),
        QStringLiteral("actionAdaptiveRichardsonLucy"));
}

} // namespace astrivelle
