// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Read Noise and Gain dialog: two flats and two bias frames chosen as files (four
/// different ones), the camera type, the A/D converter, the pedestal and the Bayer frame type;
/// Compute measures them on one worker thread while the image-set operations wait, and the
/// gain and read noise of each row are shown in the result table.
#pragma once
#include <QPointer>

#include <memory>

#include "imagesets/ReadNoiseGain.h"
#include "shell/ToolFrame.h"

class QComboBox;
class QLineEdit;
class QRadioButton;
class QSpinBox;
class QTreeWidget;

namespace astrivelle {

class FileOpWorker;
class ReadNoiseGainDialog;

/// Status and progress of the worker, posted to the dialog.
class ReadNoiseGainProgress : public IProgress {
public:
    explicit ReadNoiseGainProgress(ReadNoiseGainDialog* dialog) : dialog_(dialog) {}
    void SetProgress(long step, long total) override;
    void SetStatus(const std::string& text) override;

private:
    QPointer<ReadNoiseGainDialog> dialog_;
};

class ReadNoiseGainDialog : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CGainReadNoise";
    static constexpr bool kNeedsImage = false;
    explicit ReadNoiseGainDialog(ShellContext& context);
    ~ReadNoiseGainDialog() override;
    static ReadNoiseGainDialog* Show(ShellContext& context);

    /// Which of the four files: 0 Flat 1, 1 Flat 2, 2 Bias 1, 3 Bias 2.
    enum Frame { Flat1, Flat2, Bias1, Bias2 };
    /// Takes `path` for `frame` unless it is one of the other three ("Please select a Flat 2
    /// frame that is different than Flat 1." said, the field left as it was); false then.
    bool SelectFrame(Frame frame, const std::string& path);
    /// The request the fields describe.
    ReadNoiseGainRequest Request() const;
    /// Presses Compute: false when it did not start (the reason was said).
    bool Compute();
    bool Running() const { return running_; }
    /// Processes events until the run ended or `timeoutMs` passed; true when it ended.
    bool WaitForRun(int timeoutMs = 20000);
    const ReadNoiseGainResult& LastResult() const { return last_; }

    QLineEdit* frames[4] = {};
    QPushButton* browse[4] = {};
    QRadioButton* typeDslr = nullptr;
    QRadioButton* typeOscCcd = nullptr;
    QRadioButton* typeCcd = nullptr;
    QComboBox* adcBits = nullptr; ///< " 8 bit" .. "16 bit"
    QSpinBox* pedestal = nullptr;
    QComboBox* bayerFrameType = nullptr;
    QLabel* patternKeyword = nullptr;
    QTreeWidget* results = nullptr; ///< "", "Gain (e/ADU)", "Read Noise (e/Pixel)"
    QPushButton* computeButton = nullptr;
    QPushButton* cancelRunButton = nullptr;
    QPushButton* closeButton = nullptr;
    QProgressBar* runProgress = nullptr;
    QLabel* status = nullptr;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    friend class ReadNoiseGainProgress;
    void Refresh();
    void Finish(ReadNoiseGainResult result);
    void SetRunning(bool on);
    void Say(const std::string& text);

    std::unique_ptr<ReadNoiseGainProgress> progress_;
    std::unique_ptr<FileOpWorker> worker_;
    std::string accepted_[4]; ///< the paths the fields took
    bool running_ = false;
    ReadNoiseGainResult last_;
};

} // namespace astrivelle
