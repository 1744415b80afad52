// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The pixel image: planar float planes on the 0..65535 scale, each channel as a current
/// and a previous plane, with the statistics, neighbourhood, colour and display helpers that
/// every operator shares. Operator families declare their members here, grouped, and define
/// them in their own files under operators/ or the subsystem folders.
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/FitsHeader.h"
#include "engine/Levels.h"
#include "engine/StarShape.h"

namespace astrivelle {

class INotify;
class IProgress;
class CDib;
struct CProcessStructure;
struct ImageHeader;         // the SBIG file attribute record, owned by the SBIG reader
struct TiffInfo;            // the TIFF tags carried from a read to the next write (fileio/Tiff.h)
enum class BlendStep : int; // blend only, blend through the mask, show the mask (engine/Blend.h)
class CCustomPSF;           // a user's point spread function (operators/Restoration.h)
struct CStarDescriptorStructure; // a star described by its distances (align/StarMatch.h)
struct CStarMatchStructure;      // a matched reference and current star (align/StarMatch.h)
/// High, Low, Both, Bloom (operators/ReducePixels.h).
enum class ReducePixelKind : int;

/// Format of the file an image came from or goes to.
enum ImageFileKind : std::int32_t {
    KindNone = 0,
    KindSBIGCompressed = -1,
    KindSBIG = -2,
    KindBMP = -3,
    KindTIFF = -5,
    KindJPEG = -6,
    KindFITS = -7,
    KindPNG = -8, ///< written only (previews)
};

/// What the planes hold. 5 is not a colour type.
enum ColorType : std::uint32_t {
    ColorRGB = 1,
    ColorRed = 2,
    ColorGreen = 3,
    ColorBlue = 4,
    ColorCyan = 6,
    ColorMagenta = 7,
    ColorYellow = 8,
    ColorGray = 9,
};

/// Sample type of a file.
enum PixelDataType : std::uint32_t {
    Data8 = 1,
    Data16 = 2,
    Data32 = 3,
    DataFloat = 4,
    DataDouble = 5,
};

/// True for 1..4 and 6..9.
bool IsValidColorType(std::uint32_t colorType);
/// The plane slot of a monochrome colour type: 0 for {2,6,9}, 1 for {3,7}, 2 for {4,8};
/// -1 for RGB or an invalid type.
int SlotOfColorType(std::uint32_t colorType);
/// "RGB" for type 1, "MONO" for every other type.
const char* ColorModelWord(std::uint32_t colorType);

/// Measures of one channel, valid after ComputeStatistics.
struct ChannelStats {
    double max = 0;
    double min = 0;
    double mean = 0;
    std::uint32_t median = 0;
    double stdDev = 0;
    double entropy = 0;
    double entropyRatio = 0;
};

/// One Micro Curves curve on the 0..255 scale: a black point, an ordered list of control
/// points (two) and a white point. The defaults are the "Default" preset.
struct MicroCurve {
    struct Point {
        std::int32_t x = 0;
        std::int32_t y = 0;
    };
    std::int32_t blackX = 0, blackY = 0;
    std::int32_t whiteX = 255, whiteY = 255;
    std::vector<Point> points{{100, 100}, {155, 155}};
};

/// Arguments of Image::Scale.
struct ScaleParams {
    bool preserveAspect = true;
    bool byDimension = false;
    bool byFactor = false;
    double uniformFactor = 1.0;
    double newWidth = 0;
    double newHeight = 0;
    double factorX = 1.0;
    double factorY = 1.0;
    int resampleType = 2; ///< 1 nearest neighbour, 2 bilinear, 3 bicubic
    bool commit = false;  ///< last channel: store the new width and height
};

class Image {
public:
    Image();
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    // ---- fields -------------------------------------------------------------------------
    const double pi = 3.1415926535;
    std::int32_t height = 0;
    std::int32_t width = 0;
    std::uint32_t pixelCount = 0;
    std::uint32_t maxValue = 1;
    std::int32_t rangeLimit = 65535;
    std::string description;
    HeaderList headerCards;
    std::uint32_t dataType = Data16;
    std::uint8_t jpegFlags[2] = {0, 0};
    std::uint16_t jpegQuality = 100;
    std::shared_ptr<ImageHeader> header;
    std::uint32_t tiffBitsPerSample = 16;
    /// Tags of the TIFF the image came from (make, model, resolution, Exif, ICC), written
    /// again by WriteTIFF; empty for an image of another origin.
    std::shared_ptr<TiffInfo> tiffInfo;
    ChannelStats redStats, greenStats, blueStats, valueStats;
    std::int32_t fileType = KindFITS;
    std::uint32_t colorType = ColorGray;
    std::uint32_t colorDetail = 0;
    /// Readers fill only the current planes; the previous planes hold the input of the latest
    /// operator and are written by the first one (BeginOperator, or a pixel function called
    /// with pending false).
    float* prevPlane[3] = {nullptr, nullptr, nullptr};
    float* curPlane[3] = {nullptr, nullptr, nullptr};
    float** workRows[3] = {nullptr, nullptr, nullptr};
    std::uint8_t workValid = 0;
    std::vector<std::uint32_t> histogram; ///< maxValue + 1 bins once built
    std::int32_t histogramPeak = 0;
    std::uint32_t displayHistogram[256] = {};
    std::uint32_t displayPeak = 0;

