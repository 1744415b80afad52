// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The file dialogs' filter strings, word for word, and the save dialog's extension check
/// for every mode.
#include <algorithm>

#include <gtest/gtest.h>

#include "engine/Image.h"
#include "fileio/FileFilters.h"

namespace astrivelle {
namespace {

std::vector<std::string> Strings(std::span<const char* const> entries) {
    return {entries.begin(), entries.end()};
}

TEST(FileFilters, OpenListInOrder) {
    const std::vector<std::string> expect = {
        "All Files (*.*)|*.*|",
        "FIT (*.fit; *.fts; *.fits)|*.fit; *.FIT; *.fts; *.FTS; *.fits; *.FITS|",
        "Uncompressed TIFF (*.tif; *.tiff)|*.tif; *.TIF; *.tiff; *.TIFF|",
        "JPEG (*.jpg; *.jpe; *.jpeg)|*.jpg; *.JPG; *.jpe; *.JPE; *.jpeg; *.JPEG|",
        "24 Bit BMP (*.bmp)|*.bmp; *.BMP|",
        "SBIG Image|*.sbig; *.SBIG; *.st2k; *.ST2K; *.st4k; *.ST4K; *.stx; *.STX; *.st5; *.ST5; "
        "*.st6; *.ST6; *.st7; *.ST7; *.st8; *.ST8; *.st9; *.ST9; *.stv; *.STV; *.255; *.237|",
        "Canon (*.crw)|*.crw; *.CRW|",
        "Canon (*.cr2)|*.cr2; *.CR2|",
        "Nikon (*.nef)|*.nef; *.NEF|",
        "Kodak (*.dcr)|*.dcr; *.DCR|",
        "Pentax (*.pef)|*.pef; *.PEF|",
        "Olympus (*.orf)|*.orf; *.ORF|",
        "Sony (*.arw)|*.arw; *.ARW|",
    };
    EXPECT_EQ(Strings(OpenImageFilterEntries()), expect);
    std::string joined;
    for (const std::string& e : expect)
        joined += e;
    EXPECT_EQ(JoinFilters(OpenImageFilterEntries()), joined);
    // The filter indices the open path sets after each file name these entries (1-based).
    EXPECT_EQ(expect[2 - 1].rfind("FIT", 0), 0u);
    EXPECT_EQ(expect[3 - 1].rfind("Uncompressed TIFF", 0), 0u);
    EXPECT_EQ(expect[6 - 1].rfind("SBIG Image", 0), 0u);
    EXPECT_EQ(expect[13 - 1].rfind("Sony", 0), 0u);
}

TEST(FileFilters, SaveSbigAndRawConversionLists) {
    EXPECT_EQ(Strings(SaveSbigFilterEntries()),
              (std::vector<std::string>{
                  "SBIG (*.sbig)|*.sbig; *.SBIG|", "SBIG (*.st2k)|*.st2k; *.ST2K|",
                  "SBIG (*.st4k)|*.st4k; *.ST4K|", "SBIG ST-X Type 3 Format (*.stx)|*.stx; *.STX|",
                  "SBIG ST-5 Type 3 Format (*.st5)|*.st5; *.ST5|",
                  "SBIG ST-6 Type 3 Format (*.st6)|*.st6; *.ST6|",
                  "SBIG ST-7 Type 3 Format (*.st7)|*.st7; *.ST7|",
                  "SBIG ST-8 Type 3 Format (*.st8)|*.st8; *.ST8|",
                  "SBIG ST-9 Type 3 Format (*.st9)|*.st9; *.ST9|",
                  "SBIG STV Type 3 Format (*.stv)|*.stv; *.STV|",
                  "SBIG PixCel255 Type 3 Format (*.255)|*.255|",
                  "SBIG PixCel237 Type 3 Format (*.237)|*.237|"}));
    const std::vector<std::string> raw = Strings(RawConversionFilterEntries());
    const std::vector<std::string> added = {"Nikon (*.nef; *.nrw)|*.nef; *.NEF; *.nrw; *.NRW|",
                                            "Adobe Digital Negative (*.dng)|*.dng; *.DNG|",
                                            "Fuji (*.raf)|*.raf; *.RAF|",
                                            "Canon 1Ds (*.tif)|*.tif; *.TIF|"};
    ASSERT_EQ(raw.size(), 12u);
    EXPECT_EQ(std::vector<std::string>(raw.end() - 4, raw.end()), added);
    // The seven camera entries of the open list come first, after all files.
    const std::vector<std::string> open = Strings(OpenImageFilterEntries());
    EXPECT_EQ(raw.front(), open.front());
    EXPECT_EQ(std::vector<std::string>(raw.begin() + 1, raw.begin() + 8),
              std::vector<std::string>(open.end() - 7, open.end()));

    EXPECT_EQ(JoinFilters(SaveImageFilterEntries()),
              "FIT (*.fit; *.fts; *.fits)|*.fit; *.FIT; *.fts; *.FTS; *.fits; *.FITS|"
              "Uncompressed TIFF (*.tif; *.tiff)|*.tif; *.TIF; *.tiff; *.TIFF|");
    EXPECT_EQ(SaveImageFilterIndex(KindTIFF), 2);
    EXPECT_EQ(SaveImageFilterIndex(KindFITS), 1);
    EXPECT_EQ(SaveImageFilterIndex(KindJPEG), 1);
}

TEST(SaveNameCheck, ModeTable) {
    const std::vector<std::string> mode1 = {"BMP", "RAW", "TIF", "JPG", "JPE", "JPEG"};
    auto with = [&](std::vector<std::string> more) {
        std::vector<std::string> v = mode1;
        v.insert(v.end(), more.begin(), more.end());
        return v;
    };
    struct Case {
        int mode;
        std::vector<std::string> allowed;
    };
    const Case cases[] = {
        {1, mode1},
        {15, mode1},
        {2, with({"STX", "R", "G", "B", "C", "M", "Y"})},
        {3, with({"ST5", "R", "G", "B", "C", "M", "Y"})},
        {4, {"ST6"}},
        {5, {"ST7"}},
        {6, {"ST8"}},
        {7, {"237"}},
        {8, {"255"}},
        {17, {"STV"}},
        {18, {"ST9"}},
        {9, with({"R"})},
        {10, with({"G"})},
        {11, with({"B"})},
        {12, with({"C"})},
        {13, with({"M"})},
        {14, with({"Y"})},
        {16, with({"FTS", "FIT", "FITS"})},
        {20, {"TIF", "FTS", "FIT", "FITS"}},
        {100, {"FTR"}},
        {110, {"RDP"}},
        {200, {"PSF"}},
        {201, {"CPM"}},
        {300, {"FTS", "FIT", "FITS", "BMP", "JPG", "JPE", "JPEG", "TIF"}},
        {301,
         {"FTS", "FIT", "FITS", "JPG", "JPE", "JPEG", "TIF", "SBIG", "ST2K", "ST4K", "STX", "ST5",
          "ST6", "ST7", "ST8", "ST9", "STV", "255", "237"}},
        {400, {"TXT"}},
        {401, {"QXJ"}},
        {0, {}},
        {21, {}},
        {999, {}},
    };
    // Every extension any mode knows, and a few no mode knows.
    std::vector<std::string> universe = {"PNG", "FZ", "TIFF", "ST4", "X"};
    for (const Case& c : cases)
        universe.insert(universe.end(), c.allowed.begin(), c.allowed.end());
    for (const Case& c : cases) {
        std::vector<std::string> allowed;
        EXPECT_TRUE(SaveDialogExtensions(c.mode, &allowed)) << c.mode;
        EXPECT_EQ(allowed, c.allowed) << c.mode;
        for (const std::string& ext : universe) {
            const bool ok = std::find(c.allowed.begin(), c.allowed.end(), ext) != c.allowed.end();
            // Typed in lower case: the check upper-cases.
            std::string lower = ext;
            std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
            const SaveNameCheck check = CheckSaveFileName(c.mode, "/home/u/image." + lower);
            EXPECT_EQ(check.accepted, ok) << c.mode << " " << ext;
            if (!ok) {
                EXPECT_EQ(check.title, "Save As");
                EXPECT_EQ(check.message,
                          "image." + lower +
                              " has an invalid extension for its type.\nPlease remove the "
                              "extension from the name and choose an extension from the type "
                              "list.");
            }
        }
        // No extension always passes: the dialog supplies one.
        EXPECT_TRUE(CheckSaveFileName(c.mode, "image").accepted) << c.mode;
    }
    // Mode 19 checks no extension.
    std::vector<std::string> none;
    EXPECT_FALSE(SaveDialogExtensions(19, &none));
    for (const char* name : {"a.xyz", "a.fit", "a.b.c"})
        EXPECT_TRUE(CheckSaveFileName(19, name).accepted) << name;
}

TEST(SaveNameCheck, TrailingPeriodAndFolders) {
    for (int mode : {1, 16, 19, 20, 301, 999}) {
        const SaveNameCheck check = CheckSaveFileName(mode, "/data/m31.");
        EXPECT_FALSE(check.accepted) << mode;
        EXPECT_EQ(check.message, "Please remove the period from the filename.");
        EXPECT_EQ(check.title, "");
    }
    // A point in a folder name is not an extension; the last point of the name counts.
    EXPECT_TRUE(CheckSaveFileName(16, "/data.v2/m31").accepted);
    EXPECT_TRUE(CheckSaveFileName(16, "C:\\data.v2\\m31").accepted);
    EXPECT_TRUE(CheckSaveFileName(16, "m31.final.FiTs").accepted);
    const SaveNameCheck check = CheckSaveFileName(20, "C:\\x\\m31.fits.bak");
    EXPECT_FALSE(check.accepted);
    EXPECT_EQ(check.message.rfind("m31.fits.bak has an invalid extension", 0), 0u);
}

} // namespace
} // namespace astrivelle
