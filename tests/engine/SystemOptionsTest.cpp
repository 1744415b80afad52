// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The System Options Save rules, their lists and the accelerator lines.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "engine/SystemOptions.h"

namespace astrivelle {
namespace {

TEST(SystemOptions, LimitOfZeroOrBelowIsRefusedAndNothingApplied) {
    test::ScratchDir dir;
    const std::string path = dir.file("QXSP600.qxp");
    for (std::int64_t limit : {0, -1, -100}) {
        CSetupParams params;
        SystemOptionsControls c = ControlsFromOptions(params);
        c.openImageLimit = limit;
        c.displayButton = 1;
        c.jpegIndex = 3;
        c.saveTypeButton = 4;
        c.useAccelerator = true;
        std::string error;
        EXPECT_FALSE(ApplySystemOptions(c, params, &error)) << limit;
        EXPECT_EQ(error, "Maximum Number Of Open Images Must Be Greater Than 0.");
        EXPECT_EQ(params, CSetupParams());
        EXPECT_FALSE(SaveSystemOptions(c, params, path, &error));
        EXPECT_EQ(error, "Maximum Number Of Open Images Must Be Greater Than 0.");
        EXPECT_FALSE(std::filesystem::exists(path)) << "nothing may be saved";
    }
}

TEST(SystemOptions, InitialScaleFromTheList) {
    struct Case {
        bool autoFit;
        int index;
        std::int32_t flag;
        double scale;
    };
    for (const Case& c : std::vector<Case>{{false, 0, 1, 0.1},
                                           {false, 4, 1, 0.5},
                                           {false, 9, 1, 1.0},
                                           {false, 14, 1, 1.5},
                                           {false, 19, 1, 2.0},
                                           {true, 14, 0, 0.5}}) { // auto fit keeps the scale
        CSetupParams params;
        SystemOptionsControls ctl = ControlsFromOptions(params);
        ctl.autoFit = c.autoFit;
        ctl.scaleIndex = c.index;
        ASSERT_TRUE(ApplySystemOptions(ctl, params));
        EXPECT_EQ(params.initialScaleFlag, c.flag) << c.index;
        EXPECT_DOUBLE_EQ(params.scale, c.scale) << c.index;
    }
}

TEST(SystemOptions, JpegQualityIsIndexTimesFive) {
    for (auto [index, quality] :
         std::vector<std::pair<int, int>>{{0, 0}, {1, 5}, {17, 85}, {20, 100}}) {
        CSetupParams params;
        SystemOptionsControls c = ControlsFromOptions(params);
        c.jpegIndex = index;
        ASSERT_TRUE(ApplySystemOptions(c, params));
        EXPECT_EQ(params.jpegQuality, quality);
        EXPECT_EQ(JpegQualityChoices()[index], std::to_string(quality) + "%");
    }
}

TEST(SystemOptions, ButtonsAndTheirFallThroughWords) {
    const std::vector<std::pair<int, std::string>> saveTypes{
        {0, "COMPFIT"},   {1, "UNCOMPFIT"},  {2, "UNCOMPTIF"}, {3, "UNCOMPFIT32"},
        {4, "COMPFIT32"}, {-1, "UNCOMPTIF"}, {5, "UNCOMPTIF"}};
    for (const auto& [button, word] : saveTypes) {
        CSetupParams params;
        SystemOptionsControls c = ControlsFromOptions(params);
        c.saveTypeButton = button;
        ASSERT_TRUE(ApplySystemOptions(c, params));
        EXPECT_EQ(params.saveType, word) << button;
        EXPECT_EQ(params.saveType2, "COMPFIT") << "the image-set save type is not the tool's";
    }
    for (auto [button, word] : std::vector<std::pair<int, std::string>>{
             {0, "NORMAL"}, {1, "IDLE"}, {-1, "NORMAL"}, {2, "NORMAL"}}) {
        CSetupParams params;
        SystemOptionsControls c = ControlsFromOptions(params);
        c.priorityButton = button;
        ASSERT_TRUE(ApplySystemOptions(c, params));
        EXPECT_EQ(params.strings[SetupPriority], word) << button;
        EXPECT_EQ(GetThreadPriorityWord(params), word);
    }
    for (auto [button, word] :
         std::vector<std::pair<int, std::string>>{{0, "No Adjustment"}, {1, "Auto Stretch"}}) {
        CSetupParams params;
        SystemOptionsControls c = ControlsFromOptions(params);
        c.displayButton = button;
        ASSERT_TRUE(ApplySystemOptions(c, params));
        EXPECT_EQ(params.displayAdjustment, word);
    }
}

TEST(SystemOptions, ControlsShowTheStoredValuesAndSaveThemBack) {
    CSetupParams params;
    SystemOptionsControls c;
    c.displayButton = 1;
    c.autoFit = false;
    c.scaleIndex = 12;
    c.backgroundButton = 6;
    c.saveTypeButton = 3;
    c.priorityButton = 1;
    c.useAccelerator = true;
    c.jpegIndex = 13;
    c.openImageLimit = 7;
    c.slidersEnabled = false;
    c.stickyCopyPortion = true;
    ASSERT_TRUE(ApplySystemOptions(c, params));
    EXPECT_EQ(params.maxOpenImages, 7);
    EXPECT_EQ(params.Background(), "BK");
    EXPECT_TRUE(params.useAccelerator);
    EXPECT_TRUE(params.stickyCopyPortion);
    EXPECT_FALSE(params.slidersEnabled);

    const SystemOptionsControls shown = ControlsFromOptions(params);
    EXPECT_EQ(shown.displayButton, 1);
    EXPECT_FALSE(shown.autoFit);
    EXPECT_EQ(shown.scaleIndex, 12);
    EXPECT_EQ(shown.backgroundButton, 6);
    EXPECT_EQ(shown.saveTypeButton, 3);
    EXPECT_EQ(shown.priorityButton, 1);
    EXPECT_EQ(shown.jpegIndex, 13);
    EXPECT_EQ(shown.openImageLimit, 7);

    // The defaults open as: no adjustment, auto fit with 50% in the list, "B", COMPFIT, 100%.
    const SystemOptionsControls fresh = ControlsFromOptions(CSetupParams());
    EXPECT_EQ(fresh.displayButton, 0);
    EXPECT_TRUE(fresh.autoFit);
    EXPECT_EQ(ScaleChoices()[fresh.scaleIndex], "50%");
    EXPECT_EQ(BackgroundChoices()[fresh.backgroundButton], "B");
    EXPECT_STREQ(SaveTypeChoices()[fresh.saveTypeButton].keyword, "COMPFIT");
    EXPECT_EQ(JpegQualityChoices()[fresh.jpegIndex], "100%");
}

TEST(SystemOptions, SaveWritesTheSetupFile) {
    test::ScratchDir dir;
    const std::string path = dir.file("cfg/QXSP600.qxp");
    CSetupParams params;
    SystemOptionsControls c = ControlsFromOptions(params);
    c.openImageLimit = 3;
    c.priorityButton = 1;
    std::string error;
    ASSERT_TRUE(SaveSystemOptions(c, params, path, &error)) << error;
    CSetupParams read;
    ASSERT_TRUE(LoadSetupParams(path, read, &error)) << error;
    EXPECT_EQ(read.maxOpenImages, 3);
    EXPECT_EQ(GetThreadPriorityWord(read), "IDLE");
    EXPECT_EQ(read, params);
}

TEST(SystemOptions, ChoiceListsAsShown) {
    const auto& types = SaveTypeChoices();
    ASSERT_EQ(types.size(), 5u);
    const std::vector<std::pair<std::string, std::string>> expected{
        {"COMPFIT", "Lossless Compressed 16-bit FIT"},
        {"UNCOMPFIT", "16-bit FIT"},
        {"UNCOMPTIF", "Uncompressed 16-bit TIF"},
        {"UNCOMPFIT32", "32-bit Float FIT"},
        {"COMPFIT32", "Lossless Compressed 32-bit Float FIT"}};
    for (std::size_t i = 0; i < types.size(); ++i) {
        EXPECT_EQ(types[i].keyword, expected[i].first);
        EXPECT_EQ(types[i].label, expected[i].second);
    }
    ASSERT_EQ(PriorityChoices().size(), 2u);
    EXPECT_STREQ(PriorityChoices()[1].keyword, "IDLE");
    EXPECT_STREQ(PriorityChoices()[1].label, "Reduced");
    EXPECT_EQ(ScaleChoices().size(), 20u);
    EXPECT_EQ(ScaleChoices().front(), "10%");
    EXPECT_EQ(ScaleChoices().back(), "200%");
    EXPECT_EQ(BackgroundChoices(),
              (std::vector<std::string>{"R", "G", "B", "W", "LG", "DG", "BK"}));
}

TEST(SystemOptions, AcceleratorLines) {
    AcceleratorInfo none;
    EXPECT_EQ(AcceleratorTexts(none), std::vector<std::string>{"GPU Acceleration Not Available."});
    EXPECT_FALSE(AcceleratorCheckEnabled(none));

    AcceleratorInfo gpu{true, "Radeon Test (AMD)", false, 8388608, true};
    EXPECT_EQ(AcceleratorTexts(gpu),
              (std::vector<std::string>{"GPU : Radeon Test (AMD)", "Dedicated Memory : 8388608 KB",
                                        "Supports Double Precision : Yes"}));
    gpu.doublePrecision = false;
    EXPECT_EQ(AcceleratorTexts(gpu)[2], "Supports Double Precision : No");
    EXPECT_TRUE(AcceleratorCheckEnabled(gpu));
}

TEST(SystemOptions, StartUpLoadsTheFileAndDropsAnUnusableAccelerator) {
    const AcceleratorInfo machine = QueryDefaultAccelerator();
    if (AcceleratorQualifies(machine))
        GTEST_SKIP() << "this machine has a qualifying accelerator: " << machine.description;

    test::ScratchDir dir;
    const std::string path = dir.file("QXSP600.qxp");
    CSetupParams stored;
    stored.useAccelerator = true;
    stored.maxOpenImages = 9;
    ASSERT_TRUE(SaveSetupParams(path, stored));

    const SystemOptionsState saved = Options();
    test::RecordingNotify notify;
    notify.answer = Answer::Yes;
    InitializeSystemOptions(path, notify);
    EXPECT_EQ(Options().setup.maxOpenImages, 9);
    EXPECT_FALSE(Options().setup.useAccelerator) << "no qualifying device: forced off";
    EXPECT_FALSE(UseAccelerator());
    EXPECT_EQ(AcceleratorMemoryKb(), 0);
    EXPECT_TRUE(notify.questions.empty());
    EXPECT_TRUE(notify.messages.empty());
    EXPECT_EQ(AcceleratorTexts(Options().accelerator),
              std::vector<std::string>{"GPU Acceleration Not Available."});

    // A cut file is reported through the notifier, with what was read kept.
    const std::string bytes = SerializeSetupParams(stored);
    {
        std::FILE* f = std::fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(bytes.data(), 1, bytes.size() - 1, f);
        std::fclose(f);
    }
    InitializeSystemOptions(path, notify);
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0], "Setup file is truncated: " + path);
    EXPECT_EQ(Options().setup.maxOpenImages, 9);
    Options() = saved;
}

} // namespace
} // namespace astrivelle
