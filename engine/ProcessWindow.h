// SPDX-License-Identifier: GPL-3.0-or-later
/// \file One open image with its history and the engine state by which every operator is
/// applied and recorded. No window here: what a window would show goes through INotify.
#pragma once
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "engine/Image.h"
#include "engine/Notify.h"
#include "engine/ProcessStructure.h"

namespace astrivelle {

class CProcessWindow;
struct UnsharpParams;             // operators/Restoration.h
struct RestorationParams;         // operators/Restoration.h
struct AdaptiveRestorationParams; // operators/Restoration.h
struct EdgeParams;                // operators/Restoration.h
struct CCustomFilter;             // operators/FilterSupport.h
struct LevelsParams;              // operators/Curves.h
struct MicroCurvesParams;         // operators/Curves.h
struct HistogramStretchParams;    // operators/Curves.h
struct DigitalDevelopmentParams;  // operators/Stretch.h
struct ArcSinHParams;             // operators/Stretch.h
struct GeneralStretchParams;      // operators/Stretch.h
struct TranslateParams;           // operators/Geometry.h
struct RotateParams;              // operators/Geometry.h
struct ScaleStepParams;           // operators/Geometry.h

/// Where a step's state goes before the next different operator changes it. The history
/// subsystem provides the real one (step files next to the image); without one no step file
/// is written and undo past the pending step is not possible.
class IStepStore {
public:
    virtual ~IStepStore() = default;
    /// Writes the state the image shows now; false on failure.
    virtual bool SaveStepImage(CProcessWindow& window) = 0;
};

/// Blends the pure operator result with the step's input (blend mode, opacity, mask). Provided
/// by the workbench, which can read mask files; without one the operator skeleton blends by
/// itself (BlendRecord, engine/Blend.h) with flat and surface masks, and refuses a mask file.
class IBlender {
public:
    virtual ~IBlender() = default;
    /// `mode` is "ApplyMask" or "BlendOnly".
    virtual bool Blend(CProcessWindow& window, const CProcessStructure& record,
                       const std::string& mode) = 0;
};

/// Where the blend values of a repeated step come from when the history tool is open.
class IHistoryView {
public:
    virtual ~IHistoryView() = default;
    virtual void BlendValues(CProcessStructure* record) = 0;
};

class CProcessWindow {
public:
    explicit CProcessWindow(INotify* notify = nullptr);

    Image image;
    std::vector<CProcessStructure> history;
    std::string filePath; ///< the file the image was read from or saved to
    std::string title;    ///< name shown in the caption

    // Engine state.
    int currentStep = 0;
    std::string currentOp;
    std::string lastOp;
    bool pending = false;
    bool stepDirty = false;
    bool newStep = false;
    bool replacingStep = false;
    bool opRunning = false;
    bool threadBusy = false;
    bool fileOpBusy = false;
    bool isBlinkImage = false;

    // Roles that a tool holding this image gives it; the guards refuse operators on them.
    bool isCombineImagesCombination = false;
    bool isCombineLRGBTarget = false;
    bool isCombineFrequencyTarget = false;
    bool isMixLRGBTarget = false;
    bool isCombineBayerTarget = false;
    bool isImageMathTarget = false;

    /// Channels that per-channel operators apply to on an RGB image (main window selection).
    bool channelSelect[3] = {true, true, true};
    /// The slots a per-channel operator applies to: the one slot of a monochrome image, or the
    /// selected channels of an RGB image, in the order red, green, blue.
    std::vector<int> SelectedSlots() const;

