// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `#` parameter text: field splitting, values, points and window sizes.
#include <gtest/gtest.h>

#include "engine/ParamText.h"
#include "engine/ProcessStructure.h"

using namespace astrivelle;

TEST(NextField, SplitsAtFirstHashAndStopsOnEmptyField) {
    struct Case {
        const char* text;
        bool ok;
        const char* field;
        const char* rest;
    };
    const Case cases[] = {
        {"A : 1#B : 2#", true, "A : 1", "B : 2#"},
        {"B : 2#", true, "B : 2", ""},
        {"#B : 2#", false, "keep", "#B : 2#"}, // '#' at position 0 stops the parse
        {"no hash here", false, "keep", "no hash here"},
        {"", false, "keep", ""},
        {"x##", true, "x", "#"},
    };
    for (const Case& c : cases) {
        std::string field = "keep", text = c.text;
        EXPECT_EQ(NextField(&field, &text), c.ok) << c.text;
        EXPECT_EQ(field, c.field) << c.text;
        EXPECT_EQ(text, c.rest) << c.text;
    }
}

TEST(FieldValue, TakesTrimmedTextBehindFirstColon) {
    struct Case {
        const char* field;
        bool ok;
        const char* value;
    };
    const Case cases[] = {
        {"Constant: 5.000", true, "5.000"}, {"  Black : 12  ", true, "12"},
        {"Time : 12:30", true, "12:30"},    {": 5", false, "keep"}, // colon at position 0
        {"RGB LEVELS", false, "keep"},      {"Label :", true, ""},
    };
    for (const Case& c : cases) {
        std::string value = "keep";
        EXPECT_EQ(FieldValue(&value, c.field), c.ok) << c.field;
        EXPECT_EQ(value, c.value) << c.field;
    }
}

TEST(PointValue, ParsesParenthesisedPairs) {
    int x = -1, y = -1;
    EXPECT_TRUE(PointValue(&x, &y, "(12, 34)"));
    EXPECT_EQ(x, 12);
    EXPECT_EQ(y, 34);
    EXPECT_TRUE(PointValue(&x, &y, "7,-3"));
    EXPECT_EQ(x, 7);
    EXPECT_EQ(y, -3);
    x = y = 99;
    EXPECT_FALSE(PointValue(&x, &y, "(,5)"));
    EXPECT_FALSE(PointValue(&x, &y, "12 34"));
    EXPECT_EQ(x, 99);
}

TEST(WindowSize, RadiusFromSide) {
    EXPECT_EQ(WindowSizeRadius("7 x 7"), 3);
    EXPECT_EQ(WindowSizeRadius("1 x 1"), 0);
    EXPECT_EQ(WindowSizeRadius("8 x 8"), 3);
    EXPECT_EQ(WindowSizeRadius("101 x 101"), 50);
}

TEST(FormatText, FormatsLikePrintf) {
    EXPECT_EQ(FormatText("Constant: %5.3f#", 2.5), "Constant: 2.500#");
    EXPECT_EQ(FormatText("Bin Size : %d x %d#Operation : %s#", 2, 2, "Sum"),
              "Bin Size : 2 x 2#Operation : Sum#");
    EXPECT_EQ(FormatText("%s", std::string(5000, 'a').c_str()).size(), 5000u);
}

TEST(BlendActive, OnlyTheDefaultsAreInactive) {
    const MaskSurface& flat = DefaultMaskSurface();
    EXPECT_FALSE(BlendActive(0, 1.0, 65535, flat, ""));
    EXPECT_TRUE(BlendActive(1, 1.0, 65535, flat, ""));
    EXPECT_TRUE(BlendActive(0, 0.999, 65535, flat, ""));
    EXPECT_TRUE(BlendActive(0, 1.0, 65534, flat, ""));
    EXPECT_TRUE(BlendActive(0, 1.0, 65535, flat, "mask.fit"));
    MaskSurface raised = flat;
    raised[2] = 0.5;
    EXPECT_TRUE(BlendActive(0, 1.0, 65535, raised, ""));
    // The default surface: rows y = -3, -1, 1, 3 of points x = -3, -1, 1, 3, z = 0.
    EXPECT_EQ(flat[0], -3);
    EXPECT_EQ(flat[1], -3);
    EXPECT_EQ(flat[3], -1);
    EXPECT_EQ(flat[45], 3);
    EXPECT_EQ(flat[46], 3);
    EXPECT_EQ(flat[47], 0);
    CProcessStructure r;
    EXPECT_FALSE(BlendActive(r));
}
