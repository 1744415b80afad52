// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options tool.
#include "shell/SystemOptionsTool.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "engine/workbench/MainWindow.h"
#include "shell/ShellContext.h"

namespace astrivelle {

namespace {

/// A group of exclusive radio buttons, one per label, with their index as id.
QButtonGroup* RadioGroup(QWidget* parent, QGroupBox* box, const std::vector<std::string>& labels,
                         int checked, bool horizontal) {
    auto* group = new QButtonGroup(parent);
    QBoxLayout* layout = horizontal ? static_cast<QBoxLayout*>(new QHBoxLayout(box))
                                    : static_cast<QBoxLayout*>(new QVBoxLayout(box));
    for (std::size_t i = 0; i < labels.size(); ++i) {
        auto* button = new QRadioButton(QString::fromStdString(labels[i]), box);
        group->addButton(button, static_cast<int>(i));
        layout->addWidget(button);
    }
    if (horizontal)
        layout->addStretch(1);
    if (QAbstractButton* b = group->button(checked))
        b->setChecked(true);
    return group;
}

QComboBox* List(QWidget* parent, const std::vector<std::string>& items, int current,
                const char* name) {
    auto* combo = new QComboBox(parent);
    combo->setObjectName(name);
    for (const std::string& item : items)
        combo->addItem(QString::fromStdString(item));
    combo->setCurrentIndex(current);
    return combo;
}

} // namespace

CSystemOption* CSystemOption::Show(ShellContext& context) {
    return ShowTool<CSystemOption>(context);
}

CSystemOption::CSystemOption(ShellContext& context) : ToolFrame(context, kTitle, kClassName, 0) {
    CSetupParams& setup = context.Setup();
    const SystemOptionsControls start = ControlsFromOptions(setup);
    auto* grid = new QGridLayout;
    Body()->addLayout(grid);

    auto* display = new QGroupBox(kCaptionImageDisplay, this);
    displayGroup =
        RadioGroup(this, display, DisplayAdjustmentChoices(), start.displayButton, false);
    grid->addWidget(display, 0, 0);

    auto* scale = new QGroupBox(kCaptionInitialScale, this);
    auto* scaleLayout = new QGridLayout(scale);
    autoFitButton = new QRadioButton(kCaptionAutoFit, scale);
    autoFitButton->setObjectName("autoFit");
    useDefaultButton = new QRadioButton(kCaptionUseDefaultScale, scale);
    useDefaultButton->setObjectName("useDefault");
    scaleList = List(scale, ScaleChoices(), start.scaleIndex, "scale");
    scaleLayout->addWidget(autoFitButton, 0, 0, 1, 2);
    scaleLayout->addWidget(useDefaultButton, 1, 0);
    scaleLayout->addWidget(scaleList, 1, 1);
    (start.autoFit ? autoFitButton : useDefaultButton)->setChecked(true);
    scaleList->setEnabled(!start.autoFit);
    connect(useDefaultButton, &QRadioButton::toggled, scaleList, &QComboBox::setEnabled);
    grid->addWidget(scale, 0, 1);

    auto* background = new QGroupBox(kCaptionBackground, this);
    backgroundGroup =
        RadioGroup(this, background, BackgroundChoices(), start.backgroundButton, true);
    // The background follows each click.
    connect(backgroundGroup, &QButtonGroup::idClicked, this, [this](int id) {
        if (id >= 0 && id < static_cast<int>(BackgroundChoices().size())) {
            Context().Setup().strings[SetupBackground] = BackgroundChoices()[id];
            if (QWidget* main = Context().MainWidget())
                main->update();
        }
    });
    grid->addWidget(background, 1, 0, 1, 2);

    std::vector<std::string> typeLabels, priorityLabels;
    for (const OptionChoice& c : SaveTypeChoices())
        typeLabels.emplace_back(c.label);
    for (const OptionChoice& c : PriorityChoices())
        priorityLabels.emplace_back(c.label);
    auto* saveType = new QGroupBox(kCaptionSaveType, this);
    saveTypeGroup = RadioGroup(this, saveType, typeLabels, start.saveTypeButton, false);
    grid->addWidget(saveType, 2, 0);

    auto* right = new QVBoxLayout;
    auto* priority = new QGroupBox(kCaptionPriority, this);
    priorityGroup = RadioGroup(this, priority, priorityLabels, start.priorityButton, false);
    right->addWidget(priority);
    auto* accelerator = new QGroupBox(this);
    auto* accelLayout = new QVBoxLayout(accelerator);
    useAcceleratorCheck = new QCheckBox(kCaptionUseAccelerator, accelerator);
    useAcceleratorCheck->setObjectName("useAccelerator");
    useAcceleratorCheck->setChecked(start.useAccelerator);
    useAcceleratorCheck->setEnabled(AcceleratorCheckEnabled(Options().accelerator));
    accelLayout->addWidget(useAcceleratorCheck);
    for (const std::string& line : AcceleratorTexts(Options().accelerator)) {
        auto* label = new QLabel(QString::fromStdString(line), accelerator);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        acceleratorLines.push_back(label);
        accelLayout->addWidget(label);
    }
    right->addWidget(accelerator);
    right->addStretch(1);
    grid->addLayout(right, 2, 1);

    auto* fields = new QGridLayout;
    jpegList = List(this, JpegQualityChoices(), start.jpegIndex, "jpegQuality");
    openImageLimit = new QLineEdit(QString::number(start.openImageLimit), this);
    openImageLimit->setObjectName("openImageLimit");
    openImageLimit->setValidator(new QIntValidator(-999999, 999999, openImageLimit));
    openImageLimit->setMaximumWidth(90);
    fields->addWidget(new QLabel(kCaptionJpegQuality, this), 0, 0);
    fields->addWidget(jpegList, 0, 1, Qt::AlignLeft);
    fields->addWidget(new QLabel(kCaptionOpenImageLimit, this), 1, 0);
    fields->addWidget(openImageLimit, 1, 1, Qt::AlignLeft);
    fields->setColumnStretch(2, 1);
    Body()->addLayout(fields);

    slidersCheck = new QCheckBox(kCaptionSliders, this);
    slidersCheck->setObjectName("sliders");
    slidersCheck->setChecked(start.slidersEnabled);
    connect(slidersCheck, &QCheckBox::toggled, this,
            [this](bool on) { Context().Setup().slidersEnabled = on; });
    stickyCopyCheck = new QCheckBox(kCaptionStickyCopy, this);
    stickyCopyCheck->setObjectName("stickyCopy");
    stickyCopyCheck->setChecked(start.stickyCopyPortion);
    Body()->addWidget(slidersCheck);
    Body()->addWidget(stickyCopyCheck);

    auto* save = new QPushButton("Save", this);
    save->setObjectName("save");
    save->setDefault(true);
    auto* cancel = new QPushButton("Cancel", this);
    cancel->setObjectName("cancel");
    ButtonRow()->addWidget(save);
    ButtonRow()->addWidget(cancel);
    connect(save, &QPushButton::clicked, this, [this] {
        if (Save())
            close();
    });
    connect(cancel, &QPushButton::clicked, this, [this] { close(); });
}

SystemOptionsControls CSystemOption::Controls() const {
    SystemOptionsControls c;
    c.displayButton = displayGroup->checkedId();
    c.autoFit = autoFitButton->isChecked();
    c.scaleIndex = scaleList->currentIndex();
    c.backgroundButton = backgroundGroup->checkedId();
    c.saveTypeButton = saveTypeGroup->checkedId();
    c.priorityButton = priorityGroup->checkedId();
    c.useAccelerator = useAcceleratorCheck->isChecked();
    c.jpegIndex = jpegList->currentIndex();
    bool ok = false;
    const qlonglong limit = openImageLimit->text().trimmed().toLongLong(&ok);
    c.openImageLimit = ok ? limit : 0; // an empty field is no limit above 0
    c.slidersEnabled = slidersCheck->isChecked();
    c.stickyCopyPortion = stickyCopyCheck->isChecked();
    return c;
}

std::string CSystemOption::SetupPath() {
    const std::string& own = Context().Model().setupPath;
    return own.empty() ? DefaultSetupPath() : own;
}

bool CSystemOption::Save() {
    const SystemOptionsControls controls = Controls();
    std::string why;
    CSetupParams& setup = Context().Setup();
    if (!SaveSystemOptions(controls, setup, SetupPath(), &why)) {
        Context().Model().notify().Message(why);
        if (why == kOpenImageLimitText) {
            openImageLimit->setFocus();
            openImageLimit->selectAll();
        }
        return false;
    }
    // The options in force for this process follow what was saved.
    if (&setup != &Options().setup)
        ApplySystemOptions(controls, Options().setup);
    return true;
}

} // namespace astrivelle
