// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `raw`: digital camera raw files decoded by conversion keyword and written by save type.
#include <cstdio>

#include "cli/BatchOutput.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "fileio/Raw.h"
#include "imagesets/RawConvertFiles.h"

namespace astrivelle::cli {

namespace {

const char* kRawHelp =
    "usage: astrivelle-cli raw --conversion KW --save-type KW [--prefix P] [--json]\n"
    "                          -o DIR FILE...\n\n"
    "Decodes each camera raw FILE and writes DIR/P + name; a file that fails is reported\n"
    "and the run goes on.\n"
    "  --conversion Color       interpolated colour at the camera's white balance\n"
    "               NoWBCFA     the colour mosaic as recorded\n"
    "               WBCFA       the mosaic at the camera's white balance\n"
    "               BASICBAYER  the mosaic at the decoder's daylight balance\n"
    "  --save-type  COMPFIT, UNCOMPFIT, COMPFIT32, UNCOMPFIT32, TIFF16, TIFF8, JPEG, BMP\n"
    "  --prefix P   output name prefix (default CVT_)\n"
    "  --json       print the status, outputs and failures as one JSON object\n"
    "  --quiet      no progress bar\n";

int Usage(const std::string& error) {
    std::fprintf(stderr, "astrivelle-cli raw: %s\n%s", error.c_str(), kRawHelp);
    return ExitUsage;
}

/// The terminal answers the format question by going on; its text is printed as a message.
class AnswerOnTerminal : public INotify {
public:
    explicit AnswerOnTerminal(INotify* inner) : inner_(inner) {}
    void Message(const std::string& text, const std::string& title) override {
        if (inner_)
            inner_->Message(text, title);
    }
    Answer Ask(const std::string& text, bool) override {
        Message(text, {});
        return Answer::No;
    }

private:
    INotify* inner_;
};

} // namespace

int RunRaw(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {"--conversion", "--save-type", "--prefix", "-o"},
                        {"--help", "--quiet", "--json"}, &args, &error))
        return Usage(error);
    if (args.Has("--help")) {
        std::fputs(kRawHelp, stdout);
        return ExitOk;
    }
    RawConvertRequest request;
    request.ownerName = kRawConvertOwnerPipeline; // the command line names its save type
    request.conversion = args.Value("--conversion");
    if (!FindRawConversion(request.conversion))
        return Usage("--conversion must be Color, NoWBCFA, WBCFA or BASICBAYER");
    request.saveType = args.Value("--save-type");
    if (!IsRawSaveType(request.saveType))
        return Usage("unknown save type " + request.saveType);
    request.outputDirectory = args.Value("-o");
    if (request.outputDirectory.empty())
        return Usage("-o DIR is required");
    if (args.files.empty())
        return Usage("no input files");
    request.files = args.files;
    request.prefix = args.Value("--prefix", kRawConvertPrefix);
    return RunAndPrint(args, [&](IProgress* progress, INotify* notify) {
        AnswerOnTerminal terminal(notify);
        return ConvertRawFiles(request, progress, notify ? &terminal : nullptr).run;
    });
}

} // namespace astrivelle::cli
