// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The setup file: round trips, versions, cut and corrupt files, crash-safe saving and
/// the default folders.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>

#include "TestSupport.h"
#include "engine/SetupParams.h"

namespace astrivelle {
namespace {

namespace fs = std::filesystem;

std::string ReadBytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// Every value changed from its default.
CSetupParams Changed() {
    CSetupParams p;
    for (int i = 0; i < SetupStringCount; ++i)
        p.strings[i] = "slot" + std::to_string(i) + "/value";
    p.strings[SetupBackground] = "DG";
    p.strings[SetupPriority] = "IDLE";
    p.toolFlag = 7;
    p.saveType = "UNCOMPFIT32";
    p.saveType2 = "UNCOMPTIF";
    p.displayAdjustment = "Auto Stretch";
    p.jpegQuality = 85;
    p.maxOpenImages = 12;
    p.initialScaleFlag = 1;
    p.scale = 1.3;
    p.slidersEnabled = false;
    p.numericPresets = {61.5, 0.25, -3, 1e-9};
    p.integerPresets = {1, -2, 3, 40000, 5, 6, 7, 2147483647};
    p.presetText = "Default High Pixel Reduction#Reduce : High#";
    p.fileFilterIndex = 13;
    p.fileFilterSubtype = 4;
    p.filterFlag = 1;
    p.arcsecSetups.push_back({"Scope A", "Arcsec", "1.25", "a", "b", "c", "d", "e", "f"});
    p.arcsecSetups.push_back({"Scope B", "Pixels", "0.5", "", "", "", "", "", "last"});
    p.toolPositions["CHistogram"] = {10, 20, false, 0, 0};
    p.toolPositions["CZoom"] = {-5, 300, true, 640, 480};
    p.recentFiles = {"/data/m31.fit", "/data/ngc 7000.tif", ""};
    p.useAccelerator = true;
    p.stickyCopyPortion = true;
    return p;
}

/// Byte offsets of the fields of the setup file, counted from the layout: a string takes
/// 4 + its length, integers 4, doubles 8, bytes 1.
struct Layout {
    std::size_t stringStart[SetupStringCount];
    std::size_t toolFlag, saveType, saveType2, display, jpeg, limit, scaleFlag, scale, sliders;
    std::size_t presetText, filterIndex, filterFlag, arcsecCount, arcsecEntry1, toolCount;
    std::size_t recentCount, useAccelerator, sticky, end;
};

Layout LayoutOf(const CSetupParams& p) {
    Layout l{};
    std::size_t o = 4;
    for (int i = 0; i < SetupStringCount; ++i) {
        l.stringStart[i] = o;
        o += 4 + p.strings[i].size();
    }
    l.toolFlag = o;
    o += 1;
    l.saveType = o;
    o += 4 + p.saveType.size();
    l.saveType2 = o;
    o += 4 + p.saveType2.size();
    l.display = o;
    o += 4 + p.displayAdjustment.size();
    l.jpeg = o;
    l.limit = o + 4;
    l.scaleFlag = o + 8;
    l.scale = o + 12;
    l.sliders = o + 20;
    o += 21 + 4 * 8 + 8 * 4;
    l.presetText = o;
    o += 4 + p.presetText.size();
    l.filterIndex = o;
    l.filterFlag = o + 8;
    l.arcsecCount = o + 9;
    o += 13;
    for (std::size_t e = 0; e < p.arcsecSetups.size(); ++e) {
        if (e == 1)
            l.arcsecEntry1 = o;
        for (const auto& s : p.arcsecSetups[e])
            o += 4 + s.size();
    }
    l.toolCount = o;
    o += 4;
    for (const auto& [name, pos] : p.toolPositions)
        o += 4 + name.size() + 9 + (pos.hasSize ? 8 : 0);
    l.recentCount = o;
    o += 4;
    for (const auto& s : p.recentFiles)
        o += 4 + s.size();
    l.useAccelerator = o;
    l.sticky = o + 1;
    l.end = o + 2;
    return l;
}

TEST(SetupParams, DefaultsAreTheBuiltInValues) {
    CSetupParams p;
    EXPECT_EQ(p.Background(), "B");
    EXPECT_EQ(p.Priority(), "NORMAL");
    EXPECT_EQ(p.saveType, "COMPFIT");
    EXPECT_EQ(p.displayAdjustment, "No Adjustment");
    EXPECT_EQ(p.jpegQuality, 100);
    EXPECT_EQ(p.maxOpenImages, 100);
    EXPECT_EQ(p.initialScaleFlag, 0);
    EXPECT_EQ(p.scale, 0.5);
    EXPECT_TRUE(p.slidersEnabled);
    EXPECT_FALSE(p.useAccelerator);
    EXPECT_FALSE(p.stickyCopyPortion);
    EXPECT_EQ(p.numericPresets, (std::array<double, 4>{60, 0.7, 20, 0.7}));
    EXPECT_EQ(p.integerPresets, (std::array<std::int32_t, 8>{100, 75, 50, 25, 90, 80, 70, 60}));
}

TEST(SetupParams, RoundTripKeepsEveryValueAndBytes) {
    test::ScratchDir dir;
    const std::string path = dir.file("cfg/astrivelle/QXSP600.qxp");
    const CSetupParams written = Changed();
    ASSERT_NE(written, CSetupParams());
    std::string error = "stale";
    ASSERT_TRUE(SaveSetupParams(path, written, &error)) << error;
    EXPECT_EQ(error, "");

    const std::string bytes = ReadBytes(path);
    EXPECT_EQ(bytes.size(), LayoutOf(written).end);
    // Version 319907 (0x0004E1A3) little-endian first; the two accelerator/sticky bytes last.
    ASSERT_GE(bytes.size(), 6u);
    EXPECT_EQ(bytes.substr(0, 4), std::string("\xA3\xE1\x04\x00", 4));
    EXPECT_EQ(bytes.substr(bytes.size() - 2), std::string("\x01\x01", 2));

    // The fields stand where the layout puts them.
    const Layout l = LayoutOf(written);
    auto u32At = [&](std::size_t at) {
        std::uint32_t v = 0;
        for (int i = 3; i >= 0; --i)
            v = (v << 8) | static_cast<unsigned char>(bytes[at + i]);
        return v;
    };
    EXPECT_EQ(u32At(l.stringStart[SetupBackground]), 2u);
    EXPECT_EQ(bytes.substr(l.stringStart[SetupBackground] + 4, 2), "DG");
    EXPECT_EQ(bytes.substr(l.stringStart[SetupPriority] + 4, 4), "IDLE");
    EXPECT_EQ(static_cast<unsigned char>(bytes[l.toolFlag]), 7u);
    EXPECT_EQ(bytes.substr(l.saveType + 4, 11), "UNCOMPFIT32");
    EXPECT_EQ(bytes.substr(l.display + 4, 12), "Auto Stretch");
    EXPECT_EQ(u32At(l.jpeg), 85u);
    EXPECT_EQ(u32At(l.limit), 12u);
    EXPECT_EQ(u32At(l.scaleFlag), 1u);
    double scale = 0;
    std::memcpy(&scale, bytes.data() + l.scale, 8); // the test machine is little-endian
    EXPECT_EQ(scale, 1.3);
    EXPECT_EQ(bytes[l.sliders], 0);
    EXPECT_EQ(u32At(l.sliders + 1 + 4 * 8), 1u); // first integer preset
    EXPECT_EQ(u32At(l.filterIndex), 13u);
    EXPECT_EQ(u32At(l.filterIndex + 4), 4u);
    EXPECT_EQ(bytes[l.filterFlag], 1);
    EXPECT_EQ(u32At(l.arcsecCount), 2u);
    EXPECT_EQ(u32At(l.toolCount), 2u);
    EXPECT_EQ(u32At(l.recentCount), 3u);

    CSetupParams read = Changed();
    read.jpegQuality = 5; // must be overwritten by the load
    SetupLoadStatus status{};
    ASSERT_TRUE(LoadSetupParams(path, read, &error, &status)) << error;
    EXPECT_EQ(status, SetupLoadStatus::Loaded);
    EXPECT_EQ(read, written);
    EXPECT_EQ(GetThreadPriorityWord(read), "IDLE");

    const std::string again = dir.file("again.qxp");
    ASSERT_TRUE(SaveSetupParams(again, read, &error));
    EXPECT_EQ(ReadBytes(again), bytes);
}

TEST(SetupParams, MissingOrUnreadableFileKeepsDefaultsWithoutError) {
    test::ScratchDir dir;
    for (const std::string& path : {dir.file("none.qxp"), dir.path().string()}) {
        CSetupParams p = Changed();
        std::string error = "stale";
        SetupLoadStatus status{};
        EXPECT_TRUE(LoadSetupParams(path, p, &error, &status));
        EXPECT_EQ(status, SetupLoadStatus::Missing);
        EXPECT_EQ(error, "");
        EXPECT_EQ(p, CSetupParams());
    }
}

TEST(SetupParams, OtherVersionKeepsAllDefaultsSilently) {
    test::ScratchDir dir;
    const std::string path = dir.file("old.qxp");
    for (std::uint32_t version : {319906u, 319908u, 0u, 600u}) {
        std::string bytes = SerializeSetupParams(Changed());
        for (int i = 0; i < 4; ++i)
            bytes[i] = static_cast<char>((version >> (8 * i)) & 0xFF);
        WriteBytes(path, bytes);
        CSetupParams p = Changed();
        std::string error = "stale";
        SetupLoadStatus status{};
        EXPECT_TRUE(LoadSetupParams(path, p, &error, &status)) << version;
        EXPECT_EQ(status, SetupLoadStatus::OtherVersion);
        EXPECT_EQ(error, "");
        EXPECT_EQ(p, CSetupParams()) << version;
    }
}

TEST(SetupParams, TruncatedFileKeepsWhatWasReadBeforeTheCut) {
    test::ScratchDir dir;
    const std::string path = dir.file("cut.qxp");
    const CSetupParams full = Changed();
    const std::string bytes = SerializeSetupParams(full);
    const Layout l = LayoutOf(full);
    ASSERT_EQ(bytes.size(), l.end);

    struct Case {
        const char* what;
        std::size_t cut;
        std::function<void(CSetupParams&)> expectRead; // copies what was read into defaults
    };
    auto strings = [&](int n) {
        return [&full, n](CSetupParams& e) {
            for (int i = 0; i < n; ++i)
                e.strings[i] = full.strings[i];
        };
    };
    auto throughSaveType = [&](CSetupParams& e) {
        strings(SetupStringCount)(e);
        e.toolFlag = full.toolFlag;
        e.saveType = full.saveType;
    };
    auto throughScaleFlag = [&](CSetupParams& e) {
        throughSaveType(e);
        e.saveType2 = full.saveType2;
        e.displayAdjustment = full.displayAdjustment;
        e.jpegQuality = full.jpegQuality;
        e.maxOpenImages = full.maxOpenImages;
        e.initialScaleFlag = full.initialScaleFlag;
    };
    auto throughFirstArcsec = [&](CSetupParams& e) {
        e = full;
        e.arcsecSetups.resize(1);
        e.toolPositions.clear();
        e.recentFiles.clear();
        e.useAccelerator = false;
        e.stickyCopyPortion = false;
    };
    auto allButSticky = [&](CSetupParams& e) {
        e = full;
        e.stickyCopyPortion = false;
    };
    const std::vector<Case> cases{
        {"empty file", 0, strings(0)},
        {"inside the version", 2, strings(0)},
        {"right after the version", 4, strings(0)},
        {"inside the length of string 10", l.stringStart[10] + 2, strings(10)},
        {"inside the text of string 10", l.stringStart[10] + 6, strings(10)},
        {"inside the second save type", l.saveType2 + 5, throughSaveType},
        {"inside the scale double", l.scale + 3, throughScaleFlag},
        {"inside the second arcsecond entry", l.arcsecEntry1 + 9, throughFirstArcsec},
        {"before the sticky byte", l.sticky, allButSticky},
    };
    for (const Case& c : cases) {
        WriteBytes(path, bytes.substr(0, c.cut));
        CSetupParams expected;
        c.expectRead(expected);
        CSetupParams got = Changed();
        std::string error;
        SetupLoadStatus status{};
        EXPECT_FALSE(LoadSetupParams(path, got, &error, &status)) << c.what;
        EXPECT_EQ(status, SetupLoadStatus::Failed) << c.what;
        EXPECT_EQ(error, "Setup file is truncated: " + path) << c.what;
        EXPECT_EQ(got, expected) << c.what;
    }
}

TEST(SetupParams, CorruptLengthsAndCountsFailCleanly) {
    test::ScratchDir dir;
    const std::string path = dir.file("bad.qxp");
    const CSetupParams full = Changed();
    const std::string good = SerializeSetupParams(full);
    const Layout l = LayoutOf(full);
    auto patchU32 = [&](std::size_t at, std::uint32_t v) {
        std::string b = good;
        for (int i = 0; i < 4; ++i)
            b[at + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
        return b;
    };

    // A huge string length in the first slot: nothing read, no giant allocation.
    WriteBytes(path, patchU32(l.stringStart[0], 0xFFFFFFF0u));
    CSetupParams p;
    std::string error;
    EXPECT_FALSE(LoadSetupParams(path, p, &error));
    EXPECT_EQ(error, "Setup file is corrupt: " + path);
    EXPECT_EQ(p, CSetupParams());

    // A huge arcsecond count: everything before it kept, the lists after it default.
    for (std::uint32_t count : {0xFFFFFFFFu, 0x7FFFFFFFu, 10001u}) {
        WriteBytes(path, patchU32(l.arcsecCount, count));
        EXPECT_FALSE(LoadSetupParams(path, p, &error)) << count;
        EXPECT_EQ(error, "Setup file is corrupt: " + path);
        EXPECT_EQ(p.presetText, full.presetText);
        EXPECT_EQ(p.filterFlag, full.filterFlag);
        EXPECT_TRUE(p.arcsecSetups.empty());
        EXPECT_TRUE(p.recentFiles.empty());
        EXPECT_FALSE(p.useAccelerator);
    }

    // A plausible count that overruns the data reads as a cut file, keeping the entries.
    WriteBytes(path, patchU32(l.recentCount, 9000));
    EXPECT_FALSE(LoadSetupParams(path, p, &error));
    EXPECT_EQ(error, "Setup file is truncated: " + path);
    EXPECT_EQ(p.toolPositions, full.toolPositions);
    EXPECT_EQ(p.recentFiles, full.recentFiles);
    EXPECT_FALSE(p.stickyCopyPortion);

    // A string length longer than the rest of the file.
    WriteBytes(path, patchU32(l.display, 100000));
    EXPECT_FALSE(LoadSetupParams(path, p, &error));
    EXPECT_EQ(error, "Setup file is truncated: " + path);
    EXPECT_EQ(p.saveType2, full.saveType2);
    EXPECT_EQ(p.displayAdjustment, "No Adjustment");
}

TEST(SetupParams, SaveReplacesTheFileThroughATemporaryOne) {
    test::ScratchDir dir;
    const std::string path = dir.file("QXSP600.qxp");
    ASSERT_TRUE(SaveSetupParams(path, CSetupParams()));
    const std::string oldBytes = ReadBytes(path);
    // A second name for the old file: written in place, it would change too.
    const std::string link = dir.file("old-link");
    ASSERT_EQ(::link(path.c_str(), link.c_str()), 0);

    ASSERT_TRUE(SaveSetupParams(path, Changed()));
    EXPECT_EQ(ReadBytes(link), oldBytes);
    EXPECT_EQ(ReadBytes(path), SerializeSetupParams(Changed()));
    int entries = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 2) << "no temporary file may be left behind";
}

TEST(SetupParams, FailedSaveKeepsTheOldFileAndSaysSo) {
    test::ScratchDir dir;
    std::string error;

    // The folder cannot be made: a plain file stands where it should be.
    WriteBytes(dir.file("plain"), "x");
    const std::string noFolder = dir.file("plain/astrivelle/QXSP600.qxp");
    EXPECT_FALSE(SaveSetupParams(noFolder, Changed(), &error));
    EXPECT_EQ(error, "Error writing Setup Params : " + noFolder);

    // The write fails part-way (file size limit): the old file stays whole.
    const std::string path = dir.file("QXSP600.qxp");
    ASSERT_TRUE(SaveSetupParams(path, CSetupParams()));
    const std::string oldBytes = ReadBytes(path);
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    struct rlimit tight = saved;
    tight.rlim_cur = 16;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const bool ok = SaveSetupParams(path, Changed(), &error);
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(ok);
    EXPECT_EQ(error, "Error writing Setup Params : " + path);
    EXPECT_EQ(ReadBytes(path), oldBytes);
    int entries = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 2) << "the temporary file must be removed";

