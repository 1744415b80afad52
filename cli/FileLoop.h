// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The loop every file-list command runs: for each input, read, change, choose the
/// output format and write DIR/prefix + name, with progress, cancel and per-file failures.
#pragma once
#include <functional>
#include <string>
#include <vector>

namespace astrivelle {
class Image;
}

namespace astrivelle::cli {

struct FileLoop {
    std::vector<std::string> files;
    std::string outDir;
    std::string prefix;
    std::string saveType = "SAMEASINPUT";
    bool quiet = false;
    /// Reads one input; false with a reason. Defaults to Image::ReadFile by extension.
    std::function<bool(Image&, const std::string& path, std::string* why)> read;
    /// Changes the image read; false with a reason ends that file with `failureText` + name.
    std::function<bool(Image&, std::string* why)> change;
    std::string failureText = "Error filtering ";
};

/// Runs the loop; returns the command's exit status (0 all written, 1 any file failed or the
/// run was cancelled).
int RunFileLoop(const FileLoop& loop);

} // namespace astrivelle::cli
