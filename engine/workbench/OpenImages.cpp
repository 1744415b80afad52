// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The list of open images and the active image.
#include "engine/workbench/OpenImages.h"

#include <algorithm>

namespace astrivelle {

CProcessWindow* COpenImages::Add(std::unique_ptr<CProcessWindow> window) {
    CProcessWindow* w = window.get();
    if (!w)
        return nullptr;
    windows_.push_back(std::move(window));
    activation_.push_back(w);
    active_ = w;
    return w;
}

std::unique_ptr<CProcessWindow> COpenImages::Remove(const CProcessWindow* window) {
    auto it = std::find_if(windows_.begin(), windows_.end(),
                           [&](const auto& p) { return p.get() == window; });
    if (it == windows_.end())
        return nullptr;
    std::unique_ptr<CProcessWindow> taken = std::move(*it);
    windows_.erase(it);
    activation_.erase(std::remove(activation_.begin(), activation_.end(), window),
                      activation_.end());
    if (active_ == window)
        active_ = activation_.empty() ? nullptr : activation_.back();
    return taken;
}

void COpenImages::Clear() {
    windows_.clear();
    activation_.clear();
    active_ = nullptr;
}

bool COpenImages::Activate(CProcessWindow* window) {
    if (!Contains(window))
        return false;
    activation_.erase(std::remove(activation_.begin(), activation_.end(), window),
                      activation_.end());
    activation_.push_back(window);
    active_ = window;
    return true;
}

bool COpenImages::Contains(const CProcessWindow* window) const {
    return window && std::any_of(windows_.begin(), windows_.end(),
                                 [&](const auto& p) { return p.get() == window; });
}

std::vector<CProcessWindow*> COpenImages::List() const {
    std::vector<CProcessWindow*> list;
    list.reserve(windows_.size());
    for (const auto& p : windows_)
        list.push_back(p.get());
    return list;
}

void COpenImages::ForEach(const std::function<void(CProcessWindow&)>& fn) const {
    for (CProcessWindow* w : List()) // a copy: fn may not change the list, but stays safe
        fn(*w);
}

} // namespace astrivelle
