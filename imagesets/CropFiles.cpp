// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Crop Files over the file-operation frame, and the brightness centroid it crops about.
#include "imagesets/CropFiles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <vector>

#include "engine/Image.h"
#include "engine/PageAlloc.h"
#include "engine/Parallel.h"

namespace astrivelle {

namespace fs = std::filesystem;

namespace {

/// The sample the centroid weighs at (x, y): the plane, or the mean of three.
struct Luminance {
    const float* p[3] = {nullptr, nullptr, nullptr};
    int count = 0;
    std::size_t width = 0;
    double operator()(int x, int y) const {
        const std::size_t i = static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x);
        double sum = 0;
        for (int k = 0; k < count; ++k)
            sum += p[k][i];
        return sum / count;
    }
};

} // namespace

std::string CropParamsText(const CropRequest& r) {
    if (r.center == CropCenter::AboutXY && (r.x < 0 || r.y < 0))
        return kCropCenterText;
    if (r.height <= 0)
        return kCropHeightText;
    if (r.width <= 0)
        return kCropWidthText;
    return {};
}

bool BrightnessCentroid(const Image& image, double* cx, double* cy) {
    const int w = image.width, h = image.height;
    if (w < 31 || h < 31)
        return false;
    Luminance lum;
    lum.width = static_cast<std::size_t>(w);
    for (int s : image.Slots())
        if (image.curPlane[s])
            lum.p[lum.count++] = image.curPlane[s];
    if (lum.count == 0)
        return false;
    // 1. Sky: four bands 10 wide, 5 inside the border, rows and columns limited to 5..size-5.
    double sum = 0, maxSky = -1e300;
    std::size_t n = 0;
    std::vector<double> samples;
    samples.reserve(static_cast<std::size_t>(20) * (w + h));
    auto take = [&](int x0, int x1, int y0, int y1) {
        for (int y = std::max(y0, 5); y < std::min(y1, h - 5); ++y)
            for (int x = std::max(x0, 5); x < std::min(x1, w - 5); ++x) {
                const double v = lum(x, y);
                samples.push_back(v);
                sum += v;
                maxSky = std::max(maxSky, v);
                ++n;
            }
    };
    take(5, w - 5, 5, 15);           // the ten rows below the top margin
    take(5, w - 5, h - 15, h - 5);   // the ten rows above the bottom margin
    take(5, 15, 15, h - 15);         // the ten columns right of the left margin
    take(w - 15, w - 5, 15, h - 15); // the ten columns left of the right margin
    if (n == 0)
        return false;
    const double m = sum / static_cast<double>(n);
    double sq = 0;
    for (double v : samples)
        sq += (v - m) * (v - m);
    const double sd = std::sqrt(sq / static_cast<double>(n));
    const double sky = std::min(maxSky, m + 3 * sd);
    // 2.-3. Weights over the inner rectangle and the weighted mean position, rows in parallel.
    const double top = image.maxValue > 1 ? image.maxValue : 65535.0;
    const int x0 = 5, x1 = w - 6, y0 = 5, y1 = h - 6;
    const int rows = y1 - y0 + 1;
    std::vector<double> sw(static_cast<std::size_t>(rows)), sx(sw.size()), sy(sw.size());
    ParallelRows(rows, [&](int r0, int r1) {
        for (int r = r0; r < r1; ++r) {
            const int y = y0 + r;
            double a = 0, bx = 0;
            for (int x = x0; x <= x1; ++x) {
                double wt = lum(x, y) - sky;
                if (wt >= 10000)
                    wt = top;
                wt = wt < 0 ? 0 : (wt > top ? top : wt);
                a += wt;
                bx += wt * x;
            }
            sw[r] = a;
            sx[r] = bx;
            sy[r] = a * y;
        }
    });
    double tw = 0, tx = 0, ty = 0;
    for (int r = 0; r < rows; ++r) {
        tw += sw[r];
        tx += sx[r];
        ty += sy[r];
    }
    if (tw <= 0)
        return false;
    *cx = tx / tw;
    *cy = ty / tw;
    return true;
}

