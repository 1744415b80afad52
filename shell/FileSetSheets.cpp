// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The table of image-set sheets and the "Image Sets" menu.
#include "shell/FileSetSheets.h"

#include <QAction>
#include <QMenu>

#include "engine/workbench/MainWindow.h"
#include "imagesets/FileSetRules.h"
#include "shell/AlignSheet.h"
#include "shell/BayerSheet.h"
#include "shell/CalibrateSheet.h"
#include "shell/CalibrationSetupDialog.h"
#include "shell/CombineSheet.h"
#include "shell/ConvertSheet.h"
#include "shell/FileSetFrame.h"
#include "shell/FileSetProcessSheet.h"
#include "shell/FilterFilesSheet.h"
#include "shell/GradeSheet.h"
#include "shell/NormalizeSheet.h"
#include "shell/PlanetAlignSheet.h"
#include "shell/ReadNoiseGainDialog.h"
#include "shell/ResizeSheet.h"
#include "shell/ShellContext.h"

namespace astrivelle {

namespace {

template <class T>
FileSetSheetEntry Sheet(const char* menuText, const char* objectName, FileOpKind kind,
                        const char* nextText) {
    FileSetSheetEntry e;
    e.menuText = QString::fromLatin1(menuText);
    e.objectName = QString::fromLatin1(objectName);
    e.kind = kind;
    e.nextText = QString::fromLatin1(nextText);
    e.show = [](ShellContext& c) -> QWidget* { return T::Show(c); };
    e.asFrame = [](QWidget* w) -> FileSetFrame* { return qobject_cast<FileSetFrame*>(w); };
    return e;
}

} // namespace

const std::vector<FileSetSheetEntry>& FileSetSheets() {
    static const std::vector<FileSetSheetEntry> sheets = [] {
        std::vector<FileSetSheetEntry> list;
        list.push_back(Sheet<CalibrateSheet>("&Calibrate Files...", "actionCalibrateFiles",
                                             FileOpKind::Calibrate, "Calibrate"));
        list.push_back(Sheet<CombineSheet>("C&ombine Files/HDR Add...", "actionCombineFiles",
                                           FileOpKind::Combine, "Combine"));
        list.push_back(Sheet<NormalizeSheet>("&Normalize Files...", "actionNormalizeFiles",
                                             FileOpKind::Normalize, "Normalize"));
        list.push_back(Sheet<ResizeSheet>("&Resize Files...", "actionResizeFiles",
                                          FileOpKind::Resize, "Resize"));
        list.push_back(
            Sheet<CropSheet>("C&rop Files...", "actionCropFiles", FileOpKind::Crop, "Crop"));
        list.push_back(
            Sheet<ConvertSheet>("Con&vert Files...", "actionConvertFiles", FileOpKind::Count_, ""));
        list.push_back(Sheet<FilterFilesSheet>("&Filter Files...", "actionFilterFiles",
                                               FileOpKind::Filter, "Filter"));
        list.push_back(Sheet<BayerSheet>("&Bayer Interpolate/Split Files...", "actionBayerFiles",
                                         FileOpKind::Bayer, ""));
        list.push_back(Sheet<AlignSheet>("&Align Files...", "actionAlignFiles",
                                         FileOpKind::AlignTSR, "Align"));
        list.push_back(Sheet<PlanetAlignSheet>(
            "Auto &Planet Align Files...", "actionPlanetAlignFiles", FileOpKind::AutoPlanet, ""));
        list.push_back(
            Sheet<GradeSheet>("&Grade Files...", "actionGradeFiles", FileOpKind::Grade, "Grade"));
        return list;
    }();
    return sheets;
}

void BuildFileSetMenu(QMenu* menu, ShellContext& context) {
    menu->setObjectName(QStringLiteral("menuImageSets"));
    QAction* setup = menu->addAction(QStringLiteral("Calibration &Setup..."));
    setup->setObjectName(QStringLiteral("actionCalibrationSetup"));
    QObject::connect(setup, &QAction::triggered, menu,
                     [&context] { CalibrationSetupDialog::Show(context); });
    menu->addSeparator();
    for (const FileSetSheetEntry& entry : FileSetSheets()) {
        QAction* a = menu->addAction(entry.menuText);
        a->setObjectName(entry.objectName);
        auto show = entry.show;
        QObject::connect(a, &QAction::triggered, menu, [&context, show] { show(context); });
    }
    QAction* automatic = menu->addAction(QStringLiteral("&Automatic Image Set Process..."));
    automatic->setObjectName(QStringLiteral("actionFileSetProcess"));
    QObject::connect(automatic, &QAction::triggered, menu,
                     [&context] { FileSetProcessSheet::Show(context); });
    menu->addSeparator();
    QAction* gain = menu->addAction(QStringLiteral("Compute Read Noise and Gain..."));
    gain->setObjectName(QStringLiteral("actionReadNoiseGain"));
    QObject::connect(gain, &QAction::triggered, menu,
                     [&context] { ReadNoiseGainDialog::Show(context); });
}

FileSetFrame* OpenWithInputs(ShellContext& context, const FileSetSheetEntry& entry,
                             const std::vector<std::string>& inputs) {
    if (const std::string refusal = FileOpStartRefusal(entry.kind); !refusal.empty()) {
        context.Model().notify().Message(refusal);
        return nullptr;
    }
    QWidget* sheet = entry.show ? entry.show(context) : nullptr;
    FileSetFrame* frame = sheet && entry.asFrame ? entry.asFrame(sheet) : nullptr;
    if (frame && !inputs.empty())
        frame->SetInputFiles(inputs);
    return frame;
}

} // namespace astrivelle
