// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Auto Planet Align sheet.
#include "shell/PlanetAlignSheet.h"

#include <QLabel>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <filesystem>

namespace astrivelle {

namespace {

FileSetTraits PlanetTraits() {
    FileSetTraits t;
    t.kind = FileOpKind::AutoPlanet;
    t.operation = kAutoAlignPlanetListName;
    t.checkKeyword = kAutoAlignPlanetKeyword;
    t.operationWord = "auto align";
    t.minFiles = 1;
    t.noImageText = kAutoAlignPlanetOneImageText;
    t.noUsableText = kAutoAlignPlanetOneUsableText;
    t.directoryTitle = "Aligned Image Output Directory";
    t.runText = QStringLiteral("Align");
    t.hasPrefix = false;
    t.excludeColumn = true;
    return t;
}

} // namespace

PlanetAlignSheet* PlanetAlignSheet::Show(ShellContext& context) {
    return ToolFrame::ShowTool<PlanetAlignSheet>(context);
}

PlanetAlignSheet::PlanetAlignSheet(ShellContext& context)
    : FileSetFrame(context, QStringLiteral("Auto Planet Align"), kClassName, PlanetTraits()),
      result_(std::make_shared<AutoAlignPlanetResult>()) {
    QWidget* page = Methods()->parentWidget();
    auto* note = new QLabel(
        QStringLiteral("Each image is shifted so that the centre of brightness of its disk\n"
                       "falls where the first image's lies. Outputs: AN_ + name."),
        page);
    shifts = new QTreeWidget(page);
    shifts->setObjectName("shifts");
    shifts->setHeaderLabels({QStringLiteral("File"), QStringLiteral("Centroid X"),
                             QStringLiteral("Centroid Y"), QStringLiteral("Shift X"),
                             QStringLiteral("Shift Y")});
    Methods()->addWidget(note);
    Methods()->addWidget(shifts, 1);
}

AutoAlignPlanetRequest PlanetAlignSheet::Request(const std::vector<std::string>& usable,
                                                 const std::string& outDir) const {
    AutoAlignPlanetRequest r;
    r.files = usable;
    r.outputDirectory = outDir;
    return r;
}

bool PlanetAlignSheet::Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                               const std::string&, FileSetBody* body) {
    const AutoAlignPlanetRequest request = Request(usable, outDir);
    auto result = std::make_shared<AutoAlignPlanetResult>();
    result_ = result;
    *body = [request, result](IProgress& progress, INotify& notify) {
        *result = AutoAlignPlanetFiles(request, &progress, &notify);
        return result->run;
    };
    return true;
}

void PlanetAlignSheet::Finished(const FileOpResult&) {
    shifts->clear();
    for (const PlanetShift& s : result_->shifts) {
        QStringList row{QString::fromStdString(std::filesystem::path(s.input).filename().string())};
        if (s.found)
            row << QString::number(s.centroidX, 'f', 2) << QString::number(s.centroidY, 'f', 2)
                << QString::number(s.shiftX, 'f', 2) << QString::number(s.shiftY, 'f', 2);
        else
            row << "-"
                << "-"
                << "0"
                << "0";
        new QTreeWidgetItem(shifts, row);
    }
}

} // namespace astrivelle
