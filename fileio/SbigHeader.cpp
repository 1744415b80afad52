// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The SBIG text header: its lines written and parsed, and the FITS keys made from it.
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fileio/Sbig.h"
#include "engine/ImageHeader.h"

namespace astrivelle {

namespace {

/// printf into a std::string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char small[128];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0)
        return std::string();
    if (static_cast<std::size_t>(n) < sizeof small)
        return std::string(small, static_cast<std::size_t>(n));
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    va_start(args, format);
    std::vsnprintf(big.data(), big.size(), format, args);
    va_end(args);
    big.resize(static_cast<std::size_t>(n));
    return big;
}

/// atoi that cannot overflow: the leading integer of the text, clamped to 32 bits.
std::int32_t TextToInt(const char* text) {
    const long long v = std::strtoll(text, nullptr, 10);
    if (v > 2147483647LL)
        return 2147483647;
    if (v < -2147483648LL)
        return -2147483647 - 1;
    return static_cast<std::int32_t>(v);
}

double TextToReal(const char* text) {
    return std::strtod(text, nullptr);
}

/// The line end of the file: line feed, then carriage return.
constexpr const char* kLineEnd = "\n\r";

/// One keyed line of the header, in the order the parser tries them: exactly one of the three
/// member pointers is set.
struct KeyedLine {
    const char* key;
    std::int32_t ImageHeader::*integer = nullptr;
    double ImageHeader::*real = nullptr;
    std::string ImageHeader::*text = nullptr;
    bool realReadAsInteger = false;
};

const KeyedLine kKeyedLines[] = {
    {.key = "File_version = ", .integer = &ImageHeader::fileVersion},
    {.key = "Data_version = ", .integer = &ImageHeader::dataVersion},
    {.key = "Exposure = ", .integer = &ImageHeader::exposure},
    {.key = "Focal_length = ", .real = &ImageHeader::focalLength},
    {.key = "Aperture = ", .real = &ImageHeader::aperture},
    // Written with three decimals, read back as an integer: the fraction is lost.
    {.key = "Response_factor = ", .real = &ImageHeader::responseFactor, .realReadAsInteger = true},
    {.key = "Note = ", .text = &ImageHeader::note},
    {.key = "Background = ", .integer = &ImageHeader::background},
    {.key = "Range = ", .integer = &ImageHeader::range},
    {.key = "Height = ", .integer = &ImageHeader::height},
    {.key = "Width = ", .integer = &ImageHeader::width},
    {.key = "Date = ", .text = &ImageHeader::date},
    {.key = "Time = ", .text = &ImageHeader::time},
    {.key = "Exposure_state = ", .text = &ImageHeader::exposureState},
    {.key = "Temperature = ", .real = &ImageHeader::temperature},
    {.key = "Number_exposures = ", .integer = &ImageHeader::numberExposures},
    {.key = "Each_exposure = ", .integer = &ImageHeader::eachExposure},
    {.key = "History = ", .text = &ImageHeader::history},
    {.key = "Observer = ", .text = &ImageHeader::observer},
    {.key = "X_pixel_size = ", .real = &ImageHeader::xPixelSize},
    {.key = "Y_pixel_size = ", .real = &ImageHeader::yPixelSize},
    {.key = "Pedestal = ", .integer = &ImageHeader::pedestal},
    {.key = "E_gain = ", .real = &ImageHeader::eGain},
    {.key = "Filter = ", .text = &ImageHeader::filter},
    {.key = "Readout_mode = ", .integer = &ImageHeader::readoutMode},
    {.key = "Track_time = ", .integer = &ImageHeader::trackTime},
    {.key = "Sat_level = ", .integer = &ImageHeader::satLevel},
};

void Store(ImageHeader& h, const KeyedLine& line, const char* value) {
    if (line.integer)
        h.*line.integer = TextToInt(value);
    else if (line.real)
        h.*line.real = line.realReadAsInteger ? TextToInt(value) : TextToReal(value);
    else if (line.text)
        h.*line.text = value;
}

/// Appends one card.
void Card(HeaderList* cards, const char* key, std::string value, std::uint32_t type,
          const char* comment) {
    CFITSHeader c;
    c.key = key;
    c.value = std::move(value);
    c.comment = comment;
    c.dataType = type;
    cards->push_back(std::move(c));
}

/// The characters [from, from + count) of a text, as many as it has.
std::string Part(const std::string& text, std::size_t from, std::size_t count) {
    return from < text.size() ? text.substr(from, count) : std::string();
}

} // namespace

