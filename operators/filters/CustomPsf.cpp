// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The user's point spread function: its `.psf` file and the editor's operations.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "engine/ParamText.h"
#include "operators/Restoration.h"

namespace astrivelle {

CCustomPSF& CurrentCustomPsf() {
    static CCustomPSF current;
    return current;
}

// ---- the file --------------------------------------------------------------------------

namespace {

void PutLE(std::string& out, std::uint64_t v, int bytes) {
    for (int k = 0; k < bytes; ++k)
        out.push_back(static_cast<char>((v >> (8 * k)) & 0xFF));
}

std::uint64_t GetLE(const std::string& in, std::size_t at, int bytes) {
    std::uint64_t v = 0;
    for (int k = 0; k < bytes; ++k)
        v |= static_cast<std::uint64_t>(static_cast<unsigned char>(in[at + k])) << (8 * k);
    return v;
}

constexpr std::size_t kValueBytes = 169 * 8 + 4;

} // namespace

std::string SerializePsf(const CCustomPSF& psf) {
    std::string out;
    const std::size_t n = psf.name.size();
    if (n < 0xFF) {
        PutLE(out, n, 1);
    } else if (n < 0xFFFF) {
        PutLE(out, 0xFF, 1);
        PutLE(out, n, 2);
    } else {
        PutLE(out, 0xFF, 1);
        PutLE(out, 0xFFFF, 2);
        PutLE(out, n, 4);
    }
    out += psf.name;
    for (double v : psf.values) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &v, sizeof bits);
        PutLE(out, bits, 8);
    }
    PutLE(out, static_cast<std::uint32_t>(psf.size), 4);
    return out;
}

bool DeserializePsf(const std::string& bytes, CCustomPSF* psf) {
    std::size_t at = 0;
    auto have = [&](std::size_t n) { return bytes.size() >= at + n; };
    if (!have(1))
        return false;
    std::size_t n = GetLE(bytes, at, 1);
    at += 1;
    if (n == 0xFF) {
        if (!have(2))
            return false;
        n = GetLE(bytes, at, 2);
        at += 2;
        if (n == 0xFFFF) {
            if (!have(4))
                return false;
            n = GetLE(bytes, at, 4);
            at += 4;
        }
    }
    if (!have(n) || bytes.size() != at + n + kValueBytes)
        return false;
    CCustomPSF p;
    p.name = bytes.substr(at, n);
    at += n;
    for (double& v : p.values) {
        const std::uint64_t bits = GetLE(bytes, at, 8);
        std::memcpy(&v, &bits, sizeof v);
        at += 8;
    }
    p.size = static_cast<std::int32_t>(static_cast<std::uint32_t>(GetLE(bytes, at, 4)));
    if (p.size < 3 || p.size > 13 || p.size % 2 == 0)
        return false;
    *psf = p;
    return true;
}

bool WritePsfFile(const std::string& path, const CCustomPSF& psf, std::string* error) {
    auto fail = [&](const std::string& reason) {
        if (error)
            *error = "Could Not Write " + path + " : " + reason;
        return false;
    };
    const std::string temporary = path + ".tmp";
    const std::string bytes = SerializePsf(psf);
    std::FILE* f = std::fopen(temporary.c_str(), "wb");
    if (!f)
        return fail(std::strerror(errno));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    const int writeErr = errno;
    if (std::fclose(f) != 0 || !written) {
        const int why = written ? errno : writeErr;
        std::remove(temporary.c_str());
        return fail(std::strerror(why));
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int why = errno;
        std::remove(temporary.c_str());
        return fail(std::strerror(why));
    }
    return true;
}

bool ReadPsfFile(const std::string& path, CCustomPSF* psf, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (error)
            *error = "Could Not Read " + path + " : " + std::strerror(errno);
        return false;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!DeserializePsf(bytes, psf)) {
        if (error)
            *error = "Could Not Read " + path + " : not a PSF file";
        return false;
    }
    return true;
}

// ---- the editor's operations ------------------------------------------------------------

namespace {

void SetError(std::string* error, const char* text) {
    if (error)
        *error = text;
}

} // namespace

bool ParseRealNumber(const std::string& text, double* value) {
    const char* begin = text.c_str();
    while (*begin == ' ' || *begin == '\t')
        ++begin;
    if (*begin == '\0')
        return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(begin, &end);
    while (*end == ' ' || *end == '\t')
        ++end;
    if (*end != '\0' || errno == ERANGE || !std::isfinite(v))
        return false;
    *value = v;
    return true;
}