    // FITS specifics (see fileio/).
    bool fitsCompress = false;
    bool fitsMaximColor = false;
    double planeSubtractMinimum[3] = {0, 0, 0};

    // Neighbourhood buffers and the results of MeasureNeighbourhood.
    float* nbhd = nullptr;
    float* nbhdAlt = nullptr;
    float* nbhdStar = nullptr;
    std::uint32_t nbhdRadius = 0;
    std::int32_t nbhdSide = 1;
    std::int32_t nbhdCount = 1;
    std::uint32_t nbhdX = 0, nbhdY = 0;
    double nbhdMean = 0, nbhdCentroidX = 0, nbhdCentroidY = 0, nbhdMax = 0, nbhdMin = 0;
    double nbhdAverage = 0;
    std::uint32_t nbhdMedian = 0;
    double nbhdStdDev = 0, nbhdEntropy = 0, nbhdEntropyRatio = 0;

    double** accumRows[3] = {nullptr, nullptr, nullptr};

    // ---- geometry and type setters (no allocation) -----------------------------------------
    void SetGeometry(std::int32_t fileType, std::uint32_t colorType, std::uint32_t colorDetail,
                     std::int32_t width, std::int32_t height);
    void SetGeometryFits(std::int32_t fileType, std::uint32_t colorType, std::uint32_t colorDetail,
                         std::uint32_t dataType, std::int32_t width, std::int32_t height);
    void SetGeometryTiff(std::int32_t fileType, std::uint32_t colorType, std::uint32_t colorDetail,
                         std::int32_t width, std::int32_t height, std::uint32_t bitsPerSample);
    void SetSize(std::int32_t width, std::int32_t height);
    void GetSize(std::int32_t* width, std::int32_t* height, std::uint32_t* count) const;

    // ---- allocation ----------------------------------------------------------------------
    /// planeMode 3: all three slots; 1: the slots the colour type demands; else false.
    bool AllocatePlanes(int planeMode);
    bool AllocateCurrentPlanes(int planeMode);
    bool AllocateSlotPlanes(int slot);
    bool AllocateWorkRows();
    bool AllocateAccumulators();
    int NumberOfChannels() const { return colorType == ColorRGB ? 3 : 1; }
    /// Frees all six planes, sets the size and allocates anew.
    bool Resize(std::int32_t width, std::int32_t height, int planeMode);
    void FreePlanes();
    void FreeSlot(int slot);
    void FreeWorkRows();
    void FreeAccumulators();
    /// The slots that hold data for the colour type, in order.
    std::vector<int> Slots() const;

    // ---- copying -------------------------------------------------------------------------
    void CopyPlane(float* dst, const float* src) const;
    bool CopyFrom(const Image& source, std::int32_t width, std::int32_t height,
                  std::uint32_t maxValue, std::uint32_t colorType, std::uint32_t colorDetail);
    bool CopyAllFrom(const Image& source, std::int32_t width, std::int32_t height,
                     std::uint32_t maxValue, std::uint32_t colorType, std::uint32_t colorDetail);
    void SaveWork();
    void RestoreWork();
    /// Copies a flat plane into the current plane of the colour type's slot.
    void SetCurrent(const float* plane);
    bool CopyCurrentToAllSlots(const Image& monoSource);
    void PlaneToRows(const float* plane, float** rows) const;
    void RowsToPlane(float* const* rows, float* plane) const;
    /// Copies a wider source (rows of srcWidth) into a plane of this size, writing 0 where
    /// x >= srcWidth or y >= srcHeight.
    void CropRowsToPlane(float* const* rows, std::int32_t srcWidth, std::int32_t srcHeight,
                         float* plane) const;
    /// Copies the current planes of the colour type to the previous planes.
    void CurrentToPrevious();
    void PreviousToCurrent();

