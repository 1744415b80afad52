// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Shared test helpers.
#include "TestSupport.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <sys/wait.h>

namespace astrivelle::test {

ScratchDir::ScratchDir() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("astrivelle-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string RealData(const std::string& relative) {
    std::filesystem::path p =
        std::filesystem::path(ASTRIVELLE_SOURCE_DIR) / ".." / "shared" / "data" / "real" / relative;
    return std::filesystem::exists(p) ? p.string() : std::string();
}

int RunCommand(const std::string& command, std::string* output) {
    std::string full = command + " 2>&1";
    FILE* pipe = popen(full.c_str(), "r");
    if (!pipe)
        return -1;
    std::array<char, 4096> buf;
    std::string out;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0)
        out.append(buf.data(), n);
    int status = pclose(pipe);
    if (output)
        *output = out;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HaveProgram(const std::string& name) {
    return RunCommand("command -v " + name + " >/dev/null") == 0;
}

} // namespace astrivelle::test
