// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Align TSR over the file-operation frame: setup checks, templates, the mosaic sizing
/// pass, and the per-image tracking, transform and write.
#include "imagesets/AlignPointFiles.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>

#include "engine/Image.h"

namespace astrivelle {

namespace fs = std::filesystem;

// ---- words ----------------------------------------------------------------------------------

const char* AlignPointKeyword(AlignPointType type) {
    switch (type) {
    case AlignPointType::Translate:
        return "1PT";
    case AlignPointType::Rotate:
        return "2PT";
    case AlignPointType::TranslateRotate:
        return "SRPT";
    case AlignPointType::TranslateScaleRotate:
        return "12PT";
    }
    return "";
}

const char* AlignPointTag(AlignPointType type) {
    switch (type) {
    case AlignPointType::Translate:
        return "Tn";
    case AlignPointType::Rotate:
        return "Rt";
    case AlignPointType::TranslateRotate:
        return "TnRt";
    case AlignPointType::TranslateScaleRotate:
        return "TnScRt";
    }
    return "";
}

const char* AlignPointHistory(AlignPointType type) {
    switch (type) {
    case AlignPointType::Translate:
        return "QX Alignment : Translate";
    case AlignPointType::Rotate:
        return "QX Alignment : Rotate";
    case AlignPointType::TranslateRotate:
        return "QX Alignment : Translate & Rotate";
    case AlignPointType::TranslateScaleRotate:
        return "QX Alignment : Translate, Scale, & Rotate";
    }
    return "";
}

bool AlignPointTypeFromKeyword(const std::string& keyword, AlignPointType* type) {
    for (AlignPointType t : {AlignPointType::Translate, AlignPointType::Rotate,
                             AlignPointType::TranslateRotate, AlignPointType::TranslateScaleRotate})
        if (keyword == AlignPointKeyword(t)) {
            *type = t;
            return true;
        }
    return false;
}

const char* AlignPointColorName(int slot) {
    static const char* const kNames[10] = {"red",    "blue",   "green", "yellow",   "cyan",
                                           "orange", "purple", "teal",  "sky blue", "magenta"};
    return slot >= 0 && slot < 10 ? kNames[slot] : "";
}

namespace {

/// The group word of a slot in the radius texts.
const char* GroupWord(int slot) {
    return slot == 0 ? "translation" : (slot == 1 ? "rotation" : "scale");
}

bool OffEdge(int r, int x, int y, int width, int height) {
    const int edge = 2 * r + 1;
    return edge >= x || x >= width - edge || edge >= y || y >= height - edge;
}

} // namespace

int FitCorrelationRadius(int radius, int x, int y, int width, int height) {
    int r = radius;
    while (r > 0 && OffEdge(r, x, y, width, height))
        r -= 10;
    return r > 0 ? r : 0;
}

std::string RadiusTooLargeText(int slot, int radius, int x, int y, int reduced) {
    char text[400];
    std::snprintf(text, sizeof text,
                  "The selected %s correlation nbhd radius of %d is too large for the selected %s "
                  "point (%d, %d).\nPress OK to use the smaller nbhd radius %d or Cancel to "
                  "reselect the radius or point.",
                  GroupWord(slot), radius, AlignPointColorName(slot), x, y, reduced);
    return text;
}

std::string PointTooCloseText(int slot, int x, int y) {
    char text[300];
    std::snprintf(text, sizeof text,
                  "The selected %s %s point (%d,%d) is too close to the edge of the "
                  "image.\nPlease reselect.",
                  AlignPointColorName(slot), GroupWord(slot), x, y);
    return text;
}

bool FitPointRadius(int slot, int radius, double x, double y, int width, int height,
                    INotify* notify, int* outRadius, std::string* text) {
    const int ix = static_cast<int>(x), iy = static_cast<int>(y);
    const int r = FitCorrelationRadius(radius, ix, iy, width, height);
    text->clear();
    if (r <= 0) {
        *text = PointTooCloseText(slot, ix, iy);
        return false;
    }
    if (r != radius) {
        const Answer a =
            notify ? notify->Ask(RadiusTooLargeText(slot, radius, ix, iy, r), true) : Answer::Yes;
        if (a != Answer::Yes)
            return false;
    }
    *outRadius = r;
    return true;
}

std::string AlignPointStatusText(AlignPointType type, bool correlated, int count,
                                 double translation, double rotation, double scale) {
    const char* verb = correlated ? "Correlated" : "Aligned";
    char text[300];
    switch (type) {
    case AlignPointType::Translate:
        std::snprintf(text, sizeof text, "%d Images %s, Max - Tran. : %5.2f", count, verb,
                      translation);
        break;
    case AlignPointType::Rotate:
        std::snprintf(text, sizeof text, "%d Images %s, Max - Rot. : %5.2f", count, verb, rotation);
        break;
    case AlignPointType::TranslateRotate:
        std::snprintf(text, sizeof text, "%d Images %s, Max - Tran. : %5.2f, Rot. : %5.2f", count,
                      verb, translation, rotation);
        break;
    case AlignPointType::TranslateScaleRotate:
        std::snprintf(text, sizeof text,
                      "%d Images %s, Max - Tran. : %5.2f, Rot. : %5.2f, Scale : %5.2f", count, verb,
                      translation, rotation, scale);
        break;
    }
    return text;
}

std::vector<int> AlignPointSlots(AlignPointType type, const std::array<AlignPoint, 10>& points) {
    const auto isSet = [&](int s) {
        return points[s].set != 0 && points[s].x >= 0 && points[s].y >= 0;
    };
    std::vector<int> slots;
    switch (type) {
    case AlignPointType::Translate:
        if (isSet(0))
            slots = {0};
        break;
    case AlignPointType::Rotate:
    case AlignPointType::TranslateRotate:
        if (isSet(0) && isSet(1))
            slots = {0, 1};
        break;
    case AlignPointType::TranslateScaleRotate:
        for (int s = 0; s < 10; ++s)
            if (isSet(s))
                slots.push_back(s);
        break;
    }
    return slots;
}

// ---- the run --------------------------------------------------------------------------------

namespace {

struct Point2 {
    double x = 0, y = 0;
};

/// The current channels of an image in the order AlignAffine3 takes them.
void Channels(const Image& image, const float* c[3]) {
    c[0] = c[1] = c[2] = nullptr;
    const std::vector<int> slots = image.Slots();
    for (std::size_t k = 0; k < slots.size() && k < 3; ++k)
        c[k] = image.curPlane[slots[k]];
}

/// Replaces the image's planes by those of `from` (same colour type), keeping its header.
bool TakePlanes(Image& image, const Image& from) {
    const std::uint32_t maxValue = image.maxValue;
    if (!image.Resize(from.width, from.height, 1))
        return false;
    image.maxValue = maxValue;
    const std::size_t count = static_cast<std::size_t>(from.width) * from.height;
    for (int s : image.Slots()) {
        std::memcpy(image.curPlane[s], from.curPlane[s], count * sizeof(float));
        std::memcpy(image.prevPlane[s], from.curPlane[s], count * sizeof(float));
    }
    return true;
}

/// A zero-filled image of the same kind as `like`, w by h.
bool Blank(const Image& like, int w, int h, Image* out) {
    out->SetGeometryFits(like.fileType, like.colorType, like.colorDetail, like.dataType, w, h);
    out->maxValue = like.maxValue;
    return out->AllocatePlanes(1);
}

/// The image placed into a w by h frame at (ox, oy); the rest is 0.
bool Embed(Image& image, int w, int h, int ox, int oy) {
    if (w == image.width && h == image.height && ox == 0 && oy == 0)
        return true;
    Image frame;
    if (!Blank(image, w, h, &frame))
        return false;
    for (int s : image.Slots())
        for (int y = 0; y < image.height; ++y) {
            const int ty = y + oy;
            if (ty < 0 || ty >= h)
                continue;
            for (int x = 0; x < image.width; ++x) {
                const int tx = x + ox;
                if (tx >= 0 && tx < w)
                    frame.curPlane[s][static_cast<std::size_t>(ty) * w + tx] =
                        image.curPlane[s][static_cast<std::size_t>(y) * image.width + x];
            }
        }
    return TakePlanes(image, frame);
}

/// The turn of AlignRigid2 that brings b onto a's direction, in radians.
double RigidAngle(Point2 a, Point2 b) {
    const double na = std::hypot(a.x, a.y), nb = std::hypot(b.x, b.y);
    if (na == 0 || nb == 0)
        return 0;
    double cosine = (a.x * b.x + a.y * b.y) / (na * nb);
    cosine = std::clamp(cosine, -1.0, 1.0);
    const double angle = std::acos(cosine);
    const double cross = a.x * b.y - a.y * b.x;
    const long long truncated =
        cross > 9e18 ? 1 : (cross < -9e18 ? -1 : static_cast<long long>(cross));
    return -angle * (truncated >= 0 ? 1.0 : -1.0);
}

/// The unsigned angle between two vectors in degrees.
double AngleDegrees(Point2 a, Point2 b) {
    const double na = std::hypot(a.x, a.y), nb = std::hypot(b.x, b.y);
    if (na == 0 || nb == 0)
        return 0;
    return std::acos(std::clamp((a.x * b.x + a.y * b.y) / (na * nb), -1.0, 1.0)) *
           kAlignPointDegreeFactor;
}

/// Twice the area spanned by four points: the largest of the three ways round them.
double QuadSpread(const Point2 p[4]) {
    static const int kOrders[3][4] = {{0, 1, 2, 3}, {0, 2, 1, 3}, {0, 1, 3, 2}};
    double best = 0;
    for (const auto& o : kOrders) {
        double s = 0;
        for (int k = 0; k < 4; ++k) {
            const Point2& a = p[o[k]];
            const Point2& b = p[o[(k + 1) % 4]];
            s += a.x * b.y - b.x * a.y;
        }
        best = std::max(best, std::fabs(s));
    }
    return best;
}

/// Of more than four points, the four (in their order) that span the widest quadrilateral
/// on the reference.
std::array<int, 4> WidestFour(const std::vector<Point2>& ref) {
    std::array<int, 4> best{0, 1, 2, 3};
    double bestSpread = -1;
    const int n = static_cast<int>(ref.size());
    for (int a = 0; a < n; ++a)
        for (int b = a + 1; b < n; ++b)
            for (int c = b + 1; c < n; ++c)
                for (int d = c + 1; d < n; ++d) {
                    const Point2 p[4] = {ref[a], ref[b], ref[c], ref[d]};
                    const double spread = QuadSpread(p);
                    if (spread > bestSpread) {
                        bestSpread = spread;
                        best = {a, b, c, d};
                    }
                }
    return best;
}

/// The extent of the mapped corners of one image.
struct Extent {
    int minX = 0, maxX = 0, minY = 0, maxY = 0;
};

/// What one transform did.
struct TransformOutcome {
    double rotation = 0; ///< degrees
    double scale = 1;
    Extent extent;
};

/// Transforms `image` so that its points `cur` fall on `ref` (already moved by the mosaic
/// `offset`) in a w by h output; with `sizeOnly` only the extent of its corners is computed.
/// False with the reason in `why` (`fatal` set when it ends the run).
bool TransformImage(Image& image, AlignPointType type, const std::vector<Point2>& ref,
                    const std::vector<Point2>& cur, Point2 offset, int w, int h, bool sizeOnly,
                    TransformOutcome* outcome, std::string* why, bool* fatal) {
    *fatal = false;
    const float* c[3];
    Channels(image, c);
    const auto sizeAffine = [&](const Point2 r[3], const Point2 q[3]) {
        double rotation = 0, sx = 0, sy = 0;
        Extent& e = outcome->extent;
        if (!image.AlignAffine3(nullptr, 0, 0, c[0], c[1], c[2], r[0].x, r[0].y, r[1].x, r[1].y,
                                r[2].x, r[2].y, q[0].x, q[0].y, q[1].x, q[1].y, q[2].x, q[2].y,
                                &rotation, true, &e.minX, &e.maxX, &e.minY, &e.maxY, &sx, &sy, why))
            return false;
        return true;
    };
    // The three point pairs of a turn by theta that puts `from` on `to`.
    const auto rigidTriplets = [&](Point2 to, Point2 from, double theta, Point2 r[3], Point2 q[3]) {
        const double cs = std::cos(theta), sn = std::sin(theta);
        const Point2 steps[3] = {{0, 0}, {1, 0}, {0, 1}};
        for (int k = 0; k < 3; ++k) {
            q[k] = {from.x + steps[k].x, from.y + steps[k].y};
            r[k] = {to.x + cs * steps[k].x - sn * steps[k].y,
                    to.y + sn * steps[k].x + cs * steps[k].y};
        }
    };
    Image out;
    const auto prepareOut = [&]() {
        if (!Blank(image, w, h, &out)) {
            *why = kAlignPointResizeText;
            *fatal = true;
            return false;
        }
        return true;
    };
    const auto finish = [&]() {
        if (!TakePlanes(image, out)) {
            *why = kAlignPointResizeText;
            *fatal = true;
            return false;
        }
        return true;
    };

    switch (type) {
    case AlignPointType::Translate: {
        const double vx = ref[0].x - cur[0].x, vy = ref[0].y - cur[0].y;
        if (sizeOnly) {
            Point2 r[3], q[3];
            rigidTriplets(ref[0], cur[0], 0.0, r, q);
            return sizeAffine(r, q);
        }
        if (!Embed(image, w, h, 0, 0)) {
            *why = kAlignPointResizeText;
            *fatal = true;
            return false;
        }
        for (int s : image.Slots())
            if (!image.Translate(true, nullptr, image.curPlane[s], false, false, vy, vx, 0.0f, true,
                                 2)) {
                *why = kAlignPointResizeText;
                *fatal = true;
                return false;
            }
        return true;
    }
    case AlignPointType::Rotate:
    case AlignPointType::TranslateRotate: {
        const Point2 a{ref[1].x - ref[0].x, ref[1].y - ref[0].y};
        const Point2 b{cur[1].x - cur[0].x, cur[1].y - cur[0].y};
        if (std::hypot(a.x, a.y) == 0 || std::hypot(b.x, b.y) == 0) {
            *why = kAlignPointRotationPointText;
            return false;
        }
        // Rotate Only turns about the current common point, which stays where it is (moved
        // only by the mosaic offset).
        Point2 r1 = ref[0], r2 = ref[1];
        if (type == AlignPointType::Rotate) {
            r1 = {cur[0].x + offset.x, cur[0].y + offset.y};
            r2 = {r1.x + a.x, r1.y + a.y};
        }
        const double theta = RigidAngle(a, b);
        outcome->rotation = theta * kAlignPointDegreeFactor;
        if (sizeOnly) {
            Point2 r[3], q[3];
            rigidTriplets(r1, cur[0], theta, r, q);
            return sizeAffine(r, q);
        }
        if (!prepareOut())
            return false;
        double rotation = 0, sx = 0, sy = 0;
        if (!image.AlignRigid2(&out, w, h, c[0], c[1], c[2], r1.x, r1.y, r2.x, r2.y, cur[0].x,
                               cur[0].y, cur[1].x, cur[1].y, &rotation, &sx, &sy)) {
            *why = kAlignPointRotationPointText;
            return false;
        }
        outcome->rotation = rotation;
        return finish();
    }
    case AlignPointType::TranslateScaleRotate: {
        const double refSpan = std::hypot(ref[1].x - ref[0].x, ref[1].y - ref[0].y);
        const double curSpan = std::hypot(cur[1].x - cur[0].x, cur[1].y - cur[0].y);
        outcome->scale = curSpan > 0 ? refSpan / curSpan : 1.0;
        if (ref.size() == 3) {
            const Point2 r[3] = {ref[0], ref[1], ref[2]};
            const Point2 q[3] = {cur[0], cur[1], cur[2]};
            if (sizeOnly)
                return sizeAffine(r, q);
            if (!prepareOut())
                return false;
            double rotation = 0, sx = 0, sy = 0;
            Extent e;
            if (!image.AlignAffine3(&out, w, h, c[0], c[1], c[2], r[0].x, r[0].y, r[1].x, r[1].y,
                                    r[2].x, r[2].y, q[0].x, q[0].y, q[1].x, q[1].y, q[2].x, q[2].y,
                                    &rotation, false, &e.minX, &e.maxX, &e.minY, &e.maxY, &sx, &sy,
                                    why))
                return false;
            outcome->rotation = rotation;
            return finish();
        }
        const std::array<int, 4> pick =
            ref.size() == 4 ? std::array<int, 4>{0, 1, 2, 3} : WidestFour(ref);
        double rx[4], ry[4], cx[4], cy[4];
        for (int k = 0; k < 4; ++k) {
            rx[k] = ref[pick[k]].x;
            ry[k] = ref[pick[k]].y;
            cx[k] = cur[pick[k]].x;
            cy[k] = cur[pick[k]].y;
        }
        outcome->rotation = AngleDegrees({ref[1].x - ref[0].x, ref[1].y - ref[0].y},
                                         {cur[1].x - cur[0].x, cur[1].y - cur[0].y});
        Extent& e = outcome->extent;
        if (sizeOnly)
            return image.AlignProjective4(nullptr, 0, 0, c[0], c[1], c[2], rx, ry, cx, cy, true,
                                          &e.minX, &e.maxX, &e.minY, &e.maxY, why);
        if (!prepareOut())
            return false;
        if (!image.AlignProjective4(&out, w, h, c[0], c[1], c[2], rx, ry, cx, cy, false, nullptr,
                                    nullptr, nullptr, nullptr, why))
            return false;
        return finish();
    }
    }
    *why = kAlignPointInvalidTypeText;
    return false;
}

/// One correlation template.
struct Template {
    int slot = 0;
    int radius = 0;
    std::vector<float> values;
    double norm = 0;
};

class Runner {
public:
    Runner(const AlignPointRequest& request, IProgress* progress, INotify* notify)
        : request_(request), progress_(progress), notify_(notify),
          owner_(dynamic_cast<IFileOpOwner*>(progress)) {}

