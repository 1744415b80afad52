// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `project`: render a saved project's history to one image, or print its report text.
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/FileLoop.h"
#include "engine/Image.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/Project.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "fileio/WriteSafely.h"

namespace astrivelle::cli {

namespace {

namespace fs = std::filesystem;

const char* kProjectHelp =
    "usage: astrivelle-cli project render FILE.qxj -o OUTFILE [--save-type KW] [--quiet]\n"
    "       astrivelle-cli project print FILE.qxj [--final NAME] [--comment TEXT]\n"
    "                                             [--date TEXT] [--no-images]\n\n"
    "render  loads the project, reads its initial image and applies every later step in\n"
    "        order (as All Commands would, without a window), then writes OUTFILE. The\n"
    "        extension of OUTFILE picks the format (.fit/.fts/.fits, .tif/.tiff, .jpg, .bmp)\n"
    "        unless --save-type KW (COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32, TIFF16, TIFF8,\n"
    "        JPEG, BMP) says it. A project moved with its folder is read from its own folder.\n"
    "print   writes the project's report text to stdout, as Save Project writes it beside\n"
    "        the .qxj file.\n"
    "  --final NAME    the name after \"Final Image Saved As : \" (default: the file of the\n"
    "                  last step)\n"
    "  --comment TEXT  the user comment\n"
    "  --date TEXT     the date shown (default: now, as month/day/year hour:minute)\n"
    "  --no-images     leave out the file lines of each step\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli project: %s\n%s", error.c_str(), kProjectHelp);
    return ExitUsage;
}

/// Messages to stderr; a moved project is restored into its own folder, where its files lie.
class ProjectCliNotify : public CliNotify {
public:
    bool ChooseFolder(const std::string&, std::string* folder) override { return !folder->empty(); }
};

/// The output kind by extension, converting the image's file type where it differs.
bool KindByExtension(Image& img, const std::string& path) {
    const std::string ext = UpperExtension(ExtensionOf(path));
    if (IsFitsExtension(ext)) {
        if (img.fileType != KindFITS)
            img.SetGeometryFits(KindFITS, img.colorType, img.colorDetail, Data16, img.width,
                                img.height);
    } else if (ext == ".TIF" || ext == ".TIFF") {
        if (img.fileType != KindTIFF)
            img.SetGeometryTiff(KindTIFF, img.colorType, img.colorDetail, img.width, img.height,
                                16);
    } else if (ext == ".JPG" || ext == ".JPEG" || ext == ".JPE") {
        img.SetGeometry(KindJPEG, img.colorType, img.colorDetail, img.width, img.height);
    } else if (ext == ".BMP") {
        img.SetGeometry(KindBMP, img.colorType, img.colorDetail, img.width, img.height);
    } else {
        return false;
    }
    return true;
}

int RunRender(const Arguments& args) {
    if (args.files.size() != 2)
        return Usage("render takes one project file");
    const std::string project = args.files[1];
    const std::string outFile = args.Value("-o");
    if (outFile.empty())
        return Usage("-o OUTFILE is required");
    const std::string saveType = args.Value("--save-type");
    if (!saveType.empty() && (saveType == "SAMEASINPUT" || !IsKnownSaveType(saveType, true)))
        return Usage("unknown save type " + saveType);
    if (saveType.empty()) {
        Image probe;
        if (!KindByExtension(probe, outFile))
            return Usage("the extension of " + outFile + " names no image format");
    }

    ProjectCliNotify notify;
    CProcessWindow window(&notify);
    ProjectLoadResult loaded;
    if (!LoadProjectFile(project, window, {}, &loaded))
        return ExitFailed; // the loader told why
    if (loaded.placeholder) {
        PrintFailure(kProjectCantLoadText, "the project's initial image could not be read");
        return ExitFailed;
    }
    if (!loaded.complete)
        return ExitFailed;

    CliProgress progress(args.Has("--quiet"));
    CancelOnInterrupt(&progress);
    Image& img = window.image;
    const long total = static_cast<long>(window.history.size()) - 1;
    for (long step = 1; step <= total; ++step) {
        const CProcessStructure& record = window.history[step];
        progress.SetStatus(record.operation);
        progress.SetProgress(step - 1, total);
        std::string why;
        if (progress.Cancelled()) {
            progress.Finish();
            CancelOnInterrupt(nullptr);
            PrintFailure("Thread Canceled");
            return ExitFailed;
        }
        if (!img.ApplyCommand(record, nullptr, nullptr, &progress, &why)) {
            progress.Finish();
            CancelOnInterrupt(nullptr);
            PrintFailure("Error filtering " + fs::path(project).filename().string(),
                         "step " + std::to_string(step) + " \"" + record.operation + "\": " + why);
            return ExitFailed;
        }
    }
    progress.SetProgress(total, total);
    progress.Finish();
    CancelOnInterrupt(nullptr);

    if (!saveType.empty())
        ApplySaveType(img, saveType, ExtensionOf(outFile));
    else
        KindByExtension(img, outFile);
    std::string why;
    if (!WriteImageSafely(img, outFile, img.fileType, {window.filePath, project}, &why)) {
        const std::string detail = LastFileError();
        PrintFailure(WriteFailureText(img.fileType, fs::path(outFile).filename().string()),
                     detail.empty() ? why : why + ": " + detail);
        return ExitFailed;
    }
    return ExitOk;
}

int RunPrint(const Arguments& args) {
    if (args.files.size() != 2)
        return Usage("print takes one project file");
    std::vector<CProcessStructure> records;
    bool color = false;
    std::string error;
    if (!ReadProjectRecords(args.files[1], &records, &color, &error)) {
        PrintFailure(error);
        return ExitFailed;
    }
    std::string finalName = args.Value("--final");
    if (finalName.empty()) {
        const CProcessStructure& last = records.back();
        finalName = last.curImageFile.empty() || last.curImageFile == kNotRunFile
                        ? last.prevImageFile
                        : last.curImageFile;
    }
    std::string date = args.Value("--date");
    if (date.empty()) {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        date = ProjectReportDate(local);
    }
    const std::string text = ProjectReportText(records, color, finalName, args.Value("--comment"),
                                               !args.Has("--no-images"), date);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? ExitOk : ExitFailed;
}

} // namespace

int RunProject(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"-o", "--save-type", "--final", "--comment", "--date"},
                        {"--help", "--quiet", "--no-images"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kProjectHelp, stdout);
        return ExitOk;
    }
    if (args.files.empty())
        return Usage("render or print is required");
    if (args.files[0] == "render")
        return RunRender(args);
    if (args.files[0] == "print")
        return RunPrint(args);
    return Usage("unknown project command " + args.files[0]);
}

} // namespace astrivelle::cli
