// SPDX-License-Identifier: GPL-3.0-or-later
/// \file One FITS header card as it travels with an image.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace astrivelle {

/// Value classes of a card, as the header list stores them.
enum CardType : std::uint32_t {
    CardInteger = 1,
    CardReal = 2,
    CardString = 3,
    CardLogical = 4,
    CardComplex = 5,
};

/// One header card: keyword, value (strings without their quotes, empty when the card has
/// none), comment, and the value class.
struct CFITSHeader {
    std::string key;
    std::string value;
    std::string comment;
    std::uint32_t dataType = CardString;
};

using HeaderList = std::vector<CFITSHeader>;

/// Appends every card of `from` to `to` except "EXTNAME", which names the source's own HDU.
void CopyHeaderWithoutExtName(const HeaderList& from, HeaderList& to);

} // namespace astrivelle