    // ---- Main window: role flags, temporary files, closing (engine/workbench/MainWindow*) ----
    // Every flag is set by the tool or job that takes the role and cleared by it. The targets
    // above stand for: isCombineImagesCombination the Combine Images combination,
    // isCombineLRGBTarget the Combine Channel target, isCombineBayerTarget the Combine Bayer
    // CFA target, isImageMathTarget the Image Math target.
    bool closeLocked = false;         ///< the user's own lock against closing
    bool videoSource = false;         ///< the image of the video display
    bool cropFilesUse = false;        ///< preview of Crop Files
    bool alignTsrFilesUse = false;    ///< preview of Align (translate, scale, rotate) Files
    bool alignPlanetFilesUse = false; ///< preview of Align Planet (auto align) Files
    bool blinkFilesUse = false;       ///< preview of Blink Files
    bool gradeFilesUse = false;       ///< preview of Grade Files
    bool convertFilesUse = false;     ///< preview of Convert Files
    bool imageMathSource = false;
    bool combineImagesSource = false;
    bool combineImagesMask = false;
    bool combineImagesGrayMask = false;
    bool combineChannelSource = false;
    bool combineFrequencySource = false;
    bool combineCfaSource = false;
    bool mixLrgbSource = false;
    bool timeSequenceSource = false;
    bool alignSource = false;
    bool keepFiles = false;        ///< a project names the files: none is deleted on close
    bool placeholderImage = false; ///< made because a project's origin image was missing
    /// Step and filter files (and other temporary files) of this image, deleted on close.
    std::vector<std::string> tempFiles;
    /// Files a saved project names; they survive the deletion of temporary files.
    std::vector<std::string> keptFiles;
    /// The closing rules of the window's own close, in order: false with the first text
    /// that holds shown through notify().
    bool CloseQuery();

    // ---- Project files (engine/workbench/Project*) -----------------------------------------
    /// The user comment of the project's report.
    std::string projectComment;
    /// The main window's list of kept project files, when a main window owns this image;
    /// SaveProject adds the saved paths to it as to keptFiles.
    std::vector<std::string>* mainKeptFiles = nullptr;
    /// Writes the history as the project `path` (.qxj) and its report (.txt). `finalName`
    /// names the final image in the report; the last three are "Y" or "N". With images, the
    /// files the records name are copied into the project's folder first. Failures are told
    /// through notify() with their fixed texts; false then.
    bool SaveProject(const std::string& path, const std::string& finalName,
                     const std::string& withCommands, const std::string& withImages,
                     const std::string& withText);

    // ---- Process history: undo, redo, commands (engine/workbench/History*, StepFile*) -------
    // Each step's state lies in a step file next to the image (`M31$1.fit`); only the shown
    // state and its input are in planes. tempFiles (above) lists this image's step files.
    /// The main window's list of every temporary file of the run, when a main window owns
    /// this image: step and filter files are added to it as to tempFiles.
    std::vector<std::string>* mainTempFiles = nullptr;
    /// The command clipboard shared by all images (the main window's), or null for the one
    /// of the process, SharedCommandClipboard() (engine/workbench/CommandClipboard.h).
    std::vector<CProcessStructure>* copiedCommands = nullptr;
    /// Set while forward processing runs a step at a tick: a busy image is waited for quietly.
    bool quietForward = false;
    /// The step files whose pixels the current and previous planes hold unchanged (empty when
    /// unknown), trusted only while stepDirty is clear and filePath names curPlanesFile: undo
    /// and redo then take a state from the planes instead of reading it again.
    std::string curPlanesFile;
    std::string prevPlanesFile;
    /// The statistics (red, green, blue, value) of the previous planes, kept from when they
    /// were shown, so that taking them back costs no new pass; valid with prevPlanesFile.
    ChannelStats prevPlanesStats[4];
    bool prevPlanesStatsValid = false;
    /// Writes the shown state to its step file if it is not in one yet (and the pure result,
    /// if work rows hold one, to its filter file); false when the write failed, told through
    /// notify(). The origin step (step 0) is its own file.
    bool SaveStepImage();
    /// Reads a step file into the current planes (`which` "CUR") or the previous ones ("PREV").
    bool LoadStepImage(const std::string& path, const std::string& which);
    /// Reads a step's pure result into the work rows and checks its mask file.
    bool LoadStepFilter(const std::string& filterPath, const std::string& maskPath);
    /// Shows the state of a step (`apply` false) or runs it again (`apply` true), with its
    /// tool shown through notify().ShowTool when `showTool` is set.
    bool ReprocessCommand(const std::string& operation, const std::string& prevFile,
                          const std::string& curFile, const std::string& parameters, bool apply,
                          bool showTool, const std::string& filterFile,
                          const std::string& maskFile);
    /// Show the step before / after the shown one, or the step `index`. False when nothing
    /// was shown (at the ends, refused, or the step's file could not be read).
    bool Undo();
    bool Redo();
    bool GoToStep(int index);
    /// Runs the step after the shown one again on the shown state (forward processing).
    bool NextCommand();
    /// Runs every step after the shown one, `intervalMs` apart (2000 in the desktop; 0 runs
    /// them back to back), waiting while the image is busy. A cancel request on `cancel` asks
    /// "Cancel Forward Processing?"; texts of the run go to its status. True when the last
    /// step was reached.
    bool AllCommands(int intervalMs = 2000, IProgress* cancel = nullptr);
    /// The command list's editing: rows by index, row 0 is the origin.
    bool CopyCommands(const std::vector<int>& selection);
    bool CutCommands(const std::vector<int>& selection);
    bool PasteCommands(int afterIndex);
    bool DeleteCommands(const std::vector<int>& selection);
    /// Blends the shown step again with new blend values: `values` when given, else those of
    /// the history view, else the record's own.
    bool ReapplyBlend(bool maskChanged, const CProcessStructure* values = nullptr);
    /// Drops the history: deletes this image's step and filter files (all of tempFiles unless
    /// keepFiles is set or keptFiles names them) and empties the list of records.
    void DropHistory();

