// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The image properties panel: headings and print titles, the rows of every format with
/// their exact texts (BMP and JPEG read from files, JPEG Exif from a real APP1 layout), the
/// state rows, and the printed page.
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "BmpTestFiles.h"
#include "TestSupport.h"
#include "engine/Image.h"
#include "fileio/Bmp.h"
#include "fileio/FileDispatch.h"
#include "fileio/ImageProperties.h"

namespace astrivelle {
namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

Rows Flat(const std::vector<PropertyRow>& rows) {
    Rows out;
    for (const PropertyRow& r : rows)
        out.emplace_back(r.property, r.value);
    return out;
}

TEST(ImageProperties, HeadingsAndPrintTitles) {
    struct Case {
        PropertiesFormat format;
        const char* heading;
        const char* title;
    } cases[] = {
        {PropertiesFormat::FITS, "FITS Image Properties:", "FITS Image Properties"},
        {PropertiesFormat::TIFF, "TIFF Image Properties:", "TIFF Image Properties"},
        {PropertiesFormat::JPEG, "JPEG Image Properties:", "JPG Image Properties"},
        {PropertiesFormat::BMP,
         "Windows BMP Image File Header Properties:", "BMP Image Properties"},
        {PropertiesFormat::SBIG, "SBIG Image File Header Properties:", "SBIG Image Properties"},
        {PropertiesFormat::Raw, "Raw Image Properties:", "RAW Image Properties"},
        {PropertiesFormat::PNG, "", "PNG Image Properties"},
    };
    for (const Case& c : cases) {
        EXPECT_STREQ(PropertiesHeading(c.format), c.heading);
        EXPECT_STREQ(PropertiesPrintTitle(c.format), c.title);
    }
    const std::pair<std::int32_t, PropertiesFormat> kinds[] = {
        {KindFITS, PropertiesFormat::FITS}, {KindJPEG, PropertiesFormat::JPEG},
        {KindTIFF, PropertiesFormat::TIFF}, {KindBMP, PropertiesFormat::BMP},
        {KindSBIG, PropertiesFormat::SBIG}, {KindSBIGCompressed, PropertiesFormat::SBIG}};
    for (const auto& [kind, format] : kinds) {
        PropertiesFormat found = PropertiesFormat::PNG;
        EXPECT_TRUE(PropertiesFormatOfKind(kind, &found));
        EXPECT_EQ(found, format);
    }
    PropertiesFormat f;
    EXPECT_FALSE(PropertiesFormatOfKind(0, &f));
    EXPECT_FALSE(PropertiesFormatOfKind(-4, &f));
}

TEST(ImageProperties, BmpRowsFromFiles) {
    test::ScratchDir dir;
    Image img;
    test::MakeImage(img, 5, 3, ColorRGB, [](int, int, int) { return 0.0; });
    ASSERT_TRUE(img.WriteBMP(dir.file("a.bmp")));
    std::vector<PropertyRow> rows;
    ASSERT_TRUE(BmpFilePropertyRows(dir.file("a.bmp"), &rows)) << LastFileError();
    EXPECT_EQ(Flat(rows), (Rows{{"Image Width", "5"},
                                {"Image Height", "3"},
                                {"Number of Planes", "1"},
                                {"Bits Per Pixel", "24"},
                                {"Compression", "Uncompressed"},
                                {"Size In Bytes", "48"},
                                {"Colors Used", "2^24 Colors"}}));

    // An 8-bit run-length encoded top-down file: its headers still show.
    test::BmpLayout layout;
    layout.width = 4;
    layout.height = -2;
    layout.bitCount = 8;
    layout.compression = 1;
    layout.clrUsed = 2;
    layout.table = {0, 0, 0, 255, 255, 255};
    layout.rows = {{0, 1}, {1, 0}};
    test::WriteBytes(dir.file("r.bmp"), test::MakeBmp(layout));
    ASSERT_TRUE(BmpFilePropertyRows(dir.file("r.bmp"), &rows)) << LastFileError();
    EXPECT_EQ(Flat(rows), (Rows{{"Image Width", "4"},
                                {"Image Height", "2"},
                                {"Number of Planes", "1"},
                                {"Bits Per Pixel", "8"},
                                {"Compression", "Run-Length Encoded"},
                                {"Size In Bytes", "8"},
                                {"Colors Used", "2"}}));
    test::WriteBytes(dir.file("bad.bmp"), {'B', 'X', 0, 0});
    EXPECT_FALSE(BmpFilePropertyRows(dir.file("bad.bmp"), &rows));
    EXPECT_EQ(LastFileError(), "Failed to read file header");
}

/// A little-endian TIFF block as a camera's Exif APP1 holds it (after "Exif\0\0").
std::vector<std::uint8_t> ExifTiff() {
    std::vector<std::uint8_t> t;
    auto u16 = [&](std::uint32_t v) { test::PutLe(t, v, 2); };
    auto u32 = [&](std::uint32_t v) { test::PutLe(t, v, 4); };
    struct Entry {
        std::uint16_t tag, type;
        std::uint32_t count;
        std::vector<std::uint8_t> data;
    };
    auto le = [](std::initializer_list<std::uint32_t> words) {
        std::vector<std::uint8_t> b;
        for (std::uint32_t w : words)
            test::PutLe(b, w, 4);
        return b;
    };
    auto text = [](const std::string& s, std::size_t size) {
        std::vector<std::uint8_t> b(s.begin(), s.end());
        b.resize(size, 0);
        return b;
    };
    // Writes a directory at the end of t, its long values after it; returns its offset.
    auto directory = [&](const std::vector<Entry>& entries, std::uint32_t at) {
        std::uint32_t data = at + 2 + 12 * static_cast<std::uint32_t>(entries.size()) + 4;
        std::vector<std::uint8_t> extra;
        u16(static_cast<std::uint32_t>(entries.size()));
        for (const Entry& e : entries) {
            u16(e.tag);
            u16(e.type);
            u32(e.count);
            if (e.data.size() <= 4) {
                std::vector<std::uint8_t> field = e.data;
                field.resize(4, 0);
                t.insert(t.end(), field.begin(), field.end());
            } else {
                u32(data + static_cast<std::uint32_t>(extra.size()));
                extra.insert(extra.end(), e.data.begin(), e.data.end());
            }
        }
        u32(0);
        t.insert(t.end(), extra.begin(), extra.end());
    };
    t = {'I', 'I', 42, 0, 8, 0, 0, 0};
    // IFD0: 3 entries (42 bytes) at 8, then "Canon\0" and "EOS 6D\0" (13 bytes): Exif at 64.
    directory(
        {{271, 2, 6, text("Canon", 6)}, {272, 2, 7, text("EOS 6D", 7)}, {34665, 4, 1, le({64})}},
        8);
    t.resize(64, 0);
    directory({{33434, 5, 1, le({1, 100})},
               {33437, 5, 1, le({28, 10})},
               {34850, 3, 1, {3, 0}},
               {34855, 3, 1, {0x20, 0x03}},
               {36864, 7, 4, {'0', '2', '3', '0'}},
               {36867, 2, 20, text("2024:05:06 22:10:00", 20)},
               {37380, 10, 1, le({0xFFFFFFFFu, 3})},
               {37381, 5, 1, le({30, 10})},
               {37385, 3, 1, {0x19, 0}},
               {37386, 5, 1, le({50, 1})},
               {40960, 7, 4, {'0', '1', '0', '0'}}},
              64);
    return t;
}

TEST(ImageProperties, JpegRowsWithAndWithoutExif) {
    test::ScratchDir dir;
    Image img;
    test::MakeImage(img, 24, 16, ColorRGB, [](int s, int x, int) { return 1000.0 * (x + s); });
    const std::string plain = dir.file("plain.jpg");
    ASSERT_TRUE(img.WriteJPEG(plain, 90)) << LastFileError();
    std::vector<PropertyRow> rows;
    ASSERT_TRUE(JpegFilePropertyRows(plain, &rows)) << LastFileError();
    const Rows header = {{"Image Width", "24"}, {"Image Height", "16"}, {"Samples Per Pixel", "3"}};
    EXPECT_EQ(Flat(rows), header);

    // The same file with an APP1 Exif segment right after SOI.
    std::vector<std::uint8_t> bytes = test::ReadBytes(plain);
    std::vector<std::uint8_t> app1 = {'E', 'x', 'i', 'f', 0, 0};
    const std::vector<std::uint8_t> tiff = ExifTiff();
    app1.insert(app1.end(), tiff.begin(), tiff.end());
    const std::size_t length = app1.size() + 2;
    std::vector<std::uint8_t> segment = {0xFF, 0xE1, static_cast<std::uint8_t>(length >> 8),
                                         static_cast<std::uint8_t>(length)};
    segment.insert(segment.end(), app1.begin(), app1.end());
    bytes.insert(bytes.begin() + 2, segment.begin(), segment.end());
    const std::string exif = dir.file("exif.jpg");
    test::WriteBytes(exif, bytes);
    ASSERT_TRUE(JpegFilePropertyRows(exif, &rows)) << LastFileError();
    Rows expected = header;
    const Rows more = {{"Make", "Canon"},
                       {"Model", "EOS 6D"},
                       {"Exposure Time", "  0.01 or 1 / 100 sec"},
                       {"F Number", "  2.80"},
                       {"Exposure Program", "Aperture priority"},
                       {"ISO Speed Ratings", "800"},
                       {"Exif Version", "0230"},
                       {"Date Time Original", "2024:05:06 22:10:00"},
                       {"Exposure Bias Value", " -0.33"},
                       {"Max Aperture Value", "  3.00"},
                       {"Flash", "Flash fired"},
                       {"Focal Length", " 50.00 mm"},
                       {"FlashPix Version", "0100"}};
    expected.insert(expected.end(), more.begin(), more.end());
    EXPECT_EQ(Flat(rows), expected);
    // The Exif segment changes nothing of the pixels.
    Image back;
    ASSERT_TRUE(back.ReadJPEG(exif)) << LastFileError();
    EXPECT_EQ(back.width, 24);

    // A damaged Exif block leaves the three header rows.
    bytes[2 + 4 + 6 + 4] = 0xEE; // first IFD offset
    test::WriteBytes(exif, bytes);
    ASSERT_TRUE(JpegFilePropertyRows(exif, &rows));
    EXPECT_EQ(Flat(rows), header);
}

TEST(ImageProperties, ExifTexts) {
    ExifValues e;
    e.exposureNumerator = 30;
    e.exposureDenominator = 1;
    e.flash = 16;
    for (std::uint32_t p = 0; p < 10; ++p) {
        e.exposureProgram = p;
        const auto rows = ExifPropertyRows(e);
        ASSERT_EQ(rows.size(), 3u);
        EXPECT_EQ(rows[0].value, " 30.00 or 30 / 1 sec");
        static const char* const names[] = {"Not defined",      "Manual",
                                            "Normal porgram",   "Aperture priority",
                                            "Shutter priority", "Creative program",
                                            "Action program",   "Landscape mode",
                                            "Portrait mode",    "9"};
        EXPECT_EQ(rows[1].value, names[p]);
        EXPECT_EQ(rows[2].value, "Flash did not fire");
    }
}

TEST(ImageProperties, TiffSbigAndRawRows) {
    TiffPropertyValues t;
    t.width = 640;
    t.height = 480;
    t.samplesPerPixel = 3;
    t.bitsPerSample = 16;
    t.make = "ZWO";
    t.xResolution = 72;
    t.resolutionUnit = 2;
    t.software = "astro";
    ExifValues e;
    e.focalLength = 400;
    t.exif = e;
    EXPECT_EQ(Flat(TiffPropertyRows(t)), (Rows{{"Image Width", "640"},
                                               {"Image Height", "480"},
                                               {"Samples Per Pixel", "3"},
                                               {"Input Bits Per Sample", "16"},
                                               {"Make", "ZWO"},
                                               {"X Resolution", " 72.00"},
                                               {"Resolution Unit", "Inch"},
                                               {"Sofware", "astro"},
                                               {"Focal Length", "400.00 mm"}}));
    for (auto [unit, text] : {std::pair{1u, "No unit"}, {3u, "Centimeter"}}) {
        TiffPropertyValues u;
        u.resolutionUnit = unit;
        EXPECT_EQ(TiffPropertyRows(u)[4].value, text);
    }

    SbigPropertyValues s;
    s.cameraType = "ST-8";
    s.fileVersion = 3;
    s.dataVersion = 1;
    s.exposureHundredths = 12345;
    s.focalLength = 80;
    s.aperture = 12.5;
    s.responseFactor = 1;
    s.note = "M51";
    s.background = 100;
    s.range = 2000;
    s.height = 1020;
    s.width = 1530;
    s.date = "05/06/24";
    s.time = "22:10:00";
    s.exposureState = "0";
    s.temperature = -15.25;
    s.numberOfExposures = 4;
    s.eachExposureHundredths = 3000;
    s.xPixelSize = 0.009;
    s.yPixelSize = 0.009;
    s.pedestal = 100;
    s.gain = 2.3;
    s.user[0] = "u1";
    s.filter = "Red";
    s.readoutMode = "1x1";
    s.trackTime = "0";
    s.saturationLevel = 65535;
    const Rows sbig = Flat(SbigPropertyRows(s));
    const Rows expected = {
        {"Camera Type", "ST-8"},
        {"File Version", "3"},
        {"Data Version", "1"},
        {"Exposure", " 123.45 seconds"},
        {"Focal Length", " 80.00  inches"},
        {"Aperture", " 12.50  square-inches"},
        {"Response Factor", "  1.00"},
        {"Note", "M51"},
        {"Background", "100"},
        {"Range", "2000"},
        {"Image Height", "1020"},
        {"Image Width", "1530"},
        {"Date", "05/06/24"},
        {"Time", "22:10:00"},
        {"Exposure State", "0"},
        {"Temperature", "-15.25 Celcius"},
        {"Number of Exposures", "4"},
        {"Each Exposure", "       30.00 seconds"},
        {"History", ""},
        {"Observer", ""},
        {"X Pixel Size", "  0.01 mm"},
        {"Y Pixel Size", "  0.01 mm"},
        {"Pedestal", "100"},
        {"Gain", "  2.30 e-/count"},
        {"User 1", "u1"},
        {"User 2", ""},
        {"User 3", ""},
        {"User 4", ""},
        {"Filter", "Red"},
        {"Readout Mode", "1x1"},
        {"Track Time", "0"},
        {"Saturtion Level", "65535"},
    };
    EXPECT_EQ(sbig, expected);

    RawPropertyValues r;
    r.width = 100;
    r.height = 50;
    r.headerSize = 512;
    r.header = "Yes";
    r.mapToWhite = 4095;
    r.channels = 3;
    r.interleaved = true;
    const char* types[] = {"32 Bit Float", "32 Bit Integer", "16 Bit Integer", "8 Bit Integer"};
    for (int i = 0; i < 4; ++i) {
        r.pixelType = static_cast<RawPixelType>(i);
        EXPECT_EQ(Flat(RawPropertyRows(r)), (Rows{{"Image Width", "100"},
                                                  {"Image Height", "50"},
                                                  {"Header Size", "512"},
                                                  {"Header", "Yes"},
                                                  {"Map To White", "4095"},
                                                  {"Channels", "3"},
                                                  {"Pixel Type", types[i]},
                                                  {"Interleaved", "True"}}));
    }
    r.interleaved = false;
    EXPECT_EQ(RawPropertyRows(r).back().value, "False");
}

TEST(ImageProperties, StateRowsAndTheWholePanel) {
    const std::pair<std::uint32_t, const char*> types[] = {
        {1, "RGB"},     {2, "Red"},    {3, "Green"}, {4, "Blue"}, {6, "Cyan"},
        {7, "Magenta"}, {8, "Yellow"}, {9, "Gray"},  {5, ""},     {12, ""}};
    for (const auto& [type, name] : types)
        EXPECT_STREQ(ColorStateText(type), name);
    const std::pair<DerivedChannel, const char*> derived[] = {
        {DerivedChannel::Hue, "Hue"},
        {DerivedChannel::Saturation, "Saturation"},
        {DerivedChannel::Luminance, "Luminance"},
        {DerivedChannel::LabLuminance, "Lab Luminance"},
        {DerivedChannel::LabA, "Lab a - (Green-Red)"},
        {DerivedChannel::LabB, "Lab b - (Blue - Yellow)"}};
    for (const auto& [d, name] : derived)
        EXPECT_STREQ(ColorStateText(ColorGray, d), name);

    ImageRoles all;
    bool* flags[] = {&all.closeLocked,
                     &all.imageMathTarget,
                     &all.imageMathSource,
                     &all.combineImagesCombination,
                     &all.combineImagesSource,
                     &all.combineChannelSource,
                     &all.combineChannelTarget,
                     &all.combineFrequencySource,
                     &all.combineFrequencyTarget,
                     &all.mixLrgbCombination,
                     &all.mixLrgbSource,
                     &all.combineBayerTarget,
                     &all.combineBayerSource,
                     &all.timeSequenceSource};
    for (bool* f : flags)
        *f = true;
    const auto rows = ImageStateRows(ColorRGB, DerivedChannel::None, all);
    const char* roles[] = {"Close Locked",
                           "Image Math target",
                           "Image Math source",
                           "Combine Images Combination",
                           "Combine Images source",
                           "Combine Channel source",
                           "Combine Channel target",
                           "Combine Frequency source",
                           "Combine Frequency target",
                           "Mix LRGB and Hue Combination",
                           "Mix LRGB and Hue Source",
                           "Combine Bayer CFA target",
                           "Combine Bayer CFA source",
                           "Time Sequence source"};
    ASSERT_EQ(rows.size(), 15u);
    EXPECT_EQ(rows[0].property, "Color Type");
    EXPECT_EQ(rows[0].value, "RGB");
    for (int i = 0; i < 14; ++i) {
        EXPECT_EQ(rows[i + 1].property, "Combination Role");
        EXPECT_EQ(rows[i + 1].value, roles[i]);
    }

    // FITS rows come from the cards; the state follows; the print form.
    Image img;
    test::MakeImage(img, 3, 2, ColorGray, [](int, int, int) { return 0.0; });
    CFITSHeader card;
    card.key = "EXPTIME";
    card.value = "30";
    card.comment = "seconds";
    card.dataType = CardReal;
    img.headerCards.push_back(card);
    ImageRoles one;
    one.imageMathSource = true;
    const ImageProperties p = ImagePropertiesOf(img, PropertiesFormat::FITS, {}, one);
    EXPECT_EQ(p.heading, "FITS Image Properties:");
    EXPECT_EQ(Flat(p.rows), (Rows{{"Image Width", "3"},
                                  {"Image Height", "2"},
                                  {"EXPTIME", "30 / seconds"},
                                  {"Color Type", "Gray"},
                                  {"Combination Role", "Image Math source"}}));
    EXPECT_EQ(PropertiesPrintText(p, "m42.fit", "2024-05-06"),
              "FITS Image Properties\nName : m42.fit\nDate : 2024-05-06\nParameter  -  Value\n"
              "Image Width  -  3\nImage Height  -  2\nEXPTIME  -  30 / seconds\n"
              "Color Type  -  Gray\nCombination Role  -  Image Math source\n");
    const ImageProperties b = ImagePropertiesOf(img, PropertiesFormat::BMP, {{"Image Width", "3"}});
    EXPECT_EQ(b.printTitle, "BMP Image Properties");
    EXPECT_EQ(Flat(b.rows), (Rows{{"Image Width", "3"}, {"Color Type", "Gray"}}));
    std::vector<PropertyRow> fileRows;
    img.fileType = KindTIFF;
    EXPECT_FALSE(FilePropertyRows(img, "x.tif", &fileRows));
    img.fileType = KindFITS;
    ASSERT_TRUE(FilePropertyRows(img, "x.fit", &fileRows));
    EXPECT_EQ(fileRows.size(), 3u);
}

} // namespace
} // namespace astrivelle
