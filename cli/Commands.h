// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The commands of astrivelle-cli.
#pragma once
#include <string>
#include <vector>

namespace astrivelle::cli {

struct Command {
    const char* name;
    const char* summary;
    int (*run)(const std::vector<std::string>& args);
};

/// Every command, in the order `--help` lists them.
const std::vector<Command>& AllCommands();

int RunInfo(const std::vector<std::string>& args);
int RunFilter(const std::vector<std::string>& args);
int RunConvert(const std::vector<std::string>& args);
int RunRaw(const std::vector<std::string>& args);
int RunProject(const std::vector<std::string>& args);
int RunCalibrate(const std::vector<std::string>& args);
int RunGain(const std::vector<std::string>& args);
int RunBayer(const std::vector<std::string>& args);
int RunCombine(const std::vector<std::string>& args);
int RunNormalize(const std::vector<std::string>& args);
int RunResize(const std::vector<std::string>& args);
int RunCrop(const std::vector<std::string>& args);
int RunStars(const std::vector<std::string>& args);
int RunGrade(const std::vector<std::string>& args);
int RunAlign(const std::vector<std::string>& args);
int RunAuto(const std::vector<std::string>& args);

} // namespace astrivelle::cli
