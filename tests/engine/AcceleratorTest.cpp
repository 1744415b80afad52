// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The accelerator rules: qualification, the start-up question, kernel paths, bands and
/// failure texts.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "engine/Accelerator.h"
#include "engine/SetupParams.h"
#include "engine/SystemOptions.h"

namespace astrivelle {
namespace {

AcceleratorInfo Gpu(std::int64_t kb, bool emulated = false) {
    return AcceleratorInfo{true, "Test GPU (Vendor)", emulated, kb, true};
}

TEST(Accelerator, QualifiesAboveTenMegabytesAndNeverEmulated) {
    struct Case {
        AcceleratorInfo info;
        bool qualifies;
    };
    for (const Case& c : std::vector<Case>{{Gpu(10240), false},
                                           {Gpu(10241), true},
                                           {Gpu(0), false},
                                           {Gpu(8000000, true), false},
                                           {AcceleratorInfo{}, false},
                                           {AcceleratorInfo{false, "", false, 99999, true}, false}})
        EXPECT_EQ(AcceleratorQualifies(c.info), c.qualifies)
            << c.info.dedicatedMemoryKb << " emulated " << c.info.emulated;
}

TEST(Accelerator, DetectionAsksOnceAndYesEnables) {
    struct Case {
        bool stored;
        Answer answer;
        std::size_t questions;
        bool result;
    };
    for (const Case& c : std::vector<Case>{{false, Answer::Yes, 1, true},
                                           {false, Answer::No, 1, false},
                                           {true, Answer::Yes, 0, true}}) {
        CSetupParams params;
        params.useAccelerator = c.stored;
        AcceleratorInfo info = Gpu(4000000);
        test::RecordingNotify notify;
        notify.answer = c.answer;
        EXPECT_TRUE(DetectAccelerator(info, params, notify));
        ASSERT_EQ(notify.questions.size(), c.questions);
        if (c.questions) {
            EXPECT_EQ(notify.questions[0],
                      "GPU acceleration is available but currently disabled in File | System "
                      "Options.\n\n Would you like to enable GPU acceleration?");
        }
        EXPECT_EQ(params.useAccelerator, c.result);
        EXPECT_EQ(info, Gpu(4000000)) << "a qualifying device is kept as found";
    }
}

TEST(Accelerator, DetectionClearsAnUnqualifiedDevice) {
    for (const AcceleratorInfo& found : {Gpu(10240), Gpu(4000000, true), AcceleratorInfo{}}) {
        CSetupParams params;
        params.useAccelerator = true; // as the file said
        AcceleratorInfo info = found;
        test::RecordingNotify notify;
        notify.answer = Answer::Yes;
        EXPECT_FALSE(DetectAccelerator(info, params, notify));
        EXPECT_TRUE(notify.questions.empty());
        EXPECT_FALSE(params.useAccelerator);
        EXPECT_EQ(info, AcceleratorInfo());
        EXPECT_EQ(info.description, "");
    }
}

TEST(Accelerator, KernelPathTests) {
    struct Case {
        bool use, hasDouble;
        std::int64_t kb;
        bool accelerator;
    };
    for (const Case& c : std::vector<Case>{{true, true, 2000000, false},
                                           {true, true, 2000001, true},
                                           {true, false, 9000000, false},
                                           {false, true, 9000000, false}})
        EXPECT_EQ(UseDoubleKernel(c.use, c.hasDouble, c.kb), c.accelerator) << c.kb;
    EXPECT_TRUE(UseSingleKernel(true));
    EXPECT_FALSE(UseSingleKernel(false));
}

TEST(Accelerator, BandsOfThirtyTwoRows) {
    struct Case {
        int height, bands, remainder;
    };
    for (const Case& c : std::vector<Case>{
             {100, 3, 4}, {64, 2, 0}, {31, 0, 31}, {32, 1, 0}, {1, 0, 1}, {0, 0, 0}, {-5, 0, 0}}) {
        AcceleratorBandPlan plan = AcceleratorBands(c.height);
        EXPECT_EQ(plan.bands, c.bands) << c.height;
        EXPECT_EQ(plan.remainder, c.remainder) << c.height;
    }
}

TEST(Accelerator, FailureTextsByStatus) {
    const std::string removed = "DirectX call failed due to the Windows timeout detection and "
                                "recovery mechanism. Reduce Blur Window Size.";
    const std::string removedLine =
        "DirectX call failed due to the Windows timeout detection and "
        "recovery mechanism. Reduce horizontal and vertical window size.";
    const std::string memory = "OS/DirectX call failed due to lack of system or device memory.";
    const std::string domain = "Runtime failed to launch a kernel using the compute domain "
                               "specified at the parallel_for_each call site.";
    const std::string unsupported = "Unsupported feature used.";
    struct Case {
        int status;
        std::string text;
    };
    // Raw CL/cl.h values, so a wrong constant in the mapping shows.
    for (const Case& c : std::vector<Case>{{-5, memory},
                                           {-4, memory},
                                           {-54, domain},
                                           {-63, domain},
                                           {-55, domain},
                                           {-33, removed},
                                           {-2, removed},
                                           {-11, unsupported},
                                           {-9999, unsupported},
                                           {0, ""}})
        EXPECT_EQ(AcceleratorFailureText(ClassifyOpenCLStatus(c.status)), c.text) << c.status;
    EXPECT_EQ(AcceleratorFailureText(AcceleratorFailure::DeviceRemoved, true), removedLine);
    EXPECT_EQ(AcceleratorFailureText(AcceleratorFailure::OutOfMemory, true), memory);
}

TEST(Accelerator, QueryOnThisMachine) {
    const AcceleratorInfo info = QueryDefaultAccelerator();
    if (!AcceleratorCompiledIn()) {
        EXPECT_FALSE(info.present);
    }
    if (info.present) {
        EXPECT_FALSE(info.description.empty());
        EXPECT_GT(info.dedicatedMemoryKb, 0);
    } else {
        EXPECT_EQ(info, AcceleratorInfo());
    }
    // Whatever was found, what detection keeps and the tool shows agree.
    AcceleratorInfo kept = info;
    CSetupParams params;
    test::RecordingNotify notify;
    const bool qualified = DetectAccelerator(kept, params, notify);
    EXPECT_EQ(qualified, AcceleratorQualifies(info));
    if (!qualified) {
        EXPECT_TRUE(notify.questions.empty());
        EXPECT_EQ(AcceleratorTexts(kept),
                  std::vector<std::string>{"GPU Acceleration Not Available."});
    } else {
        EXPECT_EQ(notify.questions.size(), 1u);
        EXPECT_EQ(AcceleratorTexts(kept)[0], "GPU : " + info.description);
    }
}

} // namespace
} // namespace astrivelle
