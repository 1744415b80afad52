// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Replay of records and the invariants every registered operator keeps.
#include <gtest/gtest.h>

#include <set>

#include "TestSupport.h"
#include "engine/OperatorNames.h"
#include "engine/ProcessStructure.h"
#include "operators/Registry.h"

using namespace astrivelle;
using namespace astrivelle::test;

TEST(Registry, CoversTheVocabularyOnceInReplayOrder) {
    const auto& reg = OperatorRegistry();
    const auto& names = ReplayOperatorNames();
    ASSERT_EQ(reg.size(), names.size());
    std::set<std::string> seen;
    for (std::size_t i = 0; i < reg.size(); ++i) {
        EXPECT_EQ(reg[i].name, names[i]);
        EXPECT_TRUE(seen.insert(reg[i].name).second) << "duplicate " << reg[i].name;
        EXPECT_FALSE(IsNoReplayName(reg[i].name)) << reg[i].name;
    }
    EXPECT_EQ(reg.size(), 60u);
}

TEST(Registry, EveryBuiltOperatorRoundTripsItsExamples) {
    int built = 0;
    for (const OperatorDescriptor& d : OperatorRegistry()) {
        if (!d.replay)
            continue;
        ++built;
        ASSERT_NE(d.roundTrip, nullptr) << d.name;
        ASSERT_FALSE(d.examples.empty()) << d.name;
        for (const std::string& text : d.examples) {
            std::string again;
            ASSERT_TRUE(d.roundTrip(text, &again)) << d.name << ": " << text;
            EXPECT_EQ(again, text) << d.name;
            EXPECT_EQ(text.back(), '#') << "every field is closed by '#'";
            // Replay on a small image succeeds for each example.
            Image img;
            MakeImage(img, 8, 8, ColorGray, [](int, int x, int y) { return 100.0 * (x + y); });
            CProcessStructure r;
            r.operation = d.name;
            r.parameters = text;
            std::string error;
            EXPECT_TRUE(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
        }
    }
    EXPECT_GE(built, 1);
}

TEST(Replay, FailuresAndNoOps) {
    struct Case {
        const char* operation;
        const char* parameters;
        bool ok;
        const char* errorHas;
    };
    const Case cases[] = {
        {"Unsharpen Everything", "", false, "Unknown operation"},
        {"Read", "", false, "Unknown operation"}, // first-step names have no replay
        {"Edit Pixel Color", "anything", true, ""},
        {"Edit Pixel Intensity", "", true, ""},
        {"Levels", "Channel : RGB#", false, "level missing"},
        {"Pixel Math", "Operation: Add#Constant: 5.000#Threshold Min: 0#Threshold Max: 65535#",
         false, "feather"},
        {"Pixel Math", "#Operation: Add#", false, "operation"},
    };
    for (const Case& c : cases) {
        Image img;
        MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 500.0; });
        CProcessStructure r;
        r.operation = c.operation;
        r.parameters = c.parameters;
        std::string error;
        EXPECT_EQ(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error), c.ok) << c.operation;
        EXPECT_NE(error.find(c.errorHas), std::string::npos) << c.operation << ": " << error;
        EXPECT_FLOAT_EQ(img.curPlane[0][0], 500) << "a failed or no-op record changes nothing";
    }
}

TEST(Replay, AFailingRecordKeepsEarlierResults) {
    Image img;
    MakeImage(img, 2, 2, ColorGray, [](int, int, int) { return 500.0; });
    CProcessStructure add;
    add.operation = "Pixel Math";
    add.parameters =
        "Operation: Add#Constant: 5.000#Threshold Min: 0#Threshold Max: 65535#Feather Range: 0#";
    CProcessStructure broken = add;
    broken.parameters = "Operation: Add#Constant: 5.000#";
    ASSERT_TRUE(img.ApplyCommand(add, nullptr, nullptr, nullptr));
    EXPECT_FALSE(img.ApplyCommand(broken, nullptr, nullptr, nullptr));
    EXPECT_FLOAT_EQ(img.curPlane[0][3], 505);
}

TEST(Replay, ActiveBlendIsAppliedNotIgnored) {
    Image img;
    MakeImage(img, 2, 2, ColorGray, [](int, int x, int y) { return 500.0 + 10 * x + 100 * y; });
    CProcessStructure r;
    r.operation = "Pixel Math";
    r.parameters =
        "Operation: Add#Constant: 8.000#Threshold Min: 0#Threshold Max: 65535#Feather Range: 0#";
    r.opacity = 0.25;
    std::string error;
    ASSERT_TRUE(img.ApplyCommand(r, nullptr, nullptr, nullptr, &error)) << error;
    // A quarter of the +8: +2 on every pixel; the pure result waits in the work rows.
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x) {
            EXPECT_FLOAT_EQ(img.curPlane[0][y * 2 + x], 502 + 10 * x + 100 * y);
            ASSERT_NE(img.workRows[0], nullptr);
            EXPECT_FLOAT_EQ(img.workRows[0][y][x], 508 + 10 * x + 100 * y);
        }

    // A mask file that can't be read fails the record with the mask text.
    Image other;
    MakeImage(other, 2, 2, ColorGray, [](int, int, int) { return 500.0; });
    r.luminanceMask = 0;
    r.maskFile = "/nowhere/mask.fit";
    EXPECT_FALSE(other.ApplyCommand(r, nullptr, nullptr, nullptr, &error));
    EXPECT_EQ(error, "Error reading image mask file.");
}
