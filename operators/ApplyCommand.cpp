// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Replay of a recorded command on an image without a window, and the reading of a
/// blend's mask file.
#include <filesystem>

#include "engine/Blend.h"
#include "engine/Image.h"
#include "engine/Mask.h"
#include "engine/ProcessStructure.h"
#include "fileio/FileDispatch.h"
#include "operators/Registry.h"

namespace astrivelle {

namespace {
void SetError(std::string* error, const std::string& text) {
    if (error)
        *error = text;
}
} // namespace

bool ReadMaskFile(const std::string& path, std::int32_t width, std::int32_t height, Image* mask,
                  const float** plane, std::string* text) {
    auto fail = [&](const char* message) {
        if (text)
            *text = message;
        return false;
    };
    // Masks are FITS or TIFF files; any other kind is refused as unreadable.
    const std::string ext = std::filesystem::path(path).extension().string();
    const std::string upper = UpperExtension(ext);
    if (!IsFitsExtension(ext) && upper != ".TIF" && upper != ".TIFF")
        return fail("Error reading image mask file.");
    if (!mask->ReadFile(path, ext))
        return fail("Error reading image mask file.");
    if (mask->width != width || mask->height != height)
        return fail("Mask width or height does not match current active image.");
    const int slot = SlotOfColorType(mask->colorType);
    if (slot < 0 || !mask->curPlane[slot])
        return fail("Mask file must be a monochrome image.");
    *plane = mask->curPlane[slot];
    return true;
}

bool Image::ApplyCommand(const CProcessStructure& record, const void* customFilter,
                         const void* customPsf, IProgress* progressOwner, std::string* error) {
    const std::string operation = record.operation;
    const OperatorDescriptor* op = FindOperator(operation);
    if (!op) {
        SetError(error, "Unknown operation \"" + operation + "\"");
        return false;
    }
    // Hand edits of single pixels belong to the image they were made on.
    if (operation == "Edit Pixel Intensity" || operation == "Edit Pixel Color")
        return true;
    if (!op->replay) {
        SetError(error, "The operation \"" + operation + "\" is not available in this version.");
        return false;
    }
    ReplayContext context{customFilter, customPsf, progressOwner};
    if (!op->replay(*this, record.parameters, context, error))
        return false;
    if (BlendActive(record)) {
        // The pure result goes to the work rows, then the blend with the record's values and
        // channels overwrites the current planes.
        const BlendStep step = record.applyMask ? BlendStep::ApplyMask : BlendStep::BlendOnly;
        Image maskImage;
        const float* maskPlane = nullptr;
        if (BlendNeedsMaskFile(record, step)) {
            std::string text;
            if (!ReadMaskFile(record.maskFile, width, height, &maskImage, &maskPlane, &text)) {
                SetError(error, text);
                return false;
            }
        }
        BlendFailure why = BlendFailure::None;
        if (!BlendRecord(*this, record, step, maskPlane, BlendWork::SaveCurrent, &why)) {
            SetError(error, BlendFailureText(why));
            return false;
        }
    }
    return true;
}

} // namespace astrivelle
