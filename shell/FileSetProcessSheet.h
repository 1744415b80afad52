// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Automatic Image Set Process sheet: one page per frame type (light, dark, flat,
/// flat dark, bias) with its files, count, combination method and name, the light page's step
/// switches, and the process page with the process type, colour conversion, the parameters of
/// every step, the output folder, "&Process" / "&Cancel", the bar, the status line, the step
/// list filled as the run goes and the summary. "&Process" saves the parameters with the
/// settings, checks them on this thread and runs the whole queue on one worker thread.
#pragma once
#include <QPointer>
#include <QStringList>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"
#include "imagesets/FileSetProcess.h"
#include "shell/PostToGui.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QTabWidget;
class QTreeWidget;
class QWidget;

namespace astrivelle {

class FileSetProcessSheet;

/// Progress of a run, posted to the sheet.
using FileSetProcessProgress = WindowRunProgress<FileSetProcessSheet>;

/// The controls of one frame type's page.
struct FrameListPage {
    QWidget* page = nullptr;
    QTreeWidget* files = nullptr;
    QPushButton* addButton = nullptr;    ///< "Add Files..."
    QPushButton* removeButton = nullptr; ///< "Remove"
    QPushButton* clearButton = nullptr;  ///< "Clear"
    QLabel* count = nullptr;
    QComboBox* method = nullptr; ///< the combination method; its keyword as item data
    QLineEdit* name = nullptr;   ///< the combination name
};

class FileSetProcessSheet : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CFileSetProcess";
    static constexpr bool kNeedsImage = false;
    explicit FileSetProcessSheet(ShellContext& context);
    ~FileSetProcessSheet() override;
    static FileSetProcessSheet* Show(ShellContext& context);

    /// The page of a frame type.
    FrameListPage& Page(FrameKind kind) { return frames_[static_cast<std::size_t>(kind)]; }
    void AddFiles(FrameKind kind, const QStringList& paths);
    std::vector<std::string> Files(FrameKind kind) const;

    /// The parameters the controls hold; false when a number does not read (said, with the
    /// focus on the field).
    bool ReadParams(CAutoProcessParams* params);
    /// Shows `params` in the controls.
    void LoadParams(const CAutoProcessParams& params);

    /// Presses "&Process": false when the run did not start (the reason was said).
    bool Process();
    bool Running() const { return running_; }
    /// Processes events until the run ended or `timeoutMs` passed; true when it ended.
    bool WaitForRun(int timeoutMs = 20000);
    const FileSetRunResult& LastResult() const { return last_; }

    QTabWidget* pages = nullptr;
    QWidget* processPage = nullptr;
    // Light page: the step switches.
    QCheckBox* extraFilters = nullptr; ///< "Extra Filters  -->"
    QCheckBox* normalize = nullptr;    ///< "Normalize  -->"
    QCheckBox* grade = nullptr;        ///< "Grade -->"
    QCheckBox* align = nullptr;        ///< "Align -->"
    QCheckBox* combine = nullptr;      ///< "Combine"
    QCheckBox* minimizeDisk = nullptr; ///< "Minimize Hard Drive Use "
    QCheckBox* displayCombination = nullptr;
    // Flat page.
    QCheckBox* normalizeFlats = nullptr;
    // Process page.
    QRadioButton* typeDslr = nullptr;
    QRadioButton* typeOsc = nullptr;
    QRadioButton* typeMono = nullptr;
    QComboBox* colorConversion = nullptr; ///< its keyword as item data
    QComboBox* frameType = nullptr;       ///< CfaFrameTypes() in order, the keyword as data
    QComboBox* bayerOutput = nullptr;     ///< its keyword as item data
    QRadioButton* saveTypes[5] = {};      ///< TIFF16, UNCOMPFIT, COMPFIT, COMPFIT32, SAMEASINPUT
    QCheckBox* autoDarkMatch = nullptr;
    QCheckBox* adaptiveWithDark = nullptr;
    QCheckBox* adaptiveWithoutDark = nullptr;
    QComboBox* adaptiveLevel = nullptr;
    QCheckBox* badPixels = nullptr; ///< "Reduce High, Low, Bloom Pixel"
    QComboBox* aggressiveness = nullptr;
    QCheckBox* smoothing = nullptr;
    QRadioButton* normalizeTargets[4] = {}; ///< MAX, AVG, MIN, USER
    QLineEdit* background = nullptr;
    QLineEdit* deviation = nullptr;
    QCheckBox* setDeviation = nullptr;
    QRadioButton* maxEcc = nullptr;
    QRadioButton* percentEcc = nullptr;
    QRadioButton* autoEcc = nullptr;
    QComboBox* maxEccValue = nullptr;
    QComboBox* percentValue = nullptr;
    QCheckBox* quickAlign = nullptr;
    QCheckBox* meridianFlip = nullptr;
    QCheckBox* mirrorFlip = nullptr;
    QCheckBox* wideRange = nullptr;
    QCheckBox* smallStars = nullptr;
    QLineEdit* clipFactor = nullptr;
    QLineEdit* convertedPrefix = nullptr;
    QLineEdit* outputDirectory = nullptr;
    QPushButton* browseButton = nullptr;
    QPushButton* processButton = nullptr;
    QPushButton* cancelRunButton = nullptr;
    QPushButton* closeButton = nullptr;
    QProgressBar* runProgress = nullptr;
    QLabel* counter = nullptr;
    QLabel* status = nullptr;
    QTreeWidget* stepList = nullptr; ///< name, detail, state
    QPlainTextEdit* summary = nullptr;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void BuildFramePage(FrameKind kind, const QString& title);
    void BuildProcessPage();
    void BrowseFiles(FrameKind kind);
    void RemoveSelected(FrameKind kind);
    void RefreshCount(FrameKind kind);
    void RefreshEnabled();
    void ShowQueue(const CAutoProcessParams& params);
    void ShowStep(std::size_t index, const CFileSetOpElement& step);
    void FinishRun(FileSetRunResult result);
    void SetRunning(bool on);
    void Say(const std::string& text);
    INotify& Notify();

    std::array<FrameListPage, 5> frames_;
    QGroupBox* parameters_ = nullptr;
    std::unique_ptr<FileSetProcessProgress> progress_;
    std::unique_ptr<FileOpWorker> worker_;
    std::unique_ptr<INotify> workerNotify_;
    bool running_ = false;
    bool display_ = false; ///< "Display Combination" of the running params
    FileSetRunResult last_;
};

} // namespace astrivelle