    // ---- pixel access (clamped coordinates) ----------------------------------------------
    float RedAt(int x, int y) const;
    float GreenAt(int x, int y) const;
    float BlueAt(int x, int y) const;
    int RedLevelAt(int x, int y) const;
    int GreenLevelAt(int x, int y) const;
    int BlueLevelAt(int x, int y) const;
    int LevelAt(const float* plane, int x, int y) const;
    int ValueAt(const float* r, const float* g, const float* b, int x, int y) const;

    // ---- colour type ---------------------------------------------------------------------
    bool ConvertColorType(std::uint32_t newType, std::uint32_t newDetail);
    bool ConvertToComplementary(std::uint32_t newType);

    // ---- measures ------------------------------------------------------------------------
    void ComputeStatistics();
    void BuildHistogram(const float* plane);
    void BuildValueHistogram(const float* r, const float* g, const float* b);
    void BuildDisplayHistogram(const float* plane);
    void BuildDisplayValueHistogram(const float* r, const float* g, const float* b);

    // ---- neighbourhood -------------------------------------------------------------------
    void SetNbhdRadius(std::uint32_t r);
    void SetNbhdAltRadius(std::uint32_t r);
    void SetStarShapeRadius(std::uint32_t r);
    void FillNbhd(const float* plane, int x, int y, int r);
    void FillNbhdColor(const float* r, const float* g, const float* b, int x, int y, int radius);
    double MeanOfNbhd() const;
    double MaxOfNbhd() const;
    double MinOfNbhd() const;
    std::uint32_t MedianOfNbhd() const;
    double StdDevOfNbhd() const;
    double EntropyOfNbhd() const;
    double EntropyRatioOfNbhd() const;
    void CentroidOfNbhd(double* cx, double* cy) const;
    void MeasureNeighbourhood();

    // ---- small helpers -------------------------------------------------------------------
    /// Largest of the three, clamped to 0..maxValue.
    double ValueOf(double r, double g, double b) const;
    static double ClampValue(double value, double low, double high) {
        return value < low ? low : (value > high ? high : value);
    }
    static double Factorial(int n);
    static double TriangleArea(double x1, double y1, double x2, double y2, double x3, double y3);
    double MeanOfPlane(const float* plane) const;
    double StdDevOfPlane(const float* plane) const;
    double MaxOfPlane(const float* plane) const;
    double MinOfPlane(const float* plane) const;
    double MedianOfPlane(const float* plane) const;

    // ---- resampling ----------------------------------------------------------------------
    /// In-place resize of one slot's plane pair. On failure `text` holds the reason; the
    /// "No Scale Needed" case returns false without a message box.
    bool Scale(const ScaleParams& params, float*& cur, float*& prev, std::string* text,
               INotify* notify = nullptr);

    // ---- colour conversions (the only ones in the program) ------------------------------
    static void RgbToHsv(double r, double g, double b, double* h, double* s, double* v);
    static void HsvToRgb(double h, double s, double v, double* r, double* g, double* b);
    static void RgbToLab(float r, float g, float b, float* L, float* a, float* bb);
    static void LabToRgb(float L, float a, float b, float* r, float* g, float* bb);

    // ---- display mapping -----------------------------------------------------------------
    /// Maps the current planes into a DIB made by CDib (8-bit for mono, 24-bit for RGB).
    bool FillDib(CDib& dib) const;

    // ---- files (fileio/) -----------------------------------------------------------------
    bool ReadFile(const std::string& path, const std::string& extension);
    bool WriteFile(const std::string& path, std::int32_t kind);
    bool ReadFITS(const std::string& path);
    bool WriteFITS(const std::string& path, std::int32_t kind);
    bool WriteFITSFloatPlanes(const std::string& path, const std::string& source);
    /// TIFF: false with the reader's own text in `message` (empty when it has none).
    bool ReadTIFF(const std::string& path, std::string* message);
    bool WriteTIFF(const std::string& path);
    bool ReadJPEG(const std::string& path);
    bool WriteJPEG(const std::string& path, int quality);
    bool ReadBMP(const std::string& path);
    bool WriteBMP(const std::string& path);
    bool WritePNG(const std::string& path);
    /// SBIG with the colour type the open path chose (9, or 2..8 for the plane extensions).
    bool ReadSBIG(const std::string& path, std::uint32_t colorType);
    bool WriteSBIG(const std::string& path, std::int32_t kind);

