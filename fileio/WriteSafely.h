// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Writing an output image so that nothing is lost: never over an input, never a
/// half-written file under the final name.
#pragma once
#include <string>
#include <vector>

namespace astrivelle {

class Image;

/// Writes `image` as `kind` to `target` through a temporary file in the same folder that is
/// renamed over the target only when the write succeeded. Refuses a target that is one of
/// `inputs` (same file on disk). False with a reason otherwise left in `error`.
bool WriteImageSafely(Image& image, const std::string& target, int kind,
                      const std::vector<std::string>& inputs, std::string* error);

} // namespace astrivelle
