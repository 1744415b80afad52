// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Read Noise and Gain dialog.
#include "shell/ReadNoiseGainDialog.h"
#include "shell/PostToGui.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <filesystem>

#include "calibration/Bayer.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"
#include "fileio/FileFilters.h"
#include "imagesets/FileOperation.h"
#include "imagesets/FileSetRules.h"
#include "shell/MainFrame.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr const char* kFrameNames[4] = {"Flat 1", "Flat 2", "Bias 1", "Bias 2"};
constexpr const char* kFrameObjects[4] = {"flat1", "flat2", "bias1", "bias2"};
constexpr const char* kBrowseObjects[4] = {"browseFlat1", "browseFlat2", "browseBias1",
                                           "browseBias2"};
constexpr std::array<const char*, 5> kAdcChoices = {" 8 bit", "10 bit", "12 bit", "14 bit",
                                                    "16 bit"};

/// The same file under either name.
bool SameFile(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty())
        return false;
    if (a == b)
        return true;
    std::error_code ec;
    return std::filesystem::exists(a, ec) && std::filesystem::exists(b, ec) &&
           std::filesystem::equivalent(a, b, ec);
}

} // namespace

// ---- progress, posted to the dialog ---------------------------------------------------------

void ReadNoiseGainProgress::SetProgress(long step, long total) {
    PostProgress(dialog_.data(), &ReadNoiseGainDialog::runProgress, step, total);
}

void ReadNoiseGainProgress::SetStatus(const std::string& text) {
    PostText(dialog_.data(), &ReadNoiseGainDialog::status, Q(text));
}

// ---- the dialog -----------------------------------------------------------------------------

ReadNoiseGainDialog* ReadNoiseGainDialog::Show(ShellContext& context) {
    return ToolFrame::ShowTool<ReadNoiseGainDialog>(context);
}

