// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image properties panel as plain data: the heading and print title by format, the
/// "Property" / "Value" rows each format's header gives, the rows of the image's state, and
/// the printed form. The GUI panel and the CLI `info` show what these return.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fileio/FitsHeaderEdit.h" // PropertyRow, HeaderPropertyRows

namespace astrivelle {

class Image;
struct BmpHeaderInfo;

/// The formats the panel knows.
enum class PropertiesFormat { FITS, TIFF, JPEG, BMP, SBIG, Raw, PNG };

/// The panel's heading: "FITS Image Properties:", "TIFF Image Properties:", "JPEG Image
/// Properties:", "Windows BMP Image File Header Properties:", "SBIG Image File Header
/// Properties:", "Raw Image Properties:" (PNG has none: "").
const char* PropertiesHeading(PropertiesFormat format);
/// The print title: "FITS Image Properties", "RAW Image Properties", "BMP Image Properties",
/// "SBIG Image Properties", "TIFF Image Properties", "PNG Image Properties", "JPG Image
/// Properties".
const char* PropertiesPrintTitle(PropertiesFormat format);
/// The format of a file kind (-7 FITS, -6 JPEG, -5 TIFF, -3 BMP, -2 and -1 SBIG); false for
/// any other kind.
bool PropertiesFormatOfKind(std::int32_t fileKind, PropertiesFormat* format);

/// The column titles.
inline constexpr const char* kPropertyColumn = "Property";
inline constexpr const char* kValueColumn = "Value";

// ---- BMP ------------------------------------------------------------------------------------

/// "Image Width", "Image Height", "Number of Planes", "Bits Per Pixel", "Compression"
/// ("Run-Length Encoded" or "Uncompressed"), "Size In Bytes" (the header's image size, or the
/// bytes from the data offset to the end the file header gives when that is 0), "Colors Used"
/// ("2^24 Colors" at 24 bits, else the number of colour-table entries).
std::vector<PropertyRow> BmpPropertyRows(const BmpHeaderInfo& info);
/// The same from the file's headers (no rows read). False with LastFileError() set.
bool BmpFilePropertyRows(const std::string& path, std::vector<PropertyRow>* rows);

// ---- Exif (TIFF and JPEG) ---------------------------------------------------------------

/// The Exif values the panel shows; each is shown only when the file had it.
struct ExifValues {
    std::optional<std::string> make, model, software; ///< from the first IFD
    std::optional<std::uint32_t> exposureNumerator, exposureDenominator;
    std::optional<double> fNumber;
    std::optional<std::uint32_t> exposureProgram;
    std::optional<std::uint32_t> isoSpeed;
    std::optional<std::string> exifVersion; ///< the four bytes as they are
    std::optional<std::string> dateTimeOriginal, dateTimeDigitized;
    std::optional<double> exposureBias;
    std::optional<double> maxAperture;
    std::optional<std::uint32_t> flash;
    std::optional<double> focalLength;
    std::optional<std::string> flashPixVersion;
};

/// "Exposure Time" ("%6.2f or %d / %d sec"), "F Number" ("%6.2f"), "Exposure Program" ("Not
/// defined", "Manual", "Normal porgram", ...), "ISO Speed Ratings", "Exif Version"
/// ("%c%c%c%c"), "Date Time Original", "Date Time Digitized", "Exposure Bias Value" ("%6.2f"),
/// "Max Aperture Value" ("%6.2f"), "Flash" ("Flash fired" / "Flash did not fire"), "Focal
/// Length" ("%6.2f mm"), "FlashPix Version" ("%c%c%c%c"), for the values present.
std::vector<PropertyRow> ExifPropertyRows(const ExifValues& exif);

/// Reads the Exif values from a TIFF-structured block (the APP1 payload of a JPEG after
/// "Exif\0\0") with the TIFF directory reader. False with a reason in `why` when the block
/// cannot be read.
bool ExifValuesFromBlock(const std::uint8_t* data, std::size_t size, ExifValues* exif,
                         std::string* why);

// ---- JPEG -----------------------------------------------------------------------------------

/// "Image Width", "Image Height", "Samples Per Pixel", then, when the file has Exif, "Make",
/// "Model" and the Exif rows.
std::vector<PropertyRow> JpegPropertyRows(std::uint32_t width, std::uint32_t height,
                                          std::int32_t components, const ExifValues* exif);
/// The same from the file (header and APP1 segment). A file without Exif, or whose Exif
/// cannot be read, gives the three header rows. False with LastFileError() set when the
/// header cannot be read.
bool JpegFilePropertyRows(const std::string& path, std::vector<PropertyRow>* rows);

// ---- TIFF -----------------------------------------------------------------------------------

/// What the TIFF reader knows of a file's tags.
struct TiffPropertyValues {
    std::uint32_t width = 0, height = 0;
    std::uint32_t samplesPerPixel = 0, bitsPerSample = 0;
    std::optional<std::string> make, model, software;
    std::optional<double> xResolution, yResolution;
    std::optional<std::uint32_t> resolutionUnit; ///< 1 none, 2 inch, 3 centimetre
    std::optional<ExifValues> exif;
};

/// "Image Width", "Image Height", "Samples Per Pixel", "Input Bits Per Sample", "Make",
/// "Model", "X Resolution", "Y Resolution", "Resolution Unit" ("No unit", "Inch",
/// "Centimeter"), "Sofware", then the Exif rows; absent tags give no row.
std::vector<PropertyRow> TiffPropertyRows(const TiffPropertyValues& tiff);

// ---- SBIG -----------------------------------------------------------------------------------

/// The SBIG header fields the panel shows, as the SBIG reader holds them.
struct SbigPropertyValues {
    std::string cameraType;
    std::int32_t fileVersion = 0, dataVersion = 0;
    std::int64_t exposureHundredths = 0; ///< shown as seconds
    double focalLength = 0;              ///< inches
    double aperture = 0;                 ///< square inches
    double responseFactor = 0;
    std::string note;
    std::int64_t background = 0, range = 0;
    std::int32_t height = 0, width = 0;
    std::string date, time;
    std::string exposureState;
    double temperature = 0; ///< Celsius
    std::int32_t numberOfExposures = 0;
    std::int64_t eachExposureHundredths = 0;
    std::string history, observer;
    double xPixelSize = 0, yPixelSize = 0; ///< mm
    std::int64_t pedestal = 0;
    double gain = 0; ///< e-/count
    std::string user[4];
    std::string filter, readoutMode;
    std::string trackTime;
    std::int64_t saturationLevel = 0;
};

/// "Camera Type", "File Version", "Data Version", "Exposure" ("%7.2f seconds"), "Focal Length"
/// ("%6.2f  inches"), "Aperture" ("%6.2f  square-inches"), "Response Factor" ("%6.2f"), "Note",
/// "Background", "Range", "Image Height", "Image Width", "Date", "Time", "Exposure State",
/// "Temperature" ("%6.2f Celcius"), "Number of Exposures", "Each Exposure" ("%12.2f seconds"),
/// "History", "Observer", "X Pixel Size" and "Y Pixel Size" ("%6.2f mm"), "Pedestal", "Gain"
/// ("%6.2f e-/count"), "User 1".."User 4", "Filter", "Readout Mode", "Track Time",
/// "Saturtion Level".
std::vector<PropertyRow> SbigPropertyRows(const SbigPropertyValues& sbig);

/// The panel's values of the records the TIFF and SBIG readers leave on an image.
TiffPropertyValues TiffPropertyValuesOf(std::uint32_t width, std::uint32_t height,
                                        const struct TiffInfo& info);
SbigPropertyValues SbigPropertyValuesOf(const struct ImageHeader& header);

// ---- raw pixel files ------------------------------------------------------------------------

enum class RawPixelType { Float32, Int32, Int16, Int8 };

struct RawPropertyValues {
    std::uint32_t width = 0, height = 0;
    std::uint32_t headerSize = 0;
    std::string header;
    std::uint32_t mapToWhite = 0;
    std::uint32_t channels = 1;
    RawPixelType pixelType = RawPixelType::Int16;
    bool interleaved = false;
};

/// "Image Width", "Image Height", "Header Size", "Header", "Map To White", "Channels", "Pixel
/// Type" ("32 Bit Float", "32 Bit Integer", "16 Bit Integer", "8 Bit Integer"), "Interleaved"
/// ("True", "False").
std::vector<PropertyRow> RawPropertyRows(const RawPropertyValues& raw);

// ---- the image's state ------------------------------------------------------------------

/// A single-plane image made from a colour image by a channel extraction names it here.
enum class DerivedChannel { None, Hue, Saturation, Luminance, LabLuminance, LabA, LabB };

/// The roles an open image may have in a running combination.
struct ImageRoles {
    bool closeLocked = false;
    bool imageMathTarget = false, imageMathSource = false;
    bool combineImagesCombination = false, combineImagesSource = false;
    bool combineChannelSource = false, combineChannelTarget = false;
    bool combineFrequencySource = false, combineFrequencyTarget = false;
    bool mixLrgbCombination = false, mixLrgbSource = false;
    bool combineBayerTarget = false, combineBayerSource = false;
    bool timeSequenceSource = false;
};

/// "RGB", "Red", "Green", "Blue", "Cyan", "Magenta", "Yellow", "Gray" by colour type, or the
/// derived channel's name ("Hue", "Saturation", "Luminance", "Lab Luminance", "Lab a -
/// (Green-Red)", "Lab b - (Blue - Yellow)") when one is given; "" for an invalid type.
const char* ColorStateText(std::uint32_t colorType, DerivedChannel derived = DerivedChannel::None);

/// The row names of the state rows.
inline constexpr const char* kColorTypeProperty = "Color Type";
inline constexpr const char* kRoleProperty = "Combination Role";

/// One "Color Type" row, then one "Combination Role" row for each role the image has, in the
/// order "Close Locked", "Image Math target", "Image Math source", "Combine Images
/// Combination", "Combine Images source", "Combine Channel source", "Combine Channel target",
/// "Combine Frequency source", "Combine Frequency target", "Mix LRGB and Hue Combination",
/// "Mix LRGB and Hue Source", "Combine Bayer CFA target", "Combine Bayer CFA source", "Time
/// Sequence source".
std::vector<PropertyRow> ImageStateRows(std::uint32_t colorType, DerivedChannel derived,
                                        const ImageRoles& roles);

// ---- the whole panel --------------------------------------------------------------------

struct ImageProperties {
    PropertiesFormat format = PropertiesFormat::FITS;
    std::string heading;    ///< PropertiesHeading
    std::string printTitle; ///< PropertiesPrintTitle
    std::vector<PropertyRow> rows;
};

/// The panel of an open image. FITS rows come from the image's header cards
/// (HeaderPropertyRows); for every other format the caller passes the rows its reader gave
/// (BmpFilePropertyRows, JpegFilePropertyRows, TiffPropertyRows, SbigPropertyRows,
/// RawPropertyRows). The state rows follow.
ImageProperties ImagePropertiesOf(const Image& image, PropertiesFormat format,
                                  const std::vector<PropertyRow>& formatRows,
                                  const ImageRoles& roles = {},
                                  DerivedChannel derived = DerivedChannel::None);

/// The rows for a file by its kind: FITS from the image's cards, BMP and JPEG from the
/// file's headers, TIFF and SBIG from the records their readers left on the image. False with
/// a reason for an image without such a record (raw rows come from the raw decoder).
bool FilePropertyRows(const Image& image, const std::string& path, std::vector<PropertyRow>* rows);

/// The printed page: the title, "Name : " + name, "Date : " + date, "Parameter  -  Value", then
/// one "%s  -  %s" line per row; lines end with '\n'.
std::string PropertiesPrintText(const ImageProperties& properties, const std::string& name,
                                const std::string& date);

} // namespace astrivelle
