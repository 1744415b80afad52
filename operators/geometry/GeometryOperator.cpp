// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The geometric operator functions of an open image: the sheet's checks with their
/// texts, the record, and the pixel work on every plane. Each works with the values its own
/// parameter text reads back as, so that replaying the record gives the same pixels.
#include "engine/ProcessWindow.h"
#include "operators/Geometry.h"

namespace astrivelle {

namespace {

bool HasImage(const Image& image) {
    if (image.width <= 0 || image.height <= 0 || image.Slots().empty())
        return false;
    for (int s : image.Slots())
        if (!image.curPlane[s])
            return false;
    return true;
}

/// Runs a step that must stand alone in the history: whatever was pending is final first,
/// and the result is final at once.
bool RunAlone(CProcessWindow& w, const std::string& name, const std::string& text,
              const std::function<bool(bool)>& work) {
    w.pending = false;
    const bool ok = w.RunOperator(name, text, work);
    w.pending = false;
    return ok;
}

} // namespace

bool CProcessWindow::MirrorVertical() {
    if (!HasImage(image)) {
        notify().Message(kGeometryNoImageText);
        return false;
    }
    std::string error;
    const bool ok = RunAlone(*this, "Mirror Vertical", FormatMirror(true), [&](bool pending) {
        return ApplyMirror(image, true, pending, &error);
    });
    if (!ok && !error.empty())
        notify().Message(error);
    return ok;
}

bool CProcessWindow::MirrorHorizontal() {
    if (!HasImage(image)) {
        notify().Message(kGeometryNoImageText);
        return false;
    }
    std::string error;
    const bool ok = RunAlone(*this, "Mirror Horizontal", FormatMirror(false), [&](bool pending) {
        return ApplyMirror(image, false, pending, &error);
    });
    if (!ok && !error.empty())
        notify().Message(error);
    return ok;
}

bool CProcessWindow::Translate(const TranslateParams& params) {
    const bool have = HasImage(image);
    const std::string check =
        TranslateCheckText(params, have ? image.width : 0, have ? image.height : 0);
    if (!check.empty()) {
        notify().Message(check);
        return false;
    }
    const std::string text = FormatTranslate(params);
    TranslateParams p;
    std::string error;
    if (!ParseTranslate(text, &p, &error)) {
        notify().Message(error);
        return false;
    }
    const bool ok = RunOperator(
        "Translate", text, [&](bool pending) { return ApplyTranslate(image, p, pending, &error); });
    if (!ok && !error.empty())
        notify().Message(error);
    return ok;
}

bool CProcessWindow::Rotate(const RotateParams& params) {
    const bool have = HasImage(image);
    const std::string check =
        RotateCheckText(params, have ? image.width : 0, have ? image.height : 0);
    if (!check.empty()) {
        notify().Message(check);
        return false;
    }
    const std::string text = FormatRotate(params);
    RotateParams p;
    std::string error;
    if (!ParseRotate(text, &p, &error)) {
        notify().Message(error);
        return false;
    }
    auto work = [&](bool pending) { return ApplyRotate(image, p, pending, &error); };
    const bool ok =
        p.addBorder ? RunAlone(*this, "Rotate", text, work) : RunOperator("Rotate", text, work);
    if (!ok && !error.empty())
        notify().Message(error);
    return ok;
}

bool CProcessWindow::Scale(const ScaleStepParams& params) {
    const bool have = HasImage(image);
    const std::string check =
        ScaleCheckText(params, have ? image.width : 0, have ? image.height : 0);
    if (!check.empty()) {
        notify().Message(check);
        return false;
    }
    const std::string text = FormatScale(params);
    ScaleStepParams p;
    std::string error;
    if (!ParseScale(text, &p, &error)) {
        notify().Message(error);
        return false;
    }
    // "No Scale Needed": no step, no message box.
    if (ScaleIsIdentity(p, image.width, image.height))
        return false;
    const bool ok = RunAlone(*this, "Scale", text, [&](bool) {
        // Both planes of each slot hold the input here; both are resized.
        return ApplyScale(image, p, &error);
    });
    if (!ok && !error.empty())
        notify().Message(error);
    return ok;
}

} // namespace astrivelle
