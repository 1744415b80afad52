// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What every command of the command line shares: options, messages, progress, cancel.
#pragma once
#include <map>
#include <string>
#include <vector>

#include "engine/Notify.h"

namespace astrivelle::cli {

enum ExitCode { ExitOk = 0, ExitFailed = 1, ExitUsage = 2 };

/// Options of one command: flags with values (repeatable, kept in order), bare flags and the
/// positional arguments.
struct Arguments {
    std::vector<std::pair<std::string, std::string>> options; ///< in command-line order
    std::vector<std::string> flags;
    std::vector<std::string> files;

    bool Has(const std::string& flag) const;
    /// The last value given for an option, or `fallback`.
    std::string Value(const std::string& name, const std::string& fallback = {}) const;
};

/// Splits argv. `valued` names the options that take a value. Returns false with a usage text
/// for an unknown option or a missing value.
bool ParseArguments(const std::vector<std::string>& argv, const std::vector<std::string>& valued,
                    const std::vector<std::string>& bare, Arguments* out, std::string* error);

/// The engine's texts go to stderr; questions are answered No (nothing interactive).
class CliNotify : public INotify {
public:
    void Message(const std::string& text, const std::string& title) override;
};

/// A one-line progress bar on stderr when it is a terminal and not silenced; the cancel flag
/// is raised by Ctrl+C.
class CliProgress : public IProgress {
public:
    explicit CliProgress(bool quiet);
    ~CliProgress() override;
    void SetProgress(long step, long total) override;
    void SetStatus(const std::string& text) override;
    void Finish();

private:
    bool show_;
    std::string status_;
    bool drawn_ = false;
};

/// Installs a SIGINT handler that requests cancel on `progress` (one at a time).
void CancelOnInterrupt(IProgress* progress);

/// Prints a failure: the fixed text, then the reason on its own line when there is one.
void PrintFailure(const std::string& text, const std::string& reason = {});

/// The extension of a path with its dot, or empty.
std::string ExtensionOf(const std::string& path);

} // namespace astrivelle::cli