bool PsfArithmetic(CCustomPSF* psf, const std::string& op, const std::string& typed,
                   std::string* error) {
    double c = 0;
    if (!ParseRealNumber(typed, &c)) {
        SetError(error, kEnterRealNumberText);
        return false;
    }
    if (op == "DIV" && c == 0.0) {
        SetError(error, kDivideByZeroText);
        return false;
    }
    if (op != "ADD" && op != "SUB" && op != "MUL" && op != "DIV")
        return false;
    const int count = psf->size * psf->size;
    for (int j = 0; j < count; ++j) {
        double& v = psf->values[j];
        if (op == "ADD")
            v += c;
        else if (op == "SUB")
            v -= c;
        else if (op == "MUL")
            v *= c;
        else
            v /= c;
    }
    return true;
}

bool PsfUnitize(CCustomPSF* psf, std::string* error) {
    const int count = psf->size * psf->size;
    double top = psf->values[0];
    for (int j = 1; j < count; ++j)
        top = std::max(top, psf->values[j]);
    if (top == 0.0) {
        SetError(error, kUnitizeZeroText);
        return false;
    }
    for (int j = 0; j < count; ++j)
        psf->values[j] /= top;
    return true;
}

bool PsfNormalize(CCustomPSF* psf, std::string* error) {
    const int count = psf->size * psf->size;
    double sum = 0;
    for (int j = 0; j < count; ++j)
        sum += psf->values[j];
    if (sum == 0.0) {
        SetError(error, kNormalizeZeroText);
        return false;
    }
    for (int j = 0; j < count; ++j)
        psf->values[j] /= sum;
    return true;
}

void PsfPositive(CCustomPSF* psf) {
    const int count = psf->size * psf->size;
    double low = psf->values[0];
    for (int j = 1; j < count; ++j)
        low = std::min(low, psf->values[j]);
    if (low >= 0.0)
        return;
    for (int j = 0; j < count; ++j)
        psf->values[j] -= low;
}

bool PsfShift(CCustomPSF* psf, const std::string& direction) {
    struct Move {
        const char* word;
        int dx, dy;
    };
    static const Move moves[] = {{"UL", -1, -1}, {"U", 0, -1},  {"UR", 1, -1}, {"L", -1, 0},
                                 {"R", 1, 0},    {"DL", -1, 1}, {"D", 0, 1},   {"DR", 1, 1}};
    int dx = 0, dy = 0;
    bool found = false;
    for (const Move& m : moves)
        if (direction == m.word) {
            dx = m.dx;
            dy = m.dy;
            found = true;
        }
    if (!found)
        return false;
    const int n = psf->size;
    CCustomPSF moved = *psf;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const int sr = r - dy, sc = c - dx;
            moved.At(r, c) = (sr >= 0 && sr < n && sc >= 0 && sc < n) ? psf->At(sr, sc) : 0.0;
        }
    *psf = moved;
    return true;
}

bool PsfSetCell(CCustomPSF* psf, int row, int col, const std::string& typed, std::string* error) {
    double v = 0;
    if (!ParseRealNumber(typed, &v)) {
        SetError(error, kEnterRealNumberText);
        return false;
    }
    if (row < 0 || col < 0 || row >= psf->size || col >= psf->size)
        return false;
    psf->At(row, col) = v;
    return true;
}

bool PsfResize(CCustomPSF* psf, int size) {
    if (size < 3 || size > 13 || size % 2 == 0)
        return false;
    CCustomPSF resized = *psf;
    resized.values.fill(0.0);
    resized.size = size;
    const int d = (size - psf->size) / 2;
    for (int r = 0; r < size; ++r)
        for (int c = 0; c < size; ++c) {
            const int sr = r - d, sc = c - d;
            if (sr >= 0 && sr < psf->size && sc >= 0 && sc < psf->size)
                resized.At(r, c) = psf->At(sr, sc);
        }
    *psf = resized;
    return true;
}

void PsfFromImage(CCustomPSF* psf, const float* plane, int width, int height, int x, int y) {
    const int h = (psf->size - 1) / 2;
    double window[169];
    GatherMirror(plane, width, height, x, y, h, window);
    for (int j = 0; j < psf->size * psf->size; ++j)
        psf->values[j] = window[j];
}

bool PsfUsable(const CCustomPSF& psf, std::string* error) {
    double sum = 0;
    for (int j = 0; j < psf.size * psf.size; ++j)
        sum += psf.values[j];
    if (sum == 0.0) {
        SetError(error, kPsfSumZeroText);
        return false;
    }
    return true;
}

bool PsfNameValid(const std::string& name, std::string* error) {
    if (name.find_first_of("\\/:*?\"<>|") != std::string::npos) {
        SetError(error, kBadFileNameText);
        return false;
    }
    return true;
}

std::string PsfCellText(double value) {
    return FormatText("%3.3f", value);
}

} // namespace astrivelle
