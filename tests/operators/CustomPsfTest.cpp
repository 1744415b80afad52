// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The custom point spread function: its `.psf` bytes, file round trips and failures,
/// and the editor's operations with their texts.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "TestSupport.h"
#include "operators/Restoration.h"

using namespace astrivelle;
using namespace astrivelle::test;

namespace {

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

CCustomPSF Sample() {
    CCustomPSF p;
    p.name = "Trail 5";
    p.size = 5;
    p.values.fill(0.0);
    for (int j = 0; j < 25; ++j)
        p.values[j] = 0.125 * j - 1.0;
    return p;
}

} // namespace

TEST(CustomPsf, FileBytesAreLaidOutExactly) {
    CCustomPSF box; // the default: "Box" of size 3
    EXPECT_EQ(box.name, "Box");
    EXPECT_EQ(box.size, 3);
    const std::string bytes = SerializePsf(box);
    ASSERT_EQ(bytes.size(), 1u + 3u + 169u * 8u + 4u);
    EXPECT_EQ(bytes.substr(0, 4), std::string("\x03"
                                              "Box",
                                              4));
    // 1.0 as a little-endian double: 00 00 00 00 00 00 F0 3F.
    EXPECT_EQ(bytes.substr(4, 8), std::string("\0\0\0\0\0\0\xF0\x3F", 8));
    EXPECT_EQ(bytes.substr(4 + 9 * 8, 8), std::string(8, '\0')) << "cell 10 is unused";
    EXPECT_EQ(bytes.substr(bytes.size() - 4), std::string("\x03\0\0\0", 4));

    struct Case {
        std::size_t length;
        std::string prefix;
    };
    const Case cases[] = {
        {0, std::string("\x00", 1)},
        {254, std::string("\xFE", 1)},
        {255, std::string("\xFF\xFF\x00", 3)},
        {300, std::string("\xFF\x2C\x01", 3)},
        {65534, std::string("\xFF\xFE\xFF", 3)},
        {70000, std::string("\xFF\xFF\xFF\x70\x11\x01\x00", 7)},
    };
    for (const Case& c : cases) {
        CCustomPSF p = Sample();
        p.name = std::string(c.length, 'n');
        const std::string b = SerializePsf(p);
        EXPECT_EQ(b.substr(0, c.prefix.size()), c.prefix) << c.length;
        EXPECT_EQ(b.size(), c.prefix.size() + c.length + 169 * 8 + 4) << c.length;
        CCustomPSF back;
        ASSERT_TRUE(DeserializePsf(b, &back)) << c.length;
        EXPECT_EQ(back, p);
    }
}

TEST(CustomPsf, FileRoundTripAndFailures) {
    ScratchDir dir;
    const CCustomPSF p = Sample();
    const std::string path = dir.file("trail.psf");
    std::string error;
    ASSERT_TRUE(WritePsfFile(path, p, &error)) << error;
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    CCustomPSF back;
    ASSERT_TRUE(ReadPsfFile(path, &back, &error)) << error;
    EXPECT_EQ(back, p);
    EXPECT_EQ(ReadAll(path), SerializePsf(p));
    double v = 0;
    std::memcpy(&v, ReadAll(path).data() + 1 + 7 + 8 * 3, 8);
    EXPECT_EQ(v, -0.625);

    const std::string bad = dir.file("no/such/folder/x.psf");
    EXPECT_FALSE(WritePsfFile(bad, p, &error));
    EXPECT_EQ(error, "Could Not Write " + bad + " : No such file or directory");

    // A short file, a size that is no PSF size, a file that is not there.
    std::string bytes = SerializePsf(p);
    std::ofstream(dir.file("short.psf"), std::ios::binary) << bytes.substr(0, bytes.size() - 1);
    EXPECT_FALSE(ReadPsfFile(dir.file("short.psf"), &back, &error));
    EXPECT_EQ(error, "Could Not Read " + dir.file("short.psf") + " : not a PSF file");
    bytes[bytes.size() - 4] = 4;
    std::ofstream(dir.file("even.psf"), std::ios::binary) << bytes;
    EXPECT_FALSE(ReadPsfFile(dir.file("even.psf"), &back, &error));
    EXPECT_FALSE(ReadPsfFile(dir.file("absent.psf"), &back, &error));
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
}