    // Seams filled by the history subsystem and the front end.
    IStepStore* stepStore = nullptr;
    IBlender* blender = nullptr;
    IHistoryView* historyView = nullptr;

    INotify& notify() { return *notify_; }
    void SetNotify(INotify* n) { notify_ = n ? n : &SilentNotify(); }

    /// Starts the history with its first step ("Read", "New Image"...).
    void BeginHistory(const std::string& firstOperation);

    /// The gate of every application: decides by `pending` whether this adds a step or
    /// repeats the last one, and saves the previous step's state when a new operator starts.
    bool BeginOperator(const std::string& name);

    /// The skeleton every operator function follows: gate, caption, record, pixel work,
    /// blend, display refresh, statistics. `work(pending)` runs the pixel function on each
    /// channel that applies. Returns false when the gate refused or the work failed; a work
    /// that fails (out of memory, cancelled) takes its history step back, and leaves the
    /// planes as it wants them shown (a cancel puts the input back).
    bool RunOperator(const std::string& name, const std::string& parameters,
                     const std::function<bool(bool pending)>& work);

    /// Refreshes statistics and readouts after an operator.
    void AfterOperator();

    /// The caption: title and colour suffix.
    std::string Caption() const;

    // ---- Pixel Math operator functions (operators/masks/) ----------------------------------
    bool PixelMathAdd(bool subtract, double constant, int applyMin, int applyMax, int feather);
    bool PixelMathMultiply(double constant, int applyMin, int applyMax, int feather);
    bool PixelMathDivide(double constant, int applyMin, int applyMax, int feather);

    // ---- Unsharp Mask, iterative restoration, Edge Extract (operators/filters/) -------------
    /// With the Custom filter `custom` gives its entries (a sum of 0 is refused with its text).
    bool UnsharpMask(const UnsharpParams& params, const CCustomFilter* custom = nullptr);
    /// A whole restoration run: one history step, one iteration per pass of the loop, cancel
    /// (through `progress`) between iterations; the record ends with "Iterations : N#" of the
    /// iterations done. `stepThrough(done)` is asked after each iteration but the last; false
    /// stops the run there. True when at least one iteration was done.
    bool IterativeRestoration(const RestorationParams& params, const CCustomPSF* custom,
                              IProgress* progress,
                              const std::function<bool(int done)>& stepThrough = {});
    bool AdaptiveRestoration(const AdaptiveRestorationParams& params, const CCustomPSF* custom,
                             IProgress* progress,
                             const std::function<bool(int done)>& stepThrough = {});
    bool EdgeExtract(const EdgeParams& params);

