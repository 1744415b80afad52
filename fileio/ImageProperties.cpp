// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The rows and texts of the image properties panel for each format.
#include "fileio/ImageProperties.h"

#include "engine/ImageHeader.h"
#include "fileio/Tiff.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "engine/Image.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/Jpeg.h"
#include "fileio/TiffDirectory.h"

namespace astrivelle {

namespace {

std::string Format(const char* format, ...) {
    char buffer[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

void Add(std::vector<PropertyRow>& rows, const char* property, std::string value) {
    rows.push_back(PropertyRow{property, std::move(value)});
}

std::string FourChars(const std::string& bytes) {
    char c[4] = {' ', ' ', ' ', ' '};
    for (std::size_t i = 0; i < 4 && i < bytes.size(); ++i)
        c[i] = bytes[i];
    return Format("%c%c%c%c", c[0], c[1], c[2], c[3]);
}

double RationalOf(const TiffRationalValue& r) {
    return r.denominator ? static_cast<double>(r.numerator) / r.denominator : 0.0;
}

double SignedRationalOf(const TiffRationalValue& r) {
    const auto n = static_cast<std::int32_t>(r.numerator);
    const auto d = static_cast<std::int32_t>(r.denominator);
    return d ? static_cast<double>(n) / d : 0.0;
}

std::string TextOf(const char* field, std::size_t size) {
    return std::string(field, strnlen(field, size));
}

} // namespace

const char* PropertiesHeading(PropertiesFormat format) {
    switch (format) {
    case PropertiesFormat::FITS:
        return "FITS Image Properties:";
    case PropertiesFormat::TIFF:
        return "TIFF Image Properties:";
    case PropertiesFormat::JPEG:
        return "JPEG Image Properties:";
    case PropertiesFormat::BMP:
        return "Windows BMP Image File Header Properties:";
    case PropertiesFormat::SBIG:
        return "SBIG Image File Header Properties:";
    case PropertiesFormat::Raw:
        return "Raw Image Properties:";
    case PropertiesFormat::PNG:
        return "";
    }
    return "";
}

const char* PropertiesPrintTitle(PropertiesFormat format) {
    switch (format) {
    case PropertiesFormat::FITS:
        return "FITS Image Properties";
    case PropertiesFormat::Raw:
        return "RAW Image Properties";
    case PropertiesFormat::BMP:
        return "BMP Image Properties";
    case PropertiesFormat::SBIG:
        return "SBIG Image Properties";
    case PropertiesFormat::TIFF:
        return "TIFF Image Properties";
    case PropertiesFormat::PNG:
        return "PNG Image Properties";
    case PropertiesFormat::JPEG:
        return "JPG Image Properties";
    }
    return "";
}

bool PropertiesFormatOfKind(std::int32_t fileKind, PropertiesFormat* format) {
    switch (fileKind) {
    case KindFITS:
        *format = PropertiesFormat::FITS;
        return true;
    case KindJPEG:
        *format = PropertiesFormat::JPEG;
        return true;
    case KindTIFF:
        *format = PropertiesFormat::TIFF;
        return true;
    case KindBMP:
        *format = PropertiesFormat::BMP;
        return true;
    case KindSBIG:
    case KindSBIGCompressed:
        *format = PropertiesFormat::SBIG;
        return true;
    default:
        return false;
    }
}

// ---- BMP ------------------------------------------------------------------------------------

std::vector<PropertyRow> BmpPropertyRows(const BmpHeaderInfo& info) {
    const DibHeader& h = info.header;
    std::vector<PropertyRow> rows;
    Add(rows, "Image Width", std::to_string(h.width));
    Add(rows, "Image Height", std::to_string(h.height));
    Add(rows, "Number of Planes", std::to_string(h.planes));
    Add(rows, "Bits Per Pixel", std::to_string(h.bitCount));
    const bool rle = h.compression == 1 || h.compression == 2;
    Add(rows, "Compression", rle ? "Run-Length Encoded" : "Uncompressed");
    std::uint32_t size = h.sizeImage;
    if (size == 0 && info.file.fileSize > info.file.dataOffset)
        size = info.file.fileSize - info.file.dataOffset;
    Add(rows, "Size In Bytes", std::to_string(size));
    Add(rows, "Colors Used",
        h.bitCount == 24 ? std::string("2^24 Colors")
                         : std::to_string(h.bitCount <= 8 ? info.tableEntries : h.clrUsed));
    return rows;
}

bool BmpFilePropertyRows(const std::string& path, std::vector<PropertyRow>* rows) {
    BmpHeaderInfo info;
    std::string text;
    if (!ReadBmpHeader(path, &info, &text)) {
        SetLastFileError(text);
        return false;
    }
    *rows = BmpPropertyRows(info);
    return true;
}

// ---- Exif -----------------------------------------------------------------------------------

std::vector<PropertyRow> ExifPropertyRows(const ExifValues& e) {
    static const char* const kPrograms[] = {
        "Not defined",       "Manual",           "Normal porgram",
        "Aperture priority", "Shutter priority", "Creative program",
        "Action program",    "Landscape mode",   "Portrait mode"};
    std::vector<PropertyRow> rows;
    if (e.exposureNumerator && e.exposureDenominator) {
        const double seconds = *e.exposureDenominator ? static_cast<double>(*e.exposureNumerator) /
                                                            *e.exposureDenominator
                                                      : 0.0;
        Add(rows, "Exposure Time",
            Format("%6.2f or %d / %d sec", seconds, static_cast<int>(*e.exposureNumerator),
                   static_cast<int>(*e.exposureDenominator)));
    }
    if (e.fNumber)
        Add(rows, "F Number", Format("%6.2f", *e.fNumber));
    if (e.exposureProgram)
        Add(rows, "Exposure Program",
            *e.exposureProgram < 9 ? kPrograms[*e.exposureProgram]
                                   : std::to_string(*e.exposureProgram));
    if (e.isoSpeed)
        Add(rows, "ISO Speed Ratings", std::to_string(*e.isoSpeed));
    if (e.exifVersion)
        Add(rows, "Exif Version", FourChars(*e.exifVersion));
    if (e.dateTimeOriginal)
        Add(rows, "Date Time Original", *e.dateTimeOriginal);
    if (e.dateTimeDigitized)
        Add(rows, "Date Time Digitized", *e.dateTimeDigitized);
    if (e.exposureBias)
        Add(rows, "Exposure Bias Value", Format("%6.2f", *e.exposureBias));
    if (e.maxAperture)
        Add(rows, "Max Aperture Value", Format("%6.2f", *e.maxAperture));
    if (e.flash)
        Add(rows, "Flash", (*e.flash & 1) ? "Flash fired" : "Flash did not fire");
    if (e.focalLength)
        Add(rows, "Focal Length", Format("%6.2f mm", *e.focalLength));
    if (e.flashPixVersion)
        Add(rows, "FlashPix Version", FourChars(*e.flashPixVersion));
    return rows;
}

namespace {

/// The panel's Exif values of a parsed Exif directory.
void AddExifValues(const TiffExif& x, ExifValues* out) {
    ExifValues& v = *out;

    if (x.Has(33434)) {
        v.exposureNumerator = x.exposureTime.numerator;
        v.exposureDenominator = x.exposureTime.denominator;
    }
    if (x.Has(33437))
        v.fNumber = RationalOf(x.fNumber);
    if (x.Has(34850))
        v.exposureProgram = x.exposureProgram;
    if (x.Has(34855))
        v.isoSpeed = x.isoSpeedRatings;
    if (x.Has(36864))
        v.exifVersion = std::string(reinterpret_cast<const char*>(x.exifVersion), 4);
    if (x.Has(36867))
        v.dateTimeOriginal = TextOf(x.dateTimeOriginal, sizeof x.dateTimeOriginal);
    if (x.Has(36868))
        v.dateTimeDigitized = TextOf(x.dateTimeDigitized, sizeof x.dateTimeDigitized);
    if (x.Has(37380))
        v.exposureBias = SignedRationalOf(x.exposureBiasValue);
    if (x.Has(37381))
        v.maxAperture = RationalOf(x.maxApertureValue);
    if (x.Has(37385))
        v.flash = x.flash;
    if (x.Has(37386))
        v.focalLength = RationalOf(x.focalLength);
    if (x.Has(40960))
        v.flashPixVersion = std::string(reinterpret_cast<const char*>(x.flashPixVersion), 4);
}

} // namespace

bool ExifValuesFromBlock(const std::uint8_t* data, std::size_t size, ExifValues* exif,
                         std::string* why) {
    ExifBlock block;
    if (!ParseExifBlock(data, size, &block)) {
        if (why)
            *why = "The Exif block is damaged";
        return false;
    }
    ExifValues v;
    if (!block.make.empty())
        v.make = block.make;
    if (!block.model.empty())
        v.model = block.model;
    if (block.hasExifDirectory)
        AddExifValues(block.exif, &v);
    *exif = std::move(v);
    return true;
}

// ---- JPEG -----------------------------------------------------------------------------------

std::vector<PropertyRow> JpegPropertyRows(std::uint32_t width, std::uint32_t height,
                                          std::int32_t components, const ExifValues* exif) {
    std::vector<PropertyRow> rows;
    Add(rows, "Image Width", std::to_string(width));
    Add(rows, "Image Height", std::to_string(height));
    Add(rows, "Samples Per Pixel", std::to_string(components));
    if (exif) {
        if (exif->make)
            Add(rows, "Make", *exif->make);
        if (exif->model)
            Add(rows, "Model", *exif->model);
        for (PropertyRow& row : ExifPropertyRows(*exif))
            rows.push_back(std::move(row));
    }
    return rows;
}

bool JpegFilePropertyRows(const std::string& path, std::vector<PropertyRow>* rows) {
    std::uint32_t width = 0, height = 0;
    std::string colorSpace;
    std::int32_t components = 0;
    if (!JPEGReadImageHeader(path, &width, &height, &colorSpace, &components))
        return false;
    std::vector<std::uint8_t> block;
    ExifValues exif;
    std::string why;
    const bool haveExif = JPEGReadExifBlock(path, &block) &&
                          ExifValuesFromBlock(block.data(), block.size(), &exif, &why);
    ClearLastFileError(); // a missing or damaged Exif block is no failure of the panel
    *rows = JpegPropertyRows(width, height, components, haveExif ? &exif : nullptr);
    return true;
}

// ---- TIFF -----------------------------------------------------------------------------------

std::vector<PropertyRow> TiffPropertyRows(const TiffPropertyValues& t) {
    std::vector<PropertyRow> rows;
    Add(rows, "Image Width", std::to_string(t.width));
    Add(rows, "Image Height", std::to_string(t.height));
    Add(rows, "Samples Per Pixel", std::to_string(t.samplesPerPixel));
    Add(rows, "Input Bits Per Sample", std::to_string(t.bitsPerSample));
    if (t.make)
        Add(rows, "Make", *t.make);
    if (t.model)
        Add(rows, "Model", *t.model);
    if (t.xResolution)
        Add(rows, "X Resolution", Format("%6.2f", *t.xResolution));
    if (t.yResolution)
        Add(rows, "Y Resolution", Format("%6.2f", *t.yResolution));
    if (t.resolutionUnit) {
        const std::uint32_t u = *t.resolutionUnit;
        Add(rows, "Resolution Unit",
            u == 1 ? "No unit" : (u == 2 ? "Inch" : (u == 3 ? "Centimeter" : std::to_string(u))));
    }
    if (t.software)
        Add(rows, "Sofware", *t.software);
    if (t.exif)
        for (PropertyRow& row : ExifPropertyRows(*t.exif))
            rows.push_back(std::move(row));
    return rows;
}

// ---- SBIG -----------------------------------------------------------------------------------

std::vector<PropertyRow> SbigPropertyRows(const SbigPropertyValues& s) {
    std::vector<PropertyRow> rows;
    Add(rows, "Camera Type", s.cameraType);
    Add(rows, "File Version", std::to_string(s.fileVersion));
    Add(rows, "Data Version", std::to_string(s.dataVersion));
    Add(rows, "Exposure", Format("%7.2f seconds", s.exposureHundredths / 100.0));
    Add(rows, "Focal Length", Format("%6.2f  inches", s.focalLength));
    Add(rows, "Aperture", Format("%6.2f  square-inches", s.aperture));
    Add(rows, "Response Factor", Format("%6.2f", s.responseFactor));
    Add(rows, "Note", s.note);
    Add(rows, "Background", std::to_string(s.background));
    Add(rows, "Range", std::to_string(s.range));
    Add(rows, "Image Height", std::to_string(s.height));
    Add(rows, "Image Width", std::to_string(s.width));
    Add(rows, "Date", s.date);
    Add(rows, "Time", s.time);
    Add(rows, "Exposure State", s.exposureState);
    Add(rows, "Temperature", Format("%6.2f Celcius", s.temperature));
    Add(rows, "Number of Exposures", std::to_string(s.numberOfExposures));
    Add(rows, "Each Exposure", Format("%12.2f seconds", s.eachExposureHundredths / 100.0));
    Add(rows, "History", s.history);
    Add(rows, "Observer", s.observer);
    Add(rows, "X Pixel Size", Format("%6.2f mm", s.xPixelSize));
    Add(rows, "Y Pixel Size", Format("%6.2f mm", s.yPixelSize));
    Add(rows, "Pedestal", std::to_string(s.pedestal));
    Add(rows, "Gain", Format("%6.2f e-/count", s.gain));
    static const char* const kUser[] = {"User 1", "User 2", "User 3", "User 4"};
    for (int i = 0; i < 4; ++i)
        Add(rows, kUser[i], s.user[i]);
    Add(rows, "Filter", s.filter);
    Add(rows, "Readout Mode", s.readoutMode);
    Add(rows, "Track Time", s.trackTime);
    Add(rows, "Saturtion Level", std::to_string(s.saturationLevel));
    return rows;
}

// ---- raw ------------------------------------------------------------------------------------

std::vector<PropertyRow> RawPropertyRows(const RawPropertyValues& r) {
    static const char* const kTypes[] = {"32 Bit Float", "32 Bit Integer", "16 Bit Integer",
                                         "8 Bit Integer"};
    std::vector<PropertyRow> rows;
    Add(rows, "Image Width", std::to_string(r.width));
    Add(rows, "Image Height", std::to_string(r.height));
    Add(rows, "Header Size", std::to_string(r.headerSize));
    Add(rows, "Header", r.header);
    Add(rows, "Map To White", std::to_string(r.mapToWhite));
    Add(rows, "Channels", std::to_string(r.channels));
    Add(rows, "Pixel Type", kTypes[static_cast<int>(r.pixelType)]);
    Add(rows, "Interleaved", r.interleaved ? "True" : "False");
    return rows;
}

// ---- state ----------------------------------------------------------------------------------

const char* ColorStateText(std::uint32_t colorType, DerivedChannel derived) {
    switch (derived) {
    case DerivedChannel::Hue:
        return "Hue";
    case DerivedChannel::Saturation:
        return "Saturation";
    case DerivedChannel::Luminance:
        return "Luminance";
    case DerivedChannel::LabLuminance:
        return "Lab Luminance";
    case DerivedChannel::LabA:
        return "Lab a - (Green-Red)";
    case DerivedChannel::LabB:
        return "Lab b - (Blue - Yellow)";
    case DerivedChannel::None:
        break;
    }
    static const char* const kNames[] = {"", "RGB",  "Red",     "Green",  "Blue",
                                         "", "Cyan", "Magenta", "Yellow", "Gray"};
    return colorType < 10 ? kNames[colorType] : "";
}

std::vector<PropertyRow> ImageStateRows(std::uint32_t colorType, DerivedChannel derived,
                                        const ImageRoles& roles) {
    std::vector<PropertyRow> rows;
    Add(rows, kColorTypeProperty, ColorStateText(colorType, derived));
    const std::pair<bool, const char*> named[] = {
        {roles.closeLocked, "Close Locked"},
        {roles.imageMathTarget, "Image Math target"},
        {roles.imageMathSource, "Image Math source"},
        {roles.combineImagesCombination, "Combine Images Combination"},
        {roles.combineImagesSource, "Combine Images source"},
        {roles.combineChannelSource, "Combine Channel source"},
        {roles.combineChannelTarget, "Combine Channel target"},
        {roles.combineFrequencySource, "Combine Frequency source"},
        {roles.combineFrequencyTarget, "Combine Frequency target"},
        {roles.mixLrgbCombination, "Mix LRGB and Hue Combination"},
        {roles.mixLrgbSource, "Mix LRGB and Hue Source"},
        {roles.combineBayerTarget, "Combine Bayer CFA target"},
        {roles.combineBayerSource, "Combine Bayer CFA source"},
        {roles.timeSequenceSource, "Time Sequence source"},
    };
    for (const auto& [on, text] : named)
        if (on)
            Add(rows, kRoleProperty, text);
    return rows;
}

// ---- the panel ------------------------------------------------------------------------------

ImageProperties ImagePropertiesOf(const Image& image, PropertiesFormat format,
                                  const std::vector<PropertyRow>& formatRows,
                                  const ImageRoles& roles, DerivedChannel derived) {
    ImageProperties p;
    p.format = format;
    p.heading = PropertiesHeading(format);
    p.printTitle = PropertiesPrintTitle(format);
    p.rows = format == PropertiesFormat::FITS
                 ? HeaderPropertyRows(image.width, image.height, image.headerCards)
                 : formatRows;
    for (PropertyRow& row : ImageStateRows(image.colorType, derived, roles))
        p.rows.push_back(std::move(row));
    return p;
}

bool FilePropertyRows(const Image& image, const std::string& path, std::vector<PropertyRow>* rows) {
    switch (image.fileType) {
    case KindFITS:
        *rows = HeaderPropertyRows(image.width, image.height, image.headerCards);
        return true;
    case KindBMP:
        return BmpFilePropertyRows(path, rows);
    case KindJPEG:
        return JpegFilePropertyRows(path, rows);
    case KindTIFF:
        if (!image.tiffInfo)
            break;
        *rows = TiffPropertyRows(TiffPropertyValuesOf(image.width, image.height, *image.tiffInfo));
        return true;
    case KindSBIG:
    case KindSBIGCompressed:
        if (!image.header)
            break;
        *rows = SbigPropertyRows(SbigPropertyValuesOf(*image.header));
        return true;
    default:
        break;
    }
    SetLastFileError("The image holds no header of its file kind");
    return false;
}

TiffPropertyValues TiffPropertyValuesOf(std::uint32_t width, std::uint32_t height,
                                        const TiffInfo& info) {
    TiffPropertyValues t;
    t.width = width;
    t.height = height;
    t.samplesPerPixel = info.samplesPerPixel;
    t.bitsPerSample = info.bitsPerSample;
    if (info.hasMake)
        t.make = info.make;
    if (info.hasModel)
        t.model = info.model;
    if (info.hasSoftware)
        t.software = info.software;
    if (info.hasXResolution && info.xResolution[1])
        t.xResolution = static_cast<double>(info.xResolution[0]) / info.xResolution[1];
    if (info.hasYResolution && info.yResolution[1])
        t.yResolution = static_cast<double>(info.yResolution[0]) / info.yResolution[1];
    if (info.hasResolutionUnit)
        t.resolutionUnit = info.resolutionUnit;
    bool anyExif = false;
    for (bool present : info.exif.present)
        anyExif = anyExif || present;
    if (anyExif) {
        ExifValues exif;
        AddExifValues(info.exif, &exif);
        t.exif = exif;
    }
    return t;
}

SbigPropertyValues SbigPropertyValuesOf(const ImageHeader& h) {
    SbigPropertyValues v;
    v.cameraType = h.imageType;
    v.fileVersion = h.fileVersion;
    v.dataVersion = h.dataVersion;
    v.exposureHundredths = h.exposure;
    v.focalLength = h.focalLength;
    v.aperture = h.aperture;
    v.responseFactor = h.responseFactor;
    v.note = h.note;
    v.background = h.background;
    v.range = h.range;
    v.height = h.height;
    v.width = h.width;
    v.date = h.date;
    v.time = h.time;
    v.exposureState = h.exposureState;
    v.temperature = h.temperature;
    v.numberOfExposures = h.numberExposures;
    v.eachExposureHundredths = h.eachExposure;
    v.history = h.history;
    v.observer = h.observer;
    v.xPixelSize = h.xPixelSize;
    v.yPixelSize = h.yPixelSize;
    v.pedestal = h.pedestal;
    v.gain = h.eGain;
    v.user[0] = h.user1;
    v.user[1] = h.user2;
    v.user[2] = h.user3;
    v.user[3] = h.user4;
    v.filter = h.filter;
    v.readoutMode = std::to_string(h.readoutMode);
    v.trackTime = std::to_string(h.trackTime);
    v.saturationLevel = h.satLevel;
    return v;
}

std::string PropertiesPrintText(const ImageProperties& properties, const std::string& name,
                                const std::string& date) {
    std::string text = properties.printTitle + "\n";
    text += "Name : " + name + "\n";
    text += "Date : " + date + "\n";
    text += "Parameter  -  Value\n";
    for (const PropertyRow& row : properties.rows)
        text += row.property + "  -  " + row.value + "\n";
    return text;
}

} // namespace astrivelle
