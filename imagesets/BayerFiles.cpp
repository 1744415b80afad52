// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Bayer Interpolate/Split Files over the file-operation frame.
#include "imagesets/BayerFiles.h"

#include <filesystem>
#include <utility>

#include "calibration/Bayer.h"
#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// Moves the planes, geometry, format and header of `from` into `to` (and the old ones of
/// `to` into `from`, which frees them).
void TakeOver(Image& to, Image& from) {
    std::swap(to.width, from.width);
    std::swap(to.height, from.height);
    std::swap(to.pixelCount, from.pixelCount);
    std::swap(to.maxValue, from.maxValue);
    std::swap(to.colorType, from.colorType);
    std::swap(to.colorDetail, from.colorDetail);
    std::swap(to.fileType, from.fileType);
    std::swap(to.dataType, from.dataType);
    std::swap(to.tiffBitsPerSample, from.tiffBitsPerSample);
    std::swap(to.fitsCompress, from.fitsCompress);
    std::swap(to.headerCards, from.headerCards);
    for (int s = 0; s < 3; ++s) {
        std::swap(to.curPlane[s], from.curPlane[s]);
        std::swap(to.prevPlane[s], from.prevPlane[s]);
    }
}

std::uint32_t SplitColorOf(const std::string& outputColor) {
    if (outputColor == "RED")
        return ColorRed;
    if (outputColor == "GREEN")
        return ColorGreen;
    if (outputColor == "BLUE")
        return ColorBlue;
    return 0;
}

bool IsFitsKeyword(const std::string& k) {
    return k == "COMPFIT" || k == "UNCOMPFIT" || k == "COMPFIT32" || k == "UNCOMPFIT32";
}

} // namespace

std::string BayerFilesStatus(const std::string& outputColor) {
    if (outputColor == "RGB")
        return "Converting Files To RGB Color...";
    if (outputColor == "RED")
        return "Converting Files To Red Data Only...";
    if (outputColor == "GREEN")
        return "Converting Files To Green Data Only...";
    if (outputColor == "BLUE")
        return "Converting Files To Blue Data Only...";
    return {};
}

bool BayerFilesPrefix(const std::string& outputColor, const std::string& userPrefix,
                      std::string* prefix, std::string* message) {
    std::string checked;
    if (!CheckPrefix(userPrefix, &checked, message, false))
        return false;
    if (checked.empty()) {
        *prefix = outputColor == "RGB" ? "BINT_" : "BAYER_" + outputColor + "_";
        return true;
    }
    *prefix = outputColor == "RGB" ? checked : checked + "_" + outputColor + "_";
    return true;
}

FileOpResult RunBayerFiles(const BayerFilesParams& params, IProgress* progress, INotify* notify) {
    FileOpResult result;
    FileOpBusy busy(FileOpKind::Bayer);
    if (!busy.Acquired())
        return StopRun(progress, notify, BusyText(FileOpKind::Bayer));
    const std::string status = BayerFilesStatus(params.outputColor);
    if (status.empty())
        return StopRun(progress, notify, "Unknown output colour " + params.outputColor);
    CfaCell cell;
    if (!ParseCfaKeyword(params.cfaPattern, &cell))
        return StopRun(progress, notify, "Unknown colour filter pattern " + params.cfaPattern);
    FileOpJob op;
    std::string message;
    if (!BayerFilesPrefix(params.outputColor, params.prefix, &op.prefix, &message))
        return StopRun(progress, notify, message);
    op.inputs = params.files;
    op.outDir = params.outputDirectory;
    op.saveType = IsFitsKeyword(params.saveType) ? params.saveType : "TIFF16";
    op.runningText = status;
    op.doneText = "Completed";
    op.readFailureText = "Error Reading ";
    op.processFailureText.clear(); // the texts below name the file themselves
    op.writeFailureText = "Error Writing ";

    const std::uint32_t split = SplitColorOf(params.outputColor);
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string& path, std::size_t, IProgress*,
                           std::string* why) {
        const std::string name = fs::path(path).filename().string();
        Image made;
        if (split == 0) {
            std::string error;
            if (!InterpolateBayerImage(image, params.cfaPattern, params.reduceGreenNoise,
                                       params.buildRGBPixel, &made, &error)) {
                *why = error == "Error Allocating Memory" ? error : error + " " + name;
                return false;
            }
            // The TIFF tags of the input travel with the image to the output.
            made.tiffInfo = image.tiffInfo;
        } else {
            if (image.width % 2 || image.height % 2) {
                *why = "Error width not divisible by 2 use Images Size with Filter Files to "
                       "remove the right column " +
                       name;
                return false;
            }
            if (!made.SplitBayerPlane(image, split, params.cfaPattern, false, params.averageGreen,
                                      op.saveType)) {
                const char* word = split == ColorRed     ? "Red"
                                   : split == ColorGreen ? "Green"
                                                         : "Blue";
                *why = std::string(word) + " Data Split Error " + name;
                return false;
            }
            CopyHeaderWithoutExtName(image.headerCards, made.headerCards);
            made.tiffInfo = image.tiffInfo;
        }
        TakeOver(image, made);
        image.tiffInfo = made.tiffInfo;
        return true;
    };
    return RunFileOperation(op, handlers, progress, notify);
}

} // namespace astrivelle