    AlignPointResult Run();
    /// The sizing pass alone; false with the text in the result's status.
    bool SizeOnly(AlignMosaicExtent* extent);
    const AlignPointResult& Result() const { return result_; }

private:
    AlignPointResult Stop(const std::string& text, bool tell = true) {
        result_.run.end = FileOpEnd::Stopped;
        result_.run.status = text;
        if (!text.empty()) {
            result_.run.failures.push_back({{}, text, {}});
            if (notify_ && tell && !quiet_)
                notify_->Message(text);
        }
        if (progress_)
            progress_->SetStatus(text);
        return result_;
    }
    bool Cancelled() const { return progress_ && progress_->Cancelled(); }
    void Phase(long p) {
        if (progress_)
            progress_->SetProgress(p, kFileOpPhases);
    }
    static bool ReadImage(Image& image, const std::string& path) {
        return image.ReadFile(path, fs::path(path).extension().string());
    }
    /// The current points of one image: tracked from the last known positions, or the user's.
    bool CurrentPoints(const Image& image, const CImageFileInfo& info, std::vector<Point2>* cur,
                       std::string* why);
    /// The checks of the set and the points, the reference read, its radii and templates, and
    /// the list of the images to align; false when the run stopped (result_ says why).
    bool Setup();
    /// The corners of every image to align mapped into the reference's frame, joined with
    /// the reference's own; false when the run stopped.
    bool CollectExtent(Extent* all, int* skipped);
    /// The mosaic frame of a collected extent, a set size applied.
    AlignMosaicExtent Frame(const Extent& all, int skipped) const;

