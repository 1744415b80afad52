// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Sharpening and restoration family: Unsharp Mask, the iterative restorations with their
/// point spread functions (built-in and custom, kept in `.psf` files), and Edge Extract.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "operators/FilterSupport.h"
#include "operators/Registry.h"

namespace astrivelle {

class Image;

/// The text shown when a weight square or a PSF array can't be had.
inline constexpr const char* kCantAllocateText =
    "Can't Allocate Memory. Please Close Some Applications And Try Again.";

// ---- Unsharp Mask ------------------------------------------------------------------------

/// One Unsharp Mask application.
struct UnsharpParams {
    enum Variant { Binarization = 1, Sharpen = 2 };
    enum Filter { Box = 1, Median = 2, Gauss = 3, Binomial = 4, Custom = 5 };
    int variant = Sharpen;
    int filter = Gauss;
    int radius = 2; ///< window side 2r + 1, 1..kUnsharpMaxRadius
    double backgroundWeight = 0.5;
    int threshold = 32768;
    bool reduceArtifacts = false;
    double strength = 1.0;
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
    std::string customName; ///< the custom filter's name when filter is Custom
};

inline constexpr int kUnsharpMaxRadius = 25;      ///< 51 x 51
inline constexpr double kUnsharpMaxWeight = 0.99; ///< B must stay short of 1

/// "Box", "Median", "Gauss", "Binomial"; the custom filter's name for Custom.
std::string UnsharpFilterWord(const UnsharpParams& params);
std::string FormatUnsharp(const UnsharpParams& params);
bool ParseUnsharp(const std::string& text, UnsharpParams* params, std::string* error);

/// The weight square of side 2r + 1 (before the division by its sum) of Box, Gauss or
/// Binomial; Custom takes `custom` (its own entries, row order of its side).
std::vector<double> UnsharpWeights(int filter, int radius, const double* custom = nullptr);

/// The row of binomial coefficients of a side: 1 2 1, 1 4 6 4 1, ...
std::vector<double> BinomialRow(int side);

/// The refusal of a custom filter whose entries sum to 0.
inline constexpr const char* kCustomFilterSumZeroText =
    "Please Choose A Custom Filter With A Sum Of Entries Not Equal To Zero.";

/// The entries of a custom filter in row order of its own side; false with the refusal text
/// when they sum to 0.
bool CustomFilterWeights(const CCustomFilter& filter, std::vector<double>* weights,
                         std::string* error);

/// Applies an Unsharp Mask step to every slot (pending false, as replay does).
bool ApplyUnsharp(Image& image, const UnsharpParams& params, const CCustomFilter* custom,
                  std::string* error);

OperatorDescriptor UnsharpMaskDescriptor();

// ---- point spread functions -----------------------------------------------------------------

/// A point spread function of the user's: a name, a 13 x 13 array of which the first
/// size * size entries hold the values in row order of its size, and the size (3..13, odd).
class CCustomPSF {
public:
    std::string name = "Box";
    std::array<double, 169> values{1, 1, 1, 1, 1, 1, 1, 1, 1};
    std::int32_t size = 3;

