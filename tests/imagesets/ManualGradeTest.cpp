// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Manual grading: the pass over a list with grades and skips, the copies' names and
/// the weights the graded combines read from them, and each fixed text of a failure.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestSupport.h"
#include "engine/Image.h"
#include "imagesets/CombineFiles.h"
#include "imagesets/FileOperation.h"
#include "imagesets/GradeFiles.h"
#include "imagesets/ManualGrade.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string Frame(const ScratchDir& dir, const std::string& name, double level) {
    Image img;
    MakeImage(img, 6, 4, ColorGray, [&](int, int x, int) { return level + x; });
    const std::string path = dir.file(name);
    EXPECT_TRUE(img.WriteFile(path, KindFITS));
    return path;
}

} // namespace

TEST(ManualGrade, GradesAndSkipsMakeNamedCopiesAndTheOutputList) {
    ScratchDir dir;
    const std::vector<std::string> files = {Frame(dir, "one.fit", 100), Frame(dir, "two.fit", 200),
                                            Frame(dir, "three.fit", 300),
                                            Frame(dir, "four.fit", 400)};
    fs::create_directories(dir.file("out"));
    ManualGradeSession s;
    ASSERT_TRUE(s.Start(files, dir.file("out")));
    EXPECT_EQ(s.Status(), kManualGradeInProgressText);
    Image shown;
    std::string error;
    ASSERT_TRUE(s.Read(&shown, &error)) << error;
    EXPECT_EQ(shown.curPlane[0][1], 101.0f);
    ASSERT_TRUE(s.Grade('A', &error)) << error;
    EXPECT_EQ(s.Current(), files[1]);
    s.Skip();
    ASSERT_TRUE(s.Read(&shown, &error));
    EXPECT_EQ(shown.curPlane[0][0], 300.0f);
    EXPECT_FALSE(s.Grade('E', &error)) << "only A, B, C, D and F are grades";
    ASSERT_TRUE(s.Grade('C', &error)) << error;
    EXPECT_TRUE(s.Active());
    ASSERT_TRUE(s.Grade('F', &error)) << error;
    EXPECT_FALSE(s.Active());
    EXPECT_EQ(s.Status(), kManualGradeCompleteText);

    const std::vector<std::string> names = {"AGA_Average_one.fit", "AGC_Average_three.fit",
                                            "AGF_Average_four.fit"};
    ASSERT_EQ(s.Outputs().size(), 3u);
    for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(fs::path(s.Outputs()[k]).filename(), names[k]);
        EXPECT_EQ(fs::file_size(s.Outputs()[k]), fs::file_size(files[k == 0 ? 0 : k + 1]));
    }
    EXPECT_FALSE(fs::exists(dir.file("out/AGS_Average_two.fit")));
    ASSERT_EQ(s.Grades().size(), 4u);
    EXPECT_EQ(s.Grades()[1].second, 'S');
    CFileOpList list;
    ASSERT_TRUE(FileOpLists().Find(kGradeOperationName, &list));
    EXPECT_EQ(list.files.size(), 3u);

    // The graded combines read the grades back from the names at the page's weights.
    const auto weights = GradeWeights(s.Outputs(), {}, {90, 60, 30, 10, 5});
    ASSERT_EQ(weights.size(), 3u);
    EXPECT_DOUBLE_EQ(weights[0], 0.90);
    EXPECT_DOUBLE_EQ(weights[1], 0.30);
    EXPECT_DOUBLE_EQ(weights[2], 0.05);
}

TEST(ManualGrade, FailureTextsAndCancel) {
    ScratchDir dir;
    ManualGradeSession s;
    EXPECT_FALSE(s.Start({}, dir.path().string()));
    EXPECT_EQ(s.Status(), kManualGradeListErrorText);
    EXPECT_FALSE(s.Start({dir.file("missing.fit")}, dir.path().string()));
    EXPECT_EQ(s.Status(), kManualGradeListErrorText);

    const std::string good = Frame(dir, "good.fit", 10);
    const std::string bad = dir.file("bad.fit");
    std::ofstream(bad) << "not a FITS file";
    fs::create_directories(dir.file("out"));
    ASSERT_TRUE(s.Start({bad, good}, dir.file("out")));
    Image shown;
    std::string error;
    EXPECT_FALSE(s.Read(&shown, &error));
    EXPECT_EQ(error, "Error reading file bad.fit");
    s.Skip();

    // The file vanishes before its grade; then the output folder is a file.
    const std::string kept = dir.file("kept.fit");
    fs::copy_file(good, kept);
    fs::remove(good);
    EXPECT_FALSE(s.Grade('B', &error));
    EXPECT_EQ(error, kManualGradeCannotReadText);
    fs::copy_file(kept, good);
    std::ofstream(dir.file("notadir")) << "x";
    ASSERT_TRUE(s.Start({good}, dir.file("notadir")));
    EXPECT_FALSE(s.Grade('B', &error));
    EXPECT_EQ(error, std::string(kGradeSaveErrorText) + "good.fit");
    EXPECT_TRUE(s.Active()) << "a failed copy stays on the file";

    s.Cancel();
    EXPECT_FALSE(s.Active());
    EXPECT_EQ(s.Status(), kManualGradeCanceledText);
    EXPECT_TRUE(s.Current().empty());
}