    const AlignPointRequest& request_;
    IProgress* progress_;
    INotify* notify_;
    IFileOpOwner* owner_;
    bool quiet_ = false; ///< the sizing pass: stops are not told, the caller words them
    AlignPointResult result_;
    const CImageFileInfo* referenceInfo_ = nullptr;
    int refWidth_ = 0, refHeight_ = 0;
    Image reference_;
    std::vector<const CImageFileInfo*> others_; ///< the images to align, in list order
    std::vector<int> slots_;
    std::vector<Point2> userPoints_; ///< on the reference, before the mosaic offset
    std::vector<Template> templates_;
    std::vector<Point2> last_; ///< last known positions of the tracked points
    double maxShift_ = 0;
};

bool Runner::CurrentPoints(const Image& image, const CImageFileInfo& info, std::vector<Point2>* cur,
                           std::string* why) {
    cur->assign(slots_.size(), {});
    if (!request_.correlate) {
        for (std::size_t k = 0; k < slots_.size(); ++k) {
            const AlignPoint& p = info.points[slots_[k]];
            if (!p.set || p.x < 0 || p.y < 0) {
                *why = slots_[k] == 0 ? kAlignPointRotationPointText : kAlignPointInvalidTypeText;
                return false;
            }
            (*cur)[k] = {p.x, p.y};
        }
        maxShift_ = std::max(
            maxShift_, std::hypot((*cur)[0].x - userPoints_[0].x, (*cur)[0].y - userPoints_[0].y));
        return true;
    }
    std::vector<Point2> found = last_;
    double maxShift = maxShift_;
    for (std::size_t k = 0; k < slots_.size(); ++k) {
        const Template& t = templates_[k];
        if (!image.CorrelateSearch(t.radius, t.values.data(), t.norm, userPoints_[k].x,
                                   userPoints_[k].y, request_.minimum, request_.subPixelStep,
                                   &found[k].x, &found[k].y, &maxShift, why,
                                   request_.luminanceMode))
            return false;
    }
    last_ = found;
    maxShift_ = maxShift;
    *cur = found;
    return true;
}

bool Runner::Setup() {
    // The set: the records not excluded; the reference among them.
    int referenceIndex = -1;
    bool referenceExcluded = false;
    std::vector<std::string> paths;
    for (const CImageFileInfo& f : request_.files) {
        if (f.isReference)
            referenceExcluded = f.excluded != 0;
        if (f.excluded)
            continue;
        if (f.isReference)
            referenceIndex = static_cast<int>(&f - request_.files.data());
        paths.push_back(f.path);
    }
    if (referenceExcluded) {
        Stop(kAlignPointReferenceText);
        return false;
    }
    if (paths.size() < 2) {
        Stop(kAlignPointSizeText);
        return false;
    }
    if (referenceIndex < 0) {
        Stop(kAlignPointReferenceText);
        return false;
    }
    CImageFileList usable;
    std::vector<std::string> rejected;
    CheckFiles("12PTALIGN", kSetEither, paths, &usable, &rejected);
    const CImageFileInfo& referenceInfo = request_.files[referenceIndex];
    const auto isUsable = [&](const std::string& path) {
        return std::any_of(usable.begin(), usable.end(),
                           [&](const CImageFileInfo& u) { return u.path == path; });
    };
    if (usable.size() < 2 || !isUsable(referenceInfo.path)) {
        Stop(kAlignPointSizeText);
        return false;
    }
    if (notify_ && !ConfirmRejected(*notify_, "align", rejected)) {
        Stop(kThreadCanceledText, false);
        return false;
    }
    referenceInfo_ = &referenceInfo;
    refWidth_ = usable.front().width;
    refHeight_ = usable.front().height;

    // The points of the type.
    const AlignPointType type = request_.type;
    slots_ = AlignPointSlots(type, referenceInfo.points);
    if (slots_.empty() || (type == AlignPointType::TranslateScaleRotate && slots_.size() < 3)) {
        const bool noRed = !referenceInfo.points[0].set;
        Stop(noRed && type == AlignPointType::Rotate ? kAlignPointRotationPointText
                                                     : kAlignPointInvalidTypeText);
        return false;
    }
    for (int s : slots_)
        userPoints_.push_back({referenceInfo.points[s].x, referenceInfo.points[s].y});

    // The reference.
    Image& reference = reference_;
    if (!ReadImage(reference, referenceInfo.path)) {
        Stop(kAlignPointReadReferenceText);
        return false;
    }
    if (request_.pointsOnStars) {
        for (Point2& p : userPoints_) {
            reference.LoadNbhd(
                reference.colorType == ColorRGB
                    ? nullptr
                    : reference.curPlane[std::max(0, SlotOfColorType(reference.colorType))],
                static_cast<int>(p.x), static_cast<int>(p.y), 14);
            double cx = 0, cy = 0;
            reference.NbhdCentroid(&cx, &cy);
            p = {cx - 1.0, cy - 1.0};
        }
    }

    // Radius of each point, and its template.
    if (request_.correlate) {
        for (std::size_t k = 0; k < slots_.size(); ++k) {
            const int slot = slots_[k];
            const int asked = slot == 0 ? request_.translationRadius : request_.rotationRadius;
            int radius = 0;
            std::string text;
            if (!FitPointRadius(slot, asked, userPoints_[k].x, userPoints_[k].y, refWidth_,
                                refHeight_, notify_, &radius, &text)) {
                text.empty() ? Stop(kThreadCanceledText, false) : Stop(text);
                return false;
            }
            result_.radii[slot] = radius;
            Template t;
            t.slot = slot;
            t.radius = radius;
            try {
                reference.CorrelationTemplate(radius, static_cast<int>(userPoints_[k].x),
                                              static_cast<int>(userPoints_[k].y),
                                              request_.luminanceMode, &t.values, &t.norm);
            } catch (const std::bad_alloc&) {
                Stop(kAlignPointMemoryText);
                return false;
            }
            templates_.push_back(std::move(t));
        }
    }

    // The images to align, in list order.
    for (const CImageFileInfo& f : request_.files)
        if (!f.excluded && !f.isReference && isUsable(f.path))
            others_.push_back(&f);
    return true;
}

bool Runner::CollectExtent(Extent* all, int* skipped) {
    *all = {0, refWidth_ - 1, 0, refHeight_ - 1};
    *skipped = 0;
    last_ = userPoints_;
    maxShift_ = 0;
    for (const CImageFileInfo* f : others_) {
        if (Cancelled()) {
            Stop(kThreadCanceledText, false);
            return false;
        }
        Image image;
        if (!ReadImage(image, f->path)) {
            Stop(kAlignPointReadMosaicText);
            return false;
        }
        std::vector<Point2> cur;
        std::string why;
        if (!CurrentPoints(image, *f, &cur, &why)) {
            ++*skipped; // not correlated: skipped here as in the run
            continue;
        }
        TransformOutcome outcome;
        bool fatal = false;
        if (!TransformImage(image, request_.type, userPoints_, cur, {0, 0}, refWidth_, refHeight_,
                            true, &outcome, &why, &fatal)) {
            Stop(kAlignPointMosaicSizeText);
            return false;
        }
        all->minX = std::min(all->minX, outcome.extent.minX);
        all->maxX = std::max(all->maxX, outcome.extent.maxX);
        all->minY = std::min(all->minY, outcome.extent.minY);
        all->maxY = std::max(all->maxY, outcome.extent.maxY);
    }
    return true;
}

AlignMosaicExtent Runner::Frame(const Extent& all, int skipped) const {
    AlignMosaicExtent frame;
    frame.collectedWidth = all.maxX - all.minX + 1;
    frame.collectedHeight = all.maxY - all.minY + 1;
    frame.width = request_.mosaicWidth > 0 ? request_.mosaicWidth : frame.collectedWidth;
    frame.height = request_.mosaicHeight > 0 ? request_.mosaicHeight : frame.collectedHeight;
    // The collected extent centred in the frame (a plain division: an odd margin leaves the
    // extra pixel on the right and at the bottom).
    frame.offsetX = -all.minX + (frame.width - frame.collectedWidth) / 2;
    frame.offsetY = -all.minY + (frame.height - frame.collectedHeight) / 2;
    frame.skipped = skipped;
    return frame;
}

bool Runner::SizeOnly(AlignMosaicExtent* extent) {
    quiet_ = true;
    FileOpBusy busy(FileOpKind::AlignTSR);
    if (!busy.Acquired()) {
        Stop(BusyText(FileOpKind::AlignTSR));
        return false;
    }
    Extent all;
    int skipped = 0;
    if (!Setup() || !CollectExtent(&all, &skipped))
        return false;
    *extent = Frame(all, skipped);
    return true;
}

AlignPointResult Runner::Run() {
    FileOpBusy busy(FileOpKind::AlignTSR);
    if (!busy.Acquired())
        return Stop(BusyText(FileOpKind::AlignTSR));
    if (!Setup())
        return result_;
    const AlignPointType type = request_.type;
    const CImageFileInfo& referenceInfo = *referenceInfo_;
    Image& reference = reference_;
    const std::vector<const CImageFileInfo*>& others = others_;

    // Mosaic: the extent of every image's corners in the reference's frame.
    int outW = refWidth_, outH = refHeight_, offX = 0, offY = 0;
    if (request_.mosaic) {
        Extent all;
        int skipped = 0;
        if (!CollectExtent(&all, &skipped))
            return result_;
        const AlignMosaicExtent frame = Frame(all, skipped);
        outW = frame.width;
        outH = frame.height;
        offX = frame.offsetX;
        offY = frame.offsetY;
        if (!Embed(reference, outW, outH, offX, offY))
            return Stop(kAlignPointMosaicResizeText);
    }
    result_.outputWidth = outW;
    result_.outputHeight = outH;
    result_.mosaicOffsetX = offX;
    result_.mosaicOffsetY = offY;
    std::vector<Point2> refPoints = userPoints_;
    for (Point2& p : refPoints) {
        p.x += offX;
        p.y += offY;
    }

    // The reference is written first.
    std::vector<std::string> keep;
    for (const CImageFileInfo& f : request_.files)
        keep.push_back(f.path);
    std::error_code ec;
    if (!request_.outputDirectory.empty() && !fs::is_directory(request_.outputDirectory, ec))
        fs::create_directories(request_.outputDirectory, ec);
    const std::string prefix = std::string(AlignPointTag(type)) + "_";
    reference.headerCards.push_back({"COMMENT", "", kAlignPointReferenceHistory, CardString});
    {
        std::string target, text, detail;
        if (!WriteFileOpOutput(reference, request_.outputDirectory, prefix, referenceInfo.path,
                               request_.saveType, keep, &target, &text, &detail))
            return Stop(kAlignPointWriteReferenceText);
        result_.referenceOutput = target;
        result_.run.inputs.push_back(referenceInfo.path);
        result_.run.outputs.push_back(target);
        keep.push_back(target);
    }
    result_.started = true;

    // Each image: read, track, transform, write.
    last_ = userPoints_;
    maxShift_ = 0;
    double maxRotation = 0, maxScale = 1;
    bool failed = false;
    const long total = static_cast<long>(others.size());
    std::string fatalText;
    for (long n = 0; n < total && fatalText.empty(); ++n) {
        if (Cancelled()) {
            result_.run.end = FileOpEnd::Cancelled;
            break;
        }
        const CImageFileInfo& info = *others[n];
        const std::string name = fs::path(info.path).filename().string();
        if (owner_)
            owner_->SetCounter(n + 1, total);
        if (progress_)
            progress_->SetStatus(name);
        Phase(PhaseRead);
        Image image;
        if (!ReadImage(image, info.path)) {
            fatalText = kAlignPointReadText;
            result_.run.failures.push_back({info.path, fatalText, name});
            break;
        }
        Phase(PhaseProcess);
        std::vector<Point2> cur;
        std::string why;
        if (!CurrentPoints(image, info, &cur, &why)) {
            // Skipped with its message; the run goes on.
            result_.run.failures.push_back({info.path, why, name});
            if (notify_)
                notify_->Message(why);
            failed = true;
            continue;
        }
        if (Cancelled()) {
            result_.run.end = FileOpEnd::Cancelled;
            break;
        }
        TransformOutcome outcome;
        bool fatal = false;
        if (!TransformImage(image, type, refPoints, cur, {double(offX), double(offY)}, outW, outH,
                            false, &outcome, &why, &fatal)) {
            result_.run.failures.push_back({info.path, why, name});
            if (fatal) {
                fatalText = why;
                break;
            }
            if (notify_)
                notify_->Message(why);
            failed = true;
            continue;
        }
        Phase(PhaseProcessed);
        image.headerCards.push_back({"COMMENT", "", AlignPointHistory(type), CardString});
        if (Cancelled()) {
            result_.run.end = FileOpEnd::Cancelled;
            break;
        }
        Phase(PhaseWrite);
        std::string target, text, detail;
        if (!WriteFileOpOutput(image, request_.outputDirectory, prefix, info.path,
                               request_.saveType, keep, &target, &text, &detail)) {
            fatalText = kAlignPointWriteText;
            result_.run.failures.push_back({info.path, fatalText, text + "\n" + detail});
            break;
        }
        keep.push_back(target);
        result_.run.inputs.push_back(info.path);
        result_.run.outputs.push_back(target);
        AlignPointImage done;
        done.input = info.path;
        done.output = target;
        for (std::size_t k = 0; k < slots_.size(); ++k)
            done.points[slots_[k]] = {cur[k].x, cur[k].y, 1};
        done.rotation = outcome.rotation;
        done.scale = outcome.scale;
        result_.images.push_back(done);
        ++result_.aligned;
        if (std::fabs(outcome.rotation) > std::fabs(maxRotation))
            maxRotation = outcome.rotation;
        if (std::fabs(outcome.scale - 1.0) > std::fabs(maxScale - 1.0))
            maxScale = outcome.scale;
        Phase(PhaseDone);
    }
    result_.maxTranslation = maxShift_;
    result_.maxRotation = std::fabs(maxRotation);
    result_.maxScale = maxScale;

    FileOpResult& run = result_.run;
    if (!fatalText.empty()) {
        run.end = FileOpEnd::Stopped;
        run.status = fatalText;
        if (notify_)
            notify_->Message(fatalText);
    } else if (run.end == FileOpEnd::Cancelled) {
        run.status = kThreadCanceledText;
    } else {
        run.end = failed ? FileOpEnd::CompletedWithFailures : FileOpEnd::Completed;
        if (result_.aligned == 0)
            run.status =
                request_.correlate ? kAlignPointNoneCorrelatedText : kAlignPointNoneAlignedText;
        else
            run.status =
                AlignPointStatusText(type, request_.correlate, result_.aligned,
                                     result_.maxTranslation, result_.maxRotation, result_.maxScale);
    }
    if (progress_)
        progress_->SetStatus(run.status);
    if (notify_)
        notify_->Beep();

    CFileOpList list = OutputListOf(kAlignPointOperation, OutputListKind::Aligned, run.outputs);
    if (!list.files.empty())
        list.files.front().isReference = 1; // the reference is written first
    FileOpLists().Set(list);
    return result_;
}

} // namespace

AlignPointResult AlignPointFiles(const AlignPointRequest& request, IProgress* progress,
                                 INotify* notify) {
    Runner runner(request, progress, notify);
    return runner.Run();
}

bool AlignPointMosaicSize(const AlignPointRequest& request, INotify* notify,
                          AlignMosaicExtent* extent, std::string* text) {
    Runner runner(request, nullptr, notify);
    text->clear();
    if (runner.SizeOnly(extent))
        return true;
    const std::string& status = runner.Result().run.status;
    *text = status == kThreadCanceledText ? std::string() : status;
    return false;
}

const std::vector<std::string>& SearchAngleChoices() {
    static const std::vector<std::string> kChoices = {"0.5", "1.0", "2.0", "3.0", "4.0", "5.0"};
    return kChoices;
}

const std::vector<std::string>& AngleIncrementChoices() {
    static const std::vector<std::string> kChoices = {"0.01", "0.05", "0.10", "0.20", "0.50"};
    return kChoices;
}

} // namespace astrivelle
