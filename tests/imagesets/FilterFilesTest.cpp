// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Filter Files: the operators replayed in list order on each file, equal to applying
/// them directly; failures per file; never over an input.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/FilterFiles.h"
#include "operators/Filters.h"
#include "operators/Masks.h"

namespace astrivelle {
namespace {

CProcessStructure Record(const std::string& operation, const std::string& parameters) {
    CProcessStructure r;
    r.operation = operation;
    r.parameters = parameters;
    return r;
}

std::vector<CProcessStructure> TwoOperators() {
    PixelMathParams multiply;
    multiply.op = PixelMathParams::Op::Multiply;
    multiply.constant = 2.0;
    SmoothingParams smooth;
    smooth.type = SmoothMedian;
    smooth.halfSize = 1;
    PixelMathParams add;
    add.op = PixelMathParams::Op::Add;
    add.constant = 100.0;
    return {Record("Pixel Math", FormatPixelMath(multiply)),
            Record("Smoothing", FormatSmoothing(smooth)),
            Record("Pixel Math", FormatPixelMath(add))};
}

std::string WriteFrame(const test::ScratchDir& dir, const std::string& name, std::uint32_t type) {
    Image img;
    test::MakeImage(img, 24, 16, type, [](int s, int x, int y) {
        return 500 + 40 * s + ((x * 7 + y * 13) % 17) * 30;
    });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

TEST(FilterFiles, ReplaysTheListInOrderLikeDirectApplication) {
    test::ScratchDir dir;
    const std::string mono = WriteFrame(dir, "mono.fit", ColorGray);
    const std::string color = WriteFrame(dir, "color.fit", ColorRGB);
    FilterFilesRequest req;
    req.files = {mono, dir.file("none.fit"), color};
    req.outputDirectory = dir.file("out");
    req.saveType = "UNCOMPFIT32";
    req.records = TwoOperators();
    test::RecordingProgress progress;
    test::RecordingNotify notify;
    const FileOpResult run = FilterFiles(req, &progress, &notify);
    EXPECT_EQ(run.end, FileOpEnd::CompletedWithFailures);
    EXPECT_EQ(run.status, "Completed");
    EXPECT_EQ(progress.statuses.front(), "Applying Filters...");
    ASSERT_EQ(run.failures.size(), 1u);
    EXPECT_EQ(run.failures[0].text, "Error reading none.fit");
    ASSERT_EQ(run.outputs.size(), 2u);
    EXPECT_EQ(run.outputs[0], dir.file("out/FF_mono.fit"));
    EXPECT_EQ(run.outputs[1], dir.file("out/FF_color.fit"));

    for (std::size_t i = 0; i < 2; ++i) {
        const std::string& input = i == 0 ? mono : color;
        Image direct, reversed, out;
        ASSERT_TRUE(direct.ReadFile(input, ".fit"));
        ASSERT_TRUE(reversed.ReadFile(input, ".fit"));
        std::string why;
        ASSERT_TRUE(ApplyRecords(direct, req.records, &why)) << why;
        std::vector<CProcessStructure> back(req.records.rbegin(), req.records.rend());
        ASSERT_TRUE(ApplyRecords(reversed, back, &why)) << why;
        ASSERT_TRUE(out.ReadFile(run.outputs[i], ".fit"));
        ASSERT_EQ(out.width, direct.width);
        ASSERT_EQ(out.colorType, direct.colorType);
        bool differsFromReversed = false;
        for (int s : direct.Slots())
            for (std::uint32_t k = 0; k < direct.pixelCount; ++k) {
                ASSERT_EQ(out.curPlane[s][k], direct.curPlane[s][k]) << "slot " << s << " " << k;
                differsFromReversed |= out.curPlane[s][k] != reversed.curPlane[s][k];
            }
        EXPECT_TRUE(differsFromReversed) << "the order of the list must matter";
    }
}

TEST(FilterFiles, FailingOperatorPrefixAndInputsKept) {
    test::ScratchDir dir;
    const std::string a = WriteFrame(dir, "a.fit", ColorGray);
    const std::string b = WriteFrame(dir, "b.fit", ColorGray);
    FilterFilesRequest req;
    req.files = {a, b};
    req.outputDirectory = dir.file("out");
    req.records = {Record("No Such Operator", "x#")};
    test::RecordingNotify notify;
    FileOpResult run = FilterFiles(req, nullptr, &notify);
    ASSERT_EQ(run.failures.size(), 2u);
    EXPECT_EQ(run.failures[0].text, "Error filtering a.fit");
    EXPECT_FALSE(run.failures[0].detail.empty());
    EXPECT_TRUE(run.outputs.empty());
    EXPECT_EQ(notify.messages.size(), 2u);

    // A colour-only list fails the monochrome frames.
    req.records = TwoOperators();
    req.colorModel = "COLOR";
    run = FilterFiles(req, nullptr, nullptr);
    EXPECT_EQ(run.failures.size(), 2u);

    // An output named as its input is refused; the input stays as it was.
    req.colorModel.clear();
    req.outputDirectory = dir.path().string();
    req.prefix = "";
    const auto before = std::filesystem::file_size(a);
    Image original;
    ASSERT_TRUE(original.ReadFile(a, ".fit"));
    run = FilterFiles(req, nullptr, nullptr);
    EXPECT_TRUE(run.outputs.empty());
    EXPECT_EQ(run.failures.size(), 2u);
    Image again;
    ASSERT_TRUE(again.ReadFile(a, ".fit"));
    EXPECT_EQ(std::filesystem::file_size(a), before);
    for (std::uint32_t k = 0; k < original.pixelCount; ++k)
        ASSERT_EQ(again.curPlane[0][k], original.curPlane[0][k]);

    // A user prefix, and the checks before the first file.
    req.outputDirectory = dir.file("out2");
    req.prefix = "NR_";
    run = FilterFiles(req, nullptr, nullptr);
    ASSERT_EQ(run.outputs.size(), 2u);
    EXPECT_EQ(run.outputs[1], dir.file("out2/NR_b.fit"));
    req.prefix = "a|b";
    run = FilterFiles(req, nullptr, nullptr);
    EXPECT_EQ(run.end, FileOpEnd::Stopped);
    EXPECT_EQ(run.status.rfind("A file prefix can't contain any of the following characters:\n", 0),
              0u);
    FileOpBusy held(FileOpKind::Filter);
    EXPECT_EQ(FilterFiles(req, nullptr, nullptr).status, "Filter Files Is Currently Busy.");
}

} // namespace
} // namespace astrivelle
