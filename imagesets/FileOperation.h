// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The frame every operation on a set of files shares: the file records, the check of
/// which files of a list can be used, prefixes and output names, the named output lists that
/// chain one operation to the next, the busy flags, and the per-file worker loop (read,
/// process, write through a temporary name, five progress phases per file, cancel, end state).
#pragma once
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine/Notify.h"
#include "fileio/FileDispatch.h"

namespace astrivelle {

class Image;

// ---- file records ---------------------------------------------------------------------------

/// One alignment point chosen on an image: red, blue and the eight scale points.
struct AlignPoint {
    double x = -1; ///< -1 unset
    double y = -1; ///< -1 unset
    std::int64_t set = 0;
};

/// One file of a list.
struct CImageFileInfo {
    std::string path;
    std::uint8_t isReference = 0; ///< the reference image of an alignment
    std::uint8_t excluded = 0;    ///< "Exclude From Align"
    std::array<AlignPoint, 10> points{};
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t isColor = 0; ///< 1 for a colour image
    std::int32_t listIndex = 0;
};

using CImageFileList = std::vector<CImageFileInfo>;

// ---- keywords -------------------------------------------------------------------------------

/// Set keywords: "EITHER", "COLORonly", "MONOonly", "VIDEO".
inline constexpr const char* kSetEither = "EITHER";
inline constexpr const char* kSetColorOnly = "COLORonly";
inline constexpr const char* kSetMonoOnly = "MONOonly";
inline constexpr const char* kSetVideo = "VIDEO";

/// The operation keywords of the usable-file check, in their table order: "CALIBRATE
/// COMBINE", "CALIBRATE", "COMBINE", "RESIZE", "NORMALIZE", "GRADE", "CROP",
/// "AUTOALIGNPLANET", "12PTALIGN", "BINTFILES", "FILTERFILES", "BLINK".
const std::vector<std::string>& OperationKeywords();
bool IsOperationKeyword(const std::string& keyword);
bool IsSetKeyword(const std::string& keyword);

/// The operation names by which the file list finds an output list ("Calibrate Files",
/// "Bayer Interpolate/Split Files", ..., "Processed Light Frames").
const std::vector<std::string>& OperationNames();

// ---- fixed texts ----------------------------------------------------------------------------

inline constexpr const char* kThreadCanceledText = "Thread Canceled";
inline constexpr const char* kThreadFailedText =
    "Windows could not create a thread.\n Please save your work, close Astrivelle, and reboot.";
inline constexpr const char* kInvalidFilenameLongText = "Invalid filename:\n";
inline constexpr const char* kInvalidFilenameShortText = "Invalid filename: ";
inline constexpr const char* kCouldNotReadText = "Could not read: ";
inline constexpr const char* kCantOpenText = "Can't Open: ";
inline constexpr const char* kFilePrefixCharsText =
    "A file prefix can't contain any of the following characters:\n";
inline constexpr const char* kPrefixCharsText =
    "A prefix can't contain any of the following characters:\n";
/// The characters a prefix may not hold: \ / : * ? " < > |
inline constexpr const char* kPrefixForbiddenChars = "\\/:*?\"<>|";

// ---- usable files ---------------------------------------------------------------------------

/// What CheckFiles found, per file, in list order.
struct CheckedFile {
    std::string path;
    bool usable = false;
    std::string text; ///< why it was rejected (fixed text + name), empty when usable
};

/// Checks which of `paths` the operation `operationKeyword` can use, with the colour kind of
/// `setKeyword` ("EITHER" takes both). Only headers are read where the format allows. For
/// the calibration, combination, resize, normalize, grade, crop and alignment keywords every
/// file must have the width and height of the first usable file (and for "CALIBRATE",
/// "COMBINE" and "CALIBRATE COMBINE" the same colour type); "BINTFILES" and "FILTERFILES"
/// take each file by itself; "BLINK" takes the list with its header data. Usable files go to
/// `usable` (listIndex numbered from 0), the names of the others to `rejected` (the file
/// name, folder removed); `details` (optional) receives every file's outcome. Returns true
/// when every file is usable (and there is at least one).
bool CheckFiles(const std::string& operationKeyword, const std::string& setKeyword,
                const std::vector<std::string>& paths, CImageFileList* usable,
                std::vector<std::string>* rejected, std::vector<CheckedFile>* details = nullptr);

/// The question asked when some files can't be used: "Not all selected images could be
/// used. Display\nthe list of files not included before continuing (Yes/No)\nor Cancel the "
/// + operationWord + " operation?" (operationWord "resize", "combine", ...).
std::string NotAllUsableQuestion(const std::string& operationWord);

/// Asks the question above through `notify` when `rejected` is not empty. Yes shows the
/// names one a line and goes on, No goes on, Cancel returns false.
bool ConfirmRejected(INotify& notify, const std::string& operationWord,
                     const std::vector<std::string>& rejected);

// ---- prefix and output names ----------------------------------------------------------------

/// Trims `text` into `prefix`. False when it holds one of \ / : * ? " < > |, with `message`
/// set to the first line (kFilePrefixCharsText, or kPrefixCharsText when `fileWord` is
/// false) followed by 30 blanks and the characters. An empty prefix is allowed.
bool CheckPrefix(const std::string& text, std::string* prefix, std::string* message,
                 bool fileWord = true);

/// The extension (with its dot) of an output written with `saveType`: the input's own for
/// "SAMEASINPUT" (or a keyword the table does not know), else ".fit" or ".tif".
std::string OutputExtension(const std::string& saveType, const std::string& inputPath);

/// outDir / (prefix + the input's name without its extension + extension).
std::string OutputFileName(const std::string& outDir, const std::string& prefix,
                           const std::string& inputPath, const std::string& extension);

// ---- output lists ---------------------------------------------------------------------------

/// The kinds of named output list.
enum class OutputListKind {
    Aligned,
    Graded,
    Normalized,
    NoiseReduced,
    Filtered,
    CalibratedColor,
    Calibrated,
    Color,
    InitialLight,
};

/// The caption format of a kind ("Calibrated Image Set - %d images", ...).
const char* OutputListCaptionFormat(OutputListKind kind);
/// The caption with the count filled in.
std::string OutputListCaption(OutputListKind kind, int count);

/// One named output list: the files an operation left, to be the next one's input.
struct CFileOpList {
    std::string operation; ///< the operation name ("Calibrate Files", ...)
    OutputListKind kind = OutputListKind::Calibrated;
    CImageFileList files;
    std::string Caption() const { return OutputListCaption(kind, static_cast<int>(files.size())); }
};

/// The output lists of a run of the system, latest last. Thread-safe.
class CFileMultiOpList {
public:
    /// Stores `list`, replacing an earlier list of the same operation name.
    void Set(const CFileOpList& list);
    /// The list of an operation name; false when there is none.
    bool Find(const std::string& operation, CFileOpList* list) const;
    std::vector<CFileOpList> All() const;
    void Clear();

private:
    mutable std::mutex lock_;
    std::vector<CFileOpList> lists_;
};

/// The process-wide output lists.
CFileMultiOpList& FileOpLists();

/// The list of a run's written `outputs` under an operation name, numbered from 0.
CFileOpList OutputListOf(const std::string& operation, OutputListKind kind,
                         const std::vector<std::string>& outputs);

/// "%d Input Files : " / "%d Output Files : " ("0 Output Files : " when empty).
std::string InputFilesLabel(int count);
std::string OutputFilesLabel(int count);

// ---- busy rules -----------------------------------------------------------------------------

enum class FileOpKind {
    Combine,
    Grade,
    Filter,
    Resize,
    Normalize,
    Blink,
    Crop,
    AlignTSR,
    AutoPlanet,
    Calibrate,
    Bayer,
    Automatic,
    Count_,
};

/// "Combine Files/HDR Add Is Currently Busy." and the others of the busy table.
const char* BusyText(FileOpKind kind);

/// Marks `kind` busy for the object's lifetime. Acquired() is false (nothing marked) when
/// it was already busy; the caller then shows BusyText(kind).
class FileOpBusy {
public:
    explicit FileOpBusy(FileOpKind kind);
    ~FileOpBusy();
    FileOpBusy(const FileOpBusy&) = delete;
    FileOpBusy& operator=(const FileOpBusy&) = delete;
    bool Acquired() const { return acquired_; }

private:
    FileOpKind kind_;
    bool acquired_;
};

/// True while an operation of `kind` runs.
bool IsFileOpBusy(FileOpKind kind);

/// The busy text of the first operation other than `kind` (and the automatic process, whose
/// steps run inside it) that runs now; empty when none does. Calibration waits for all.
std::string OtherFileOpBusyText(FileOpKind kind);

// ---- the worker loop ------------------------------------------------------------------------

/// Five fixed progress phases per file: SetProgress(phase, kFileOpPhases).
inline constexpr long kFileOpPhases = 5;
enum FileOpPhase : long {
    PhaseRead = 1,    ///< before the input is read
    PhaseProcess = 2, ///< the input was read; the operation works on it
    PhaseProcessed = 3,
    PhaseWrite = 4, ///< before the output is written
    PhaseDone = 5,  ///< the output is in place
};

/// A progress owner that also shows the counter ("n" "of" "total") and hears the end. The
/// frame talks to any IProgress; when it is an IFileOpOwner it gets these calls as well.
class IFileOpOwner : public IProgress {
public:
    /// `current` counts from 1.
    virtual void SetCounter(long current, long total) {}
};

/// How one run of a per-file operation ended.
enum class FileOpEnd {
    Completed,             ///< every file written
    CompletedWithFailures, ///< the run went to the end; some files failed
    Cancelled,             ///< the cancel flag stopped it; completed outputs stay
    Stopped,               ///< a failure the operation treats as fatal ended it
};

/// One file that failed: the operation's fixed text (with the name) and the reason behind.
struct FileOpFailure {
    std::string path;
    std::string text;
    std::string detail;
};

struct FileOpResult {
    FileOpEnd end = FileOpEnd::Completed;
    std::vector<std::string> inputs;  ///< the inputs whose outputs were written, in order
    std::vector<std::string> outputs; ///< the written outputs, in order
    std::vector<FileOpFailure> failures;
    std::string status; ///< the final status text: kThreadCanceledText or the operation's
    bool Ok() const { return end == FileOpEnd::Completed; }
};

/// The fixed parameters of a per-file run.
struct FileOpJob {
    std::vector<std::string> inputs;
    std::string outDir;
    std::string prefix;
    std::string saveType = "SAMEASINPUT";
    /// Status text at a normal end (the operation's own words); on cancel the status is
    /// kThreadCanceledText.
    std::string doneText;
    /// Failure texts; the file name follows each. An empty processFailureText makes the
    /// process handler's reason the whole text (for operations whose texts name the file).
    std::string readFailureText = "Error reading ";
    std::string processFailureText = "Error processing ";
    /// When set, a write failure reads this text + the output's file name in place of the
    /// file kind's write failure text.
    std::string writeFailureText;
    /// When set, the status while the run works (the file names then go to no status).
    std::string runningText;
    /// Whether a read / process / write failure ends the run (Stopped) instead of going on.
    bool stopOnReadFailure = false;
    bool stopOnProcessFailure = false;
    bool stopOnWriteFailure = false;
    /// Files that must never be written over besides the inputs (masters and the like).
    std::vector<std::string> protectedFiles;
};

/// What the operation does to each file. `read` defaults to Image::ReadFile by extension.
/// `process` works on the image in place (it may call SetProgress(PhaseProcessed, 5)); false
/// with a reason fails that file. `index` is the input's place in the list.
struct FileOpHandlers {
    std::function<bool(Image& image, const std::string& path, std::string* why)> read;
    std::function<bool(Image& image, const std::string& path, std::size_t index,
                       IProgress* progress, std::string* why)>
        process;
};
/// A run that stops before its first file: `text` is its status and its one failure, said
/// through the notifier and the progress owner (either may be null).
FileOpResult StopRun(IProgress* progress, INotify* notify, const std::string& text);

/// Runs the loop on the calling thread: for each input, phase 1 and the counter, read,
/// phase 2, process, phase 4, apply the save type and write outDir/prefix+name+extension
/// through a temporary name renamed into place (never over an input or protected file),
/// phase 5. The cancel flag is polled before every file and between phases; a cancel keeps
/// every output already written and leaves no partial one. Failures are reported through
/// `notify` (text, then the reason on a new line when there is one) and the run goes on
/// unless the stop flags of `job` say otherwise. A write failure's text is WriteFailureText of the
/// output kind and name. The output folder is created when missing.
FileOpResult RunFileOperation(const FileOpJob& job, const FileOpHandlers& handlers,
                              IProgress* progress, INotify* notify);

/// Writes one output as RunFileOperation does (save type, name, temporary file, rename);
/// for operations whose outputs are not one per input (combine, split). `outPath` receives
/// the name written. False with `text` set to the write failure's fixed text and `detail`
/// to the reason.
bool WriteFileOpOutput(Image& image, const std::string& outDir, const std::string& prefix,
                       const std::string& nameSource, const std::string& saveType,
                       const std::vector<std::string>& protectedFiles, std::string* outPath,
                       std::string* text, std::string* detail);

/// One worker thread for a file operation. Start runs `body` on a new thread at the
/// priority the word names ("IDLE" lowers it); when the thread can't be made, kThreadFailedText
/// goes to `notify` and Start returns false. The destructor joins.
class FileOpWorker {
public:
    FileOpWorker() = default;
    ~FileOpWorker();
    FileOpWorker(const FileOpWorker&) = delete;
    FileOpWorker& operator=(const FileOpWorker&) = delete;
    bool Start(std::function<void()> body, const std::string& priorityWord, INotify* notify);
    void Join();
    bool Running() const { return running_.load(); }

private:
    std::thread thread_;
    std::atomic<bool> running_{false};
};

} // namespace astrivelle
