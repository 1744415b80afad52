// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The main window without a window: the open images and the active one, the limit on
/// open images, the rules that refuse operators and closing by the roles an image holds, the
/// open, new, duplicate, copy portion and save commands, the temporary files of the program
/// run, the command clipboard, and the order of program exit. A front end shows what it says
/// through INotify; the CLI and the tests drive it directly.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/Notify.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/CommandClipboard.h"
#include "engine/workbench/OpenImages.h"
#include "fileio/OpenClassify.h"

namespace astrivelle {

// ---- fixed texts ---------------------------------------------------------------------------
inline constexpr const char* kMainTitle = "Astrivelle";
inline constexpr const char* kPleaseOpenAnImageText = "Please Open An Image First.";
inline constexpr const char* kNoImageAvailableText = "No Image Is Available";
inline constexpr const char* kOperationInProgressText = "Operation In Progress";
inline constexpr const char* kOperationInProgressDotText = "Operation In Progress.";
inline constexpr const char* kCannotCreateFrameText =
    "Could Not Create The Frame Window. Please Close Some Applications And Try Again.";
inline constexpr const char* kUsingDefaultSavePathText = "Using Default Project Save Path:\n";
inline constexpr const char* kFileTypeNotDefinedText =
    "File Type Is Not Defined, \nPossible Corrupt Object Or File.";
inline constexpr const char* kUseConvertFilesText =
    "Please use Image Set Operations | Convert Files to save as TIFF, FITS, JPEG, or BMP.";
inline constexpr const char* kInvalidImageExtensionText = "Invalid image extension.";
inline constexpr const char* kAlreadyExistsText = " \nAlready Exists. Do You Want To Replace It?";
inline constexpr const char* kSaveAllQuestion = "Save and Replace All?";
inline constexpr const char* kSaveAllTitle = "Save All Options";
inline constexpr const char* kDuplicateHeading = " #Processing Before Duplication:#";
inline constexpr const char* kCopyPortionHeading = " #Processing Before Copy Portion:#";
inline constexpr const char* kBayerHeading = " #Processing Before Bayer CFA Interpolation:#";
inline constexpr const char* kBayerImagePrefix = "BINT_";
/// The file kind of a format that can be read but has no writer of its own.
inline constexpr std::int32_t kKindWithoutWriter = -4;

/// The limit text: singular for a limit of 1, plural otherwise.
std::string OpenImageLimitText(int limit);

// ---- rules by role -------------------------------------------------------------------------

/// Which list of closing texts applies: the window's own close (CloseQuery), Close All, or
/// the single close of the menu. All three test the same flags in the same order; Close All
/// and the menu have shorter texts for some of them and use the CloseQuery text for the rest.
enum class CloseKind { Query, All, Menu };

/// The first closing rule that holds for `window`, in order; false with its text.
bool CheckCloseRules(const CProcessWindow& window, CloseKind kind, std::string* text);

/// The refusals of an image as a source (Combine Images source, mask and grayscale mask,
/// Combine Frequency source, Mix LRGB source); false with the text of the first that holds.
bool CheckSourceRefusals(const CProcessWindow& window, std::string* text);

/// What a tool tests before it takes an image as its target: the operator guards, then the
/// source refusals. False with the first text.
bool CheckTargetGuards(const CProcessWindow& window, std::string* text);

/// The image-set jobs program exit waits for, in the order exit tests them ("Digital Camera
/// Raw File Conversion", ..., "Convert Files"). The exit text is "Please Cancel " + name +
/// " Before Closing.".
const std::vector<std::string>& ImageSetJobNames();

/// The operators in flight that program exit refuses, in order: their exit text and the
/// operator names that stand for it.
struct MainExitOperator {
    const char* text;
    std::vector<std::string> names;
};
const std::vector<MainExitOperator>& ExitOperatorTable();

/// The `parameters` of a duplicate's or copied portion's origin record: the heading, then for
/// each record "Previous Image : " path "#", "Current Image : " path "#", the operation "#",
/// and the record's parameters (closed by '#').
std::string CompactHistoryText(const std::vector<CProcessStructure>& history,
                               const std::string& heading);

// ---- the model -----------------------------------------------------------------------------

class CMainWindow {
public:
    explicit CMainWindow(INotify* notify = nullptr);
    ~CMainWindow();
    CMainWindow(const CMainWindow&) = delete;
    CMainWindow& operator=(const CMainWindow&) = delete;

