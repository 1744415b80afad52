// SPDX-License-Identifier: GPL-3.0-or-later
/// \file One descriptor per operator name: how its `#` text is replayed on an image. Replay,
/// Filter Files, the command line and the menus all look operators up here.
#pragma once
#include <string>
#include <vector>

namespace astrivelle {

class Image;
class IProgress;

/// What replay hands an operator besides its text.
struct ReplayContext {
    const void* customFilter = nullptr;
    const void* customPsf = nullptr;
    IProgress* progress = nullptr;
};

/// Replays a parameter text on an image (pending false); `error` gets the reason on failure.
using ReplayFunction = bool (*)(Image& image, const std::string& parameters,
                                const ReplayContext& context, std::string* error);

/// Parses a parameter text and formats it again from the parsed values: the round trip that
/// proves the template and the parser agree.
using RoundTripFunction = bool (*)(const std::string& parameters, std::string* formatted);

struct OperatorDescriptor {
    std::string name;
    ReplayFunction replay = nullptr; ///< null: the operator is not built yet
    RoundTripFunction roundTrip = nullptr;
    std::vector<std::string> examples; ///< typical parameter texts, one per form of the template
    bool changesGeometry = false;
};

/// Every name of the replay vocabulary, in replay order, with the operators built so far.
const std::vector<OperatorDescriptor>& OperatorRegistry();

/// The descriptor of a name, or null when the name is not in the vocabulary.
const OperatorDescriptor* FindOperator(const std::string& name);

} // namespace astrivelle