    // ---- Bayer and CYGM colour arrays (calibration/Bayer*.cpp, Cygm.cpp) -----------------
    /// Fills the three current planes of this RGB image, already sized (width - 2 by height
    /// - 2 of the source, or half size with `buildRGBPixel`), from the mosaic `sourcePlane`
    /// of `source`. `copyHeader` copies the source's header cards without EXTNAME.
    bool BayerInterpolate(bool copyHeader, const std::string& cfaPattern, const Image& source,
                          const float* sourcePlane, bool reduceGreenNoise, bool buildRGBPixel);
    /// Makes this image the `splitColor` (2, 3 or 4) plane of the mosaic `source`; the save
    /// type `keyword` picks FITS 16 bits, FITS float or (anything else) a 16-bit TIFF.
    bool SplitBayerPlane(const Image& source, std::uint32_t splitColor,
                         const std::string& cfaPattern, bool useSavedPlanes, bool averageGreen,
                         const std::string& keyword);
    /// Writes the given sets (any may be null) into this monochrome mosaic, times `scales`.
    bool CombineBayerPlanes(const Image* red, const Image* green, const Image* blue,
                            const double scales[3], const std::string& cfaPattern);

    // ---- replay (operators/) -------------------------------------------------------------
    /// Applies one recorded command to this image. `error` receives why it failed.
    bool ApplyCommand(const CProcessStructure& record, const void* customFilter,
                      const void* customPsf, IProgress* progressOwner,
                      std::string* error = nullptr);

    // ---- blend, opacity and mask (engine/Blend.cpp) --------------------------------------
    /// Blends the pure operator result in the current planes (the layer C) with the step's
    /// input in the previous planes (the base P) and writes the outcome to the current planes.
    /// `red`, `green`, `blue` select the channels by slot; a monochrome image passes its slot's
    /// planes with that flag set and null for the others. `blendMode` 0..31 (24 and above need
    /// all three planes of an RGB image); `maskPlane` is the already loaded mask file (width *
    /// height samples on the 0..65535 scale), read only when `luminanceMask` is false and the
    /// step is ApplyMask or ShowMask. False, with nothing written, when the mask can't be
    /// allocated, the mode is out of range or needs colour, or a needed plane is missing.
    bool BlendMask(bool red, bool green, bool blue, const float* prevR, float* curR,
                   const float* prevG, float* curG, const float* prevB, float* curB, BlendStep mode,
                   std::int32_t blendMode, double opacity, std::uint32_t maskLevel,
                   const std::array<double, 48>& maskSurface, const float* maskPlane,
                   bool luminanceMask, bool keepUnselected);

    // ---- Stretches: Digital Development, ArcSinH, General Stretch (operators/tone/) --------
    /// The plane's median level: a histogram of maxValue + 1 bins of the rounded levels
    /// (0..65535), walked from 0 until the running count * 100 / N reaches 50.
    std::uint32_t MedianLevelOfPlane(const float* plane) const;
    /// Scale types and functions are the texts of their choice lists. The flags are the
    /// channel selection: a single-plane colour type, or exactly one flag on RGB, runs the
    /// one-plane form on that plane, anything else the three-plane form. False when cancelled.
    bool ApplyArcSinH(bool pending, bool applyRed, bool applyGreen, bool applyBlue,
                      const std::string& scaleType, double scale, double black, double white,
                      int backgroundMin, double backgroundWeight, double power, double expand,
                      double red, double green, double blue, IProgress* progress = nullptr);
    /// `filterIndex` indexes the sharpening list ("None" 0 .. "Custom" 5); the custom weights
    /// (customSize squared, row order) are read for "Custom" only. bkgMinAndBreakPoint holds
    /// Background Min and Break-Point Highlights. False when a scratch plane cannot be had
    /// (nothing changed then), when cancelled, or for a custom size other than 3, 5, 7, 9.
    bool ApplyDigitalDevelopment(bool pending, int filterIndex, const double* customWeights,
                                 int customSize, bool lowPass, const int bkgMinAndBreakPoint[2],
                                 bool applyRed, bool applyGreen, bool applyBlue,
                                 double backgroundWeight, double red, double green, double blue,
                                 double strength, bool fixDefects, double scale, double black,
                                 double white, const std::string& scaleType,
                                 IProgress* progress = nullptr);
    bool ApplyGeneralStretch(bool pending, bool applyRed, bool applyGreen, bool applyBlue,
                             const std::string& scaleType, const std::string& stretchFunction,
                             double scale, double black, double white, int backgroundMin,
                             double backgroundWeight, double exponent, int outputWhite,
                             int outputBlack);

