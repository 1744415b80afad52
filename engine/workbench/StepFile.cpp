// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Step file names, the writable-folder test and the temporary-name-then-move write.
#include "engine/workbench/StepFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "engine/Image.h"
#include "fileio/FileDispatch.h"

namespace astrivelle {

namespace fs = std::filesystem;

bool StepFolderWritable(const std::string& folder, std::string* errorText) {
    const fs::path probe = fs::path(folder.empty() ? "." : folder) / kStepTestFileName;
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (errorText)
            *errorText = std::strerror(errno);
        return false;
    }
    ::close(fd);
    ::unlink(probe.c_str());
    return true;
}

std::string StepStemOf(const std::string& fileName) {
    std::string stem = fs::path(fileName).stem().string();
    const std::size_t dollar = stem.rfind('$');
    if (dollar != std::string::npos && dollar > 0 && dollar + 1 < stem.size() &&
        stem.find_first_not_of("0123456789", dollar + 1) == std::string::npos)
        stem.erase(dollar);
    return stem;
}

std::string StepFilePath(const std::string& folder, const std::string& stem, const char* tag,
                         int number, const std::string& extension) {
    char numbered[64];
    std::snprintf(numbered, sizeof numbered, tag, number);
    return (fs::path(folder) / (stem + numbered + extension)).string();
}

std::string FreeStepFilePath(const std::string& folder, const std::string& stem, const char* tag,
                             const std::string& extension) {
    std::error_code ec;
    for (int n = 1;; ++n) {
        std::string path = StepFilePath(folder, stem, tag, n, extension);
        if (!fs::exists(fs::symlink_status(path, ec)))
            return path;
    }
}

namespace {

/// Moves `from` to `to` unless `to` exists. 0 on success, else the errno (EEXIST when taken).
int MoveNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    const int err = errno;
    if (err != EINVAL && err != ENOSYS && err != ENOTSUP)
        return err;
    // A file system without the no-replace move: a hard link is just as exclusive.
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return 0;
    }
    return errno;
}

std::string TemporaryName(const std::string& folder, const std::string& stem) {
    static std::atomic<unsigned> counter{0};
    const std::string name = "." + stem + ".astrivelle-step-" + std::to_string(::getpid()) + "-" +
                             std::to_string(counter.fetch_add(1)) + ".part";
    return (fs::path(folder) / name).string();
}

} // namespace

bool WriteStepFile(Image& image, StepFileKind kind, const std::string& folder,
                   const std::string& stem, const std::string& extension, std::string* path,
                   std::string* failText) {
    const bool filter = kind == StepFileKind::Filter;
    const std::string ext = filter ? std::string(".fit") : extension;
    const char* tag = filter ? kStepFilterTag : kStepImageTag;
    const std::string temp = TemporaryName(folder, stem);
    std::error_code ec;
    const bool written =
        filter ? image.WriteFITSFloatPlanes(temp, "FILTER") : image.WriteFile(temp, image.fileType);
    if (!written) {
        fs::remove(temp, ec);
        if (failText)
            *failText = filter ? std::string("Error writing image to disk.")
                               : WriteFailureText(image.fileType, stem + ext);
        return false;
    }
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::string target = FreeStepFilePath(folder, stem, tag, ext);
        const int err = MoveNoReplace(temp, target);
        if (err == 0) {
            *path = target;
            return true;
        }
        if (err != EEXIST)
            break;
    }
    fs::remove(temp, ec);
    if (failText)
        *failText = filter ? std::string("Error writing image to disk.")
                           : WriteFailureText(image.fileType, stem + ext);
    return false;
}

} // namespace astrivelle