std::string ImageHeader::ToText() const {
    std::string t;
    auto line = [&t](const std::string& text) {
        t += text;
        t += kLineEnd;
    };
    line(imageType);
    line(Format("File_version = %d", fileVersion));
    line(Format("Data_version = %d", dataVersion));
    line(Format("Exposure = %d", exposure));
    line(Format("Focal_length = %5.3f", focalLength));
    line(Format("Aperture = %5.3f", aperture));
    line(Format("Response_factor = %5.3f", responseFactor));
    line("Note = " + note);
    line(Format("Background = %d", background));
    line(Format("Range = %d", range));
    line(Format("Height = %d", height));
    line(Format("Width = %d", width));
    line("Date = " + date);
    line("Time = " + time);
    line("Exposure_state = " + exposureState);
    line(Format("Temperature = %12.4f", temperature));
    line(Format("Number_exposures = %d", numberExposures));
    line(Format("Each_exposure = %d", eachExposure));
    line("History = " + history);
    line("Observer = " + observer);
    line(Format("X_pixel_size = %4.2f", xPixelSize));
    line(Format("Y_pixel_size = %4.2f", yPixelSize));
    line(Format("Pedestal = %d", pedestal));
    line(Format("E_gain = %6.2f", eGain));
    line("User_1 = " + user1);
    line("User_2 = " + user2);
    line("User_3 = " + user3);
    line("User_4 = " + user4);
    line("Filter = " + filter);
    line(Format("Readout_mode = %d", readoutMode));
    line(Format("Track_time = %d", trackTime));
    line(Format("Sat_level = %d", satLevel));
    line("End");
    return t;
}

void ImageHeader::ParseLine(const std::string& text) {
    static const char* const kUser[4] = {"User_1 = ", "User_2 = ", "User_3 = ", "User_4 = "};
    std::string* const users[4] = {&user1, &user2, &user3, &user4};
    for (int i = 0; i < 4; ++i) {
        const std::size_t at = text.find(kUser[i]);
        if (at != std::string::npos) {
            std::string rest = text;
            rest.erase(at, std::strlen(kUser[i]));
            *users[i] = std::move(rest);
            return;
        }
    }
    if (imageType.empty() && text.find("Image") != std::string::npos) {
        imageType = text;
        return;
    }
    for (const KeyedLine& line : kKeyedLines) {
        const std::size_t at = text.find(line.key);
        if (at != std::string::npos) {
            Store(*this, line, text.c_str() + at + std::strlen(line.key));
            return;
        }
    }
}

void ImageHeader::ParseText(const char* text) {
    const char* p = text;
    for (;;) {
        p += std::strspn(p, "\n\r");
        if (*p == '\0')
            return;
        const std::size_t n = std::strcspn(p, "\n\r");
        const std::string token(p, n);
        if (token == "End")
            return;
        ParseLine(token);
        p += n;
    }
}

std::string SbigDateObs(const std::string& date, const std::string& time) {
    const std::string yy = date.size() >= 2 ? date.substr(date.size() - 2) : date;
    const std::string century = TextToInt(yy.c_str()) > 50 ? "19" : "20";
    return century + yy + "-" + Part(date, 0, 2) + "-" + Part(date, 3, 2) + "T" + time + ".000";
}