    // ---- Smoothing (operators/filters/) --------------------------------------------------
    /// The window of the window filters, set by SetWindow: half size, side 2h + 1, count
    /// side * side, and a weight table of count + 1 entries, all zero.
    std::int32_t windowHalf = 0;
    std::int32_t windowSide = 1;
    std::int32_t windowCount = 1;
    std::vector<double> windowWeights;
    /// Its allocation failing is a small-buffer failure: the message, then the program ends.
    void SetWindow(int halfSize);
    /// One plane of a Smoothing step: filter type 1..9 (no 7) over a window of side
    /// 2 * halfSize + 1 (set to the type's limit), mixed with the input by strength, apply
    /// range and feather. `progress` may be null: nothing is then reported and nothing can
    /// cancel. False when cancelled (the plane restored from prev) or out of memory, with the
    /// status text told through `progress`.
    bool Smooth(IProgress* progress, bool pending, float* prev, float* cur, int type, int halfSize,
                double strength, int order, int applyMin, int applyMax, int feather);

    // ---- Pixel Math (operators/masks/) ---------------------------------------------------
    void PixelAdd(bool pending, float* prev, float* cur, double constant, int applyMin,
                  int applyMax, int feather);
    void PixelMultiply(bool pending, float* prev, float* cur, double constant, int applyMin,
                       int applyMax, int feather);
    void PixelDivide(bool pending, float* prev, float* cur, double constant, int applyMin,
                     int applyMax, int feather);
    void PixelMultiplyColor(bool pending, double constant, int applyMin, int applyMax, int feather);
    void PixelDivideColor(bool pending, double constant, int applyMin, int applyMax, int feather);

    // ---- Unsharp Mask (operators/filters/UnsharpMask.cpp) ----------------------------------
    /// One plane; `customWeights` holds (2r + 1)^2 entries in row order for the Custom filter.
    /// False, with the plane as it was, when the weights can't be built.
    bool UnsharpMask(bool pending, float* prev, float* cur, const double* customWeights, int radius,
                     int variant, int filter, double backgroundWeight, int threshold,
                     double strength, int applyMin, int applyMax, int feather,
                     bool reduceArtifacts);

    // ---- Iterative restoration (operators/filters/Restoration.cpp) -------------------------
    /// One iteration on one plane; with `first` the estimate is taken from the current plane.
    /// False, doing nothing, when the PSF can't be built.
    bool RestoreIteration(float* estimate, float* scratch1, float* scratch2, bool pending,
                          float* prev, float* cur, const CCustomPSF* customPsf, int type,
                          int psfType, double relax, int halfSize, bool first, int applyMin,
                          int applyMax, int feather, bool reduceArtifacts);
    bool RestoreIterationAdaptive(float* estimate, float* scratch1, float* scratch2, bool pending,
                                  float* prev, float* cur, const CCustomPSF* customPsf, int psfType,
                                  double noiseThreshold, int halfSize, bool first, int applyMin,
                                  int applyMax, int feather, bool reduceArtifacts);

    // ---- Edge extraction (operators/filters/EdgeExtract.cpp) -------------------------------
    /// One plane; `radius` is Contra-harmonic's, `edgeWidth` Deriche's alpha and
    /// Contra-harmonic's exponent. False, with the plane as it was, when scratch memory fails.
    bool EdgeExtract(bool pending, float* prev, float* cur, int type, bool binarize, int threshold,
                     double scale, int radius, double edgeWidth = 1.0);

    // ---- Tone curves: Levels, Micro Curves, Histogram Contrast Stretch (operators/tone/) --
    /// The two-segment power curve on one plane (pending false copies cur to prev first).
    void ApplyLevels(bool pending, float* prev, float* cur, int black, int midtone,
                     int midtoneIntensity, double blackGamma, double whiteGamma, int white,
                     int outputBlack, int outputWhite);
    /// One plane through the 16-bit table of a master and a channel curve.
    void ApplyMicroCurves(bool pending, float* prev, float* cur, int masterBlackX, int masterBlackY,
                          int masterWhiteX, int masterWhiteY,
                          const std::vector<MicroCurve::Point>& masterPoints, int channelBlackX,
                          int channelBlackY, int channelWhiteX, int channelWhiteY,
                          const std::vector<MicroCurve::Point>& channelPoints, double masterMin,
                          double masterMax, double channelMin, double channelMax);
    /// The three planes through Lab: L, a and b each through its own curve's table.
    void ApplyMicroCurvesLab(bool pending, float* const prev[3], float* const cur[3],
                             const MicroCurve& curveL, const MicroCurve& curveA,
                             const MicroCurve& curveB, double Lmin, double Lmax, double amin,
                             double amax, double bmin, double bmax);
    /// Remaps one plane through its own cumulative histogram (type 1..6). Sequential.
    void HistogramStretch(bool pending, float* prev, float* cur, int type, double scale,
                          double highlightScale, double highlightBreak, double backgroundScale,
                          double backgroundBreak);

