// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The Levels tool: eight values per channel set (RGB master, Red, Green, Blue), one
/// edited at a time through an entry and a slider, with the transfer curve of the selected set
/// drawn. A short operator on the GUI thread; "Enable Slider" re-applies on every change.
#pragma once
#include <string>

#include "operators/Curves.h"
#include "shell/OperatorTools.h"
#include "shell/ToolFrame.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSlider;

namespace astrivelle {

class LevelsGraph;

class CTransferLevels : public ToolFrame {
    Q_OBJECT
public:
    static constexpr const char* kClassName = "CTransferLevels";
    static constexpr const char* kTitle = "Levels";
    static constexpr bool kNeedsImage = true;

    static CTransferLevels* Show(ShellContext& context);
    explicit CTransferLevels(ShellContext& context);

    /// The four sets with the selected channel and entry.
    LevelsParams Values() const;
    void SetValues(const LevelsParams& params);
    /// Loads a step's parameter text; false when it does not parse.
    bool LoadParameters(const std::string& text);
    /// Restores all four sets and selects "Black" and "RGB" (or "Monochrome").
    void Reset();

    QComboBox* channelCombo = nullptr;
    QComboBox* levelCombo = nullptr;
    QLineEdit* valueEdit = nullptr;
    QSlider* valueSlider = nullptr;
    QCheckBox* enableSlider = nullptr;
    QCheckBox* toAllImages = nullptr;
    QPushButton* resetButton = nullptr;
    LevelsGraph* graph = nullptr;

protected:
    void OnApply() override;
    void OnImageChanged() override;

private:
    LevelsParams params_;
    bool syncing_ = false;
    void FillChannels();
    LevelsEntry Entry() const;
    std::string Channel() const;
    const LevelsSet& ShownSet() const;
    void ShowValue();
    void ValueTyped();
    void ValueSlid(int position);
    void Changed();
    bool ApplyTo(CProcessWindow& window, const LevelsParams& params);
};

OperatorTool LevelsToolEntry();

} // namespace astrivelle
