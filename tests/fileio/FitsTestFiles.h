// SPDX-License-Identifier: GPL-3.0-or-later
/// \file FITS fixtures for the file tests: files written with cfitsio directly, keys read back
/// with cfitsio directly, and the fitsverify check.
#pragma once
#include <fitsio.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "fileio/FileLock.h"

namespace astrivelle::test {

/// One HDU to write: BITPIX, axes (empty for an HDU without data), and the samples in the
/// cfitsio type given. `keys` may add cards.
struct HduSpec {
    int bitpix = USHORT_IMG;
    std::vector<long> axes;
    int type = TUSHORT;
    const void* data = nullptr;
    std::function<void(fitsfile*, int*)> keys;
};

/// Writes the HDUs in order (Rice-compressed when asked); returns cfitsio's status.
inline int WriteHdus(const std::string& path, const std::vector<HduSpec>& hdus,
                     bool compress = false) {
    ImageFileGuard guard;
    std::remove(path.c_str());
    int status = 0;
    fitsfile* f = nullptr;
    if (ffdkinit(&f, path.c_str(), &status))
        return status;
    if (compress)
        fits_set_compression_type(f, RICE_1, &status);
    for (const HduSpec& h : hdus) {
        ffcrim(f, h.bitpix, static_cast<int>(h.axes.size()), const_cast<long*>(h.axes.data()),
               &status);
        long long count = h.axes.empty() ? 0 : 1;
        for (long n : h.axes)
            count *= n;
        if (count && h.data)
            ffppr(f, h.type, 1, count, const_cast<void*>(h.data), &status);
        if (h.keys)
            h.keys(f, &status);
    }
    int closeStatus = 0;
    ffclos(f, &closeStatus);
    return status ? status : closeStatus;
}

/// A one-HDU mono file.
inline int WriteMono(const std::string& path, int bitpix, int type, long width, long height,
                     const void* data, std::function<void(fitsfile*, int*)> keys = {}) {
    return WriteHdus(path, {{bitpix, {width, height}, type, data, std::move(keys)}});
}

/// The value text of a key in HDU `hdu` (1-based), "" when absent.
inline std::string KeyText(const std::string& path, int hdu, const std::string& key) {
    ImageFileGuard guard;
    int status = 0;
    fitsfile* f = nullptr;
    if (ffdkopn(&f, path.c_str(), READONLY, &status))
        return "<open failed>";
    ffmahd(f, hdu, nullptr, &status);
    char value[FLEN_VALUE] = {}, comment[FLEN_COMMENT] = {};
    ffgkey(f, key.c_str(), value, comment, &status);
    int closeStatus = 0;
    ffclos(f, &closeStatus);
    return status ? std::string() : std::string(value);
}

/// Every card of HDU `hdu` as cfitsio stores it.
inline std::vector<std::string> Cards(const std::string& path, int hdu) {
    ImageFileGuard guard;
    std::vector<std::string> out;
    int status = 0, count = 0;
    fitsfile* f = nullptr;
    if (ffdkopn(&f, path.c_str(), READONLY, &status))
        return out;
    ffmahd(f, hdu, nullptr, &status);
    ffghsp(f, &count, nullptr, &status);
    for (int i = 1; i <= count && !status; ++i) {
        char card[FLEN_CARD] = {};
        ffgrec(f, i, card, &status);
        out.emplace_back(card);
    }
    int closeStatus = 0;
    ffclos(f, &closeStatus);
    return out;
}

/// Number of HDUs of a file.
inline int HduCount(const std::string& path) {
    ImageFileGuard guard;
    int status = 0, n = 0;
    fitsfile* f = nullptr;
    if (ffdkopn(&f, path.c_str(), READONLY, &status))
        return -1;
    ffthdu(f, &n, &status);
    int closeStatus = 0;
    ffclos(f, &closeStatus);
    return n;
}

/// fitsverify's verdict on a file (with `errorsOnly`, warnings do not count).
inline void ExpectFitsVerifies(const std::string& path, bool errorsOnly = false) {
    if (!HaveProgram("fitsverify")) {
        std::printf("fitsverify is not installed: %s not checked\n", path.c_str());
        return;
    }
    std::string output;
    const int rc = RunCommand(
        std::string("fitsverify -q ") + (errorsOnly ? "-e " : "") + "'" + path + "'", &output);
    EXPECT_EQ(rc, 0) << output;
    EXPECT_NE(output.find("verification OK"), std::string::npos) << output;
}

} // namespace astrivelle::test
