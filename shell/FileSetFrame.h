// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The frame every image-set sheet shares: a methods page for the operation's own
/// controls and a control page with the input list, the output folder and prefix, the "File
/// List" of the run's outputs, the run button, progress, counter, status and Cancel. A run
/// checks the busy rules, the prefix, the folder and the usable files on the user interface
/// thread, then works on one FileOpWorker; progress and texts come back queued.
#pragma once
#include <QPointer>
#include <QStringList>

#include <memory>
#include <string>
#include <vector>

#include "imagesets/FileOperation.h"
#include "shell/PostToGui.h"
#include "shell/ToolFrame.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTabWidget;
class QTreeWidget;
class QVBoxLayout;

namespace astrivelle {

class FileSetFrame;

/// The fixed words of one operation.
struct FileSetTraits {
    FileOpKind kind = FileOpKind::Count_; ///< Count_: no busy flag (Convert)
    std::string operation;                ///< the output list's name ("Normalize Files")
    std::string checkKeyword;             ///< of CheckFiles; empty takes every file
    std::string setKeyword = kSetEither;
    std::string operationWord; ///< the question's last words ("normalize")
    std::size_t minFiles = 1;
    std::string noImageText;  ///< fewer inputs than minFiles
    std::string noUsableText; ///< fewer usable inputs than minFiles
    std::string directoryTitle = "Select Output Save Directory";
    QString runText; ///< "Normalize"
    bool hasPrefix = true;
    std::string defaultPrefix;
    bool excludeColumn = false;   ///< "Exclude" per file (alignment)
    bool referenceColumn = false; ///< "Reference" per file (alignment)
};

/// The worker's part of a run: it returns the frame's result of the engine call.
using FileSetBody = std::function<FileOpResult(IProgress& progress, INotify& notify)>;

/// Progress of a run, posted to the frame.
using FileSetProgress = WindowRunProgress<FileSetFrame>;

class FileSetFrame : public ToolFrame {
    Q_OBJECT
public:
    FileSetFrame(ShellContext& context, const QString& title, const std::string& className,
                 FileSetTraits traits);
    ~FileSetFrame() override;

    const FileSetTraits& Traits() const { return traits_; }

    // ---- the input list ------------------------------------------------------------------
    void AddFiles(const QStringList& paths);
    void SetInputFiles(const std::vector<std::string>& paths);
    std::vector<std::string> InputFiles() const;
    /// The inputs a run takes: without the files marked "Exclude".
    std::vector<std::string> IncludedFiles() const;
    /// The file marked "Reference", or empty.
    std::string ReferenceFile() const;
    /// Marks `path` of the list as the reference (the only one); false when it is not listed.
    bool SetReferenceFile(const std::string& path);
    /// Takes the output list of `operation` as the input; false when there is none.
    bool UseOutputsOf(const std::string& operation);

    // ---- running -------------------------------------------------------------------------
    /// Presses the run button: false when the run did not start (the reason was said).
    bool Run();
    bool Running() const { return running_; }
    /// Processes events until the run ended or `timeoutMs` passed; true when it ended.
    bool WaitForRun(int timeoutMs = 20000);
    const FileOpResult& LastResult() const { return last_; }
    /// Rewrites the "File List" tree and the list of lists the input can be taken from.
    void RefreshOutputLists();
    /// Every open sheet rewrites its "File List".
    static void RefreshAllSheets();

    QTabWidget* pages = nullptr;
    QTreeWidget* fileList = nullptr;
    QPushButton* addButton = nullptr;
    QPushButton* removeButton = nullptr;
    QPushButton* clearButton = nullptr;
    QComboBox* inputLists = nullptr;
    QPushButton* useOutputsButton = nullptr;
    QLineEdit* outputDirectory = nullptr;
    QPushButton* browseButton = nullptr;
    QLineEdit* prefixEdit = nullptr;
    QTreeWidget* outputLists = nullptr;
    QPushButton* runButton = nullptr;
    QPushButton* cancelRunButton = nullptr;
    QPushButton* newInputButton = nullptr;
    QPushButton* closeButton = nullptr;
    QProgressBar* runProgress = nullptr;
    QLabel* counter = nullptr;
    QLabel* status = nullptr;

protected:
    /// The operation's own controls go here.
    QVBoxLayout* Methods() { return methods_; }
    /// The checks before a run, each refusal said: busy flags, file count, prefix, output
    /// folder (made and shown resolved), usable files. True with the usable files, the folder
    /// and the prefix.
    bool StartChecks(std::vector<std::string>* usable, std::string* folder, std::string* prefix);
    /// The usable inputs of `files`: by default CheckFiles with the traits' keywords, the
    /// operation's texts when too few are usable, and the question about refused files.
    virtual bool CheckInputs(const std::vector<std::string>& files,
                             std::vector<std::string>* usable);
    /// Reads the operation's controls into a request for `usable`; false when a value is
    /// refused (the sheet says why, e.g. through Say).
    virtual bool Prepare(const std::vector<std::string>& usable, const std::string& outDir,
                         const std::string& prefix, FileSetBody* body) = 0;
    /// After a run, on this thread, before the lists are refreshed.
    virtual void Finished(const FileOpResult& result) {}
    /// Whether a run's outputs are colour data (the caption of Calibrate Files).
    virtual bool OutputsAreColor() const { return false; }
    /// A text through the notifier and on the status line.
    void Say(const std::string& text);
    INotify& Notify();
    /// The number in `edit`; false with "Please Enter a Real Number." said and the focus there.
    bool ReadNumber(QLineEdit* edit, double* value);

    void closeEvent(QCloseEvent* event) override;

private:
    void BuildControlPage();
    void ChooseDirectory();
    void BrowseFiles();
    void RemoveSelected();
    void FinishRun(FileOpResult result);
    void SetRunning(bool on);
    void AddRow(const std::string& path);

    FileSetTraits traits_;
    QVBoxLayout* methods_ = nullptr;
    std::unique_ptr<FileSetProgress> progress_;
    std::unique_ptr<FileOpWorker> worker_;
    std::unique_ptr<INotify> workerNotify_;
    bool running_ = false;
    FileOpResult last_;
};

} // namespace astrivelle