    // ---- stars: the star window, detection and measures (align/Star*.cpp) ---------------
    // The star window is its own state (starNbhd), apart from the general neighbourhood
    // above; one Image object serves one search at a time.
    /// The star window: radius, side 2r + 1, count side * side, its 0-based centre, the last
    /// mean taken of it and its count + 1 floats, released and allocated anew at every load.
    struct StarNbhd {
        std::int32_t nbhdHalf = 0;
        std::int32_t nbhdSide = 1;
        std::int32_t nbhdCount = 1;
        std::int32_t nbhdCentreX = 0, nbhdCentreY = 0;
        mutable double nbhdMean = 0;
        std::unique_ptr<float[]> buffer;
    };
    StarNbhd starNbhd;
    /// Fills the star window of radius r around the 0-based (x, y): a copy of `channel`, or
    /// with nullptr the luminance of the three current colour planes. Outside pixels are -1.0.
    void LoadNbhd(const float* channel, int x, int y, int r);
    /// Each window value becomes max(value - t, 0), the -1.0 marks included.
    void NbhdClipBelow(double t);
    /// Mean of the window values that are not -1.0.
    double NbhdMeanValue() const;
    /// The centroid of the window by the raw bit patterns of its floats, 1-based.
    void NbhdCentroid(double* outX, double* outY) const;
    /// Measures one star at the 0-based (x, y); true when accepted and `outStar` filled.
    bool MeasureStar(bool forceAccept, const float* channel, int x, int y, int r, int rDiag,
                     int edgeMargin, double maxAsymmetry, double peakFactor,
                     CStarShapeStructure* outStar, bool wantFwhm, bool wantHfd);
    /// Scans the whole channel for stars. With the tag "CStarShape" the scan stops when
    /// `progress` reports cancel, returning what it found so far.
    void FindStars(IProgress* progress, const std::string& callerTag, const float* channel,
                   CStarShapeList* outList, int* outCandidates, int* outAccepted, bool wantFwhm,
                   bool wantHfd);
    /// The same into a caller's array; stops when capacity - 1 records are stored.
    void FindStarsBounded(IProgress* progress, const std::string& callerTag, const float* channel,
                          CStarShapeStructure* outArray, int capacity, int* outCandidates,
                          int* outAccepted, bool wantFwhm, bool wantHfd);

    // ---- Grade Files (imagesets/GradeFiles.cpp) ----------------------------------------------
    /// The edge energy of a plane: the sum of Gx^2 + Gy^2 with the 3 x 3 kernels `kernelX`
    /// and `kernelY` (row order) over the pixels at or above `threshold`, divided by the
    /// pixel count; a border pixel leaves out the terms it lacks. With `wholeImage` false only
    /// the square of `radius` about (cx, cy) is summed. Rows run in parallel. False for a
    /// missing plane.
    bool EdgeEnergy(const float* channel, double* out, double threshold, int cx, int cy, int radius,
                    const double* kernelX, const double* kernelY, bool wholeImage) const;

    // ---- geometric transforms (operators/geometry/) ----------------------------------------
    /// Row y to row height-1-y ("V"). With `inPlace` `dst` alone is used.
    bool FlipRows(bool inPlace, const float* src, float* dst);
    /// Each row reversed ("H").
    bool FlipColumns(bool inPlace, const float* src, float* dst);
    /// Moves a plane by dx to the right (left when `negativeX`) and dy down (up when
    /// `negativeY`); uncovered pixels take `border`. Interpolation 1 nearest, 2 bilinear,
    /// 3 cubic B-spline; without `subPixel` the shifts are truncated.
    bool Translate(bool inPlace, const float* src, float* dst, bool negativeY, bool negativeX,
                   double dy, double dx, float border, bool subPixel, int interpolation);
    /// Resamples this image's channels c0..c2 (nullptr when absent) into `out` (already
    /// sized w by h, its current planes out->Slots()[k] receiving channel k) so that the
    /// three current points fall on the three reference points. With `sizeOnly` nothing is
    /// drawn and the truncated extremes of the mapped image corners are returned. False with
    /// the reason in `error` ("Current points not linearly Independent", "Reference points
    /// not linearly Independent", "No inverse of back compute matrix").
    bool AlignAffine3(Image* out, int w, int h, const float* c0, const float* c1, const float* c2,
                      double ref1x, double ref1y, double ref2x, double ref2y, double ref3x,
                      double ref3y, double cur1x, double cur1y, double cur2x, double cur2y,
                      double cur3x, double cur3y, double* outRotation, bool sizeOnly, int* outMinX,
                      int* outMaxX, int* outMinY, int* outMaxY, double* outShiftX,
                      double* outShiftY, std::string* error = nullptr);
    /// Rotation and translation from two point pairs, resampled as AlignAffine3.
    bool AlignRigid2(Image* out, int w, int h, const float* c0, const float* c1, const float* c2,
                     double ref1x, double ref1y, double ref2x, double ref2y, double cur1x,
                     double cur1y, double cur2x, double cur2y, double* outRotation,
                     double* outShiftX, double* outShiftY);
    /// The output of a rotation by `angle` (degrees, or radians with `radians`; clockwise on
    /// the screen with `clockwise`) about (aboutX, aboutY): without `addBorder` this image's
    /// size and no offset; with it the size that holds the four rotated corners (pixel edges,
    /// half a pixel outside the centres), and the offset that centres them in it.
    void RotatedExtent(double aboutX, double aboutY, double angle, bool clockwise, bool radians,
                       bool addBorder, int* outWidth, int* outHeight, double* outOffsetX,
                       double* outOffsetY) const;
    /// Rotates `src` (this image's size; it may be `prev` or `cur`) into the slot pair:
    /// without `addBorder` into `cur`, with it into new planes of the RotatedExtent size (both
    /// `cur` and `prev` then hold the result). Positions outside take `border`; interpolation
    /// 1 nearest, 2 bilinear, 3 cubic B-spline. `commit` (last slot) stores the new size.
    /// False, with "System Out Of Memory For Rotate Function." in `text`, when planes fail.
    bool Rotate(const float* src, float*& cur, float*& prev, double aboutX, double aboutY,
                double angle, bool clockwise, bool radians, float border, int interpolation,
                bool addBorder, bool commit, std::string* text = nullptr);

