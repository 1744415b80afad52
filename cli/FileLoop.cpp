// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The shared per-file loop of the file-list commands.
#include "cli/FileLoop.h"

#include <filesystem>

#include "cli/CliCommon.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/SaveType.h"
#include "fileio/WriteSafely.h"

namespace astrivelle::cli {

namespace fs = std::filesystem;

int RunFileLoop(const FileLoop& loop) {
    std::error_code ec;
    fs::create_directories(loop.outDir, ec);
    if (!fs::is_directory(loop.outDir)) {
        PrintFailure("Could not create the output folder " + loop.outDir, ec.message());
        return ExitFailed;
    }
    CliProgress progress(loop.quiet);
    CancelOnInterrupt(&progress);
    int failures = 0;
    const long total = static_cast<long>(loop.files.size());
    for (long n = 0; n < total; ++n) {
        if (progress.Cancelled()) {
            progress.Finish();
            PrintFailure("Thread Canceled");
            CancelOnInterrupt(nullptr);
            return ExitFailed;
        }
        const std::string& path = loop.files[n];
        const std::string name = fs::path(path).filename().string();
        progress.SetStatus(name);
        progress.SetProgress(n, total);

        Image img;
        std::string why;
        const bool read =
            loop.read ? loop.read(img, path, &why) : img.ReadFile(path, ExtensionOf(path));
        if (!read) {
            progress.Finish();
            PrintFailure("Error reading " + path, loop.read ? why : LastFileError());
            ++failures;
            continue;
        }
        if (loop.change && !loop.change(img, &why)) {
            progress.Finish();
            PrintFailure(loop.failureText + name, why);
            ++failures;
            continue;
        }
        const std::string extension = ApplySaveType(img, loop.saveType, ExtensionOf(path));
        const std::string outName = loop.prefix + fs::path(path).stem().string() + extension;
        const std::string target = (fs::path(loop.outDir) / outName).string();
        if (!WriteImageSafely(img, target, img.fileType, loop.files, &why)) {
            progress.Finish();
            const std::string text = WriteFailureText(img.fileType, outName);
            const std::string detail = LastFileError();
            PrintFailure(text, detail.empty() ? why : why + ": " + detail);
            ++failures;
        }
    }
    progress.SetProgress(total, total);
    progress.Finish();
    CancelOnInterrupt(nullptr);
    return failures ? ExitFailed : ExitOk;
}

} // namespace astrivelle::cli
