// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The registry: the replay vocabulary joined with the operators that are built.
#include "operators/Registry.h"

#include "engine/OperatorNames.h"
#include "operators/Curves.h"
#include "operators/Filters.h"
#include "operators/Geometry.h"
#include "operators/Masks.h"
#include "operators/ReducePixels.h"
#include "operators/Restoration.h"
#include "operators/Stretch.h"

namespace astrivelle {

namespace {

/// Operators whose pixel functions exist; every other name of the vocabulary is listed with
/// no replay function so that replay can say it is not available.
std::vector<OperatorDescriptor> BuiltOperators() {
    return {
        PixelMathDescriptor(),
        UnsharpMaskDescriptor(),
        IterativeRestorationDescriptor(),
        AdaptiveRestorationDescriptor(),
        EdgeExtractDescriptor(),
        SmoothingDescriptor(),
        LevelsDescriptor(),
        MicroCurvesDescriptor(),
        HistogramStretchDescriptor(),
        DigitalDevelopmentDescriptor(),
        ArcSinHDescriptor(),
        GeneralStretchDescriptor(),
        MirrorVerticalDescriptor(),
        MirrorHorizontalDescriptor(),
        TranslateDescriptor(),
        ScaleDescriptor(),
        RotateDescriptor(),
        ReducePixelsDescriptor(),
    };
}

} // namespace

const std::vector<OperatorDescriptor>& OperatorRegistry() {
    static const std::vector<OperatorDescriptor> registry = [] {
        std::vector<OperatorDescriptor> built = BuiltOperators();
        std::vector<OperatorDescriptor> all;
        for (const std::string& name : ReplayOperatorNames()) {
            OperatorDescriptor d;
            d.name = name;
            for (const OperatorDescriptor& b : built)
                if (b.name == name)
                    d = b;
            all.push_back(d);
        }
        return all;
    }();
    return registry;
}

const OperatorDescriptor* FindOperator(const std::string& name) {
    for (const OperatorDescriptor& d : OperatorRegistry())
        if (d.name == name)
            return &d;
    return nullptr;
}

} // namespace astrivelle
