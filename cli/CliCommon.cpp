// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Shared command-line plumbing.
#include "cli/CliCommon.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>

namespace astrivelle::cli {

bool Arguments::Has(const std::string& flag) const {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

std::string Arguments::Value(const std::string& name, const std::string& fallback) const {
    std::string v = fallback;
    for (const auto& [key, value] : options)
        if (key == name)
            v = value;
    return v;
}

bool ParseArguments(const std::vector<std::string>& argv, const std::vector<std::string>& valued,
                    const std::vector<std::string>& bare, Arguments* out, std::string* error) {
    auto in = [](const std::vector<std::string>& list, const std::string& s) {
        return std::find(list.begin(), list.end(), s) != list.end();
    };
    bool onlyFiles = false;
    for (std::size_t i = 0; i < argv.size(); ++i) {
        const std::string& a = argv[i];
        if (onlyFiles || a.empty() || a[0] != '-' || a == "-") {
            out->files.push_back(a);
        } else if (a == "--") {
            onlyFiles = true;
        } else if (in(valued, a)) {
            if (i + 1 >= argv.size()) {
                *error = "option " + a + " needs a value";
                return false;
            }
            out->options.emplace_back(a, argv[++i]);
        } else if (in(bare, a)) {
            out->flags.push_back(a);
        } else {
            *error = "unknown option " + a;
            return false;
        }
    }
    return true;
}

void CliNotify::Message(const std::string& text, const std::string&) {
    std::fprintf(stderr, "%s\n", text.c_str());
}

CliProgress::CliProgress(bool quiet) : show_(!quiet && isatty(STDERR_FILENO)) {}

CliProgress::~CliProgress() {
    Finish();
}

void CliProgress::SetStatus(const std::string& text) {
    status_ = text;
}

void CliProgress::SetProgress(long step, long total) {
    if (!show_ || total <= 0)
        return;
    const int width = 30;
    int filled = static_cast<int>(width * std::clamp(step, 0L, total) / total);
    std::fprintf(stderr, "\r[%s%s] %ld/%ld %s\033[K", std::string(filled, '#').c_str(),
                 std::string(width - filled, ' ').c_str(), step, total, status_.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void CliProgress::Finish() {
    if (drawn_) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        drawn_ = false;
    }
}

namespace {
IProgress* g_interruptTarget = nullptr;
extern "C" void OnInterrupt(int) {
    if (g_interruptTarget)
        g_interruptTarget->RequestCancel();
}
} // namespace

void CancelOnInterrupt(IProgress* progress) {
    g_interruptTarget = progress;
    std::signal(SIGINT, progress ? OnInterrupt : SIG_DFL);
}

void PrintFailure(const std::string& text, const std::string& reason) {
    std::fprintf(stderr, "%s\n", text.c_str());
    if (!reason.empty())
        std::fprintf(stderr, "  %s\n", reason.c_str());
}

std::string ExtensionOf(const std::string& path) {
    return std::filesystem::path(path).extension().string();
}

} // namespace astrivelle::cli
