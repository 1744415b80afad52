// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Image construction, setters, plane allocation, copying, pixel access and colour type.
#include "engine/Image.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

bool IsValidColorType(std::uint32_t t) {
    return t >= 1 && t <= 9 && t != 5;
}

int SlotOfColorType(std::uint32_t t) {
    switch (t) {
    case ColorRed:
    case ColorCyan:
    case ColorGray:
        return 0;
    case ColorGreen:
    case ColorMagenta:
        return 1;
    case ColorBlue:
    case ColorYellow:
        return 2;
    default:
        return -1;
    }
}

const char* ColorModelWord(std::uint32_t t) {
    return t == ColorRGB ? "RGB" : "MONO";
}

void SmallBufferFailure() {
    // Too small to recover from: say so and stop at once.
    std::fputs("Can't Allocate Memory. Please Close Some Applications And Try Again.\n", stderr);
    std::_Exit(1);
}

namespace {

float** AllocRows(int rows, int cols) {
    auto** array = static_cast<float**>(PageAlloc(sizeof(float*) * static_cast<size_t>(rows)));
    if (!array)
        return nullptr;
    for (int y = 0; y < rows; ++y) {
        array[y] = new (std::nothrow) float[static_cast<size_t>(cols)];
        if (!array[y]) {
            for (int k = 0; k < y; ++k)
                delete[] array[k];
            PageFree(array);
            return nullptr;
        }
    }
    return array;
}

template <class T> void FreeRows(T**& array, int rows) {
    if (!array)
        return;
    for (int y = 0; y < rows; ++y)
        delete[] array[y];
    PageFree(array);
    array = nullptr;
}

} // namespace

Image::Image() = default;

Image::~Image() {
    FreePlanes();
    FreeWorkRows();
    FreeAccumulators();
    FreeNbhd();
}

// ---- setters ----------------------------------------------------------------------------

void Image::SetGeometry(std::int32_t ft, std::uint32_t ct, std::uint32_t cd, std::int32_t w,
                        std::int32_t h) {
    fileType = ft;
    colorType = ct;
    colorDetail = cd;
    SetSize(w, h);
}

void Image::SetGeometryFits(std::int32_t ft, std::uint32_t ct, std::uint32_t cd, std::uint32_t dt,
                            std::int32_t w, std::int32_t h) {
    SetGeometry(ft, ct, cd, w, h);
    dataType = dt;
}

void Image::SetGeometryTiff(std::int32_t ft, std::uint32_t ct, std::uint32_t cd, std::int32_t w,
                            std::int32_t h, std::uint32_t bits) {
    SetGeometry(ft, ct, cd, w, h);
    tiffBitsPerSample = bits;
}

void Image::SetSize(std::int32_t w, std::int32_t h) {
    width = w;
    height = h;
    pixelCount = static_cast<std::uint32_t>(w) * static_cast<std::uint32_t>(h);
    maxValue = 65535;
}

void Image::GetSize(std::int32_t* w, std::int32_t* h, std::uint32_t* count) const {
    if (w)
        *w = width;
    if (h)
        *h = height;
    if (count)
        *count = pixelCount;
}

// ---- allocation -------------------------------------------------------------------------

std::vector<int> Image::Slots() const {
    if (colorType == ColorRGB)
        return {0, 1, 2};
    int s = SlotOfColorType(colorType);
    if (s < 0)
        return {};
    return {s};
}

bool Image::AllocateSlotPlanes(int slot) {
    if (slot < 0 || slot > 2)
        return false;
    if (!curPlane[slot] && !(curPlane[slot] = AllocPlane(pixelCount)))
        return false;
    if (!prevPlane[slot] && !(prevPlane[slot] = AllocPlane(pixelCount)))
        return false;
    return true;
}

bool Image::AllocatePlanes(int planeMode) {
    if (planeMode == 3) {
        for (int s = 0; s < 3; ++s)
            if (!AllocateSlotPlanes(s))
                return false;
        return true;
    }
    if (planeMode != 1)
        return false;
    std::vector<int> slots = Slots();
    if (slots.empty())
        return false;
    for (int s : slots)
        if (!AllocateSlotPlanes(s))
            return false;
    return true;
}

bool Image::AllocateCurrentPlanes(int planeMode) {
    std::vector<int> slots;
    if (planeMode == 3)
        slots = {0, 1, 2};
    else if (planeMode == 1)
        slots = Slots();
    if (slots.empty())
        return false;
    for (int s : slots)
        if (!curPlane[s] && !(curPlane[s] = AllocPlane(pixelCount)))
            return false;
    return true;
}

