// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The table of operator tools. A tool file declares its entry function in its header;
/// the list below names them in menu order.
#include "shell/OperatorTools.h"

#include "shell/PixelMathTool.h"
// Tool headers (one include per tool file):

namespace astrivelle {

const std::vector<OperatorTool>& OperatorTools() {
    static const std::vector<OperatorTool> tools = [] {
        std::vector<OperatorTool> list;
        list.push_back(PixelMathToolEntry());
        // Tone tools, in menu order:
        // Filter tools, in menu order:
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
