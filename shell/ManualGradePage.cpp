// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The manual page of Grade Files.
#include "shell/ManualGradePage.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>
#include <filesystem>

#include "engine/Image.h"
#include "engine/ProcessStructure.h"
#include "engine/ProcessWindow.h"
#include "imagesets/FileSetRules.h"
#include "imagesets/FilterFiles.h"
#include "operators/Registry.h"
#include "shell/FileSetFrame.h"
#include "shell/GradeReportDialog.h"
#include "shell/ImageView.h"
#include "shell/ShellContext.h"
#include "shell/ToolControls.h"

namespace astrivelle {

namespace {

constexpr std::array<const char*, 4> kAids = {kManualGradeAids[0], kManualGradeAids[1],
                                              kManualGradeAids[2], kManualGradeAids[3]};
constexpr int kPictureWidth = 360, kPictureHeight = 270;

} // namespace

ManualGradePage::ManualGradePage(ShellContext& context, StartChecks checks, QWidget* parent)
    : QGroupBox(QStringLiteral("Manual Grade"), parent), context_(context),
      checks_(std::move(checks)) {
    setObjectName("manualGrade");
    auto* column = new QVBoxLayout(this);
    aid = MakeCombo(this, "aid", kAids);
    startButton = MakeButton(this, QStringLiteral("Start Manual Grade"), "startManual");
    cancelButton = MakeButton(this, QStringLiteral("Cancel"), "cancelManual");
    auto* top = new QHBoxLayout;
    top->addWidget(new QLabel(QStringLiteral("Display:"), this));
    top->addWidget(aid);
    top->addStretch(1);
    top->addWidget(startButton);
    top->addWidget(cancelButton);
    column->addLayout(top);
    picture = new QLabel(this);
    picture->setObjectName("picture");
    picture->setFixedSize(kPictureWidth, kPictureHeight);
    picture->setAlignment(Qt::AlignCenter);
    picture->setFrameShape(QFrame::StyledPanel);
    column->addWidget(picture, 0, Qt::AlignHCenter);
    fileLabel = new QLabel(this);
    fileLabel->setObjectName("fileLabel");
    column->addWidget(fileLabel);
    auto* keyRow = new QHBoxLayout;
    const char* texts[6] = {"&A", "&B", "&C", "&D", "&F", "&Skip"};
    const char* names[6] = {"gradeA", "gradeB", "gradeC", "gradeD", "gradeF", "skip"};
    const char letters[6] = {'A', 'B', 'C', 'D', 'F', 'S'};
    for (int i = 0; i < 6; ++i) {
        keys[i] = MakeButton(this, QString::fromLatin1(texts[i]), names[i]);
        keyRow->addWidget(keys[i]);
        const char key = letters[i];
        connect(keys[i], &QPushButton::clicked, this, [this, key] { Press(key); });
    }
    column->addLayout(keyRow);
    weights = new GradeWeightFields(true, this);
    weights->Load(context_.Setup());
    column->addWidget(weights);
    status = new QLabel(this);
    status->setObjectName("manualStatus");
    column->addWidget(status);
    for (QLineEdit* w : weights->weights)
        connect(w, &QLineEdit::editingFinished, this, [this] { StoreWeights(); });
    connect(startButton, &QPushButton::clicked, this, [this] { Start(); });
    connect(cancelButton, &QPushButton::clicked, this, [this] { Cancel(); });
    connect(aid, &QComboBox::currentIndexChanged, this, [this] {
        if (session_.Active())
            ShowAid();
    });
    Refresh();
}

ManualGradePage::~ManualGradePage() = default;

bool ManualGradePage::Start() {
    if (session_.Active())
        return false;
    std::vector<std::string> usable;
    std::string folder;
    if (!checks_(&usable, &folder))
        return false;
    const bool started = session_.Start(usable, folder);
    status->setText(Q(session_.Status()));
    if (started)
        ShowCurrent();
    Refresh();
    return started;
}

bool ManualGradePage::Press(char key) {
    if (!session_.Active())
        return false;
    std::string error;
    if (key == 'S') {
        session_.Skip();
    } else if (!session_.Grade(key, &error)) {
        status->setText(Q(error));
        return false;
    }
    status->setText(Q(session_.Status()));
    if (session_.Active())
        ShowCurrent();
    else
        FileSetFrame::RefreshAllSheets(); // the graded list is there for the next operation
    Refresh();
    return true;
}

void ManualGradePage::Cancel() {
    session_.Cancel();
    status->setText(Q(session_.Status()));
    Refresh();
}

void ManualGradePage::ShowCurrent() {
    original_ = std::make_unique<Image>();
    const std::string path = session_.Current();
    fileLabel->setText(QString::asprintf("%d / %d  ", static_cast<int>(session_.Index()) + 1,
                                         static_cast<int>(session_.Count())) +
                       Q(std::filesystem::path(path).filename().string()));
    std::string error;
    if (!session_.Read(original_.get(), &error)) {
        original_.reset();
        status->setText(Q(error));
    }
    ShowAid();
}

void ManualGradePage::ShowAid() {
    picture->clear();
    shown_.reset();
    if (!original_)
        return;
    // The file is read once; each aid works on a copy of it.
    shown_ = std::make_unique<Image>();
    const Image& o = *original_;
    if (!shown_->CopyFrom(o, o.width, o.height, o.maxValue, o.colorType, o.colorDetail)) {
        shown_.reset();
        return;
    }
    shown_->fileType = o.fileType;
    shown_->dataType = o.dataType;
    // A stretch aid takes the parameters last applied to the active image, else the
    // operator's own first form.
    const std::string aidName = ComboText(aid);
    const std::string op = ManualGradeAidOperator(aidName);
    if (!op.empty()) {
        std::string text;
        CProcessWindow* active = context_.ActiveImage();
        if (!active || !LastAppliedParameters(active->history, active->currentStep, op, &text)) {
            const OperatorDescriptor* d = FindOperator(op);
            text = d && !d->examples.empty() ? d->examples.front() : std::string();
        }
        CProcessStructure record;
        record.operation = op;
        record.parameters = text;
        std::string why;
        if (!ApplyRecords(*shown_, {record}, &why))
            status->setText(Q(aidName + ": " + why));
    }
    const QImage shownPicture = DisplayPicture(*shown_, op.empty());
    picture->setPixmap(QPixmap::fromImage(shownPicture.scaled(
        kPictureWidth, kPictureHeight, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

void ManualGradePage::Refresh() {
    const bool on = session_.Active();
    startButton->setEnabled(!on);
    cancelButton->setEnabled(on);
    for (QPushButton* k : keys)
        k->setEnabled(on);
    if (!on) {
        picture->clear();
        fileLabel->clear();
    }
}

void ManualGradePage::StoreWeights() {
    std::string error;
    if (!weights->Store(context_.Setup(), &error))
        status->setText(Q(error));
}

} // namespace astrivelle
