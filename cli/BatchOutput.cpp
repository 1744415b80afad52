// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Number options and the result printing of the batch file commands.
#include "cli/BatchOutput.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "cli/Json.h"
#include "imagesets/FileOperation.h"

namespace astrivelle::cli {

bool ParseNumber(const std::string& text, double* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (errno || end != text.c_str() + text.size() || !std::isfinite(v))
        return false;
    *value = v;
    return true;
}

bool ParseInteger(const std::string& text, int* value) {
    double v = 0;
    if (!ParseNumber(text, &v) || v != std::floor(v) || std::fabs(v) > 2e9)
        return false;
    *value = static_cast<int>(v);
    return true;
}

int RunAndPrint(const Arguments& args,
                const std::function<FileOpResult(IProgress*, INotify*)>& run) {
    const bool json = args.Has("--json");
    CliNotify notify;
    CliProgress progress(args.Has("--quiet") || json);
    CancelOnInterrupt(&progress);
    const FileOpResult result = run(&progress, json ? nullptr : &notify);
    progress.Finish();
    CancelOnInterrupt(nullptr);
    return PrintRunResult(result, json);
}

int PrintRunResult(const FileOpResult& result, bool json) {
    if (json) {
        std::string out = "{\"status\":" + JsonString(result.status) +
                          ",\"ok\":" + (result.Ok() ? "true" : "false") + ",\"outputs\":[";
        for (std::size_t i = 0; i < result.outputs.size(); ++i)
            out += (i ? "," : "") + JsonString(result.outputs[i]);
        out += "],\"failures\":[";
        for (std::size_t i = 0; i < result.failures.size(); ++i) {
            const FileOpFailure& f = result.failures[i];
            out += std::string(i ? "," : "") + "{\"file\":" + JsonString(f.path) +
                   ",\"text\":" + JsonString(f.text) + ",\"detail\":" + JsonString(f.detail) + "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
    } else {
        std::printf("%s\n", result.status.c_str());
        for (const std::string& o : result.outputs)
            std::printf("%s\n", o.c_str());
    }
    return result.Ok() ? ExitOk : ExitFailed;
}

} // namespace astrivelle::cli
