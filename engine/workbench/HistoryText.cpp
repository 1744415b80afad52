// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the history list shows, the toolbar's undo and redo state, and the print text.
#include <cstdarg>
#include <cstdio>

#include "engine/Blend.h"
#include "engine/Image.h"
#include "engine/workbench/History.h"

namespace astrivelle {

namespace {

/// The `#` fields of a parameter text, in order, without the empty ones.
std::vector<std::string> ParameterFields(const std::string& parameters) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    while (start < parameters.size()) {
        std::size_t hash = parameters.find('#', start);
        if (hash == std::string::npos)
            hash = parameters.size();
        if (hash > start)
            fields.push_back(parameters.substr(start, hash - start));
        start = hash + 1;
    }
    return fields;
}

std::string ApplyToText(const CProcessStructure& r) {
    std::string text = "Apply to: ";
    if (r.channelRed)
        text += " Red";
    if (r.channelGreen)
        text += " Green";
    if (r.channelBlue)
        text += " Blue";
    return text;
}

const char* ModeName(int mode) {
    const char* name = BlendModeName(mode);
    return name ? name : BlendModeName(0);
}

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
    if (n > 0)
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

} // namespace

HistoryListView BuildHistoryListView(const CProcessWindow& w) {
    HistoryListView view;
    if (w.history.empty()) {
        view.rows.push_back(kHistoryNoOperations);
        return view;
    }
    for (std::size_t i = 0; i < w.history.size(); ++i) {
        const CProcessStructure& r = w.history[i];
        std::string row;
        if (static_cast<int>(i) == w.currentStep)
            row += kHistoryShownPrefix;
        if (i > 0 && r.prevImageFile != w.history[i - 1].curImageFile) {
            row += kHistoryBrokenPrefix;
            view.sequenceBroken = true;
        }
        row += r.operation;
        view.rows.push_back(row);
    }
    view.textColor = view.sequenceBroken ? kHistoryBrokenColor : 0;
    if (w.currentStep >= 0 && w.currentStep < static_cast<int>(w.history.size())) {
        const CProcessStructure& r = w.history[w.currentStep];
        view.details.push_back("Previous Image File : " + r.prevImageFile);
        view.details.push_back("Current Image File : " + r.curImageFile);
        if (r.channelSelect)
            view.details.push_back(ApplyToText(r));
        for (std::string& field : ParameterFields(r.parameters))
            view.details.push_back(std::move(field));
    }
    return view;
}

bool UndoAvailable(const CProcessWindow& w) {
    return !w.isBlinkImage && w.currentStep > 0;
}

bool RedoAvailable(const CProcessWindow& w) {
    return !w.isBlinkImage && w.currentStep + 1 < static_cast<int>(w.history.size());
}

bool ForwardAvailable(const CProcessWindow& w) {
    return w.currentStep + 1 < static_cast<int>(w.history.size());
}

bool BlendControlsAvailable(const CProcessWindow& w) {
    if (w.currentStep <= 0 || w.currentStep >= static_cast<int>(w.history.size()))
        return false;
    return !IsNoBlendOperation(w.history[w.currentStep].operation);
}

std::string HistoryPrintText(const CProcessWindow& w, const std::tm& when) {
    std::string text = w.image.colorType == ColorRGB ? "     Astrivelle Color Project v5.0"
                                                     : "     Astrivelle Monochrome Project v5.0";
    const int year = when.tm_year + 1900;
    const int month = when.tm_mon + 1;
    text += when.tm_min < 10 ? Printf("\n\n     Date: %d/%d/%d %d:0%d", month, when.tm_mday, year,
                                      when.tm_hour, when.tm_min)
                             : Printf("\n\n     Date: %d/%d/%d %d:%d", month, when.tm_mday, year,
                                      when.tm_hour, when.tm_min);
    for (const CProcessStructure& r : w.history) {
        text += Printf("\n\n     Previous Image File : %s\n", r.prevImageFile.c_str());
        text += Printf("      Current Image File : %s\n", r.curImageFile.c_str());
        if (!r.filterFile.empty())
            text += Printf("      Current Filter File : %s\n", r.filterFile.c_str());
        if (!r.maskFile.empty())
            text += Printf("      Current Image Mask File : %s\n", r.maskFile.c_str());
        text += "\n";
        if (r.channelSelect)
            text += Printf("     %s\n", ApplyToText(r).c_str());
        text += Printf("     Operation : %s\n", r.operation.c_str());
        text += Printf("     Blend Mode %s, Opacity %4.3f\n", ModeName(r.blendMode), r.opacity);
        text += Printf("     Use Mask %s, Mask Level %d, Mask File Name %s\n",
                       r.applyMask ? "True" : "False", static_cast<int>(r.maskLevel),
                       r.maskFile.c_str());
        for (const std::string& field : ParameterFields(r.parameters))
            text += Printf("     %s\n", field.c_str());
    }
    return text;
}

bool ConfirmHistoryConsistent(CProcessWindow& w, bool forSaveAllAs) {
    bool unsavedForward = false;
    for (int i = w.currentStep + 1; i < static_cast<int>(w.history.size()); ++i) {
        const std::string& file = w.history[i].curImageFile;
        unsavedForward = unsavedForward || file.empty() || file == kNotRunMark;
    }
    if (!BuildHistoryListView(w).sequenceBroken && !unsavedForward)
        return true;
    return w.notify().Ask(forSaveAllAs ? kSaveAllAsConfirmText : kPrintConfirmText) == Answer::Yes;
}

} // namespace astrivelle