void Image::FreeSlot(int slot) {
    PageFree(curPlane[slot]);
    PageFree(prevPlane[slot]);
    curPlane[slot] = prevPlane[slot] = nullptr;
}

void Image::FreePlanes() {
    for (int s = 0; s < 3; ++s)
        FreeSlot(s);
}

bool Image::Resize(std::int32_t w, std::int32_t h, int planeMode) {
    FreePlanes();
    FreeWorkRows(); // row arrays are tied to the height they were made with
    FreeAccumulators();
    SetSize(w, h);
    return AllocatePlanes(planeMode);
}

bool Image::AllocateWorkRows() {
    FreeWorkRows();
    workRowCount_ = height; // so that a failure part-way frees the slots already made
    for (int s : Slots()) {
        workRows[s] = AllocRows(height, width);
        if (!workRows[s]) {
            FreeWorkRows();
            return false;
        }
    }
    workRowCount_ = height;
    return true;
}

void Image::FreeWorkRows() {
    for (auto& rows : workRows)
        FreeRows(rows, workRowCount_);
    workRowCount_ = 0;
    workValid = 0;
}

bool Image::AllocateAccumulators() {
    FreeAccumulators();
    for (int s : Slots()) {
        auto** array = static_cast<double**>(PageAlloc(sizeof(double*) * height));
        if (!array) {
            FreeAccumulators();
            return false;
        }
        accumRows[s] = array;
        accumRowCount_ = height;
        for (int y = 0; y < height; ++y) {
            array[y] = new (std::nothrow) double[static_cast<size_t>(width)]();
            if (!array[y]) {
                // Rows not yet made are null (the pointer array comes zero-filled), so the
                // full count frees every slot made so far.
                FreeAccumulators();
                return false;
            }
        }
    }
    accumRowCount_ = height;
    accumWidth_ = width;
    return true;
}

void Image::FreeAccumulators() {
    for (auto& rows : accumRows)
        FreeRows(rows, accumRowCount_);
    accumRowCount_ = 0;
}

// ---- copying ----------------------------------------------------------------------------

static void CopyPlaneParallel(float* dst, const float* src, int w, int h) {
    ParallelRows(h, [&](int y0, int y1) {
        std::memcpy(dst + static_cast<size_t>(y0) * w, src + static_cast<size_t>(y0) * w,
                    sizeof(float) * static_cast<size_t>(y1 - y0) * w);
    });
}

void Image::CopyPlane(float* dst, const float* src) const {
    if (dst && src && dst != src)
        CopyPlaneParallel(dst, src, width, height);
}

bool Image::CopyFrom(const Image& source, std::int32_t w, std::int32_t h, std::uint32_t maxV,
                     std::uint32_t ct, std::uint32_t cd) {
    FreePlanes();
    SetSize(w, h);
    maxValue = maxV;
    colorType = ct;
    colorDetail = cd;
    if (!AllocatePlanes(1))
        return false;
    for (int s : Slots()) {
        if (!source.curPlane[s])
            return false;
        CopyPlaneParallel(curPlane[s], source.curPlane[s], width, height);
        CopyPlaneParallel(prevPlane[s], source.curPlane[s], width, height);
    }
    return true;
}

bool Image::CopyAllFrom(const Image& source, std::int32_t w, std::int32_t h, std::uint32_t maxV,
                        std::uint32_t ct, std::uint32_t cd) {
    if (!CopyFrom(source, w, h, maxV, ct, cd))
        return false;
    for (int s : Slots())
        if (source.prevPlane[s])
            CopyPlaneParallel(prevPlane[s], source.prevPlane[s], width, height);
    return true;
}

void Image::SaveWork() {
    for (int s : Slots())
        if (workRows[s] && curPlane[s])
            PlaneToRows(curPlane[s], workRows[s]);
}

void Image::RestoreWork() {
    for (int s : Slots())
        if (workRows[s] && curPlane[s])
            RowsToPlane(workRows[s], curPlane[s]);
}

void Image::SetCurrent(const float* plane) {
    int s = SlotOfColorType(colorType);
    if (s >= 0 && curPlane[s])
        CopyPlane(curPlane[s], plane);
}

