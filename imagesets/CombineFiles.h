// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Combine Files / HDR add: one image from a list of frames that are never all held in
/// memory. The accumulating methods stream the frames one at a time into per-pixel planes,
/// reading the list once per phase; the median family reads tiles of rows of all frames, as
/// many tiles as the free memory asks. The result carries the record of the combination in
/// its COMMENT cards, and the adaptive additions keep their raw sums so that the tone map can
/// be made again with other settings without reading the files.
#pragma once
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "imagesets/CombineMethods.h"

namespace astrivelle {

class IProgress;

/// Where the frames of a combination come from. Read is called once per frame per phase
/// (per tile for the median family), in list order.
class CombineFrameSource {
public:
    virtual ~CombineFrameSource() = default;
    virtual int Count() const = 0;
    /// The frame's path (or name), for the record and the error texts.
    virtual std::string Name(int index) const = 0;
    /// Reads frame `index` into a fresh image. False with the fixed text in `error`.
    virtual bool Read(int index, Image& image, std::string* error) = 0;
};

/// Frames from image files, read by extension. A FITS file that can't be read gives "Could
/// not open FITS image. Possible Reasons: Could not allocate memory for image or
/// non-standard compressed image.", any other "Could not read image.".
class FileFrameSource : public CombineFrameSource {
public:
    explicit FileFrameSource(std::vector<std::string> paths) : paths_(std::move(paths)) {}
    int Count() const override { return static_cast<int>(paths_.size()); }
    std::string Name(int index) const override { return paths_[index]; }
    bool Read(int index, Image& image, std::string* error) override;

private:
    std::vector<std::string> paths_;
};

struct CombineSettings {
    CombineMethod method = CombineMethod::Avg;
    double clipFactor = kDefaultClipFactor; ///< SIGAVG, SIGMED
    double compress = 0.2;                  ///< ADPADD, EXCADPADD
    double brightness = 1.0;                ///< ADPADD, EXCADPADD
    /// GRADEAVG, GRADEAVGAUTO: the weight of each frame (see GradeWeights); empty gives
    /// every frame 1 / count.
    std::vector<double> weights;
    /// Median family: rows per tile; 0 chooses by the free memory (CombineSegments).
    int tileRows = 0;
    /// Median family: the free memory to plan with; 0 asks the system.
    unsigned long long freeMemory = 0;
};

/// The letters' weights in percent (A, B, C, D, F) used when no others are given.
constexpr std::array<int, 5> kDefaultGradePercent = {100, 75, 50, 25, 0};

/// The weight of each file for the graded averages. A name that starts with a grade mark
/// ("AGA_AVERAGE", "AGB_AVERAGE", "AGC_AVERAGE", "AGD_AVERAGE", "AGF_AVERAGE" or the same
/// with RED, GREEN, BLUE) takes its letter's percent / 100; any other its grade in
/// `listGrades` divided by the sum of all of them (every grade 1 when `listGrades` is empty).
std::vector<double> GradeWeights(const std::vector<std::string>& paths,
                                 const std::vector<double>& listGrades,
                                 const std::array<int, 5>& letterPercent = kDefaultGradePercent);

/// One combination: run it, read the result, redo the tone map.
class CombineJob {
public:
    CombineJob();
    ~CombineJob();
    CombineJob(const CombineJob&) = delete;
    CombineJob& operator=(const CombineJob&) = delete;

    /// Combines the frames of `source`. False with the texts in Errors() (the first is the
    /// run's status): too few frames, a read failure, a frame of another size or colour,
    /// "Could not allocate memory for image.", "Could not allocate HDR memory." or "Thread
    /// Canceled". Nothing of a failed run stays in Result().
    bool Run(CombineFrameSource& source, const CombineSettings& settings,
             IProgress* progress = nullptr);

    /// The combined image: RGB when the first frame is colour, else that frame's colour type;
    /// the first frame's header (without EXTNAME) followed by the record's COMMENT cards.
    Image& Result() { return *result_; }
    const std::vector<std::string>& Errors() const { return errors_; }
    /// Median family: the number of tiles and rows per tile the run used.
    int Tiles() const { return tiles_; }
    int TileRows() const { return tileRows_; }

    /// ADPADD, EXCADPADD: makes the tone map again from the kept raw planes. False for
    /// another method or before a run.
    bool RecomputeToneMap(double compress, double brightness);
    /// The kept raw planes of the adaptive additions (null otherwise).
    const float* RawPlane(int channel) const;

    /// The record of the combination, one COMMENT text each: the method line, "Number Of
    /// Files : %d", "Files Used in Combination : ", the file names, "Path : " and the folder.
    std::vector<std::string> RecordLines() const;

private:
    struct State;
    std::unique_ptr<State> state_;
    std::unique_ptr<Image> result_;
    std::vector<std::string> errors_;
    int tiles_ = 0;
    int tileRows_ = 0;
};

/// A whole Combine Files run from a list of files to DIR/NAME plus the save type's
/// extension (".fit" for the FITS types, ".tif" for UNCOMPTIF and TIFF16).
struct CombineFilesParams {
    std::vector<std::string> files;
    CombineSettings settings;
    std::string outDir;
    std::string name;                   ///< without extension
    std::string saveType = "UNCOMPFIT"; ///< UNCOMPTIF, TIFF16, UNCOMPFIT, COMPFIT, ...
};

struct CombineFilesOutcome {
    std::string status;              ///< the run's final text (" %d Images" when written)
    std::string output;              ///< the written file, empty on failure
    std::vector<std::string> errors; ///< every fatal text
};

/// Checks the name ("A file name can't contain any of the following characters:\n" and the
/// characters after 30 blanks), combines, writes through a temporary file ("Error writing
/// combination image."). False on any error, with no file written.
bool CombineFiles(const CombineFilesParams& params, IProgress* progress,
                  CombineFilesOutcome* outcome, CombineJob* job = nullptr);

/// The refusal text of a combined file name with a forbidden character, or empty when the
/// (trimmed) name is fine.
std::string CombineNameError(const std::string& name);

} // namespace astrivelle