    double& At(int row, int col) { return values[static_cast<std::size_t>(row * size + col)]; }
    double At(int row, int col) const { return values[static_cast<std::size_t>(row * size + col)]; }
    bool operator==(const CCustomPSF&) const = default;
};

/// The custom PSF the restoration tools use and replay falls back on: "Box" of size 3 at
/// start.
CCustomPSF& CurrentCustomPsf();

/// The bytes of a `.psf` file: the name as a serialised string (a length byte below 255, else
/// 0xFF and a 16-bit little-endian length, and 0xFF 0xFFFF and a 32-bit length above that),
/// the 169 values as little-endian doubles, the size as a little-endian 32-bit integer.
std::string SerializePsf(const CCustomPSF& psf);
bool DeserializePsf(const std::string& bytes, CCustomPSF* psf);

/// Writes through a temporary file renamed over the target. On failure `error` is
/// "Could Not Write " + path + " : " + the system's reason.
bool WritePsfFile(const std::string& path, const CCustomPSF& psf, std::string* error);
/// Reads a `.psf` file; on failure `error` is "Could Not Read " + path + " : " + the reason.
bool ReadPsfFile(const std::string& path, CCustomPSF* psf, std::string* error);

/// PSF types and their words.
enum PsfType { PsfBox = 1, PsfGauss = 2, PsfBinomial = 3, PsfCustom = 4 };
const char* PsfTypeWord(int psfType);
/// The sides a PSF type offers: 3..65 for Box and Gauss, 3..11 for Binomial; the custom
/// sizes 3..13 for Custom.
std::vector<int> PsfSides(int psfType);

/// Builds the normalised PSF of side 2h + 1 (Custom: of the custom PSF's own size, `h` is
/// then ignored) and its reversal in both directions. False when the type or size does not
/// exist (a Binomial above 11, a custom PSF missing), or the values sum to 0.
bool BuildPsf(int psfType, int h, const CCustomPSF* custom, std::vector<double>* psf,
              std::vector<double>* reversed, int* side);

// ---- the PSF editor's operations (the dialog calls these) -----------------------------------

inline constexpr const char* kEnterRealNumberText = "Please Enter A Real Number.";
inline constexpr const char* kDivideByZeroText = "Could Not Divide By Zero.";
inline constexpr const char* kNormalizeZeroText = "Could Not Normalize Since The PSF Sum Is 0.";
inline constexpr const char* kUnitizeZeroText =
    "Could Not Unitize Since The PSF Maximum Value Is 0.";
inline constexpr const char* kPsfSumZeroText = "The PSF's Sum Can't Be 0.";
inline constexpr const char* kBadFileNameText =
    "A file name can't contain any of the following characters:\n\\/:*?\"<>|";

/// A typed value: the whole text must be a finite real number.
bool ParseRealNumber(const std::string& text, double* value);

/// "ADD", "SUB", "MUL", "DIV" with a typed value on every cell of the size; false with the
/// text to show.
bool PsfArithmetic(CCustomPSF* psf, const std::string& op, const std::string& typed,
                   std::string* error);
/// Divides by the largest value.
bool PsfUnitize(CCustomPSF* psf, std::string* error);
/// Divides by the sum.
bool PsfNormalize(CCustomPSF* psf, std::string* error);
/// Lifts the values so that the smallest is 0 when it is negative.
void PsfPositive(CCustomPSF* psf);
/// Shifts the cells one place toward "UL", "U", "UR", "L", "R", "DL", "D", "DR"; the cells
/// left empty become 0. False for another word.
bool PsfShift(CCustomPSF* psf, const std::string& direction);
/// A typed value into one cell.
bool PsfSetCell(CCustomPSF* psf, int row, int col, const std::string& typed, std::string* error);
/// A new size (3..13, odd); the values keep their place about the centre.
bool PsfResize(CCustomPSF* psf, int size);
/// Takes the size x size block of a plane centred on (x, y), by the mirror rule at the edges.
void PsfFromImage(CCustomPSF* psf, const float* plane, int width, int height, int x, int y);
/// The check made when a PSF is set for use: its sum must not be 0.
bool PsfUsable(const CCustomPSF& psf, std::string* error);
/// A name for a `.psf` file: none of \ / : * ? " < > |.
bool PsfNameValid(const std::string& name, std::string* error);
/// A cell as the editor shows it ("%3.3f").
std::string PsfCellText(double value);

// ---- iterative restoration ------------------------------------------------------------------

enum RestorationType {
    VanCittert = 1,
    RichardsonLucy = 2,
    MaximumEntropy = 3,
    OneStepGradient = 4,
};
const char* RestorationTypeWord(int type);
/// 0.20 for Van Cittert, 1.30 for Maximum Entropy, 1.00 for the others.
double DefaultRelax(int type);

struct RestorationParams {
    int type = VanCittert;
    int psfType = PsfGauss;
    int halfSize = 2; ///< side 2h + 1; the custom PSF's own size for Custom
    double relax = 0.20;
    int iterations = 10;
    bool reduceArtifacts = false;
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
};

struct AdaptiveRestorationParams {
    int psfType = PsfGauss;
    int halfSize = 2;
    double noiseThreshold = 2.0;
    int iterations = 10;
    bool reduceArtifacts = false;
    int applyMin = 0;
    int applyMax = 65535;
    int feather = 0;
};

inline constexpr int kMaxIterations = 10000;

/// The text a run records before it starts (without the iteration count).
std::string FormatRestoration(const RestorationParams& params);
std::string FormatAdaptiveRestoration(const AdaptiveRestorationParams& params);
/// "Iterations : N#", appended when a run ends.
std::string FormatIterations(int done);
/// Reads a recorded text; the "Iterations" field is optional (params->iterations keeps its
/// value without it).
bool ParseRestoration(const std::string& text, RestorationParams* params, std::string* error,
                      bool* hasIterations = nullptr);
bool ParseAdaptiveRestoration(const std::string& text, AdaptiveRestorationParams* params,
                              std::string* error, bool* hasIterations = nullptr);

/// conv(P, K) over a whole plane: `out` gets the sums, `noData` (may be null) 1 where the
/// window held an entry of exactly -1.0 (left out of the sum). `fast` takes the interior path
/// of the iterations; false gathers every window by the mirror rule. Both give the same bits.
void ConvolvePlane(const float* plane, int width, int height, const double* kernel, int h,
                   bool fast, double* out, std::uint8_t* noData);

/// The planes of one run, per slot: estimate and two scratch planes.
class RestorationPlanes {
public:
    RestorationPlanes() = default;
    ~RestorationPlanes();
    RestorationPlanes(const RestorationPlanes&) = delete;
    RestorationPlanes& operator=(const RestorationPlanes&) = delete;
    /// Allocates the planes of every slot the image holds; false when memory is short.
    bool Allocate(const Image& image);
    float* estimate[3] = {nullptr, nullptr, nullptr};
    float* scratch1[3] = {nullptr, nullptr, nullptr};
    float* scratch2[3] = {nullptr, nullptr, nullptr};

private:
    void Free();
};

/// Replays a whole run on every slot (pending false first). Stops at a cancel of `progress`.
bool ApplyRestoration(Image& image, const RestorationParams& params, const CCustomPSF* custom,
                      IProgress* progress, std::string* error);
bool ApplyAdaptiveRestoration(Image& image, const AdaptiveRestorationParams& params,
                              const CCustomPSF* custom, IProgress* progress, std::string* error);

OperatorDescriptor IterativeRestorationDescriptor();
OperatorDescriptor AdaptiveRestorationDescriptor();

// ---- Edge Extract ---------------------------------------------------------------------------

enum EdgeType {
    EdgeOnePixel = 1,
    EdgeSobel = 2,
    EdgeKirsch = 3,
    EdgeLaplace = 4,
    EdgeMorphological = 5,
    EdgeDeriche = 6,
    EdgeContraHarmonic = 7,
};

struct EdgeParams {
    int type = EdgeMorphological;
    double edgeWidth = 1.0; ///< Deriche's alpha, Contra-harmonic's exponent
    int window = 3;         ///< odd side, Contra-harmonic only
    bool binarize = false;
    int threshold = 1000;
    double brightness = 1.0;
};

inline constexpr int kEdgeMaxWindow = 51;

namespace edge_testing {
/// Morphological edges read every window through the mirrored gathering, as at the borders
/// (true), or take the windows inside the plane straight from its rows (false, the default).
void SetPlainMorphology(bool plain);
} // namespace edge_testing

/// "One Pixel", "Sobel", ... "Contra-harmonic"; empty for another type.
const char* EdgeTypeWord(int type);
std::string FormatEdge(const EdgeParams& params);
bool ParseEdge(const std::string& text, EdgeParams* params, std::string* error);
/// The allocation failure text of a type: Deriche has its own.
const char* EdgeFailureText(int type);
bool ApplyEdge(Image& image, const EdgeParams& params, std::string* error);

OperatorDescriptor EdgeExtractDescriptor();

} // namespace astrivelle