ReadNoiseGainDialog::ReadNoiseGainDialog(ShellContext& context)
    : ToolFrame(context, QStringLiteral("Read Noise and Gain"), kClassName, 0),
      progress_(std::make_unique<ReadNoiseGainProgress>(this)) {
    auto* filesBox = new QGroupBox(QStringLiteral("Flat and Bias Frames"), this);
    auto* filesForm = new QFormLayout(filesBox);
    for (int i = 0; i < 4; ++i) {
        frames[i] = new QLineEdit(filesBox);
        frames[i]->setObjectName(kFrameObjects[i]);
        frames[i]->setMinimumWidth(320);
        browse[i] = MakeButton(filesBox, QStringLiteral("..."), kBrowseObjects[i]);
        auto* row = new QHBoxLayout;
        row->addWidget(frames[i], 1);
        row->addWidget(browse[i]);
        filesForm->addRow(QString::fromLatin1(kFrameNames[i]), row);
        const Frame frame = static_cast<Frame>(i);
        connect(frames[i], &QLineEdit::editingFinished, this, [this, frame] {
            const std::string typed = frames[frame]->text().trimmed().toStdString();
            if (typed != accepted_[frame])
                SelectFrame(frame, typed);
        });
        connect(browse[i], &QPushButton::clicked, this, [this, frame] {
            const QString chosen = QFileDialog::getOpenFileName(
                this, QStringLiteral("Select ") + QString::fromLatin1(kFrameNames[frame]),
                Q(Context().Model().lastFolder),
                QtFilterList(JoinFilters(OpenImageFilterEntries())));
            if (!chosen.isEmpty())
                SelectFrame(frame, chosen.toStdString());
        });
    }
    Body()->addWidget(filesBox);

    auto* typeBox = new QGroupBox(QStringLiteral("Input Bias and Flat Frame Type"), this);
    auto* typeRow = new QHBoxLayout(typeBox);
    typeDslr = new QRadioButton(QStringLiteral("DSLR"), typeBox);
    typeDslr->setObjectName("typeDslr");
    typeOscCcd = new QRadioButton(QStringLiteral("OSC CCD"), typeBox);
    typeOscCcd->setObjectName("typeOscCcd");
    typeCcd = new QRadioButton(QStringLiteral("Mono. CCD"), typeBox);
    typeCcd->setObjectName("typeCcd");
    typeCcd->setChecked(true);
    typeRow->addWidget(typeDslr);
    typeRow->addWidget(typeOscCcd);
    typeRow->addWidget(typeCcd);
    Body()->addWidget(typeBox);

    auto* form = new QFormLayout;
    adcBits = MakeCombo(this, "adcBits", kAdcChoices);
    adcBits->setCurrentIndex(static_cast<int>(kAdcChoices.size()) - 1);
    pedestal = new QSpinBox(this);
    pedestal->setObjectName("pedestal");
    pedestal->setRange(0, 65535);
    bayerFrameType = new QComboBox(this);
    bayerFrameType->setObjectName("bayerFrameType");
    for (const CfaFrameType& type : CfaFrameTypes())
        bayerFrameType->addItem(QString::fromLatin1(type.shown), QString::fromLatin1(type.keyword));
    patternKeyword = new QLabel(this);
    patternKeyword->setObjectName("patternKeyword");
    form->addRow(QStringLiteral("A/D Converter"), adcBits);
    form->addRow(QStringLiteral("Pedestal"), pedestal);
    form->addRow(QStringLiteral("Bayer Frame Type"), bayerFrameType);
    form->addRow(QStringLiteral("CFA Pattern"), patternKeyword);
    Body()->addLayout(form);

    results = new QTreeWidget(this);
    results->setObjectName("results");
    results->setRootIsDecorated(false);
    results->setHeaderLabels(
        {QString(), QStringLiteral("Gain (e/ADU)"), QStringLiteral("Read Noise (e/Pixel)")});
    results->setMinimumHeight(110);
    Body()->addWidget(results);

    auto* progressRow = new QHBoxLayout;
    runProgress = new QProgressBar(this);
    runProgress->setObjectName("progress");
    runProgress->setTextVisible(false);
    runProgress->setRange(0, 1);
    runProgress->setValue(0);
    status = new QLabel(this);
    status->setObjectName("status");
    status->setMinimumWidth(200);
    progressRow->addWidget(runProgress, 1);
    progressRow->addWidget(status, 1);
    Body()->addLayout(progressRow);

    computeButton = MakeButton(this, QStringLiteral("Compute"), "compute");
    cancelRunButton = MakeButton(this, QStringLiteral("Cancel"), "cancelRun");
    cancelRunButton->setEnabled(false);
    closeButton = MakeButton(this, QStringLiteral("&Done"), "done");
    ButtonRow()->addWidget(computeButton);
    ButtonRow()->addWidget(cancelRunButton);
    ButtonRow()->addWidget(closeButton);

    for (QRadioButton* r : {typeDslr, typeOscCcd, typeCcd})
        connect(r, &QRadioButton::toggled, this, [this] { Refresh(); });
    connect(bayerFrameType, &QComboBox::currentIndexChanged, this, [this] { Refresh(); });
    connect(computeButton, &QPushButton::clicked, this, [this] { Compute(); });
    connect(cancelRunButton, &QPushButton::clicked, this, [this] {
        if (running_)
            progress_->RequestCancel();
    });
    connect(closeButton, &QPushButton::clicked, this, [this] { close(); });
    Refresh();
}

ReadNoiseGainDialog::~ReadNoiseGainDialog() {
    if (running_) {
        progress_->RequestCancel();
        if (worker_)
            worker_->Join();
        running_ = false;
        SetReadNoiseGainRunning(false);
    }
    if (worker_)
        worker_->Join();
}

void ReadNoiseGainDialog::Refresh() {
    const bool bayer = !typeCcd->isChecked();
    bayerFrameType->setEnabled(bayer);
    patternKeyword->setEnabled(bayer);
    patternKeyword->setText(bayerFrameType->currentData().toString());
}

void ReadNoiseGainDialog::Say(const std::string& text) {
    status->setText(Q(text));
    if (!text.empty())
        Context().Model().notify().Message(text);
}