    // Fields.
    std::string lastFolder;    ///< last folder used; default folder of new names
    std::string projectFolder; ///< default project directory; Start() fills it
    std::string startFolder;   ///< the current directory at start
    bool channelRed = true, channelGreen = true, channelBlue = true;
    /// Every temporary file of the program run, deleted at exit unless kept.
    std::vector<std::string> tempFiles;
    /// Files named by a saved project; never deleted.
    std::vector<std::string> keptFiles;
    std::string runMode = "MAIN";
    /// Limit on open images; 0 or below takes Options().setup.maxOpenImages.
    std::int32_t maxOpenImages = 0;
    /// Where exit writes the setup parameters; empty: DefaultSetupPath().
    std::string setupPath;
    /// Given to every window the model creates.
    IStepStore* stepStore = nullptr;
    IBlender* blender = nullptr;

    INotify& notify() { return *notify_; }

    /// Start-up: remembers the current directory, makes the default project directory
    /// (showing its error text on failure) and clears the temporary files and the command
    /// clipboard. False when no project directory could be made.
    bool Start();

    // ---- the open images ----------------------------------------------------------------
    CProcessWindow* ActiveImage() const { return images_.Active(); }
    bool SetActiveImage(CProcessWindow* window);
    int imageCount() const { return static_cast<int>(images_.Count()); }
    const COpenImages& images() const { return images_; }
    bool IsOpen(const CProcessWindow* window) const { return images_.Contains(window); }
    void ForEachOpenImage(const std::function<void(CProcessWindow&)>& fn) const {
        images_.ForEach(fn);
    }
    int MaxOpenImages() const;
    /// The limit test before any new window; shows the limit text when refused.
    bool CanOpenAnother();
    /// The target of a tool that may be locked to one image: that image while it is open,
    /// else the active image with the lock cleared (`*lockedTo` set to null). Null with
    /// "No Image Is Available" shown when there is none.
    CProcessWindow* ResolveToolTarget(CProcessWindow** lockedTo);
    /// Adds a window made elsewhere (a combination, a split...) under the limit test; it
    /// gets the model's notify, step store and blender and becomes active.
    CProcessWindow* AddImage(std::unique_ptr<CProcessWindow> window);

    // ---- open, new, duplicate, copy portion -----------------------------------------------
    /// Opens one file: extension, limit, classification (camera raw through a temporary FITS
    /// file, which becomes a temporary file of the image), read, window, origin record "Read".
    /// `selection` keeps the raw question's answer over a multi-file open.
    CProcessWindow* OpenImageFile(const std::string& path, OpenSelection* selection = nullptr);
    /// Opens a project (.qxj) as a new image window: its origin image by the normal open path,
    /// its records as the history (shown at the origin, step 0). Null when refused or failed,
    /// with the texts told through the notifier.
    CProcessWindow* LoadProject(const std::string& qxjPath);
    /// The open loop: the caption shows "Astrivelle - ### Hold ESC To Cancel Open Image ###";
    /// after each file, when `escapeHeld` says so, "Cancel Open Image?" is asked and yes ends
    /// it. Returns the number of images opened.
    int OpenImageFiles(const std::vector<std::string>& paths,
                       const std::function<bool()>& escapeHeld = {});
    /// A new image of `width` x `height`, RGB when `color`, every sample `value`; named
    /// `stem` + "_%d" with the lowest free number, ".fit" or ".tif" by the default save type.
    CProcessWindow* NewImage(int width, int height, bool color, float value,
                             const std::string& stem = "NI");
    /// A copy of the active image (or `source`), named by its stem (or `name`) + "_%d".
    CProcessWindow* DuplicateImage(const std::string& name = {}, CProcessWindow* source = nullptr);
    /// A copy of the rectangle (x, y, width, height) of the active image (or `source`), clipped
    /// to the image.
    CProcessWindow* CopyPortion(int x, int y, int width, int height, const std::string& name = {},
                                CProcessWindow* source = nullptr);

