// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the main window tests share: a model over a scratch folder, and small files.
#pragma once
#include <filesystem>
#include <fstream>
#include <string>

#include "TestSupport.h"
#include "engine/SystemOptions.h"
#include "engine/workbench/MainWindow.h"

namespace astrivelle::test {

/// A main window whose folders lie in a scratch folder; the process options are put back
/// when it goes.
struct MainBench {
    ScratchDir dir;
    RecordingNotify notify;
    CMainWindow main{&notify};
    CSetupParams keptOptions = Options().setup;

    MainBench() {
        main.lastFolder = dir.path().string();
        main.projectFolder = dir.file("project");
        std::filesystem::create_directories(main.projectFolder);
        main.setupPath = dir.file("config/QXSP600.qxp");
        main.maxOpenImages = 10;
        Options().setup.saveType = "COMPFIT";
    }
    ~MainBench() { Options().setup = keptOptions; }

    /// A 16-bit uncompressed FITS file of `w` x `h` whose samples are base + 1000 * slot +
    /// x + 10 * y.
    std::string Fits(const std::string& name, int w = 4, int h = 3,
                     std::uint32_t colorType = ColorGray, float base = 1000) {
        Image img;
        MakeImage(img, w, h, colorType,
                  [&](int s, int x, int y) { return base + 1000 * s + x + 10 * y; });
        img.fitsCompress = false;
        const std::string path = dir.file(name);
        EXPECT_TRUE(img.WriteFile(path, KindFITS)) << path;
        return path;
    }

    /// A small text file standing for a step file.
    std::string Touch(const std::string& name) {
        const std::string path = dir.file(name);
        std::ofstream(path) << "step";
        return path;
    }

    CProcessWindow* Open(const std::string& name) { return main.OpenImageFile(Fits(name)); }

    std::string LastMessage() const {
        return notify.messages.empty() ? std::string() : notify.messages.back();
    }
};

inline bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

} // namespace astrivelle::test
