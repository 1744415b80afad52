// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `.qxj` line format, its number formats, the report text pieces, the name checks
/// and the line reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "TestSupport.h"
#include "engine/workbench/LineReader.h"
#include "engine/workbench/Project.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::string Printf(const char* format, double v) {
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, format, v);
    return buffer;
}

} // namespace

TEST(ProjectSplitField, ClosesFieldsAtEachLessThan) {
    struct Case {
        const char* text;
        bool ok;
        const char* field;
        const char* rest;
    };
    const Case cases[] = {
        {"abc<def<", true, "abc", "def<"},
        {"<def<", true, "", "def<"}, // an empty field
        {"a<", true, "a", ""},
        {"<", true, "", ""},
        {"abc", false, "keep", "abc"},
        {"", false, "keep", ""},
    };
    for (const Case& c : cases) {
        std::string field = "keep", text = c.text;
        EXPECT_EQ(SplitField(&field, &text), c.ok) << c.text;
        EXPECT_EQ(field, c.field) << c.text;
        EXPECT_EQ(text, c.rest) << c.text;
    }
}

TEST(ProjectLine, DefaultRecordHasTheExactV5Layout) {
    CProcessStructure r;
    r.prevImageFile = "/p/M31.fit";
    r.curImageFile = "/p/M31$1.fit";
    r.operation = "Pixel Math";
    r.parameters = "Operation: Add#Constant: 100.000#";
    r.channelRed = 7; // any non-zero byte is written as 1
    const std::string line = FormatProjectLine(r);
    const std::string head = "/p/M31.fit</p/M31$1.fit<0<1<1<1<Pixel Math<Operation: Add#Constant: "
                             "100.000#<0<1.000<<1<65535<<1<";
    ASSERT_EQ(line.substr(0, head.size()), head);
    // The default surface, row y = -3 first, then its last point of row y = 3.
    const std::string firstPoints = "-3.000000000000000<-3.000000000000000<0.000000000000000<"
                                    "-1.000000000000000<-3.000000000000000<0.000000000000000<";
    EXPECT_EQ(line.substr(head.size(), firstPoints.size()), firstPoints);
    const std::string tail = "3.000000000000000<3.000000000000000<0.000000000000000<>\n";
    ASSERT_GE(line.size(), tail.size());
    EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
    EXPECT_EQ(std::count(line.begin(), line.end(), '<'), 63);
}

TEST(ProjectLine, NumbersMatchPrintfAndReadBackRounded) {
    // "%4.3f" and "%16.15f" of the C library are the reference; 0.1234 comes back as 0.123.
    const double values[] = {
        0.1234, 0.1235, 0.0005, 0.9999, 1.0, 0.0, 0.5, 2.0 / 3.0, -3.0, 1e-9, 123.456789012345678};
    for (double v : values) {
        EXPECT_EQ(ProjectFixed(v, 3), Printf("%4.3f", v)) << v;
        EXPECT_EQ(ProjectFixed(v, 15), Printf("%16.15f", v)) << v;
    }
    CProcessStructure r;
    r.opacity = 0.1234;
    r.maskSurface[2] = 1.0 / 3.0;
    std::string text;
    ASSERT_TRUE(CutProjectLine(FormatProjectLine(r), &text));
    CProcessStructure back;
    ASSERT_TRUE(ParseProjectFields(text, true, &back));
    EXPECT_EQ(back.opacity, 0.123);
    EXPECT_EQ(back.maskSurface[2], 0.333333333333333);
}

TEST(ProjectLine, AtoiAndAtofAgreeWithTheCLibrary) {
    const char* texts[] = {"12",    " 12abc", "-3.5x", "abc", "+7", "",   "  -0",
                           "65535", "1e3",    "0.123", ".5",  "-",  "4 2"};
    for (const char* t : texts) {
        EXPECT_EQ(ProjectAtoi(t), std::atoi(t)) << t;
        EXPECT_EQ(ProjectAtof(t), std::atof(t)) << t;
    }
}

TEST(ProjectLine, CutNeedsGreaterThanPastTheFirstCharacter) {
    std::string text;
    EXPECT_TRUE(CutProjectLine("a<b<>tail", &text));
    EXPECT_EQ(text, "a<b<");
    EXPECT_FALSE(CutProjectLine(">abc", &text));
    EXPECT_FALSE(CutProjectLine("abc<", &text));
    EXPECT_FALSE(CutProjectLine("", &text));
}