bool Image::CopyCurrentToAllSlots(const Image& mono) {
    int src = SlotOfColorType(mono.colorType);
    if (src < 0 || !mono.curPlane[src])
        return false;
    for (int s = 0; s < 3; ++s) {
        if (!curPlane[s] && !(curPlane[s] = AllocPlane(pixelCount)))
            return false;
        CopyPlane(curPlane[s], mono.curPlane[src]);
    }
    return true;
}

void Image::PlaneToRows(const float* plane, float** rows) const {
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            std::memcpy(rows[y], plane + static_cast<size_t>(y) * width, sizeof(float) * width);
    });
}

void Image::RowsToPlane(float* const* rows, float* plane) const {
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            std::memcpy(plane + static_cast<size_t>(y) * width, rows[y], sizeof(float) * width);
    });
}

void Image::CropRowsToPlane(float* const* rows, std::int32_t srcW, std::int32_t srcH,
                            float* plane) const {
    ParallelRows(height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = plane + static_cast<size_t>(y) * width;
            for (int x = 0; x < width; ++x)
                out[x] = (x >= srcW || y >= srcH) ? 0.0f : rows[y][x];
        }
    });
}

void Image::CurrentToPrevious() {
    for (int s : Slots())
        CopyPlane(prevPlane[s], curPlane[s]);
}

void Image::PreviousToCurrent() {
    for (int s : Slots())
        CopyPlane(curPlane[s], prevPlane[s]);
}

// ---- pixel access -----------------------------------------------------------------------

static inline size_t ClampedIndex(int x, int y, int w, int h) {
    x = x < 0 ? 0 : (x >= w ? w - 1 : x);
    y = y < 0 ? 0 : (y >= h ? h - 1 : y);
    return static_cast<size_t>(y) * w + x;
}

float Image::RedAt(int x, int y) const {
    return curPlane[0][ClampedIndex(x, y, width, height)];
}
float Image::GreenAt(int x, int y) const {
    return curPlane[1][ClampedIndex(x, y, width, height)];
}
float Image::BlueAt(int x, int y) const {
    return curPlane[2][ClampedIndex(x, y, width, height)];
}
int Image::RedLevelAt(int x, int y) const {
    return RoundLevel(RedAt(x, y), 0, 65535);
}
int Image::GreenLevelAt(int x, int y) const {
    return RoundLevel(GreenAt(x, y), 0, 65535);
}
int Image::BlueLevelAt(int x, int y) const {
    return RoundLevel(BlueAt(x, y), 0, 65535);
}

int Image::LevelAt(const float* plane, int x, int y) const {
    return RoundLevel(plane[ClampedIndex(x, y, width, height)], 0, 65535);
}

int Image::ValueAt(const float* r, const float* g, const float* b, int x, int y) const {
    size_t i = ClampedIndex(x, y, width, height);
    return static_cast<int>(Max2(r[i], Max2(g[i], b[i])));
}

// ---- colour type ------------------------------------------------------------------------

bool Image::ConvertColorType(std::uint32_t newType, std::uint32_t newDetail) {
    int from = SlotOfColorType(colorType);
    int to = SlotOfColorType(newType);
    if (from == to || from < 0 || to < 0) {
        colorType = newType;
        colorDetail = newDetail;
        return true;
    }
    float* cur = AllocPlane(pixelCount);
    float* prev = cur ? AllocPlane(pixelCount) : nullptr;
    if (!cur || !prev) {
        PageFree(cur);
        return false;
    }
    CopyPlane(cur, curPlane[from]);
    CopyPlane(prev, prevPlane[from]);
    FreeSlot(to);
    curPlane[to] = cur;
    prevPlane[to] = prev;
    FreeSlot(from);
    colorType = newType;
    colorDetail = newDetail;
    return true;
}

bool Image::ConvertToComplementary(std::uint32_t newType) {
    if (colorType == ColorRGB && curPlane[0] && curPlane[1] && curPlane[2]) {
        float* r = curPlane[0];
        float* g = curPlane[1];
        float* b = curPlane[2];
        const double top = maxValue;
        ParallelRows(height, [&](int y0, int y1) {
            for (size_t i = static_cast<size_t>(y0) * width; i < static_cast<size_t>(y1) * width;
                 ++i) {
                double R = r[i], G = g[i], B = b[i];
                r[i] = static_cast<float>(ClampValue((G + B) / 2, 0, top));
                g[i] = static_cast<float>(ClampValue((R + B) / 2, 0, top));
                b[i] = static_cast<float>(ClampValue((R + G) / 2, 0, top));
            }
        });
    }
    colorType = newType;
    return true;
}

} // namespace astrivelle
