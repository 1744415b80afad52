// SPDX-License-Identifier: GPL-3.0-or-later
/// \file `info FILE [--json]`: geometry, types, statistics of each channel and header cards.
#include <cstdio>

#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "engine/Image.h"
#include "fileio/FileDispatch.h"
#include "fileio/ImageProperties.h"

namespace astrivelle::cli {

namespace {

const char* kInfoHelp =
    "usage: astrivelle-cli info FILE [--json]\n\n"
    "Reads FILE and shows its width, height, colour type, file kind, sample type, whether it\n"
    "was compressed, the statistics of each channel in use, and its header cards.\n"
    "  --json   the same as one JSON object\n";

const ChannelStats& StatsOfSlot(const Image& img, int slot) {
    return slot == 0 ? img.redStats : (slot == 1 ? img.greenStats : img.blueStats);
}

const char* ColorName(std::uint32_t t) {
    static const char* names[] = {"?", "RGB",  "Red",     "Green",  "Blue",
                                  "?", "Cyan", "Magenta", "Yellow", "Gray"};
    return t < 10 ? names[t] : "?";
}

const char* KindName(std::int32_t k) {
    switch (k) {
    case KindFITS:
        return "FITS";
    case KindJPEG:
        return "JPEG";
    case KindTIFF:
        return "TIFF";
    case KindBMP:
        return "BMP";
    case KindSBIG:
        return "SBIG";
    case KindSBIGCompressed:
        return "SBIG compressed";
    default:
        return "unknown";
    }
}

const char* DataTypeName(std::uint32_t d) {
    static const char* names[] = {
        "?", "8-bit integer", "16-bit integer", "32-bit integer", "32-bit float", "64-bit float"};
    return d < 6 ? names[d] : "?";
}

void PrintJson(const Image& img, const std::vector<PropertyRow>& properties) {
    std::printf("{\"width\":%d,\"height\":%d,\"colorType\":%u,\"fileType\":%d,\"dataType\":%u,"
                "\"compressed\":%s,\"channels\":[",
                img.width, img.height, img.colorType, img.fileType, img.dataType,
                img.fitsCompress ? "true" : "false");
    bool first = true;
    for (int s : img.Slots()) {
        const ChannelStats& st = StatsOfSlot(img, s);
        std::printf("%s{\"slot\":%d,\"max\":%s,\"min\":%s,\"mean\":%s,\"median\":%u,"
                    "\"stdDev\":%s,\"entropy\":%s,\"entropyRatio\":%s}",
                    first ? "" : ",", s, JsonNumber(st.max).c_str(), JsonNumber(st.min).c_str(),
                    JsonNumber(st.mean).c_str(), st.median, JsonNumber(st.stdDev).c_str(),
                    JsonNumber(st.entropy).c_str(), JsonNumber(st.entropyRatio).c_str());
        first = false;
    }
    std::printf("],\"properties\":[");
    first = true;
    for (const PropertyRow& row : properties) {
        std::printf("%s{\"name\":%s,\"value\":%s}", first ? "" : ",",
                    JsonString(row.property).c_str(), JsonString(row.value).c_str());
        first = false;
    }
    std::printf("],\"header\":[");
    first = true;
    for (const CFITSHeader& c : img.headerCards) {
        std::printf("%s{\"key\":%s,\"value\":%s,\"comment\":%s,\"type\":%u}", first ? "" : ",",
                    JsonString(c.key).c_str(), JsonString(c.value).c_str(),
                    JsonString(c.comment).c_str(), c.dataType);
        first = false;
    }
    std::printf("]}\n");
}

void PrintText(const std::string& path, const Image& img,
               const std::vector<PropertyRow>& properties) {
    std::printf("File:        %s\n", path.c_str());
    std::printf("Width:       %d\n", img.width);
    std::printf("Height:      %d\n", img.height);
    std::printf("Color type:  %u (%s)\n", img.colorType, ColorName(img.colorType));
    std::printf("File type:   %d (%s)\n", img.fileType, KindName(img.fileType));
    std::printf("Data type:   %u (%s)\n", img.dataType, DataTypeName(img.dataType));
    std::printf("Compressed:  %s\n", img.fitsCompress ? "yes" : "no");
    for (int s : img.Slots()) {
        const ChannelStats& st = StatsOfSlot(img, s);
        std::printf("Channel %d:   max %.6g  min %.6g  mean %.6g  median %u  stdDev %.6g  "
                    "entropy %.6g  entropyRatio %.6g\n",
                    s, st.max, st.min, st.mean, st.median, st.stdDev, st.entropy, st.entropyRatio);
    }
    std::printf("Properties:\n");
    for (const PropertyRow& row : properties)
        std::printf("  %s : %s\n", row.property.c_str(), row.value.c_str());
    std::printf("Header:\n");
    for (const CFITSHeader& c : img.headerCards) {
        if (c.key == "COMMENT" || c.value.empty())
            std::printf("  %-8s %s\n", c.key.c_str(), c.comment.c_str());
        else if (c.comment.empty())
            std::printf("  %-8s = %s\n", c.key.c_str(), c.value.c_str());
        else
            std::printf("  %-8s = %s / %s\n", c.key.c_str(), c.value.c_str(), c.comment.c_str());
    }
}

} // namespace

int RunInfo(const std::vector<std::string>& argv) {
    Arguments args;
    std::string error;
    if (!ParseArguments(argv, {}, {"--json", "--help", "--quiet"}, &args, &error)) {
        std::fprintf(stderr, "astrivelle-cli info: %s\n%s", error.c_str(), kInfoHelp);
        return ExitUsage;
    }
    if (args.Has("--help")) {
        std::fputs(kInfoHelp, stdout);
        return ExitOk;
    }
    if (args.files.size() != 1) {
        std::fputs(kInfoHelp, stderr);
        return ExitUsage;
    }
    const std::string& path = args.files[0];
    Image img;
    if (!img.ReadFile(path, ExtensionOf(path))) {
        PrintFailure("Error reading " + path, LastFileError());
        return ExitFailed;
    }
    img.ComputeStatistics();
    // The properties panel's rows; a kind without any (none yet) shows none.
    std::vector<PropertyRow> properties;
    FilePropertyRows(img, path, &properties);
    if (args.Has("--json"))
        PrintJson(img, properties);
    else
        PrintText(path, img, properties);
    return ExitOk;
}

} // namespace astrivelle::cli
