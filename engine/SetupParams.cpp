// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Defaults, reading and the crash-safe writing of the setup file.
#include "engine/SetupParams.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "engine/Archive.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

// Bounds on what a setup file may hold. Anything beyond them is a corrupt file, never a
// reason to allocate.
constexpr std::size_t kMaxSetupFileBytes = 16u << 20;
constexpr std::uint32_t kMaxArcsecSetups = 10000;
constexpr std::uint32_t kMaxToolPositions = 10000;
constexpr std::uint32_t kMaxRecentFiles = 10000;
constexpr std::uint32_t kMaxRecords = 1000;

std::string EnvValue(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::string(v) : std::string();
}

std::string HomeFolder() {
    std::string home = EnvValue("HOME");
    if (!home.empty())
        return home;
    struct passwd pw;
    struct passwd* found = nullptr;
    char buf[4096];
    if (getpwuid_r(getuid(), &pw, buf, sizeof buf, &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return {};
}

void WriteFields(ArchiveWriter& w, const CSetupParams& p) {
    w.PutU32(kSetupVersion);
    for (const std::string& s : p.strings)
        w.PutString(s);
    w.PutByte(p.toolFlag);
    w.PutString(p.saveType);
    w.PutString(p.saveType2);
    w.PutString(p.displayAdjustment);
    w.PutI32(p.jpegQuality);
    w.PutI32(p.maxOpenImages);
    w.PutI32(p.initialScaleFlag);
    w.PutDouble(p.scale);
    w.PutBool(p.slidersEnabled);
    for (double d : p.numericPresets)
        w.PutDouble(d);
    for (std::int32_t i : p.integerPresets)
        w.PutI32(i);
    w.PutString(p.presetText);
    w.PutI32(p.fileFilterIndex);
    w.PutI32(p.fileFilterSubtype);
    w.PutByte(p.filterFlag);
    w.PutU32(static_cast<std::uint32_t>(p.arcsecSetups.size()));
    for (const ArcsecSetup& a : p.arcsecSetups)
        for (const std::string& s : a)
            w.PutString(s);
    w.PutU32(static_cast<std::uint32_t>(p.toolPositions.size()));
    for (const auto& [name, pos] : p.toolPositions) {
        w.PutString(name);
        w.PutI32(pos.x);
        w.PutI32(pos.y);
        w.PutBool(pos.hasSize);
        if (pos.hasSize) {
            w.PutI32(pos.w);
            w.PutI32(pos.h);
        }
    }
    w.PutU32(static_cast<std::uint32_t>(p.recentFiles.size()));
    for (const std::string& s : p.recentFiles)
        w.PutString(s);
    w.PutBool(p.useAccelerator);
    w.PutBool(p.stickyCopyPortion);
    // Without records the file is byte for byte what it was before they existed.
    if (p.records.empty())
        return;
    w.PutU32(static_cast<std::uint32_t>(p.records.size()));
    for (const auto& [name, text] : p.records) {
        w.PutString(name);
        w.PutString(text);
    }
}

// Reads the fields after the version straight into `p`, so a failure leaves every field read
// before it in place. A list keeps the entries read completely.
bool ReadFields(ArchiveReader& r, CSetupParams& p) {
    for (std::string& s : p.strings)
        if (!r.GetString(s))
            return false;
    if (!r.GetByte(p.toolFlag) || !r.GetString(p.saveType) || !r.GetString(p.saveType2) ||
        !r.GetString(p.displayAdjustment) || !r.GetI32(p.jpegQuality) ||
        !r.GetI32(p.maxOpenImages) || !r.GetI32(p.initialScaleFlag) || !r.GetDouble(p.scale) ||
        !r.GetBool(p.slidersEnabled))
        return false;
    for (double& d : p.numericPresets)
        if (!r.GetDouble(d))
            return false;
    for (std::int32_t& i : p.integerPresets)
        if (!r.GetI32(i))
            return false;
    if (!r.GetString(p.presetText) || !r.GetI32(p.fileFilterIndex) ||
        !r.GetI32(p.fileFilterSubtype) || !r.GetByte(p.filterFlag))
        return false;

    std::uint32_t n = 0;
    if (!r.GetCount(n, kMaxArcsecSetups))
        return false;
    p.arcsecSetups.clear();
    for (std::uint32_t i = 0; i < n; ++i) {
        ArcsecSetup a;
        for (std::string& s : a)
            if (!r.GetString(s))
                return false;
        p.arcsecSetups.push_back(std::move(a));
    }

    if (!r.GetCount(n, kMaxToolPositions))
        return false;
    p.toolPositions.clear();
    for (std::uint32_t i = 0; i < n; ++i) {
        std::string name;
        ToolPosition pos;
        if (!r.GetString(name) || !r.GetI32(pos.x) || !r.GetI32(pos.y) || !r.GetBool(pos.hasSize))
            return false;
        if (pos.hasSize && (!r.GetI32(pos.w) || !r.GetI32(pos.h)))
            return false;
        p.toolPositions[name] = pos;
    }

    if (!r.GetCount(n, kMaxRecentFiles))
        return false;
    p.recentFiles.clear();
    for (std::uint32_t i = 0; i < n; ++i) {
        std::string s;
        if (!r.GetString(s))
            return false;
        p.recentFiles.push_back(std::move(s));
    }

    if (!r.GetBool(p.useAccelerator) || !r.GetBool(p.stickyCopyPortion))
        return false;
    // The records came later: a file that ends here simply has none.
    p.records.clear();
    if (r.Remaining() == 0)
        return true;
    if (!r.GetCount(n, kMaxRecords))
        return false;
    for (std::uint32_t i = 0; i < n; ++i) {
        std::string name, text;
        if (!r.GetString(name) || !r.GetString(text))
            return false;
        p.records[name] = std::move(text);
    }
    return true;
}

// Reads at most `limit + 1` bytes. Returns false when the file cannot be opened at all;
// `ioError` tells of a read that failed after the open.
bool ReadWholeFile(const std::string& path, std::string& bytes, bool& ioError, std::size_t limit) {
    ioError = false;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    bytes.clear();
    char buf[65536];
    while (bytes.size() <= limit) {
        ssize_t got = ::read(fd, buf, sizeof buf);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            ioError = true;
            break;
        }
        if (got == 0)
            break;
        bytes.append(buf, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return true;
}

bool WriteAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

std::array<std::string, SetupStringCount> CSetupParams::DefaultStrings() {
    std::array<std::string, SetupStringCount> s;
    s[SetupColorSpace] = "SRGB";
    s[SetupCustomFilterName] = "Identity";
    s[SetupCustomFilterSize] = "3";
    s[SetupCustomPsfName] = "Box";
    s[SetupCustomPsfSize] = "3";
    s[SetupDistortionScale] = "1x";
    s[SetupArcsecUnit] = "Pixels";
    s[SetupArcsecScale] = "1.0";
    s[SetupBackground] = "B";
    s[SetupPriority] = "NORMAL";
    return s;
}

std::string GetThreadPriorityWord(const CSetupParams& params) {
    return params.Priority() == "IDLE" ? "IDLE" : "NORMAL";
}

std::string SerializeSetupParams(const CSetupParams& params) {
    ArchiveWriter w;
    WriteFields(w, params);
    return w.Bytes();
}

bool LoadSetupParams(const std::string& path, CSetupParams& params, std::string* errorText,
                     SetupLoadStatus* status) {
    auto finish = [&](SetupLoadStatus s, const std::string& text) {
        if (status)
            *status = s;
        if (errorText)
            *errorText = text;
        return s != SetupLoadStatus::Failed;
    };

    params = CSetupParams();
    std::string bytes;
    bool ioError = false;
    if (!ReadWholeFile(path, bytes, ioError, kMaxSetupFileBytes))
        return finish(SetupLoadStatus::Missing, {});
    if (bytes.size() > kMaxSetupFileBytes)
        return finish(SetupLoadStatus::Failed, "Setup file is corrupt: " + path);

    ArchiveReader r(bytes.data(), bytes.size());
    std::uint32_t version = 0;
    if (r.GetU32(version) && version != kSetupVersion)
        return finish(SetupLoadStatus::OtherVersion, {});
    if (r.Ok() && ReadFields(r, params) && !ioError)
        return finish(SetupLoadStatus::Loaded, {});

    if (ioError)
        return finish(SetupLoadStatus::Failed, "Error reading Setup Params : " + path);
    if (r.Error() == ArchiveError::Corrupt)
        return finish(SetupLoadStatus::Failed, "Setup file is corrupt: " + path);
    return finish(SetupLoadStatus::Failed, "Setup file is truncated: " + path);
}

bool SaveSetupParams(const std::string& path, const CSetupParams& params, std::string* errorText) {
    const std::string failText = "Error writing Setup Params : " + path;
    auto fail = [&] {
        if (errorText)
            *errorText = failText;
        return false;
    };

    std::error_code ec;
    fs::path target(path);
    // Replace the file a symbolic link points at, not the link.
    if (fs::is_symlink(target, ec)) {
        fs::path resolved = fs::weakly_canonical(target, ec);
        if (!ec)
            target = resolved;
    }
    fs::path folder = target.parent_path();
    if (folder.empty())
        folder = ".";
    ec.clear();
    fs::create_directories(folder, ec);
    if (ec || !fs::is_directory(folder, ec))
        return fail();

    const std::string bytes = SerializeSetupParams(params);
    std::string temp = (folder / (target.filename().string() + ".XXXXXX")).string();
    int fd = ::mkstemp(temp.data());
    if (fd < 0)
        return fail();
    bool ok = WriteAll(fd, bytes) && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok)
        ok = ::rename(temp.c_str(), target.c_str()) == 0;
    if (!ok) {
        ::unlink(temp.c_str());
        return fail();
    }
    // Make the rename itself durable; a failure here loses nothing already written.
    int dfd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    if (errorText)
        errorText->clear();
    return true;
}

std::string DefaultSetupPath() {
    fs::path base;
    std::string xdg = EnvValue("XDG_CONFIG_HOME");
    if (!xdg.empty() && xdg.front() == '/') {
        base = xdg;
    } else {
        std::string home = HomeFolder();
        base = fs::path(home.empty() ? std::string("/tmp") : home) / ".config";
    }
    return (base / "astrivelle" / ("QXSP" + std::to_string(kSetupFileNumber) + ".qxp")).string();
}

bool DefaultProjectDirectory(std::string& folder, std::string* errorText) {
    std::error_code ec;
    std::string home = HomeFolder();
    if (!home.empty()) {
        fs::path dir = fs::path(home) / "Astrivelle";
        fs::create_directories(dir, ec);
        if (fs::is_directory(dir, ec)) {
            folder = dir.string();
            return true;
        }
    }
    std::string tmp = EnvValue("TMPDIR");
    fs::path dir = fs::path(tmp.empty() ? std::string("/tmp") : tmp) / "Astrivelle";
    ec.clear();
    fs::create_directories(dir, ec);
    std::error_code isDirEc;
    if (!ec && fs::is_directory(dir, isDirEc)) {
        folder = dir.string();
        return true;
    }
    if (!ec)
        ec = std::make_error_code(std::errc::not_a_directory);
    if (errorText)
        *errorText = "Error Creating QX Default Project directory - " + ec.message();
    return false;
}

} // namespace astrivelle