TEST(CustomPsf, EditorOperationsAndTheirTexts) {
    CCustomPSF p;
    p.values.fill(0.0);
    for (int j = 0; j < 9; ++j)
        p.values[j] = j - 2.0; // -2 .. 6
    std::string error;

    struct Arith {
        const char* op;
        const char* typed;
        bool ok;
        double first; // cell 0 after, from -2
        const char* text;
    };
    const Arith cases[] = {
        {"ADD", "1.5", true, -0.5, ""},
        {"SUB", "2", true, -4.0, ""},
        {"MUL", "-3", true, 6.0, ""},
        {"DIV", "4", true, -0.5, ""},
        {"DIV", "0", false, -2.0, "Could Not Divide By Zero."},
        {"ADD", "abc", false, -2.0, "Please Enter A Real Number."},
        {"MUL", "", false, -2.0, "Please Enter A Real Number."},
        {"ADD", "2x", false, -2.0, "Please Enter A Real Number."},
    };
    for (const Arith& c : cases) {
        CCustomPSF q = p;
        error.clear();
        EXPECT_EQ(PsfArithmetic(&q, c.op, c.typed, &error), c.ok) << c.op << c.typed;
        EXPECT_EQ(q.values[0], c.first) << c.op << c.typed;
        EXPECT_EQ(error, c.text);
        EXPECT_EQ(q.values[9], 0.0) << "cells beyond the size stay";
    }

    CCustomPSF u = p;
    ASSERT_TRUE(PsfUnitize(&u, &error));
    EXPECT_EQ(u.values[8], 1.0);
    EXPECT_DOUBLE_EQ(u.values[0], -2.0 / 6.0);
    CCustomPSF n = p;
    ASSERT_TRUE(PsfNormalize(&n, &error)); // sum 18
    EXPECT_DOUBLE_EQ(n.values[8], 6.0 / 18.0);
    CCustomPSF pos = p;
    PsfPositive(&pos);
    EXPECT_EQ(pos.values[0], 0.0);
    EXPECT_EQ(pos.values[8], 8.0);

    CCustomPSF zeros;
    zeros.values.fill(0.0);
    EXPECT_FALSE(PsfUnitize(&zeros, &error));
    EXPECT_EQ(error, "Could Not Unitize Since The PSF Maximum Value Is 0.");
    EXPECT_FALSE(PsfNormalize(&zeros, &error));
    EXPECT_EQ(error, "Could Not Normalize Since The PSF Sum Is 0.");
    EXPECT_FALSE(PsfUsable(zeros, &error));
    EXPECT_EQ(error, "The PSF's Sum Can't Be 0.");
    CCustomPSF balanced = zeros;
    balanced.values[0] = 1.0;
    balanced.values[8] = -1.0;
    EXPECT_FALSE(PsfUsable(balanced, &error));
    EXPECT_TRUE(PsfUsable(p, &error));

    EXPECT_FALSE(PsfSetCell(&balanced, 1, 1, "one", &error));
    EXPECT_EQ(error, "Please Enter A Real Number.");
    ASSERT_TRUE(PsfSetCell(&balanced, 1, 2, " 2.25 ", &error));
    EXPECT_EQ(balanced.values[5], 2.25);

    EXPECT_FALSE(PsfNameValid("my:psf", &error));
    EXPECT_EQ(error, "A file name can't contain any of the following characters:\n\\/:*?\"<>|");
    for (const char* badName : {"a/b", "a\\b", "a*b", "a?b", "a\"b", "a<b", "a>b", "a|b"})
        EXPECT_FALSE(PsfNameValid(badName, nullptr)) << badName;
    EXPECT_TRUE(PsfNameValid("Comet tail 2", &error));

    EXPECT_EQ(PsfCellText(0.5), "0.500");
    EXPECT_EQ(PsfCellText(-12.34567), "-12.346");
}

TEST(CustomPsf, ShiftsResizeAndSelection) {
    CCustomPSF p;
    p.values.fill(0.0);
    for (int j = 0; j < 9; ++j)
        p.values[j] = j + 1.0; // 1 2 3 / 4 5 6 / 7 8 9
    struct Case {
        const char* word;
        double expect[9];
    };
    const Case cases[] = {
        {"R", {0, 1, 2, 0, 4, 5, 0, 7, 8}},  {"L", {2, 3, 0, 5, 6, 0, 8, 9, 0}},
        {"U", {4, 5, 6, 7, 8, 9, 0, 0, 0}},  {"D", {0, 0, 0, 1, 2, 3, 4, 5, 6}},
        {"UL", {5, 6, 0, 8, 9, 0, 0, 0, 0}}, {"DR", {0, 0, 0, 0, 1, 2, 0, 4, 5}},
        {"UR", {0, 4, 5, 0, 7, 8, 0, 0, 0}}, {"DL", {0, 0, 0, 2, 3, 0, 5, 6, 0}},
    };
    for (const Case& c : cases) {
        CCustomPSF q = p;
        ASSERT_TRUE(PsfShift(&q, c.word));
        for (int j = 0; j < 9; ++j)
            EXPECT_EQ(q.values[j], c.expect[j]) << c.word << " cell " << j;
    }
    EXPECT_FALSE(PsfShift(&p, "X"));

    CCustomPSF big = p;
    ASSERT_TRUE(PsfResize(&big, 5));
    EXPECT_EQ(big.size, 5);
    EXPECT_EQ(big.At(2, 2), 5.0);
    EXPECT_EQ(big.At(1, 1), 1.0);
    EXPECT_EQ(big.At(0, 0), 0.0);
    ASSERT_TRUE(PsfResize(&big, 3));
    EXPECT_EQ(big, p);
    EXPECT_FALSE(PsfResize(&big, 15));
    EXPECT_FALSE(PsfResize(&big, 4));

    const float plane[16] = {0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 23, 30, 31, 32, 33};
    CCustomPSF taken;
    PsfFromImage(&taken, plane, 4, 4, 1, 1);
    const double expect[9] = {0, 1, 2, 10, 11, 12, 20, 21, 22};
    for (int j = 0; j < 9; ++j)
        EXPECT_EQ(taken.values[j], expect[j]);
    PsfFromImage(&taken, plane, 4, 4, 0, 0); // mirrored about the centre at the edge
    EXPECT_EQ(taken.values[0], 11.0);
    EXPECT_EQ(taken.values[4], 0.0);
}
