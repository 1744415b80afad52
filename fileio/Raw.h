// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Digital camera raw files through LibRaw: the conversion keywords, the output save types,
/// the pattern keyword of the sensor's colour filter mosaic, the camera cards written with the
/// output, and DecodeRawFile, which opens, decodes and writes one file. Every call holds
/// ImageFileLock for its whole duration (LibRaw is not re-entrant); on failure LastFileError()
/// says why, and the caller words the message ("Could Not Open " + name, kRawCouldNotConvert).
#pragma once
#include <cstdint>
#include <span>
#include <string>

#include "engine/FitsHeader.h"

namespace astrivelle {

class Image;
class IProgress;

/// The caller's texts around a conversion.
inline constexpr const char* kRawCouldNotConvert = "Could not convert file.";
inline constexpr const char* kRawAlreadyInProgress =
    "Digital Camera Raw Conversion Is Already In Progress.";
/// The question of the open path before the first raw file of a selection.
inline constexpr const char* kRawOpenAsBayerQuestion =
    "Convert DSLR raw to Bayer at capture white balance format?";

/// "Image File Format Does Not Support Raw Conversion.\n\n " followed by the file's name.
std::string RawUnsupportedFormatMessage(const std::string& name);

/// One conversion keyword and the text its dialog shows.
struct RawConversionEntry {
    const char* keyword;    ///< "Color", "NoWBCFA", "WBCFA", "BASICBAYER"
    const char* dialogText; ///< "At Capture White Balanced Color", ...
    bool mosaic;            ///< true for the three keywords that keep the raw mosaic as mono
};

/// The four keywords in dialog order.
std::span<const RawConversionEntry> RawConversions();

/// The entry of a keyword (compared exactly), or nullptr.
const RawConversionEntry* FindRawConversion(const std::string& keyword);

/// "COMPFIT", "UNCOMPFIT", "COMPFIT32", "UNCOMPFIT32", "TIFF16", "TIFF8", "JPEG", "BMP": the
/// output keywords of the conversion, each standing for its row of the save-type table.
std::span<const char* const> RawSaveTypes();

/// True for a keyword of RawSaveTypes() (compared exactly). A front end checks its input with
/// it: ApplyRawSaveType itself takes any other keyword as 16-bit TIFF.
bool IsRawSaveType(const std::string& keyword);

/// The keyword a conversion writes by: its own, or "TIFF16" for one the list does not know.
std::string ResolveRawSaveType(const std::string& keyword);

/// Sets the image's file kind, sample type, TIFF bits and compress flag by the keyword (width,
/// height and colour type stay) and returns the extension of the output, with its dot.
std::string ApplyRawSaveType(Image& image, const std::string& keyword);

/// True for the extensions a raw conversion accepts (any case): ".CRW", ".CR2", ".NEF",
/// ".NRW", ".DCR", ".PEF", ".RAF", ".ORF", ".DNG", ".ARW", and ".TIF" for the old Canon form.
bool IsRawConversionExtension(const std::string& extension);

/// The output file of a conversion: `outputDir`/`prefix` + the input's name with its raw
/// extension replaced by the save type's. False (nothing set) when the input's extension is
/// not a raw one; the caller then shows RawUnsupportedFormatMessage.
bool RawOutputPath(const std::string& outputDir, const std::string& prefix,
                   const std::string& inputPath, const std::string& saveType,
                   std::string* outputPath);

/// The filter word as the pattern table reads it: 0xb4b4b4b4 -> 0x94949494,
/// 0xe1e1e1e1 -> 0x61616161, 0x1e1e1e1e -> 0x16161616, 0x4b4b4b4b -> 0x49494949; any other
/// word unchanged.
std::uint32_t NormalizeFilterWord(std::uint32_t filters);

/// The pattern keyword of a filter word ("RG,GB", "GR,BG", "BG,GR", "GB,RG", "CYGM,CYMG",
/// "GMCY,MGCY"), after NormalizeFilterWord; "" for a word without one (no mosaic, or a layout
/// the table does not name).
const char* PatternKeywordOfFilters(std::uint32_t filters);

/// What the decoder found in a file.
struct RawFileInfo {
    std::string make;  ///< as LibRaw names it ("Canon", "Nikon")
    std::string model; ///< ("EOS 300D", "D70")
    std::uint32_t filters = 0;
    std::string pattern; ///< PatternKeywordOfFilters(filters)
    int colors = 0;      ///< colours of the sensor (3, or 4 for CYGM)
    int width = 0, height = 0;
    int rawWidth = 0, rawHeight = 0;
    double shutter = 0; ///< seconds
    double iso = 0;
    double aperture = 0; ///< f-number
    double focalLength = 0;
    /// Multipliers applied to the mosaic by channel (LibRaw's colour index 0..3) after the black
    /// level is subtracted; the smallest is 1. Set by a mosaic decode.
    double multipliers[4] = {1, 1, 1, 1};
    /// The white level above black of the decoded data (the value that becomes 65535 before
    /// the multipliers).
    double whiteAboveBlack = 0;
};

/// The cards written with a conversion's output, in order: "CFAPAT" with the pattern (a string
/// card, comment "CFA Pattern"; only when the file has a pattern keyword), then five "COMMENT"
/// cards: make and model ("%s %s"), the exposure ("1/125", or "%0.1f sec" from one second
/// on), the ISO ("%d"), the aperture ("f/%0.1f") and the focal length ("%0.1f mm").
HeaderList RawHeaderCards(const RawFileInfo& info);

/// The exposure as the cards write it: "1/" and the reciprocal for times under a second,
/// else "%0.1f sec".
std::string RawShutterText(double seconds);

/// One conversion, fields in the order of the call.
struct RawRequest {
    IProgress* owner = nullptr; ///< receives steps 1 to 7 of 7
    std::string ownerName;      ///< "CFileSetProcess", or "FileOpen" for opening one file
    bool linear = false;        ///< "Color": linear output instead of the decoder's gamma
    std::string conversion;     ///< a RawConversions() keyword
    std::string saveType;       ///< a RawSaveTypes() keyword
    std::string inputPath, outputPath;
    HeaderList* header = nullptr; ///< receives the cards (may be null)
    std::string pattern;          ///< out: the pattern keyword ("" when none)
    /// "Color" from the file operation's record only: equalise the two greens before
    /// interpolation, and one RGB pixel per 2x2 cell (half size).
    bool reduceGreenNoise = false;
    bool buildRGBPixel = false;
};

/// Opens and identifies a file without decoding its pixels.
bool IdentifyRawFile(const std::string& path, RawFileInfo* info);

/// Decodes the request's input by its conversion keyword into `image` (planes allocated, kind
/// still unset: FITS, 16-bit) with the cards in image.headerCards and request.header, and the
/// pattern in request.pattern (set as soon as the file is identified, also when decoding then
/// fails). "Color" gives three planes (one for a monochrome sensor); the three mosaic keywords
/// give one plane of the sensor's visible area with the black level subtracted and scaled so
/// that the white level is 65535: "NoWBCFA" unscaled by colour, "WBCFA" by the camera's white
/// balance, "BASICBAYER" by the decoder's own daylight multipliers.
bool DecodeRawImage(RawRequest& request, Image& image, RawFileInfo* info = nullptr);

/// Decodes, applies request.saveType and writes request.outputPath through Image::WriteFile.
bool DecodeRawFile(RawRequest& request);

} // namespace astrivelle
