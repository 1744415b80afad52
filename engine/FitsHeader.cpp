// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Header list helpers shared by every format.
#include "engine/FitsHeader.h"

namespace astrivelle {

void CopyHeaderWithoutExtName(const HeaderList& from, HeaderList& to) {
    for (const CFITSHeader& card : from)
        if (card.key != "EXTNAME")
            to.push_back(card);
}

} // namespace astrivelle
