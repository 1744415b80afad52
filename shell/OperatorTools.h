// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The operator tools of the Process menu in one table: the menu item that opens each
/// tool, and what the process history asks of a tool by the operator name it recorded (show
/// it with a recorded parameter text, apply it, tell whether it is busy).
#pragma once
#include <QString>

#include <string>
#include <vector>

namespace astrivelle {

class ShellContext;
class ToolFrame;

struct OperatorTool {
    /// Operator names the tool records ("Levels"); the history shows the tool for these.
    std::vector<std::string> operations;
    /// Submenu of Process ("Tone", "Filters"), or empty for an item of Process itself.
    QString submenu;
    QString menuText;   ///< "&Levels..."
    QString objectName; ///< "actionLevels"
    /// The tool's class name, by which an open instance is found (ToolFrame::Find).
    std::string className;
    /// Opens or raises the tool; null when it can't open (the tool said why).
    ToolFrame* (*show)(ShellContext& context) = nullptr;
    /// Puts a recorded parameter text of `operation` into the open tool; false when it does
    /// not parse.
    bool (*load)(ToolFrame* tool, const std::string& operation,
                 const std::string& parameters) = nullptr;
};

/// Every operator tool, in menu order.
const std::vector<OperatorTool>& OperatorTools();

/// The tool that records `operation`, or null.
const OperatorTool* FindOperatorTool(const std::string& operation);

} // namespace astrivelle