bool ReadNoiseGainDialog::SelectFrame(Frame frame, const std::string& path) {
    for (int other = 0; other < 4; ++other) {
        if (other == frame)
            continue;
        const std::string current = frames[other]->text().trimmed().toStdString();
        if (SameFile(path, current)) {
            Say(std::string("Please select a ") + kFrameNames[frame] +
                " frame that is different than " + kFrameNames[other] + ".");
            frames[frame]->setText(Q(accepted_[frame]));
            return false;
        }
    }
    accepted_[frame] = path;
    frames[frame]->setText(Q(path));
    return true;
}

ReadNoiseGainRequest ReadNoiseGainDialog::Request() const {
    ReadNoiseGainRequest r;
    r.flat1 = frames[Flat1]->text().trimmed().toStdString();
    r.flat2 = frames[Flat2]->text().trimmed().toStdString();
    r.bias1 = frames[Bias1]->text().trimmed().toStdString();
    r.bias2 = frames[Bias2]->text().trimmed().toStdString();
    r.frameType = typeDslr->isChecked() ? "DSLR" : typeOscCcd->isChecked() ? "OSCCCD" : "CCD";
    r.adcBits = adcBits->currentText().trimmed().section(' ', 0, 0).toInt();
    r.pedestal = pedestal->value();
    r.cfaPattern = bayerFrameType->currentData().toString().toStdString();
    return r;
}

bool ReadNoiseGainDialog::Compute() {
    if (running_)
        return false;
    const ReadNoiseGainRequest request = Request();
    std::string text;
    if (!CheckDistinctFrames(request, &text)) {
        Say(text);
        return false;
    }
    if (worker_)
        worker_->Join();
    worker_ = std::make_unique<FileOpWorker>();
    progress_->ResetCancel();
    results->clear();
    status->clear();
    SetRunning(true);
    QPointer<ReadNoiseGainDialog> self(this);
    ReadNoiseGainProgress* progress = progress_.get();
    const bool started = worker_->Start(
        [self, progress, request] {
            PostCall(self, [result = ComputeReadNoiseGain(request, progress)](
                               ReadNoiseGainDialog& d) mutable { d.Finish(std::move(result)); });
        },
        GetThreadPriorityWord(), &Context().Model().notify());
    if (!started)
        SetRunning(false);
    return started;
}

void ReadNoiseGainDialog::SetRunning(bool on) {
    running_ = on;
    SetReadNoiseGainRunning(on);
    computeButton->setEnabled(!on);
    cancelRunButton->setEnabled(on);
    closeButton->setEnabled(!on);
    for (int i = 0; i < 4; ++i) {
        frames[i]->setEnabled(!on);
        browse[i]->setEnabled(!on);
    }
    for (QWidget* w :
         std::initializer_list<QWidget*>{typeDslr, typeOscCcd, typeCcd, adcBits, pedestal})
        w->setEnabled(!on);
    if (on) {
        runProgress->setRange(0, 0); // busy until the worker ends
        bayerFrameType->setEnabled(false);
        setWindowTitle(QStringLiteral("*** Operation In Progress ***"));
    } else {
        runProgress->setRange(0, 1);
        runProgress->setValue(1);
        Refresh();
        setWindowTitle(ToolName());
    }
}

void ReadNoiseGainDialog::Finish(ReadNoiseGainResult result) {
    if (worker_)
        worker_->Join();
    last_ = std::move(result);
    SetRunning(false);
    // The worker's last status has landed before this (posted earlier on the same queue).
    if (!last_.status.empty())
        status->setText(Q(last_.status));
    else if (last_.ok)
        status->setText(QStringLiteral("Completed"));
    results->clear();
    for (const GainRow& row : last_.rows)
        new QTreeWidgetItem(results, {Q(row.name), Q(FormatGainValue(row.gain)),
                                      Q(FormatGainValue(row.readNoise))});
    Context().Model().notify().Beep();
}

bool ReadNoiseGainDialog::WaitForRun(int timeoutMs) {
    return WaitWhileRunning(running_, timeoutMs);
}

void ReadNoiseGainDialog::closeEvent(QCloseEvent* event) {
    if (running_) {
        Context().Model().notify().Message(kReadNoiseGainCloseText);
        event->ignore();
        return;
    }
    ToolFrame::closeEvent(event);
}

} // namespace astrivelle