    // ---- point correlation (align/) ------------------------------------------------------
    // Templates and windows read one channel: the colour type's plane of a monochrome image;
    // of an RGB image the luminance (the largest of the three), or with `luminanceMode` the
    // first plane, which then holds the luminance already.
    /// Cuts the (2r+1)^2 block around the 0-based (x, y) into `out` (row order, -1.0 for a
    /// pixel outside) and its norm, the square root of the sum of squares of the pixels inside.
    void CorrelationTemplate(int radius, int x, int y, bool luminanceMode, std::vector<float>* out,
                             double* outNorm) const;
    /// Normalized correlation of `tmpl` ((2r+1)^2 values, norm `templateNorm`) over the offsets
    /// -r..r of a window of radius 2r around (x, y). Off the edge (2r+1 >= x, x >= width -
    /// (2r+1), or the same for y) `outOffEdge` is set and the results are 0; otherwise
    /// (outX, outY) is (x + dx, y + dy) of the largest value, the first in row order among
    /// equals, and `outBest` that value.
    void CorrelateAt(int radius, const float* tmpl, double templateNorm, int x, int y, int* outX,
                     int* outY, bool* outOffEdge, double* outBest, bool luminanceMode) const;
    /// Follows a point into this (current) image from its last known position (*inOutX,
    /// *inOutY, truncated): the start, then the ring of eight at r, then the outer ring of the
    /// 5 by 5 grid, until a best value reaches `minimum`. A sub-pixel step below 1 refines the
    /// accepted position; *inOutMaxShift grows to the distance from (refX, refY). False with
    /// "Images Not Correlated." or the "tracked too close" text in `outError`.
    bool CorrelateSearch(int radius, const float* tmpl, double templateNorm, double refX,
                         double refY, double minimum, double subPixelStep, double* inOutX,
                         double* inOutY, double* inOutMaxShift, std::string* outError,
                         bool luminanceMode = false) const;
    /// Refines the integer position (x, y) to the offset (a multiple of `step`, |offset| < 1)
    /// at which the block, shifted by Translate, best correlates with the template without
    /// its outer ring. False when the block is too small or lies outside.
    bool SubPixelRefine(int radius, const float* tmpl, double step, int x, int y, double* outX,
                        double* outY, bool luminanceMode = false) const;
    /// (operators/geometry/AlignProjective4.cpp) Resamples as AlignAffine3 does, through the
    /// projective map that takes the four current points onto the four reference points (each
    /// quadrilateral through the unit square). With `sizeOnly` nothing is drawn and the
    /// truncated extremes of the mapped image corners are returned. False with the reason in
    /// `error` when a quadrilateral is degenerate or the map has no inverse.
    bool AlignProjective4(Image* out, int w, int h, const float* c0, const float* c1,
                          const float* c2, const double refX[4], const double refY[4],
                          const double curX[4], const double curY[4], bool sizeOnly, int* outMinX,
                          int* outMaxX, int* outMinY, int* outMaxY, std::string* error = nullptr);