    // A folder without write permission (only meaningful when not running as root).
    if (geteuid() != 0) {
        const fs::path locked = dir.path() / "locked";
        fs::create_directories(locked);
        const std::string lockedPath = (locked / "QXSP600.qxp").string();
        ASSERT_TRUE(SaveSetupParams(lockedPath, CSetupParams()));
        ::chmod(locked.c_str(), 0555);
        EXPECT_FALSE(SaveSetupParams(lockedPath, Changed(), &error));
        ::chmod(locked.c_str(), 0755);
        EXPECT_EQ(error, "Error writing Setup Params : " + lockedPath);
        EXPECT_EQ(ReadBytes(lockedPath), oldBytes);
    }
}

/// Sets or clears an environment variable for the life of the object.
class EnvGuard {
public:
    EnvGuard(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~EnvGuard() {
        if (old_)
            setenv(name_, old_->c_str(), 1);
        else
            unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(SetupParams, SetupPathFollowsXdgConfigHome) {
    EnvGuard home("HOME", "/home/astro");
    {
        EnvGuard xdg("XDG_CONFIG_HOME", "/srv/cfg");
        EXPECT_EQ(DefaultSetupPath(), "/srv/cfg/astrivelle/QXSP600.qxp");
    }
    for (const char* ignored : {static_cast<const char*>(nullptr), "", "relative/cfg"}) {
        EnvGuard xdg("XDG_CONFIG_HOME", ignored);
        EXPECT_EQ(DefaultSetupPath(), "/home/astro/.config/astrivelle/QXSP600.qxp");
    }
}

TEST(SetupParams, ProjectDirectoryFallsBackAndIsCreated) {
    test::ScratchDir dir;
    std::string folder, error;
    {
        EnvGuard home("HOME", dir.file("home").c_str());
        ASSERT_TRUE(DefaultProjectDirectory(folder, &error)) << error;
        EXPECT_EQ(folder, dir.file("home/Astrivelle"));
        EXPECT_TRUE(fs::is_directory(folder));
    }
    WriteBytes(dir.file("plain"), "x");
    {
        EnvGuard home("HOME", dir.file("plain").c_str());
        EnvGuard tmp("TMPDIR", dir.file("tmp").c_str());
        ASSERT_TRUE(DefaultProjectDirectory(folder, &error)) << error;
        EXPECT_EQ(folder, dir.file("tmp/Astrivelle"));
        EXPECT_TRUE(fs::is_directory(folder));
    }
    {
        EnvGuard home("HOME", dir.file("plain").c_str());
        EnvGuard tmp("TMPDIR", dir.file("plain").c_str());
        folder.clear();
        EXPECT_FALSE(DefaultProjectDirectory(folder, &error));
        EXPECT_EQ(error.rfind("Error Creating QX Default Project directory - ", 0), 0u) << error;
        EXPECT_GT(error.size(),
                  std::string("Error Creating QX Default Project directory - ").size());
        EXPECT_EQ(folder, "");
    }
}

TEST(SetupParams, PriorityWordIsNormalUnlessIdle) {
    CSetupParams p;
    for (auto [stored, word] : std::vector<std::pair<std::string, std::string>>{
             {"IDLE", "IDLE"}, {"NORMAL", "NORMAL"}, {"idle", "NORMAL"}, {"", "NORMAL"}}) {
        p.strings[SetupPriority] = stored;
        EXPECT_EQ(GetThreadPriorityWord(p), word) << stored;
    }
}

TEST(SetupParams, RecordsFollowTheOlderFieldsAndMayBeAbsent) {
    test::ScratchDir dir;
    CSetupParams written = Changed();
    const std::string before = SerializeSetupParams(written);
    written.records["CalibrationSetup"] = "darkPath=/data/dark#1.fit\nuseDark=1\n";
    written.records["FileSetProcess"] = "";
    const std::string bytes = SerializeSetupParams(written);
    ASSERT_GT(bytes.size(), before.size());
    EXPECT_EQ(bytes.substr(0, before.size()), before) << "the older fields are unchanged";
    const std::string path = dir.file("records.qxp");
    ASSERT_TRUE(SaveSetupParams(path, written));
    CSetupParams read;
    SetupLoadStatus status{};
    ASSERT_TRUE(LoadSetupParams(path, read, nullptr, &status));
    EXPECT_EQ(status, SetupLoadStatus::Loaded);
    EXPECT_EQ(read, written);
    // A file of the time before records loads whole, with none.
    { std::ofstream(dir.file("old.qxp"), std::ios::binary) << before; }
    read = written;
    ASSERT_TRUE(LoadSetupParams(dir.file("old.qxp"), read, nullptr, &status));
    EXPECT_EQ(status, SetupLoadStatus::Loaded);
    EXPECT_TRUE(read.records.empty());
    // A cut inside the records is a truncated file.
    { std::ofstream(dir.file("cut.qxp"), std::ios::binary) << bytes.substr(0, bytes.size() - 3); }
    std::string error;
    EXPECT_FALSE(LoadSetupParams(dir.file("cut.qxp"), read, &error, &status));
    EXPECT_EQ(status, SetupLoadStatus::Failed);
}

} // namespace
} // namespace astrivelle