TEST(ProjectLine, HeadingsAndTheirVersions) {
    struct Case {
        const char* line;
        int version;
        bool color;
    };
    const Case cases[] = {
        {"Astrivelle Color Project v5.0<>", 5, true},
        {"Astrivelle Monochrome Project v5.0<>", 5, false},
        {"Astrivelle Color Project v2.0<>", 2, true},
        {"Astrivelle Monochrome Project v2.0<>", 2, false},
        {"Astrivelle Color Project v4.0<>", 0, false},
        {"Some Other Project v5.0<>", 0, false},
    };
    for (const Case& c : cases) {
        std::string text;
        ASSERT_TRUE(CutProjectLine(c.line, &text));
        bool color = !c.color;
        EXPECT_EQ(ProjectHeadingVersion(text, &color), c.version) << c.line;
        if (c.version) {
            EXPECT_EQ(color, c.color) << c.line;
        }
    }
    EXPECT_STREQ(ProjectHeading(ColorRGB), "Astrivelle Color Project v5.0<>");
    EXPECT_STREQ(ProjectHeading(ColorGray), "Astrivelle Monochrome Project v5.0<>");
    EXPECT_STREQ(ProjectHeading(ColorGreen), "Astrivelle Monochrome Project v5.0<>");
}

TEST(ProjectLine, V2LineKeepsTheDefaultsAndV5NeedsAllSixtyThreeFields) {
    CProcessStructure r;
    ASSERT_TRUE(ParseProjectFields("a<b<1<1<0<1<Negative<<", false, &r));
    EXPECT_EQ(r.prevImageFile, "a");
    EXPECT_EQ(r.curImageFile, "b");
    EXPECT_EQ(r.channelSelect, 1);
    EXPECT_EQ(r.channelGreen, 0);
    EXPECT_EQ(r.operation, "Negative");
    EXPECT_EQ(r.parameters, "");
    const CProcessStructure fresh;
    EXPECT_EQ(r.blendMode, fresh.blendMode);
    EXPECT_EQ(r.opacity, 1.0);
    EXPECT_EQ(r.maskLevel, 65535u);
    EXPECT_EQ(r.maskSurface, DefaultMaskSurface());
    EXPECT_EQ(r.applyMask, 1);
    EXPECT_EQ(r.luminanceMask, 1);
    EXPECT_TRUE(r.filterFile.empty() && r.maskFile.empty());

    // A v5 line missing its last surface value fails; the last '<' closes field 63.
    std::string text;
    ASSERT_TRUE(CutProjectLine(FormatProjectLine(fresh), &text));
    CProcessStructure back;
    EXPECT_TRUE(ParseProjectFields(text, true, &back));
    text.pop_back();
    EXPECT_FALSE(ParseProjectFields(text, true, &back));
    EXPECT_FALSE(ParseProjectFields("a<b<1<1<0<1<Negative<", false, &back));
}

TEST(ProjectReport, DateNamesAndPaths) {
    std::tm t{};
    t.tm_year = 124;
    t.tm_mon = 2;
    t.tm_mday = 7;
    t.tm_hour = 9;
    t.tm_min = 5;
    EXPECT_EQ(ProjectReportDate(t), "3/7/2024 9:05");
    t.tm_min = 42;
    t.tm_hour = 23;
    EXPECT_EQ(ProjectReportDate(t), "3/7/2024 23:42");
    t.tm_min = 0;
    EXPECT_EQ(ProjectReportDate(t), "3/7/2024 23:00");

    EXPECT_STREQ(ProjectBlendModeName(0), "Normal");
    EXPECT_STREQ(ProjectBlendModeName(15), "Hard Mix");
    EXPECT_STREQ(ProjectBlendModeName(31), "Lab Luminosity");
    EXPECT_STREQ(ProjectBlendModeName(32), "Normal");

    EXPECT_EQ(ProjectTextPath("/a/b/M31.qxj"), "/a/b/M31.txt");
    EXPECT_EQ(ProjectTextPath("/a/b/M31.QXJ"), "/a/b/M31.txt");
    EXPECT_EQ(ProjectPathFor("/a/b", "M31"), "/a/b/M31.qxj");
    EXPECT_EQ(ProjectPathFor("/a/b/", "M31"), "/a/b/M31.qxj");
    EXPECT_EQ(ProjectPathFor("//server/share//x", "M31"), "//server/share/x/M31.qxj");
}

