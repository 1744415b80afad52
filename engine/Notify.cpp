// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The silent notifier.
#include "engine/Notify.h"

namespace astrivelle {

INotify& SilentNotify() {
    static INotify silent;
    return silent;
}

} // namespace astrivelle
