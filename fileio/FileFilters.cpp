// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The filter strings of the file dialogs and the save dialog's mode table.
#include "fileio/FileFilters.h"

#include <algorithm>
#include <array>

#include "engine/Image.h"
#include "fileio/FileDispatch.h"

namespace astrivelle {

namespace {

constexpr const char* kAllFiles = "All Files (*.*)|*.*|";
constexpr const char* kFit =
    "FIT (*.fit; *.fts; *.fits)|*.fit; *.FIT; *.fts; *.FTS; *.fits; *.FITS|";
constexpr const char* kTiff = "Uncompressed TIFF (*.tif; *.tiff)|*.tif; *.TIF; *.tiff; *.TIFF|";
constexpr const char* kJpeg =
    "JPEG (*.jpg; *.jpe; *.jpeg)|*.jpg; *.JPG; *.jpe; *.JPE; *.jpeg; *.JPEG|";
constexpr const char* kBmp = "24 Bit BMP (*.bmp)|*.bmp; *.BMP|";
constexpr const char* kSbigAll =
    "SBIG Image|*.sbig; *.SBIG; *.st2k; *.ST2K; *.st4k; *.ST4K; *.stx; *.STX; *.st5; *.ST5; "
    "*.st6; *.ST6; *.st7; *.ST7; *.st8; *.ST8; *.st9; *.ST9; *.stv; *.STV; *.255; *.237|";
constexpr const char* kCrw = "Canon (*.crw)|*.crw; *.CRW|";
constexpr const char* kCr2 = "Canon (*.cr2)|*.cr2; *.CR2|";
constexpr const char* kNef = "Nikon (*.nef)|*.nef; *.NEF|";
constexpr const char* kDcr = "Kodak (*.dcr)|*.dcr; *.DCR|";
constexpr const char* kPef = "Pentax (*.pef)|*.pef; *.PEF|";
constexpr const char* kOrf = "Olympus (*.orf)|*.orf; *.ORF|";
constexpr const char* kArw = "Sony (*.arw)|*.arw; *.ARW|";

constexpr std::array<const char*, 13> kOpenEntries = {
    kAllFiles, kFit, kTiff, kJpeg, kBmp, kSbigAll, kCrw, kCr2, kNef, kDcr, kPef, kOrf, kArw};

constexpr std::array<const char*, 12> kSaveSbigEntries = {
    "SBIG (*.sbig)|*.sbig; *.SBIG|",
    "SBIG (*.st2k)|*.st2k; *.ST2K|",
    "SBIG (*.st4k)|*.st4k; *.ST4K|",
    "SBIG ST-X Type 3 Format (*.stx)|*.stx; *.STX|",
    "SBIG ST-5 Type 3 Format (*.st5)|*.st5; *.ST5|",
    "SBIG ST-6 Type 3 Format (*.st6)|*.st6; *.ST6|",
    "SBIG ST-7 Type 3 Format (*.st7)|*.st7; *.ST7|",
    "SBIG ST-8 Type 3 Format (*.st8)|*.st8; *.ST8|",
    "SBIG ST-9 Type 3 Format (*.st9)|*.st9; *.ST9|",
    "SBIG STV Type 3 Format (*.stv)|*.stv; *.STV|",
    "SBIG PixCel255 Type 3 Format (*.255)|*.255|",
    "SBIG PixCel237 Type 3 Format (*.237)|*.237|",
};

constexpr std::array<const char*, 12> kRawEntries = {
    kAllFiles,
    kCrw,
    kCr2,
    kNef,
    kDcr,
    kPef,
    kOrf,
    kArw,
    "Nikon (*.nef; *.nrw)|*.nef; *.NEF; *.nrw; *.NRW|",
    "Adobe Digital Negative (*.dng)|*.dng; *.DNG|",
    "Fuji (*.raf)|*.raf; *.RAF|",
    "Canon 1Ds (*.tif)|*.tif; *.TIF|",
};

constexpr std::array<const char*, 2> kSaveImageEntries = {kFit, kTiff};

/// Mode 1 (and 15): the extensions every picture save takes.
const std::vector<std::string>& Mode1() {
    static const std::vector<std::string> list = {"BMP", "RAW", "TIF", "JPG", "JPE", "JPEG"};
    return list;
}

std::vector<std::string> Mode1With(std::initializer_list<const char*> more) {
    std::vector<std::string> list = Mode1();
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

} // namespace

std::string JoinFilters(std::span<const char* const> entries) {
    std::string all;
    for (const char* e : entries)
        all += e;
    return all;
}

std::span<const char* const> OpenImageFilterEntries() {
    return kOpenEntries;
}

std::span<const char* const> SaveSbigFilterEntries() {
    return kSaveSbigEntries;
}

std::span<const char* const> RawConversionFilterEntries() {
    return kRawEntries;
}

std::span<const char* const> SaveImageFilterEntries() {
    return kSaveImageEntries;
}

int SaveImageFilterIndex(int fileType) {
    return fileType == KindTIFF ? 2 : 1;
}

bool SaveDialogExtensions(int mode, std::vector<std::string>* allowed) {
    static const char* const kLetters[6] = {"R", "G", "B", "C", "M", "Y"};
    allowed->clear();
    switch (mode) {
    case 1:
    case 15:
        *allowed = Mode1();
        return true;
    case 2:
        *allowed = Mode1With({"STX", "R", "G", "B", "C", "M", "Y"});
        return true;
    case 3:
        *allowed = Mode1With({"ST5", "R", "G", "B", "C", "M", "Y"});
        return true;
    case 4:
        *allowed = {"ST6"};
        return true;
    case 5:
        *allowed = {"ST7"};
        return true;
    case 6:
        *allowed = {"ST8"};
        return true;
    case 7:
        *allowed = {"237"};
        return true;
    case 8:
        *allowed = {"255"};
        return true;
    case 9:
    case 10:
    case 11:
    case 12:
    case 13:
    case 14:
        *allowed = Mode1With({kLetters[mode - 9]});
        return true;
    case 16:
        *allowed = Mode1With({"FTS", "FIT", "FITS"});
        return true;
    case 17:
        *allowed = {"STV"};
        return true;
    case 18:
        *allowed = {"ST9"};
        return true;
    case 19:
        return false;
    case 20:
        *allowed = {"TIF", "FTS", "FIT", "FITS"};
        return true;
    case 100:
        *allowed = {"FTR"};
        return true;
    case 110:
        *allowed = {"RDP"};
        return true;
    case 200:
        *allowed = {"PSF"};
        return true;
    case 201:
        *allowed = {"CPM"};
        return true;
    case 300:
        *allowed = {"FTS", "FIT", "FITS", "BMP", "JPG", "JPE", "JPEG", "TIF"};
        return true;
    case 301:
        *allowed = {"FTS", "FIT", "FITS", "JPG", "JPE", "JPEG", "TIF", "SBIG", "ST2K", "ST4K",
                    "STX", "ST5", "ST6",  "ST7", "ST8", "ST9",  "STV", "255",  "237"};
        return true;
    case 400:
        *allowed = {"TXT"};
        return true;
    case 401:
        *allowed = {"QXJ"};
        return true;
    default:
        return true;
    }
}

SaveNameCheck CheckSaveFileName(int mode, const std::string& fileName) {
    SaveNameCheck result;
    const std::size_t slash = fileName.find_last_of("/\\");
    const std::string name = slash == std::string::npos ? fileName : fileName.substr(slash + 1);
    const std::size_t point = name.rfind('.');
    if (point == std::string::npos)
        return result;
    const std::string ext = UpperExtension(name.substr(point + 1));
    if (ext.empty()) {
        result.accepted = false;
        result.message = kRemovePeriodText;
        return result;
    }
    std::vector<std::string> allowed;
    if (!SaveDialogExtensions(mode, &allowed))
        return result;
    if (std::find(allowed.begin(), allowed.end(), ext) != allowed.end())
        return result;
    result.accepted = false;
    result.message = name + kInvalidExtensionText;
    result.title = kSaveAsTitle;
    return result;
}

} // namespace astrivelle
