// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The `.qxj` line format: headings, the field reader, the writer's number formats, the
/// report text and the safe writing of text files.
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <system_error>

#include "engine/Blend.h"
#include "engine/ImageHeader.h"
#include "engine/ParamText.h"
#include "engine/workbench/Project.h"

namespace astrivelle {

namespace fs = std::filesystem;

bool SplitField(std::string* field, std::string* text) {
    const std::size_t at = text->find('<');
    if (at == std::string::npos)
        return false;
    if (at > 0) {
        *field = text->substr(0, at);
        text->erase(0, at + 1);
    } else {
        field->clear();
        text->erase(0, 1);
    }
    return true;
}

const char* ProjectHeading(std::uint32_t colorType) {
    return colorType == ColorRGB ? kProjectColorHeading : kProjectMonoHeading;
}

std::string ProjectFixed(double value, int decimals) {
    char buffer[400];
    const auto r =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    if (r.ec != std::errc())
        return "0";
    return std::string(buffer, r.ptr);
}

namespace {

void AppendField(std::string* line, const std::string& value) {
    line->append(value);
    line->push_back('<');
}

void AppendInt(std::string* line, long long value) {
    AppendField(line, std::to_string(value));
}

int Flag(std::uint8_t byte) {
    return byte ? 1 : 0;
}

/// Leading blanks as C's number readers skip them.
std::size_t SkipBlanks(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
        ++i;
    return i;
}

} // namespace

std::string FormatProjectLine(const CProcessStructure& r) {
    std::string line;
    line.reserve(256 + 24 * 48 + r.parameters.size());
    AppendField(&line, r.prevImageFile);
    AppendField(&line, r.curImageFile);
    AppendInt(&line, Flag(r.channelSelect));
    AppendInt(&line, Flag(r.channelRed));
    AppendInt(&line, Flag(r.channelGreen));
    AppendInt(&line, Flag(r.channelBlue));
    AppendField(&line, r.operation);
    AppendField(&line, r.parameters);
    AppendInt(&line, r.blendMode);
    AppendField(&line, ProjectFixed(r.opacity, 3));
    AppendField(&line, r.filterFile);
    AppendInt(&line, Flag(r.applyMask));
    AppendInt(&line, static_cast<std::int32_t>(r.maskLevel));
    AppendField(&line, r.maskFile);
    AppendInt(&line, Flag(r.luminanceMask));
    for (double v : r.maskSurface)
        AppendField(&line, ProjectFixed(v, 15));
    line += ">\n";
    return line;
}

bool CutProjectLine(const std::string& line, std::string* text) {
    const std::size_t at = line.find('>');
    if (at == std::string::npos || at < 1)
        return false;
    *text = line.substr(0, at);
    return true;
}

int ProjectHeadingVersion(const std::string& text, bool* color) {
    struct Heading {
        const char* text;
        bool color;
        int version;
    };
    static const Heading headings[] = {
        {kProjectColorV5, true, 5},
        {kProjectMonoV5, false, 5},
        {kProjectColorV2, true, 2},
        {kProjectMonoV2, false, 2},
    };
    // The reader cut the line at '>', so a v5.0 heading ends in its '<' here.
    const std::string withClose = text + "<";
    for (const Heading& h : headings)
        if (text.find(h.text) != std::string::npos || withClose.find(h.text) != std::string::npos) {
            if (color)
                *color = h.color;
            return h.version;
        }
    return 0;
}

int ProjectAtoi(const std::string& text) {
    std::size_t i = SkipBlanks(text);
    if (i < text.size() && text[i] == '+')
        ++i;
    long long value = 0;
    const auto r = std::from_chars(text.data() + i, text.data() + text.size(), value);
    if (r.ec == std::errc::result_out_of_range)
        return text[i] == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    if (r.ec != std::errc())
        return 0;
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

double ProjectAtof(const std::string& text) {
    std::size_t i = SkipBlanks(text);
    if (i < text.size() && text[i] == '+')
        ++i;
    double value = 0;
    const auto r = std::from_chars(text.data() + i, text.data() + text.size(), value);
    if (r.ec != std::errc())
        return 0;
    return value;
}

bool ParseProjectFields(std::string text, bool v5, CProcessStructure* r) {
    std::string f;
    if (!SplitField(&f, &text))
        return false;
    r->prevImageFile = f;
    if (!SplitField(&f, &text))
        return false;
    r->curImageFile = f;
    std::uint8_t* flags[] = {&r->channelSelect, &r->channelRed, &r->channelGreen, &r->channelBlue};
    for (std::uint8_t* flag : flags) {
        if (!SplitField(&f, &text))
            return false;
        *flag = f == "1" ? 1 : 0;
    }
    if (!SplitField(&f, &text))
        return false;
    r->operation = f;
    if (!SplitField(&f, &text))
        return false;
    r->parameters = f;
    if (!v5)
        return true;
    if (!SplitField(&f, &text))
        return false;
    r->blendMode = ProjectAtoi(f);
    if (!SplitField(&f, &text))
        return false;
    r->opacity = ProjectAtof(f);
    if (!SplitField(&f, &text))
        return false;
    r->filterFile = f;
    if (!SplitField(&f, &text))
        return false;
    r->applyMask = f == "1" ? 1 : 0;
    if (!SplitField(&f, &text))
        return false;
    r->maskLevel = static_cast<std::uint32_t>(ProjectAtoi(f));
    if (!SplitField(&f, &text))
        return false;
    r->maskFile = f;
    if (!SplitField(&f, &text))
        return false;
    r->luminanceMask = f == "1" ? 1 : 0;
    for (double& v : r->maskSurface) {
        if (!SplitField(&f, &text))
            return false;
        v = ProjectAtof(f);
    }
    return true;
}

// ---- report ---------------------------------------------------------------------------------

const char* ProjectBlendModeName(int mode) {
    const char* name = BlendModeName(mode);
    return name ? name : BlendModeName(0);
}

std::string ProjectReportDate(const std::tm& when) {
    return FormatText(when.tm_min < 10 ? "%d/%d/%d %d:0%d" : "%d/%d/%d %d:%d", when.tm_mon + 1,
                      when.tm_mday, when.tm_year + 1900, when.tm_hour, when.tm_min);
}

std::string ProjectReportText(const std::vector<CProcessStructure>& records, bool color,
                              const std::string& finalName, const std::string& comment,
                              bool withImages, const std::string& date) {
    std::string out =
        color ? "     Astrivelle Color Project v5.0" : "     Astrivelle Monochrome Project v5.0";
    out += "\n\n     Final Image Saved As : " + finalName;
    out += "\n\n     User Comment : " + comment;
    out += "\n\n     Date: " + date;
    for (const CProcessStructure& r : records) {
        if (withImages) {
            out += "\n\n     Previous Image File : " + r.prevImageFile + "\n";
            out += "      Current Image File : " + r.curImageFile + "\n";
            if (!r.filterFile.empty())
                out += "      Current Filter File : " + r.filterFile + "\n";
            if (!r.maskFile.empty())
                out += "      Current Image Mask File : " + r.maskFile + "\n";
        }
        out += "\n";
        if (r.channelSelect) {
            std::string apply = "Apply to: ";
            if (r.channelRed)
                apply += " Red";
            if (r.channelGreen)
                apply += " Green";
            if (r.channelBlue)
                apply += " Blue";
            out += "     " + apply + "\n";
        }
        out += "     Operation : " + r.operation + "\n";
        out += std::string("     Blend Mode ") + ProjectBlendModeName(r.blendMode) + ", Opacity " +
               ProjectFixed(r.opacity, 3) + "\n";
        out += std::string("     Use Mask ") + (r.applyMask ? "True" : "False") + ", Mask Level " +
               std::to_string(static_cast<std::int32_t>(r.maskLevel)) + ", Mask File Name " +
               r.maskFile + "\n";
        std::string rest = r.parameters, field;
        while (NextField(&field, &rest))
            out += "     " + field + "\n";
    }
    return out;
}

std::string ProjectTextPath(const std::string& path) {
    for (const char* ext : {".qxj", ".QXJ"}) {
        const std::size_t at = path.rfind(ext);
        if (at != std::string::npos)
            return path.substr(0, at) + ".txt" + path.substr(at + 4);
    }
    return path + ".txt";
}

// ---- names and files ------------------------------------------------------------------------

bool ValidateProjectName(const std::string& name, std::string* trimmed, std::string* text) {
    static const std::string forbidden = "\\/:*?\"<>|";
    if (name.find_first_of(forbidden) != std::string::npos) {
        *text = std::string(kProjectNameCharsText) + std::string(30, ' ') + forbidden;
        return false;
    }
    const std::size_t first = name.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        *text = kProjectNameEmptyText;
        return false;
    }
    const std::size_t last = name.find_last_not_of(" \t\r\n");
    *trimmed = name.substr(first, last - first + 1);
    return true;
}

std::string ProjectPathFor(const std::string& folder, const std::string& name) {
    const std::string joined = folder + "/" + name + ".qxj";
    const bool leadingPair = joined.size() >= 2 && joined[0] == '/' && joined[1] == '/';
    std::string out = leadingPair ? "//" : "";
    for (std::size_t i = leadingPair ? 2 : 0; i < joined.size(); ++i) {
        if (joined[i] == '/' && !out.empty() && out.back() == '/')
            continue;
        out.push_back(joined[i]);
    }
    return out;
}

namespace {

fs::path TempBeside(const fs::path& target) {
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    return folder /
           (".astrivelle-" + std::to_string(getpid()) + "-" + target.filename().string() + ".part");
}

} // namespace

bool CopyIntoFolder(const std::string& source, const std::string& folder, std::string* copy) {
    const fs::path target = fs::path(folder) / fs::path(source).filename();
    *copy = target.string();
    // A NUL byte would make the system name another file than the text says.
    if (source.find('\0') != std::string::npos || folder.find('\0') != std::string::npos)
        return false;
    std::error_code ec;
    if (fs::exists(target, ec) && fs::equivalent(source, target, ec))
        return true; // already there: copying a file onto itself would lose it
    if (!fs::is_regular_file(source, ec))
        return false;
    const fs::path temp = TempBeside(target);
    fs::remove(temp, ec);
    if (!fs::copy_file(source, temp, fs::copy_options::overwrite_existing, ec)) {
        fs::remove(temp, ec);
        return false;
    }
    // A source may be read-only; the copy is an ordinary file.
    fs::permissions(temp,
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                        fs::perms::others_read,
                    ec);
    fs::rename(temp, target, ec);
    if (ec) {
        fs::remove(temp, ec);
        return false;
    }
    return true;
}

bool WriteTextSafely(const std::string& path, const std::string& text) {
    const fs::path target(path);
    const fs::path temp = TempBeside(target);
    std::FILE* f = std::fopen(temp.c_str(), "w");
    if (!f)
        return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    const bool flushed = std::fflush(f) == 0 && fsync(fileno(f)) == 0;
    const bool closed = std::fclose(f) == 0;
    std::error_code ec;
    if (!written || !flushed || !closed) {
        fs::remove(temp, ec);
        return false;
    }
    fs::rename(temp, target, ec);
    if (ec) {
        fs::remove(temp, ec);
        return false;
    }
    return true;
}

} // namespace astrivelle
