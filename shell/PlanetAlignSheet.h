// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Auto Planet Align sheet: each file of the set (without the ones marked "Exclude")
/// shifted so that its bright disk's centre of brightness falls where the first one's lies.
#pragma once
#include <memory>

#include "imagesets/AutoAlignPlanetFiles.h"
#include "shell/FileSetFrame.h"

class QTreeWidget;

namespace astrivelle {

class PlanetAlignSheet : public FileSetFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CAutoAlignFileDlg";
    static constexpr bool kNeedsImage = false;
    explicit PlanetAlignSheet(ShellContext& context);
    static PlanetAlignSheet* Show(ShellContext& context);

    /// The request the sheet runs for `usable`.
    AutoAlignPlanetRequest Request(const std::vector<std::string>& usable,
                                   const std::string& outDir) const;
    /// The whole result of the last run (centroids and shifts).
    const AutoAlignPlanetResult& LastPlanetResult() const { return *result_; }

    /// One row per aligned file: name, centroid, shift.
    QTreeWidget* shifts = nullptr;

protected:
    bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                 const std::string& prefix, FileSetBody* body) override;
    void Finished(const FileOpResult& result) override;

private:
    std::shared_ptr<AutoAlignPlanetResult> result_;
};

} // namespace astrivelle
