// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Process menu's table of tools: every entry names operators of the replay
/// vocabulary, opens the tool it names, and the history finds a tool by each of its names.
#include <gtest/gtest.h>

#include <set>

#include "ToolFrameTestSupport.h"

#include "engine/OperatorNames.h"
#include "shell/OperatorTools.h"

using namespace astrivelle;
using namespace astrivelle::test;

TEST(OperatorTools, EveryEntryOpensItsToolAndIsFoundByItsOperators) {
    ToolTestShell shell;
    shell.MakeImage(16, 12, true, [](int s, int x, int y) { return 1000.0f + s + x * y; });
    std::set<std::string> objectNames, operations;
    ASSERT_GE(OperatorTools().size(), 12u);
    for (const OperatorTool& entry : OperatorTools()) {
        SCOPED_TRACE(entry.objectName.toStdString());
        EXPECT_TRUE(objectNames.insert(entry.objectName.toStdString()).second) << "unique";
        ASSERT_FALSE(entry.operations.empty());
        for (const std::string& op : entry.operations) {
            EXPECT_TRUE(IsReplayOperator(op)) << op;
            EXPECT_TRUE(operations.insert(op).second) << op << " has one tool only";
            EXPECT_EQ(FindOperatorTool(op), &entry) << op;
        }
        ASSERT_TRUE(entry.show && entry.load);
        ToolFrame* tool = entry.show(shell);
        ASSERT_NE(tool, nullptr);
        EXPECT_EQ(tool->ClassName(), entry.className);
        EXPECT_EQ(ToolFrame::Find(entry.className), tool);
        EXPECT_FALSE(entry.load(tool, entry.operations.front(), "not a recorded text"))
            << "a text that does not parse is refused";
        tool->close();
    }
    EXPECT_EQ(FindOperatorTool("No Such Operator"), nullptr);
}
