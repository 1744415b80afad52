// SPDX-License-Identifier: GPL-3.0-or-later
/// \file AVI and MOV test videos made with ffmpeg hold the frames given, per ffprobe.
#include <gtest/gtest.h>

#include <filesystem>

#include "TestSupport.h"
#include "tools/synth/PlanetScene.h"
#include "tools/synth/VideoFiles.h"

using namespace astrivelle::synth;
using astrivelle::test::RunCommand;
using astrivelle::test::ScratchDir;
namespace fs = std::filesystem;

TEST(VideoFiles, PlanetFramesThroughFfmpegKeepTheirCount) {
    if (!HaveVideoProgram("ffmpeg") || !HaveVideoProgram("ffprobe"))
        GTEST_SKIP() << "ffmpeg or ffprobe is not installed";
    ScratchDir dir;
    struct Case {
        VideoKind kind;
        int channels, frames;
    };
    const Case cases[] = {
        {VideoKind::AviRaw, 1, 7},
        {VideoKind::AviRaw, 3, 4},
        {VideoKind::MovMjpeg, 1, 6},
        {VideoKind::MovPng, 3, 5},
    };
    int n = 0;
    for (const Case& c : cases) {
        PlanetSettings s;
        s.width = 96;
        s.height = 64;
        s.frames = c.frames;
        s.colorId = c.channels == 3 ? 100 : 0;
        PlanetScene scene(s);
        const std::string path = dir.file("v" + std::to_string(n++) + "." + VideoExtension(c.kind));
        std::string error;
        FfmpegVideoWriter video;
        ASSERT_TRUE(video.Open(path, s.width, s.height, c.channels, 30, c.kind, &error)) << error;
        std::vector<std::uint16_t> samples;
        std::vector<std::uint8_t> pixels;
        for (int i = 0; i < s.frames; ++i) {
            scene.RenderFrame(i, &samples);
            pixels.assign(samples.begin(), samples.end());
            ASSERT_TRUE(video.WriteFrame(pixels.data(), &error)) << error;
        }
        ASSERT_TRUE(video.Close(&error)) << error;
        int frames = -1;
        ASSERT_TRUE(CountVideoFrames(path, &frames, &error)) << error;
        EXPECT_EQ(frames, c.frames) << path;
        std::string probe;
        ASSERT_EQ(RunCommand("ffprobe -v error -show_entries stream=codec_name,width,height "
                             "-of csv=p=0 " +
                                 path,
                             &probe),
                  0);
        const char* codec = c.kind == VideoKind::AviRaw     ? "rawvideo"
                            : c.kind == VideoKind::MovMjpeg ? "mjpeg"
                                                            : "png";
        EXPECT_EQ(probe, std::string(codec) + ",96,64\n") << path;
    }
}

TEST(VideoFiles, PlanetCommandWritesTheVideoBesideTheSer) {
    if (!HaveVideoProgram("ffmpeg") || !HaveVideoProgram("ffprobe"))
        GTEST_SKIP() << "ffmpeg or ffprobe is not installed";
    for (const char* kind : {"avi", "mov"}) {
        ScratchDir dir;
        ASSERT_EQ(RunCommand(std::string(ASTRIVELLE_SYNTH) + " planet --out " +
                             dir.path().string() +
                             " --frames 5 --size 64x48 --depth 16 --lunar --video " + kind),
                  0);
        const std::string path = dir.file(std::string("lunar.") + kind);
        ASSERT_TRUE(fs::exists(path));
        int frames = -1;
        std::string error;
        ASSERT_TRUE(CountVideoFrames(path, &frames, &error)) << error;
        EXPECT_EQ(frames, 5);
    }
}

TEST(VideoFiles, FailuresAreReported) {
    std::string error;
    int frames = 0;
    EXPECT_FALSE(CountVideoFrames("/nonexistent/x.avi", &frames, &error));
    EXPECT_EQ(error, "ffprobe could not count the frames of /nonexistent/x.avi");
    FfmpegVideoWriter video;
    EXPECT_FALSE(video.Open("/tmp/x.avi", 0, 10, 1, 30, VideoKind::AviRaw, &error));
    EXPECT_FALSE(video.WriteFrame(nullptr, &error));
    if (!HaveVideoProgram("ffmpeg"))
        return;
    // ffmpeg cannot create a file in a missing folder: Close reports it.
    std::uint8_t frame[16 * 16] = {};
    ASSERT_TRUE(video.Open("/nonexistent/dir/x.avi", 16, 16, 1, 30, VideoKind::AviRaw, &error));
    video.WriteFrame(frame, &error);
    EXPECT_FALSE(video.Close(&error));
    EXPECT_EQ(error, "ffmpeg failed to write /nonexistent/dir/x.avi");
}
