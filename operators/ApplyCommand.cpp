// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Replay of a recorded command on an image without a window.
#include "engine/Image.h"
#include "engine/ProcessStructure.h"
#include "operators/Registry.h"

namespace astrivelle {

namespace {
void SetError(std::string* error, const std::string& text) {
    if (error)
        *error = text;
}
} // namespace

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
        // Blend mode, opacity and mask arrive with the process history.
        SetError(error, "Blend, opacity and mask are not available in this version.");
        return false;
    }
    return true;
}

} // namespace astrivelle
