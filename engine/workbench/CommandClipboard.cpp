// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The command clipboard shared by the open images.
#include "engine/workbench/CommandClipboard.h"

namespace astrivelle {

std::vector<CProcessStructure> CCommandClipboard::PasteCopies() const {
    std::vector<CProcessStructure> copies = records_;
    for (CProcessStructure& r : copies) {
        r.prevImageFile = kReprocessCommandMark;
        r.curImageFile = kNotRunMark;
    }
    return copies;
}

CCommandClipboard& SharedCommandClipboard() {
    static CCommandClipboard clipboard;
    return clipboard;
}

} // namespace astrivelle
