// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Opening a file for display: the classification that runs before an image window is
/// made. It decides by the file name's extension which reader opens the file, with which file
/// kind and colour type, converts camera raw files to a temporary FITS file first, and gives
/// the fixed text of every refusal.
#pragma once
#include <cstdint>
#include <functional>
#include <string>

namespace astrivelle {

class INotify;
class IProgress;
struct RawRequest;

/// Fixed texts of the open path.
inline constexpr const char* kInvalidFilenameText = "Invalid filename.";
inline constexpr const char* kCouldNotOpenText = "Could Not Open ";
inline constexpr const char* kCouldNotDisplayRawText = "Could Not Display Raw DSLR file ";
inline constexpr const char* kOpenHoldEscCaption = "### Hold ESC To Cancel Open Image ###";
inline constexpr const char* kCancelOpenQuestion = "Cancel Open Image?";
inline constexpr const char* kCannotAllocateWindowText =
    "Can't Allocate Memory. Please Close Some Applications And Try Again.";
/// Largest number of characters of file names the open dialog takes.
inline constexpr std::size_t kOpenDialogBufferChars = 500000;

/// The readers the classification consults. DefaultOpenProbes() uses the format code of
/// fileio/; tests may replace one.
struct OpenProbes {
    /// SBIG header probe: KindSBIG, KindSBIGCompressed, or KindNone for a foreign file.
    std::function<std::int32_t(const std::string& path)> sbig;
    /// FITS probe: false when the file cannot be read, else colour or mono.
    std::function<bool(const std::string& path, bool* isColor)> fits;
    /// TIFF tag reader: false with the reader's own text in `message` (empty when none).
    std::function<bool(const std::string& path, bool* isRgb, std::string* message)> tiff;
    /// JPEG header: false when unreadable, else the colour space ("GRAY", "RGB", ...).
    std::function<bool(const std::string& path, std::string* colorSpace)> jpeg;
    /// Camera raw conversion (DecodeRawFile).
    std::function<bool(RawRequest& request)> raw;
};

OpenProbes DefaultOpenProbes();

/// What stays the same over the files of one multi-file open.
struct OpenSelection {
    bool rawAsked = false;   ///< the Bayer question was asked for this selection
    bool rawAsBayer = false; ///< its answer: "WBCFA" instead of "Color"
};

/// Where and how raw files are converted for display.
struct OpenOptions {
    INotify* notify = nullptr;     ///< asks kRawOpenAsBayerQuestion; null answers No
    IProgress* progress = nullptr; ///< the decoder's seven steps
    std::string tempDir;           ///< folder of the "CVT_" files; empty: the system's temp
};

/// The outcome for one file.
struct OpenClassification {
    std::string name;          ///< the file name, upper-cased (folder part removed)
    std::string extension;     ///< upper-cased, with its point
    std::string pathToRead;    ///< the file the reader opens: the input or the converted raw
    std::int32_t fileType = 0; ///< ImageFileKind of the reader
    std::uint32_t colorType = 0;
    std::string conversion; ///< raw files: the conversion keyword used
    /// The open dialog's filter index after this file (2 FITS, 3 TIFF, 6 SBIG, 7 CRW, 8 CR2,
    /// 9 NEF, 10 DCR, 11 PEF, 12 ORF, 13 ARW); 0 leaves it as it was.
    int filterIndex = 0;
    std::string message; ///< the text shown when the file is refused
};

/// Classifies `path` for display. False with out->message set to the text the user sees:
/// "Invalid filename.", "Could Not Open " + name, "Could Not Read " + path, "Could not read "
/// + path (or the TIFF reader's own text), "Could Not Display Raw DSLR file " + name.
bool ClassifyOpenFile(const std::string& path, OpenSelection& selection, const OpenOptions& options,
                      OpenClassification* out, const OpenProbes& probes = DefaultOpenProbes());

} // namespace astrivelle