    // ---- Tone curves operator functions (operators/tone/) ----------------------------------
    /// Levels: mode 1 applies the Red, Green and Blue sets to their planes, a single-plane
    /// mode the set of its plane (monochrome the Red set); the RGB master is only recorded.
    bool Levels(const LevelsParams& params);
    /// Micro Curves: master with slots 1..3 on an RGB image, master with the plane's own slot
    /// on a single-plane image, slots 0, 1 and 3 through Lab with "LAB" on an RGB image.
    bool MicroCurves(const MicroCurvesParams& params);
    /// Histogram Contrast Stretch on each plane of the colour mode, by its own histogram.
    bool HistogramContrastStretch(const HistogramStretchParams& params);

    // ---- Stretch operator functions (operators/tone/) --------------------------------------
    // Digital Development and ArcSinH run on a worker (progress and cancel through `progress`,
    // which may be null). A run that fails or is cancelled leaves no history entry.
    bool DigitalDevelopment(const DigitalDevelopmentParams& params, IProgress* progress,
                            const CCustomFilter* customFilter = nullptr);
    bool ArcSinH(const ArcSinHParams& params, IProgress* progress);
    bool GeneralStretch(const GeneralStretchParams& params);

    // ---- Smoothing operator functions (operators/filters/) -------------------------------
    /// Smoothing on each selected plane, red, green, blue, stopping at the first that fails.
    /// A window above the type's limit is set to it (its text shown); a window not smaller
    /// than the image refuses with its text. `progress` may be null.
    bool Smoothing(const struct SmoothingParams& params, IProgress* progress);

    // ---- Reduce High, Low, Bloom Pixel operator function (operators/filters/) ------------
    /// On each selected plane; a parameter out of range is refused before any step. Memory
    /// failure shows "No memory for operation" and leaves no step.
    bool ReducePixels(const struct ReducePixelsParams& params);

    // ---- Star readout under the mouse (align/StarReadout.cpp) ------------------------------
    /// Measures the star at the 0-based mouse position (x, y) with FWHM and HFD, `forceAccept`
    /// passed on: on an RGB image the luminance into out[0] and red, green, blue into out[1],
    /// out[2], out[3]; on a monochrome image its one channel into out[0]. Only the first
    /// `outCount` (at most 4) records are touched: each is cleared, then filled (valid 1) when
    /// its star was accepted. False, touching nothing, unless y > 15, y < height - 15,
    /// x >= 16 and x < width - 15.
    bool CalculateNbhdHFD(int x, int y, bool forceAccept, CStarShapeStructure* out, int outCount);

    // ---- Geometric transforms operator functions (operators/geometry/) --------------------
    // The sheet's checks come first, each refusal shown with its text ("No image is availble.",
    // "Please enter a positive real number.", ...). The mirrors, Scale and a Rotate with Add
    // Border are a new history step at every application (a repeat would otherwise start from
    // an input of another size, or undo the flip); their result is final at once.
    bool MirrorVertical();
    bool MirrorHorizontal();
    bool Translate(const TranslateParams& params);
    bool Rotate(const RotateParams& params);
    bool Scale(const ScaleStepParams& params);

private:
    INotify* notify_;
};

/// " - RGB", " - Red", ... " - Gray" by colour type.
const char* CaptionSuffix(std::uint32_t colorType);

/// The guards tested before any tool starts on an image, in their order. Returns false with
/// the text of the first that holds.
bool CheckOperatorGuards(const CProcessWindow& window, std::string* text);

/// Sets threadBusy under the process-wide image-state lock and asks for a repaint.
void SetBusy(CProcessWindow& window, bool busy);

} // namespace astrivelle
