// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The SBIG text header: the exact lines written, parsing by substring, the FITS keys
/// made from it (with DATE-OBS and its century), and Range/Background from the statistics.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "fileio/Sbig.h"
#include "engine/ImageHeader.h"

namespace astrivelle {
namespace {

/// A header with every field set to a value its line format prints without loss.
ImageHeader SampleHeader() {
    ImageHeader h;
    h.imageType = "ST-7 Compressed Image";
    h.fileVersion = 3;
    h.dataVersion = 1;
    h.exposure = 3000;
    h.focalLength = 80.0;
    h.aperture = 12.566;
    h.responseFactor = 2.75;
    h.note = "M31 core";
    h.background = 412;
    h.range = 15000;
    h.height = 4;
    h.width = 5;
    h.date = "09/21/07";
    h.time = "22:15:30";
    h.exposureState = "13";
    h.temperature = -10.25;
    h.numberExposures = 1;
    h.eachExposure = 3000;
    h.history = "Dark subtracted";
    h.observer = "J. Smith";
    h.xPixelSize = 0.02;
    h.yPixelSize = 0.03;
    h.pedestal = 100;
    h.eGain = 2.3;
    h.user1 = "CCDOps Version 5.47";
    h.user2 = "ST-7";
    h.user3 = "Exposure = 30.00, Binning 1x1";
    h.user4 = "";
    h.filter = "";
    h.readoutMode = 1;
    h.trackTime = 0;
    h.satLevel = 65535;
    return h;
}

TEST(SbigHeaderText, WritesEveryLineInOrderWithItsFormat) {
    const std::vector<std::string> lines = {
        "ST-7 Compressed Image",
        "File_version = 3",
        "Data_version = 1",
        "Exposure = 3000",
        "Focal_length = 80.000",
        "Aperture = 12.566",
        "Response_factor = 2.750",
        "Note = M31 core",
        "Background = 412",
        "Range = 15000",
        "Height = 4",
        "Width = 5",
        "Date = 09/21/07",
        "Time = 22:15:30",
        "Exposure_state = 13",
        "Temperature =     -10.2500",
        "Number_exposures = 1",
        "Each_exposure = 3000",
        "History = Dark subtracted",
        "Observer = J. Smith",
        "X_pixel_size = 0.02",
        "Y_pixel_size = 0.03",
        "Pedestal = 100",
        "E_gain =   2.30",
        "User_1 = CCDOps Version 5.47",
        "User_2 = ST-7",
        "User_3 = Exposure = 30.00, Binning 1x1",
        "User_4 = ",
        "Filter = ",
        "Readout_mode = 1",
        "Track_time = 0",
        "Sat_level = 65535",
        "End",
    };
    std::string expected;
    for (const std::string& line : lines)
        expected += line + "\n\r"; // line feed, then carriage return
    EXPECT_EQ(SampleHeader().ToText(), expected);
}

TEST(SbigHeaderText, RoundTripKeepsEveryFieldButTheResponseFraction) {
    const ImageHeader h = SampleHeader();
    ImageHeader back;
    back.ParseText(h.ToText().c_str());
    EXPECT_EQ(back.imageType, h.imageType);
    EXPECT_EQ(back.fileVersion, 3);
    EXPECT_EQ(back.dataVersion, 1);
    EXPECT_EQ(back.exposure, 3000);
    EXPECT_EQ(back.focalLength, 80.0);
    EXPECT_EQ(back.aperture, 12.566);
    EXPECT_EQ(back.responseFactor, 2.0); // read as an integer: the fraction is lost
    EXPECT_EQ(back.note, "M31 core");
    EXPECT_EQ(back.background, 412);
    EXPECT_EQ(back.range, 15000);
    EXPECT_EQ(back.height, 4);
    EXPECT_EQ(back.width, 5);
    EXPECT_EQ(back.date, "09/21/07");
    EXPECT_EQ(back.time, "22:15:30");
    EXPECT_EQ(back.exposureState, "13");
    EXPECT_EQ(back.temperature, -10.25);
    EXPECT_EQ(back.numberExposures, 1);
    EXPECT_EQ(back.eachExposure, 3000);
    EXPECT_EQ(back.history, "Dark subtracted");
    EXPECT_EQ(back.observer, "J. Smith");
    EXPECT_EQ(back.xPixelSize, 0.02);
    EXPECT_EQ(back.yPixelSize, 0.03);
    EXPECT_EQ(back.pedestal, 100);
    EXPECT_EQ(back.eGain, 2.3);
    EXPECT_EQ(back.user1, "CCDOps Version 5.47");
    EXPECT_EQ(back.user2, "ST-7");
    EXPECT_EQ(back.user3, "Exposure = 30.00, Binning 1x1");
    EXPECT_EQ(back.user4, "");
    EXPECT_EQ(back.filter, "");
    EXPECT_EQ(back.readoutMode, 1);
    EXPECT_EQ(back.trackTime, 0);
    EXPECT_EQ(back.satLevel, 65535);
}

TEST(SbigHeaderText, ParsingRules) {
    struct Case {
        const char* name;
        const char* text;
        void (*check)(const ImageHeader&);
    };
    const Case cases[] = {
        {"LinesAfterEndAreIgnored", "ST-8 Image\n\rWidth = 7\n\rEnd\n\rWidth = 99\n\r",
         [](const ImageHeader& h) { EXPECT_EQ(h.width, 7); }},
        {"OnlyTheFirstImageLineIsTheType", "ST-8 Image\n\rNote = Image of M42\n\rEnd",
         [](const ImageHeader& h) {
             EXPECT_EQ(h.imageType, "ST-8 Image");
             EXPECT_EQ(h.note, "Image of M42");
         }},
        {"UserLinesComeFirst", "ST-8 Image\r\nUser_2 = Exposure = 5\r\nEnd",
         [](const ImageHeader& h) {
             EXPECT_EQ(h.user2, "Exposure = 5");
             EXPECT_EQ(h.exposure, 0);
         }},
        {"UserTextIsTheLineWithoutItsKey", "ST-8 Image\nPrefix User_3 = x\nEnd",
         [](const ImageHeader& h) { EXPECT_EQ(h.user3, "Prefix x"); }},
        {"UnknownKeyChangesNothing", "ST-8 Image\nColour = red\nWidth = 3\nEnd",
         [](const ImageHeader& h) {
             EXPECT_EQ(h.width, 3);
             EXPECT_EQ(h.note, "");
         }},
        {"ResponseFactorIsTruncated", "ST-8 Image\nResponse_factor = 1.999\nEnd",
         [](const ImageHeader& h) { EXPECT_EQ(h.responseFactor, 1.0); }},
        {"EarlierKeyWinsInsideAText", "ST-8 Image\nHistory = Range = 17\nEnd",
         [](const ImageHeader& h) {
             EXPECT_EQ(h.range, 17);
             EXPECT_EQ(h.history, "");
         }},
        {"EmptyTextsAndBareNewlines", "\n\nST-8 Image\nNote = \nFilter = \nEnd",
         [](const ImageHeader& h) {
             EXPECT_EQ(h.imageType, "ST-8 Image");
             EXPECT_EQ(h.note, "");
             EXPECT_EQ(h.filter, "");
         }},
        {"HugeNumbersClampInsteadOfOverflowing", "ST-8 Image\nWidth = 99999999999999\nEnd",
         [](const ImageHeader& h) { EXPECT_EQ(h.width, 2147483647); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ImageHeader h;
        h.ParseText(c.text);
        c.check(h);
    }
}

TEST(SbigFitsKeys, TableOfKeysWithExactTexts) {
    struct Expected {
        const char* key;
        const char* value;
        std::uint32_t type;
        const char* comment;
    };
    const Expected expected[] = {
        {"OBJECT", "", CardString, ""},
        {"TELESCOP", "Unknown Telescope", CardString, ""},
        {"INSTRUME", "ST-7", CardString, ""},
        {"OBSERVER", "J. Smith", CardString, ""},
        {"DATE-OBS", "2007-09-21T22:15:30.000", CardString, ""},
        {"EXPTIME", "   30.0000", CardReal, "EXPOSURE IN SECONDS"},
        {"CCD-TEMP", "  -10.2500", CardReal, "CCD TEMP IN DEGREES C"},
        {"XPIXSZ", "    2.0000", CardReal, "PIXEL WIDTH IN MICRONS"},
        {"YPIXSZ", "    3.0000", CardReal, "PIXEL HEIGHT IN MICRONS"},
        {"XBINNING", "2", CardInteger, "HORIZONTAL BINNIMG FACTOR"},
        {"YBINNING", "2", CardInteger, "VERTICAL BINNIMG FACTOR"},
        {"XORGSUBF", "0", CardInteger, "SUB FRAME ORIGIN X POS"},
        {"YORGSUBF", "0", CardInteger, "SUB FRAME ORIGIN Y POS"},
        {"EGAIN", "      2.3000", CardReal, "ELECTRONS PER ADU"},
        {"FOCALLEN", "   2032.0000", CardReal, "FOCAL LENGTH IN MM"},
        {"APTDIA", "    101.6243", CardReal, "APERTURE DIAMETER MM"},
        {"APTAREA", "   8107.0806", CardReal, "APERTURE AREA IN SQ-MM"},
        {"CBLACK", "412", CardInteger, "BLACK ADU FOR DISPLAY"},
        {"CWHITE", "15412", CardInteger, "WHITE ADU FOR DISPLAY"},
        {"PEDESTAL", "100", CardInteger, "ADD TO ADU FOR 0-BASE"},
        {"DATAMAX", "65535", CardInteger, "SATURATION LEVEL"},
        {"HISTORY", "SBFITSEXT 1.0", CardString, "SBIG FITS EXTENSIONS VER"},
        {"SWACQUIR", "CCDOps Version 5.47", CardString, "DATA ACQ SOFTWARE"},
        {"SWCREATE", "Astrivelle 3", CardString, ""},
        {"SWMODIFY", "Astrivelle 3", CardString, ""},
        {"HISTORY", "Dark subtracted", CardString, "PROCESS HISTORY"},
        {"FILTER", "", CardString, "OPTICAL FILTER NAME"},
        {"RESMODE", "1", CardInteger, "RESOLUTION MODE"},
        {"EXPSTATE", "D", CardString, "EXPOSURE STATE (HEX)"},
        {"RESPONSE", "      2.7500", CardReal, "CCD RESPONSE FACTOR"},
        {"NOTE", "M31 core", CardString, ""},
    };
    HeaderList cards = {CFITSHeader{"OLD", "1", "", CardInteger}};
    SbigHeaderToFitsKeys(SampleHeader(), &cards);
    ASSERT_EQ(cards.size(), std::size(expected));
    for (std::size_t i = 0; i < cards.size(); ++i) {
        SCOPED_TRACE(expected[i].key);
        EXPECT_EQ(cards[i].key, expected[i].key);
        EXPECT_EQ(cards[i].value, expected[i].value);
        EXPECT_EQ(cards[i].dataType, expected[i].type);
        EXPECT_EQ(cards[i].comment, expected[i].comment);
    }
}

TEST(SbigFitsKeys, ExposureTimeAndStateFromOddTexts) {
    struct Case {
        const char* user3;
        const char* exposureState;
        const char* exptime;
        const char* expstate;
    };
    const Case cases[] = {
        {"Exposure = 1.5", "0", "    1.5000", "0"},
        {"12.25, Exposure = 3", "255", "   12.2500", "FF"},
        {"", "-1", "    0.0000", "FFFFFFFF"},
        {"Exposure = ,", "abc", "    0.0000", "0"},
    };
    for (const Case& c : cases) {
        ImageHeader h;
        h.user3 = c.user3;
        h.exposureState = c.exposureState;
        HeaderList cards;
        SbigHeaderToFitsKeys(h, &cards);
        EXPECT_EQ(cards[5].value, c.exptime) << c.user3;
        EXPECT_EQ(cards[28].value, c.expstate) << c.exposureState;
    }
}

TEST(SbigFitsKeys, DateObsCentury) {
    struct Case {
        const char* date;
        const char* time;
        const char* expected;
    };
    const Case cases[] = {
        {"09/21/07", "22:15:30", "2007-09-21T22:15:30.000"},
        {"12/31/99", "23:59:59", "1999-12-31T23:59:59.000"},
        {"01/02/51", "00:00:01", "1951-01-02T00:00:01.000"},
        {"01/02/50", "00:00:01", "2050-01-02T00:00:01.000"},
        {"03/15/2007", "01:02:03", "2007-03-15T01:02:03.000"},
        {"06/30/00", "12:00:00", "2000-06-30T12:00:00.000"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SbigDateObs(c.date, c.time), c.expected) << c.date;
    // Short or empty dates give a text without reading past the end.
    EXPECT_EQ(SbigDateObs("", ""), "20--T.000");
    EXPECT_EQ(SbigDateObs("7", "t"), "207-7-Tt.000");
}

TEST(SbigStatistics, RangeAndBackgroundFollowTheSlotInUse) {
    for (std::uint32_t colorType : {ColorGray, ColorGreen, ColorYellow}) {
        SCOPED_TRACE(colorType);
        Image img;
        img.SetGeometry(KindSBIG, colorType, 0, 4, 2);
        ASSERT_TRUE(img.AllocatePlanes(1));
        const float values[8] = {10.7f, 20, 300, 1234.9f, 50, 60, 70, 80};
        const int slot = SlotOfColorType(colorType);
        std::copy(values, values + 8, img.curPlane[slot]);
        img.header = std::make_shared<ImageHeader>(SampleHeader());
        img.ComputeStatistics();
        UpdateSbigHeaderFromStatistics(img);
        EXPECT_EQ(img.header->range, 1234);
        EXPECT_EQ(img.header->background, 10);
    }
    // Without a header nothing happens (and nothing crashes).
    Image plain;
    plain.SetGeometry(KindFITS, ColorGray, 0, 1, 1);
    ASSERT_TRUE(plain.AllocatePlanes(1));
    plain.ComputeStatistics();
    UpdateSbigHeaderFromStatistics(plain);
    EXPECT_FALSE(plain.header);
}

TEST(SbigFitsKeys, RebuildNeedsAHeader) {
    Image img;
    img.headerCards = {CFITSHeader{"KEEP", "1", "", CardInteger}};
    EXPECT_FALSE(RebuildSbigFitsKeys(img));
    ASSERT_EQ(img.headerCards.size(), 1u);
    img.header = std::make_shared<ImageHeader>(SampleHeader());
    img.header->note = "edited";
    EXPECT_TRUE(RebuildSbigFitsKeys(img));
    ASSERT_EQ(img.headerCards.size(), 31u);
    EXPECT_EQ(img.headerCards.back().value, "edited");
}

} // namespace
} // namespace astrivelle
