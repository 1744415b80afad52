// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The list of open images in order of opening, the active image, and the order in
/// which images were last activated (so that closing the active image hands the role to the
/// one that held it before, as a stack of windows would).
#pragma once
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "engine/ProcessWindow.h"

namespace astrivelle {

class COpenImages {
public:
    /// Appends `window` to the list and makes it active. Returns the window.
    CProcessWindow* Add(std::unique_ptr<CProcessWindow> window);
    /// Takes `window` out of the list and returns it (null when it is not open). When it was
    /// active, the most recently active of the others becomes active (null when none is left).
    std::unique_ptr<CProcessWindow> Remove(const CProcessWindow* window);
    /// Removes every window.
    void Clear();

    /// The active image, or null.
    CProcessWindow* Active() const { return active_; }
    /// Makes an open window active; false (nothing changes) for a window not in the list.
    bool Activate(CProcessWindow* window);

    /// Whether `window` is still in the list (tools test a remembered pointer before use).
    bool Contains(const CProcessWindow* window) const;
    std::size_t Count() const { return windows_.size(); }
    bool Empty() const { return windows_.empty(); }
    /// The i-th open image in order of opening.
    CProcessWindow* At(std::size_t i) const { return windows_[i].get(); }
    /// The open images in order of opening.
    std::vector<CProcessWindow*> List() const;
    void ForEach(const std::function<void(CProcessWindow&)>& fn) const;

private:
    std::vector<std::unique_ptr<CProcessWindow>> windows_;
    std::vector<CProcessWindow*> activation_; ///< last activated at the back
    CProcessWindow* active_ = nullptr;
};

} // namespace astrivelle