    /// The colour image of the active monochrome mosaic (or `source`), interpolated with the
    /// pattern keyword, as a new image "BINT_" + the source's name beside it (in the default
    /// project folder, with "_%d", when the source has no folder). Its origin record holds the
    /// source's history under " #Processing Before Bayer CFA Interpolation:#". Refusals: "Please
    /// Open An Image First.", "Image must be a monochrome CFA .", "The Image Is Too Small to
    /// Interpolate.", "Could Not Create The Color Image.".
    CProcessWindow* BayerInterpolateImage(const std::string& cfaPattern, bool reduceGreenNoise,
                                          bool buildRgbPixel, CProcessWindow* source = nullptr);

    // ---- save --------------------------------------------------------------------------
    /// Writes the active image (or `window`) to its own path in its own format.
    bool SaveImage(CProcessWindow* window = nullptr);
    /// Writes to `path` as `kind`: the extension must be one of the kind's; a file that
    /// exists is replaced only when the question is answered yes. The window takes the path.
    bool SaveImageAs(const std::string& path, std::int32_t kind, CProcessWindow* window = nullptr);
    /// "Save and Replace All?"; yes saves every open image, refusing the busy ones with
    /// "Operation In Progress.". True when every image was saved.
    bool SaveAll();

    // ---- temporary files ----------------------------------------------------------------
    /// Registers a temporary file of `window` in its list and in the program's list.
    void AddTempFile(CProcessWindow& window, const std::string& path);
    /// Registers files a project names, in the window's and the program's kept lists.
    void KeepFiles(CProcessWindow& window, const std::vector<std::string>& paths);

    // ---- close and exit -----------------------------------------------------------------
    /// The window's CloseQuery (or the menu's list); on passing, deletes its temporary files
    /// not kept, takes it out of the list and destroys it.
    bool CloseImage(CProcessWindow* window, CloseKind kind = CloseKind::Query);
    /// Tests every image first (Close All texts); closes all only when none refuses.
    bool CloseAll();

    /// Image-set jobs in progress, by their names in ImageSetJobNames(); false for a name
    /// not in the list.
    bool BeginImageSetJob(const std::string& name);
    void EndImageSetJob(const std::string& name);
    const std::vector<std::string>& RunningJobs() const { return runningJobs_; }

    /// Program exit in order: running image-set jobs, then operators in flight (each refusal
    /// shows its text and keeps the program open), then the setup parameters saved, and the
    /// remaining temporary files deleted; the images are released. True when it exits.
    bool Exit();

    /// The command clipboard shared by all images.
    CCommandClipboard& copiedCommands() { return SharedCommandClipboard(); }

private:
    INotify* notify_;
    COpenImages images_;
    std::vector<std::string> runningJobs_;

    CProcessWindow* Adopt(std::unique_ptr<CProcessWindow> window);
    std::string SaveFolder(bool showBox);
    std::string FreeName(const std::string& folder, const std::string& stem,
                         const std::string& extension) const;
    CProcessWindow* CheckedSource(CProcessWindow* source);
    bool WriteImage(CProcessWindow& window, const std::string& path, std::int32_t kind);
    void ForgetTempFile(const std::string& path);
    bool IsKept(const std::string& path, const CProcessWindow* closing) const;
    void ReleaseFiles(CProcessWindow& window);
};

/// True when a file can be made in `folder` (the test file is created and deleted);
/// otherwise false with the system's text in `error`.
bool FolderIsWritable(const std::string& folder, std::string* error = nullptr);

} // namespace astrivelle