void SbigHeaderToFitsKeys(const ImageHeader& h, HeaderList* cards) {
    cards->clear();
    // EXPTIME: User_3 up to its first comma, "Exposure = " taken out.
    std::string exposureText = h.user3.substr(0, h.user3.find(','));
    const std::size_t at = exposureText.find("Exposure = ");
    if (at != std::string::npos)
        exposureText.erase(at, std::strlen("Exposure = "));
    const long long binning = static_cast<long long>(h.readoutMode) + 1;

    Card(cards, "OBJECT", "", CardString, "");
    Card(cards, "TELESCOP", "Unknown Telescope", CardString, "");
    Card(cards, "INSTRUME", h.user2, CardString, "");
    Card(cards, "OBSERVER", h.observer, CardString, "");
    Card(cards, "DATE-OBS", SbigDateObs(h.date, h.time), CardString, "");
    Card(cards, "EXPTIME", Format("%10.4f", TextToReal(exposureText.c_str())), CardReal,
         "EXPOSURE IN SECONDS");
    Card(cards, "CCD-TEMP", Format("%10.4f", h.temperature), CardReal, "CCD TEMP IN DEGREES C");
    Card(cards, "XPIXSZ", Format("%10.4f", h.xPixelSize * 100), CardReal, "PIXEL WIDTH IN MICRONS");
    Card(cards, "YPIXSZ", Format("%10.4f", h.yPixelSize * 100), CardReal,
         "PIXEL HEIGHT IN MICRONS");
    Card(cards, "XBINNING", Format("%lld", binning), CardInteger, "HORIZONTAL BINNIMG FACTOR");
    Card(cards, "YBINNING", Format("%lld", binning), CardInteger, "VERTICAL BINNIMG FACTOR");
    Card(cards, "XORGSUBF", "0", CardInteger, "SUB FRAME ORIGIN X POS");
    Card(cards, "YORGSUBF", "0", CardInteger, "SUB FRAME ORIGIN Y POS");
    Card(cards, "EGAIN", Format("%12.4f", h.eGain), CardReal, "ELECTRONS PER ADU");
    Card(cards, "FOCALLEN", Format("%12.4f", h.focalLength * 25.4), CardReal, "FOCAL LENGTH IN MM");
    Card(cards, "APTDIA", Format("%12.4f", std::sqrt(h.aperture / 3.14) * 2 * 25.4), CardReal,
         "APERTURE DIAMETER MM");
    Card(cards, "APTAREA", Format("%12.4f", h.aperture * 25.4 * 25.4), CardReal,
         "APERTURE AREA IN SQ-MM");
    Card(cards, "CBLACK", Format("%d", h.background), CardInteger, "BLACK ADU FOR DISPLAY");
    Card(cards, "CWHITE",
         Format("%lld", static_cast<long long>(h.background) + static_cast<long long>(h.range)),
         CardInteger, "WHITE ADU FOR DISPLAY");
    Card(cards, "PEDESTAL", Format("%d", h.pedestal), CardInteger, "ADD TO ADU FOR 0-BASE");
    Card(cards, "DATAMAX", Format("%d", h.satLevel), CardInteger, "SATURATION LEVEL");
    Card(cards, "HISTORY", "SBFITSEXT 1.0", CardString, "SBIG FITS EXTENSIONS VER");
    Card(cards, "SWACQUIR", h.user1, CardString, "DATA ACQ SOFTWARE");
    Card(cards, "SWCREATE", "Astrivelle 3", CardString, "");
    Card(cards, "SWMODIFY", "Astrivelle 3", CardString, "");
    Card(cards, "HISTORY", h.history, CardString, "PROCESS HISTORY");
    Card(cards, "FILTER", h.filter, CardString, "OPTICAL FILTER NAME");
    Card(cards, "RESMODE", Format("%d", h.readoutMode), CardInteger, "RESOLUTION MODE");
    Card(cards, "EXPSTATE", Format("%X", static_cast<unsigned>(TextToInt(h.exposureState.c_str()))),
         CardString, "EXPOSURE STATE (HEX)");
    Card(cards, "RESPONSE", Format("%12.4f", h.responseFactor), CardReal, "CCD RESPONSE FACTOR");
    Card(cards, "NOTE", h.note, CardString, "");
}

bool RebuildSbigFitsKeys(Image& image) {
    if (!image.header)
        return false;
    SbigHeaderToFitsKeys(*image.header, &image.headerCards);
    return true;
}

} // namespace astrivelle
