// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The subcommands of astrivelle-synth; each takes the arguments after its name and
/// returns the exit status (0 done, 1 failed, 2 usage).
#pragma once
#include <string>
#include <vector>

namespace astrivelle::synth {

int RunNight(const std::vector<std::string>& args);
int RunPlanet(const std::vector<std::string>& args);
int RunRaw(const std::vector<std::string>& args);
int RunMeasure(const std::vector<std::string>& args);

} // namespace astrivelle::synth
