// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The table of operator tools. A tool file declares its entry function in its header;
/// the list below names them in menu order.
#include "shell/OperatorTools.h"

#include "shell/PixelMathTool.h"
// Tool headers (one include per tool file):
#include "shell/ArcSinHTool.h"
#include "shell/DigitalDevelopmentTool.h"
#include "shell/EdgeExtractTool.h"
#include "shell/GeneralStretchTool.h"
#include "shell/GeoTransformTool.h"
#include "shell/HistogramStretchTool.h"
#include "shell/LevelsTool.h"
#include "shell/MicroCurvesTool.h"
#include "shell/RestorationTool.h"
#include "shell/SmoothingTool.h"
#include "shell/UnsharpMaskTool.h"

namespace astrivelle {

const std::vector<OperatorTool>& OperatorTools() {
    static const std::vector<OperatorTool> tools = [] {
        std::vector<OperatorTool> list;
        list.push_back(PixelMathToolEntry());
        // Tone tools, in menu order:
        list.push_back(LevelsToolEntry());
        list.push_back(MicroCurvesToolEntry());
        list.push_back(HistogramStretchToolEntry());
        list.push_back(DigitalDevelopmentToolEntry());
        list.push_back(ArcSinHToolEntry());
        list.push_back(GeneralStretchToolEntry());
        // Filter tools, in menu order:
        list.push_back(SmoothingToolEntry());
        list.push_back(UnsharpMaskToolEntry());
        list.push_back(IterativeRestorationToolEntry());
        list.push_back(AdaptiveRestorationToolEntry());
        list.push_back(EdgeExtractToolEntry());
        list.push_back(GeoTransformToolEntry());
        return list;
    }();
    return tools;
}

const OperatorTool* FindOperatorTool(const std::string& operation) {
    for (const OperatorTool& tool : OperatorTools())
        for (const std::string& name : tool.operations)
            if (name == operation)
                return &tool;
    return nullptr;
}

} // namespace astrivelle
