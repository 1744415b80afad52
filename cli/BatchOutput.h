// SPDX-License-Identifier: GPL-3.0-or-later
/// \file What the batch file commands (normalize, resize, crop) share: number options and the
/// printing of a run's final status and output list.
#pragma once
#include <functional>
#include <string>

#include "cli/CliCommon.h"
#include "fileio/SaveType.h"

namespace astrivelle {
struct FileOpResult;
}

namespace astrivelle::cli {

/// Reads a whole option value as a number; false for text that is not one.
bool ParseNumber(const std::string& text, double* value);
bool ParseInteger(const std::string& text, int* value);

/// The options every batch command shares, put into its request: -o DIR (required), the
/// files (at least one), --prefix (default `defaultPrefix`) and --save-type (SAMEASINPUT by
/// default, a known keyword). Returns the usage error, or empty.
template <class Request>
std::string ReadFileListOptions(const Arguments& args, const std::string& defaultPrefix,
                                Request* request) {
    request->outputDirectory = args.Value("-o");
    if (request->outputDirectory.empty())
        return "-o DIR is required";
    if (args.files.empty())
        return "no input files";
    request->files = args.files;
    request->prefix = args.Value("--prefix", defaultPrefix);
    request->saveType = args.Value("--save-type", "SAMEASINPUT");
    if (!IsKnownSaveType(request->saveType))
        return "unknown save type " + request->saveType;
    return {};
}

/// Runs a file operation with the terminal's progress bar (none with --quiet or --json),
/// Ctrl+C as cancel and messages on stderr (none with --json), then prints its result.
int RunAndPrint(const Arguments& args,
                const std::function<FileOpResult(IProgress*, INotify*)>& run);

/// Prints the status line and the outputs one a line, or with `json` one object
/// {"status","ok","outputs":[...],"failures":[{"file","text","detail"}]}. Returns the exit
/// status: 0 when every file was written, else 1.
int PrintRunResult(const FileOpResult& result, bool json);

} // namespace astrivelle::cli