    // ---- planet alignment (align/) ---------------------------------------------------------
    /// The sky level B of a plane: over four bands 10 pixels wide lying 5 pixels inside the
    /// border the mean m, maximum M and rms deviation s; M limited to m + 3s. 0 when the image
    /// is too small for the bands. The optional outputs take m, the unlimited M and s.
    double DiskSkyLevel(const float* plane, double* outMean = nullptr, double* outMax = nullptr,
                        double* outRms = nullptr) const;
    /// The centre of brightness of a disk over x in 5..width-6, y in 5..height-6, with weights
    /// pixel - B (B the sky level with `subtractSky`, else 0; 10000 or more counts as
    /// maxValue; limited to 0..maxValue). Truncated without `subtractSky`. False when the
    /// weights sum to 0 (no centroid).
    bool DiskCentroid(const float* plane, bool subtractSky, double* outX, double* outY) const;
    /// Shifts the three planes of a colour image by one amount so that the centroid of their
    /// luminance falls on the target: the frame's centre with `centreInFrame`, else the pair
    /// ioTarget, which a first call (both -1) sets to its own centroid. An image without a
    /// centroid is passed on unshifted. The optional outputs take the centroid found.
    bool CenterOnDisk(bool inPlace, const float* srcR, float* dstR, const float* srcG, float* dstG,
                      const float* srcB, float* dstB, bool subtractSky, bool centreInFrame,
                      double* ioTargetX, double* ioTargetY, double* outCentroidX = nullptr,
                      double* outCentroidY = nullptr);
    /// The same for one channel.
    bool CenterOnDiskMono(bool inPlace, const float* src, float* dst, bool subtractSky,
                          bool centreInFrame, double* ioTargetX, double* ioTargetY,
                          double* outCentroidX = nullptr, double* outCentroidY = nullptr);

    // ---- star matching (align/) -----------------------------------------------------------
    /// One descriptor per star in list order: the truncated position and, for every star of
    /// the list at a distance above 0, its truncated position and the distance (a float), at
    /// most list length - 1 (and 5000) entries.
    void BuildStarDescriptors(const CStarShapeList& starList,
                              std::vector<CStarDescriptorStructure>* outDescriptors) const;
    /// For each reference descriptor the current descriptor with the best ratio (agreeing
    /// distances within 2.0 over the current count, a count of 0 counting as 1; ties to the
    /// later one); a best ratio above 0.5 makes a match. False when `progress` reports cancel
    /// (polled once per reference descriptor).
    bool MatchStarDescriptors(IProgress* progress, const std::string& callerTag,
                              const std::vector<CStarDescriptorStructure>& referenceDescriptors,
                              const std::vector<CStarDescriptorStructure>& currentDescriptors,
                              std::vector<CStarMatchStructure>* outMatches);

    // ---- Image sets (imagesets/) ----------------------------------------------------------
    /// Normalizes one plane, rows in parallel. With `byMeanStd`: out = (in - a) * d / b + c
    /// (a, b the plane's mean and deviation, c, d the target mean and deviation); nothing is
    /// done when b is 0. Otherwise out = (in - a) * (d - c) / (b - a) + c (a, b the plane's
    /// range, c, d the target range); nothing is done when b equals a. Results are limited to
    /// 0..65535. `inPlace` works on `dst` alone (`src` unused); else `dst` receives the result
    /// of `src` (a copy in the cases that do nothing). False for a missing plane.
    bool NormalizeChannel(bool inPlace, const float* src, float* dst, bool byMeanStd, double a,
                          double b, double c, double d);

    // ---- Reduce High, Low, Bloom Pixel (operators/filters/ReducePixels.cpp) ----------------
    /// One plane, `cur` from `prev` (with `pending` false `cur` is first copied to `prev`).
    /// High / Low / Both: a pixel found by the 3 x 3 rules takes the median (`lowStrength`: the
    /// mean) of its effect window without the centre; Bloom: runs marked along the rows take
    /// the mean of the unmarked values of their effect window. `windowSize` and `effectSize`
    /// are odd sides. False when the byte plane of the bloom marks can't be had, or for a
    /// missing plane or a size out of 3..11.
    bool ReduceHighLow(bool pending, float* prev, float* cur, ReducePixelKind reduce,
                       bool lowStrength, double difference, int windowSize, int effectSize);

private:
    std::int32_t workRowCount_ = 0;  ///< rows workRows were made with
    std::int32_t accumRowCount_ = 0; ///< rows accumRows were made with
    std::int32_t accumWidth_ = 0;
    void ComputeChannel(ChannelStats& stats, const float* r, const float* g, const float* b);
    void FreeNbhd();
};

/// Small-buffer allocation failure: the message, then the process ends at once.
[[noreturn]] void SmallBufferFailure();

} // namespace astrivelle