bool CropBox(double cx, double cy, int width, int height, int imageWidth, int imageHeight,
             int* left, int* top) {
    if (width <= 0 || height <= 0 || width > imageWidth || height > imageHeight)
        return false;
    int l = static_cast<int>(std::lround(cx)) - width / 2;
    int t = static_cast<int>(std::lround(cy)) - height / 2;
    l = std::clamp(l, 0, imageWidth - width);
    t = std::clamp(t, 0, imageHeight - height);
    *left = l;
    *top = t;
    return true;
}

bool CropImage(Image& image, int left, int top, int width, int height) {
    if (left < 0 || top < 0 || width <= 0 || height <= 0 || left + width > image.width ||
        top + height > image.height)
        return false;
    const std::vector<int> slots = image.Slots();
    float* made[3] = {nullptr, nullptr, nullptr};
    const std::size_t count = static_cast<std::size_t>(width) * height;
    for (int s : slots) {
        if (!image.curPlane[s])
            continue;
        made[s] = AllocPlane(count);
        if (!made[s]) {
            for (float* p : made)
                PageFree(p);
            return false;
        }
    }
    const std::size_t srcW = static_cast<std::size_t>(image.width);
    for (int s : slots) {
        if (!made[s])
            continue;
        const float* src = image.curPlane[s];
        float* dst = made[s];
        ParallelRows(height, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                std::memcpy(dst + static_cast<std::size_t>(y) * width,
                            src + (static_cast<std::size_t>(top) + y) * srcW + left,
                            static_cast<std::size_t>(width) * sizeof(float));
        });
    }
    image.FreeWorkRows();
    image.FreeAccumulators();
    for (int s : slots) {
        if (!made[s])
            continue;
        PageFree(image.curPlane[s]);
        PageFree(image.prevPlane[s]);
        image.curPlane[s] = made[s];
        image.prevPlane[s] = nullptr;
    }
    image.width = width;
    image.height = height;
    image.pixelCount = static_cast<std::uint32_t>(count);
    return true;
}

FileOpResult CropFiles(const CropRequest& request, IProgress* progress, INotify* notify) {
    FileOpResult result;
    FileOpBusy busy(FileOpKind::Crop);
    if (!busy.Acquired())
        return StopRun(progress, notify, BusyText(FileOpKind::Crop));
    const std::string paramsText = CropParamsText(request);
    if (!paramsText.empty())
        return StopRun(progress, notify, paramsText);
    std::string prefix, message;
    if (!CheckPrefix(request.prefix, &prefix, &message))
        return StopRun(progress, notify, message);

    FileOpJob job;
    job.inputs = request.files;
    job.outDir = request.outputDirectory;
    job.prefix = prefix;
    job.saveType = request.ownerName == kCropOwnerPipeline ? request.saveType : "SAMEASINPUT";
    job.runningText = kCropRunningText;
    job.doneText = "Completed";
    job.readFailureText = "Error reading ";
    job.processFailureText.clear(); // the texts below name the file themselves
    job.writeFailureText = "Error writing ";
    FileOpHandlers handlers;
    handlers.process = [&](Image& image, const std::string& path, std::size_t, IProgress*,
                           std::string* why) {
        const std::string name = fs::path(path).filename().string();
        double cx = request.x, cy = request.y;
        if (request.center == CropCenter::Centroid && !BrightnessCentroid(image, &cx, &cy)) {
            *why = std::string(kCropErrorText) + " " + name;
            return false;
        }
        int left = 0, top = 0;
        if (!CropBox(cx, cy, request.width, request.height, image.width, image.height, &left,
                     &top)) {
            *why = std::string(kCropTooLargeText) + " " + name;
            return false;
        }
        if (!CropImage(image, left, top, request.width, request.height)) {
            *why = std::string(kCropErrorText) + " " + name;
            return false;
        }
        return true;
    };
    return RunFileOperation(job, handlers, progress, notify);
}

} // namespace astrivelle
