// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Temporary-file-and-rename writing of outputs.
#include "fileio/WriteSafely.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

bool WriteImageSafely(Image& image, const std::string& target, int kind,
                      const std::vector<std::string>& inputs, std::string* error) {
    std::error_code ec;
    for (const std::string& in : inputs)
        if (fs::exists(target, ec) && fs::equivalent(in, target, ec)) {
            *error = "Output would overwrite the input " + in;
            return false;
        }
    const fs::path folder = fs::path(target).parent_path().empty() ? fs::path(".")
                                                                    : fs::path(target).parent_path();
    if (!fs::is_directory(folder, ec)) {
        *error = "Output folder does not exist: " + folder.string();
        return false;
    }
    if (access(folder.c_str(), W_OK) != 0) {
        *error = "Output folder is not writable: " + folder.string();
        return false;
    }
    const fs::path temp =
        folder / (".astrivelle-" + std::to_string(getpid()) + "-" +
                  fs::path(target).filename().string() + ".part");
    fs::remove(temp, ec);
    if (!image.WriteFile(temp.string(), kind)) {
        fs::remove(temp, ec);
        *error = "Could not write " + target;
        return false;
    }
    fs::rename(temp, target, ec);
    if (ec) {
        fs::remove(temp, ec);
        *error = "Could not move the output into place: " + target;
        return false;
    }
    return true;
}

} // namespace astrivelle