TEST(ProjectReport, RecordLinesInOrder) {
    CProcessStructure origin;
    origin.prevImageFile = origin.curImageFile = "/p/M31.fit";
    origin.operation = "Read";
    CProcessStructure step;
    step.prevImageFile = "/p/M31.fit";
    step.curImageFile = "/p/M31$1.fit";
    step.filterFile = "/p/M31Filter$1.fit";
    step.maskFile = "/p/mask.fit";
    step.channelSelect = 1;
    step.channelGreen = 0;
    step.operation = "Pixel Math";
    step.parameters = "Operation: Add#Constant: 100.000#";
    step.blendMode = 5;
    step.opacity = 0.25;
    step.applyMask = 0;
    step.maskLevel = 30000;
    const std::string text =
        ProjectReportText({origin, step}, true, "/p/final.fit", "a comment", true, "1/2/2024 3:04");
    EXPECT_EQ(text, "     Astrivelle Color Project v5.0"
                    "\n\n     Final Image Saved As : /p/final.fit"
                    "\n\n     User Comment : a comment"
                    "\n\n     Date: 1/2/2024 3:04"
                    "\n\n     Previous Image File : /p/M31.fit\n"
                    "      Current Image File : /p/M31.fit\n"
                    "\n"
                    "     Operation : Read\n"
                    "     Blend Mode Normal, Opacity 1.000\n"
                    "     Use Mask True, Mask Level 65535, Mask File Name \n"
                    "\n\n     Previous Image File : /p/M31.fit\n"
                    "      Current Image File : /p/M31$1.fit\n"
                    "      Current Filter File : /p/M31Filter$1.fit\n"
                    "      Current Image Mask File : /p/mask.fit\n"
                    "\n"
                    "     Apply to:  Red Blue\n"
                    "     Operation : Pixel Math\n"
                    "     Blend Mode Lighten, Opacity 0.250\n"
                    "     Use Mask False, Mask Level 30000, Mask File Name /p/mask.fit\n"
                    "     Operation: Add\n"
                    "     Constant: 100.000\n");
    const std::string bare = ProjectReportText({step}, false, "f", "", false, "1/2/2024 3:04");
    EXPECT_EQ(bare.find("Previous Image File"), std::string::npos);
    EXPECT_EQ(bare.substr(0, 39), "     Astrivelle Monochrome Project v5.0");
}

TEST(ProjectName, SaveToolChecks) {
    struct Case {
        const char* name;
        bool ok;
        const char* result; // the trimmed name or the text shown
    };
    const std::string chars = std::string("A file name can't contain any of the following "
                                          "characters:\n") +
                              std::string(30, ' ') + "\\/:*?\"<>|";
    const Case cases[] = {
        {"  M31 night  ", true, "M31 night"},
        {"M31", true, "M31"},
        {"   ", false, "Please Enter A Project Name."},
        {"", false, "Please Enter A Project Name."},
        {"a/b", false, chars.c_str()},
        {"a<b", false, chars.c_str()},
        {"what?", false, chars.c_str()},
        {" | ", false, chars.c_str()},
    };
    for (const Case& c : cases) {
        std::string trimmed, text;
        EXPECT_EQ(ValidateProjectName(c.name, &trimmed, &text), c.ok) << c.name;
        EXPECT_EQ(c.ok ? trimmed : text, c.result) << c.name;
    }
}

TEST(LineReader, LongLinesLineEndsAndNulBytes) {
    ScratchDir dir;
    const std::string path = dir.file("lines.txt");
    const std::string longLine(3'000'000, 'x');
    std::string content = "first\r\n" + longLine + "\n" + std::string("a\0b", 3) + "\n\nlast";
    WriteText(path, content);
    CLineReader reader;
    ASSERT_TRUE(reader.Open(path));
    std::string line;
    ASSERT_TRUE(reader.ReadLine(&line));
    EXPECT_EQ(line, "first");
    ASSERT_TRUE(reader.ReadLine(&line));
    EXPECT_EQ(line.size(), longLine.size());
    EXPECT_EQ(line, longLine);
    ASSERT_TRUE(reader.ReadLine(&line));
    EXPECT_EQ(line, std::string("a\0b", 3));
    ASSERT_TRUE(reader.ReadLine(&line));
    EXPECT_EQ(line, "");
    ASSERT_TRUE(reader.ReadLine(&line));
    EXPECT_EQ(line, "last");
    EXPECT_FALSE(reader.ReadLine(&line));
    EXPECT_EQ(reader.LineNumber(), 5);
    EXPECT_FALSE(reader.Open(dir.file("absent.txt")));
}
