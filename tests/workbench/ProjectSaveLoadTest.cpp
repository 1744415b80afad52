// SPDX-License-Identifier: GPL-3.0-or-later
/// \file Save Project and Load Project on a window: files copied into the project's folder,
/// the report, round trips of histories with blend values, v2.0 projects, moved projects,
/// the command reader, and corrupt or truncated projects.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "TestSupport.h"
#include "engine/ProcessWindow.h"
#include "engine/workbench/LineReader.h"
#include "engine/workbench/Project.h"

using namespace astrivelle;
using namespace astrivelle::test;
namespace fs = std::filesystem;

namespace {

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

/// Every file below a folder with its contents, to prove nothing was deleted or changed.
std::map<std::string, std::string> Snapshot(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(folder))
        if (e.is_regular_file())
            files[e.path().string()] = ReadAll(e.path().string());
    return files;
}

/// Answers the folder picker and records what was asked.
class FolderNotify : public RecordingNotify {
public:
    std::vector<std::string> folderTitles;
    std::string answerFolder;
    bool cancel = false;
    bool ChooseFolder(const std::string& title, std::string* folder) override {
        folderTitles.push_back(title);
        if (cancel)
            return false;
        *folder = answerFolder;
        return true;
    }
};

/// Writes each finished step as "<stem>$n.fit" beside the image, as the history does.
class TestStepStore : public IStepStore {
public:
    explicit TestStepStore(std::string folder) : folder_(std::move(folder)) {}
    bool SaveStepImage(CProcessWindow& w) override {
        if (w.currentStep == 0) {
            w.stepDirty = false;
            return true;
        }
        CProcessStructure& r = w.history[w.currentStep];
        if (!r.curImageFile.empty() && !w.stepDirty)
            return true;
        const std::string path = folder_ + "/M31$" + std::to_string(++count_) + ".fit";
        if (!w.image.WriteFile(path, KindFITS))
            return false;
        r.curImageFile = path;
        w.stepDirty = false;
        return true;
    }

private:
    std::string folder_;
    int count_ = 0;
};

const char* kColorHeading = "Astrivelle Color Project v5.0<>";

/// An RGB image "M31.fit" in `folder` with three Pixel Math steps saved as step files, each
/// record's input the step before, and blend values on the later steps.
struct History {
    FolderNotify notify;
    TestStepStore store;
    CProcessWindow window{&notify};
    std::string origin;

    explicit History(const std::string& folder, bool color = true) : store(folder) {
        origin = folder + "/M31.fit";
        MakeImage(window.image, 8, 6, color ? ColorRGB : ColorGray,
                  [](int s, int x, int y) { return 1000 + 100 * s + 10 * x + y; });
        EXPECT_TRUE(window.image.WriteFile(origin, KindFITS));
        window.filePath = origin;
        window.title = "M31.fit";
        window.BeginHistory("Read");
        window.history[0].prevImageFile = origin;
        window.stepStore = &store;
        EXPECT_TRUE(window.PixelMathAdd(false, 100, 0, 65535, 0));
        window.pending = false; // the next application is a step of its own
        EXPECT_TRUE(window.PixelMathMultiply(1.5, 0, 65535, 0));
        window.pending = false;
        EXPECT_TRUE(window.PixelMathDivide(2, 100, 60000, 5));
        EXPECT_TRUE(store.SaveStepImage(window));
        for (std::size_t i = 1; i < window.history.size(); ++i)
            window.history[i].prevImageFile = window.history[i - 1].curImageFile;
        CProcessStructure& two = window.history[2];
        two.blendMode = 5;
        two.opacity = 0.1234;
        two.applyMask = 0;
        two.maskLevel = 30000;
        two.maskSurface[2] = 0.25;
        two.maskSurface[47] = -1.0 / 3.0;
        two.luminanceMask = 0;
        two.channelSelect = 1;
        two.channelGreen = 0;
        CProcessStructure& three = window.history[3];
        three.blendMode = 31;
        three.opacity = 0.5;
    }
};

} // namespace

TEST(ProjectSave, CopiesStepFilesWritesLinesAndReportAndLoadsBack) {
    ScratchDir images, project;
    History h(images.path().string());
    ASSERT_EQ(h.window.history.size(), 4u);
    CProcessStructure& two = h.window.history[2];
    // A mask file in a third folder is copied too.
    ScratchDir masks;
    Image mask;
    MakeImage(mask, 8, 6, ColorGray, [](int, int x, int) { return 1000 * x; });
    ASSERT_TRUE(mask.WriteFile(masks.file("mask.fit"), KindFITS));
    two.maskFile = masks.file("mask.fit");
    h.window.projectComment = "first light";
    const std::vector<CProcessStructure> before = h.window.history;

    const std::string qxj = project.file("night.qxj");
    ASSERT_TRUE(h.window.SaveProject(qxj, "final.fit", "Y", "Y", "Y"));
    EXPECT_TRUE(h.notify.messages.empty());
    EXPECT_EQ(h.window.history.size(), before.size());
    EXPECT_EQ(h.window.history[1].curImageFile, before[1].curImageFile)
        << "the window's records keep their own paths";

    // The lines name the copies in the project's folder, which are the same files.
    const std::string p = project.path().string();
    std::vector<std::string> lines;
    {
        CLineReader reader;
        ASSERT_TRUE(reader.Open(qxj));
        std::string line;
        while (reader.ReadLine(&line))
            lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], kColorHeading);
    EXPECT_EQ(lines[1].substr(0, 2 * p.size() + 18), p + "/M31.fit<" + p + "/M31.fit<");
    EXPECT_EQ(lines[2].rfind(p + "/M31.fit<" + p +
                                 "/M31$1.fit<0<1<1<1<Pixel Math<Operation: "
                                 "Add#Constant: 100.000#Threshold Min: 0#Threshold Max: "
                                 "65535#Feather Range: 0#<0<1.000<<1<65535<<1<",
                             0),
              0u)
        << lines[2];
    EXPECT_NE(lines[3].find("<5<0.123<<0<30000<" + p + "/mask.fit<0<"), std::string::npos);
    EXPECT_NE(lines[3].find("<0.250000000000000<"), std::string::npos);
    EXPECT_NE(lines[3].find("<-0.333333333333333<>"), std::string::npos);
    for (const char* name : {"M31.fit", "M31$1.fit", "M31$2.fit", "M31$3.fit", "mask.fit"}) {
        EXPECT_TRUE(fs::exists(project.path() / name)) << name;
        EXPECT_EQ(ReadAll((project.path() / name).string()),
                  ReadAll(std::string(name) == "mask.fit" ? masks.file(name) : images.file(name)))
            << name;
    }
    for (const char* name : {"M31.fit", "M31$1.fit", "M31$2.fit", "M31$3.fit"})
        EXPECT_NE(
            std::find(h.window.keptFiles.begin(), h.window.keptFiles.end(), project.file(name)),
            h.window.keptFiles.end())
            << name;
    EXPECT_TRUE(h.window.keepFiles);
    for (const auto& e : fs::directory_iterator(project.path()))
        EXPECT_EQ(e.path().extension() == ".part", false) << e.path();

    // The report beside it, with today's date.
    const std::string report = ReadAll(project.file("night.txt"));
    EXPECT_EQ(report.rfind("     Astrivelle Color Project v5.0\n\n     Final Image Saved As : "
                           "final.fit\n\n     User Comment : first light\n\n     Date: ",
                           0),
              0u);
    EXPECT_TRUE(std::regex_search(report, std::regex("Date: \\d{1,2}/\\d{1,2}/\\d{4} "
                                                     "\\d{1,2}:\\d\\d\n")));
    EXPECT_NE(report.find("     Previous Image File : " + p +
                          "/M31$1.fit\n      Current Image "
                          "File : " +
                          p + "/M31$2.fit\n      Current Image Mask File : " + p +
                          "/mask.fit\n\n     Apply to:  Red Blue\n     Operation : Pixel "
                          "Math\n     Blend Mode Lighten, Opacity 0.123\n     Use Mask False, "
                          "Mask Level 30000, Mask File Name " +
                          p + "/mask.fit\n     Operation: Multiply\n     Constant: 1.500\n"),
              std::string::npos)
        << report;
    EXPECT_NE(report.find("Blend Mode Lab Luminosity, Opacity 0.500"), std::string::npos);

    // Load it into a new window: the same records with the copies' paths, origin shown.
    RecordingNotify loadNotify;
    CProcessWindow loaded(&loadNotify);
    ProjectLoadResult result;
    ASSERT_TRUE(LoadProjectFile(qxj, loaded, {}, &result));
    EXPECT_TRUE(loadNotify.messages.empty()) << loadNotify.messages.front();
    EXPECT_TRUE(result.complete && result.color && !result.moved && !result.placeholder);
    EXPECT_EQ(result.version, 5);
    EXPECT_EQ(loaded.currentStep, 0);
    EXPECT_EQ(loaded.filePath, project.file("M31.fit"));
    ASSERT_EQ(loaded.history.size(), 4u);
    EXPECT_EQ(loaded.history[0].operation, "Read");
    EXPECT_EQ(loaded.history[0].prevImageFile, project.file("M31.fit"));
    for (std::size_t i = 1; i < 4; ++i) {
        const CProcessStructure& a = before[i];
        const CProcessStructure& b = loaded.history[i];
        EXPECT_EQ(b.prevImageFile, project.file(fs::path(a.prevImageFile).filename()));
        EXPECT_EQ(b.curImageFile, project.file(fs::path(a.curImageFile).filename()));
        EXPECT_EQ(b.operation, a.operation);
        EXPECT_EQ(b.parameters, a.parameters);
        EXPECT_EQ(b.blendMode, a.blendMode);
        EXPECT_EQ(b.opacity, std::stod(ProjectFixed(a.opacity, 3)));
        EXPECT_EQ(b.applyMask, a.applyMask);
        EXPECT_EQ(b.luminanceMask, a.luminanceMask);
        EXPECT_EQ(b.maskLevel, a.maskLevel);
        EXPECT_EQ(b.channelSelect, a.channelSelect);
        EXPECT_EQ(b.channelRed, a.channelRed);
        EXPECT_EQ(b.channelGreen, a.channelGreen);
        EXPECT_EQ(b.channelBlue, a.channelBlue);
        for (int k = 0; k < 48; ++k)
            EXPECT_EQ(b.maskSurface[k], std::stod(ProjectFixed(a.maskSurface[k], 15))) << k;
    }
    EXPECT_EQ(loaded.history[2].opacity, 0.123);
    EXPECT_EQ(loaded.history[2].maskFile, project.file("mask.fit"));
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(loaded.image.curPlane[s][5 * 8 + 7], 1000 + 100 * s + 70 + 5) << s;

    // The commands alone, without a window.
    std::vector<CProcessStructure> commands;
    std::string model, error;
    ASSERT_TRUE(ReadProjectCommands(qxj, &commands, &model, &error)) << error;
    EXPECT_EQ(model, "COLOR");
    ASSERT_EQ(commands.size(), 3u);
    EXPECT_TRUE(commands[0].prevImageFile.empty() && commands[0].curImageFile.empty());
    EXPECT_EQ(commands[1].opacity, 0.123);
    EXPECT_EQ(commands[2].parameters, before[3].parameters);
}

TEST(ProjectSave, SameFolderCopiesNothingAndTextOnlyWritesNoProject) {
    ScratchDir images;
    History h(images.path().string(), false);
    const auto files = Snapshot(images.path());
    const std::string qxj = images.file("M31.qxj");
    ASSERT_TRUE(h.window.SaveProject(qxj, "x", "Y", "Y", "N"));
    ASSERT_TRUE(h.window.SaveProject(qxj, "x", "Y", "Y", "N"));
    auto after = Snapshot(images.path());
    EXPECT_EQ(after.erase(qxj), 1u);
    EXPECT_EQ(after, files) << "nothing copied, nothing changed";
    EXPECT_EQ(ReadAll(qxj).rfind("Astrivelle Monochrome Project v5.0<>\n" + images.file("M31.fit") +
                                     "<" + images.file("M31.fit") + "<",
                                 0),
              0u);

    // The report menu item: no project file, a report without file lines.
    ScratchDir other;
    const std::string q2 = other.file("R.QXJ");
    ASSERT_TRUE(h.window.SaveProject(q2, q2, "N", "N", "Y"));
    EXPECT_FALSE(fs::exists(q2));
    const std::string report = ReadAll(other.file("R.txt"));
    EXPECT_NE(report.find("Final Image Saved As : " + q2), std::string::npos);
    EXPECT_EQ(report.find("Previous Image File"), std::string::npos);
    EXPECT_EQ(std::distance(fs::directory_iterator(other.path()), fs::directory_iterator()), 1);
}

TEST(ProjectSave, NotRunMarkersAndEmptyFilesStandAsTheyAre) {
    ScratchDir images, project;
    History h(images.path().string());
    h.window.history[2].prevImageFile = kReprocessCommand;
    h.window.history[2].curImageFile = kNotRunFile;
    h.window.history[3].curImageFile.clear();
    const std::string qxj = project.file("p.qxj");
    ASSERT_TRUE(h.window.SaveProject(qxj, "f", "Y", "Y", "N"));
    EXPECT_TRUE(h.notify.messages.empty());
    std::vector<CProcessStructure> records;
    bool color = false;
    std::string error;
    ASSERT_TRUE(ReadProjectRecords(qxj, &records, &color, &error)) << error;
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[2].prevImageFile, "REPROCESS COMMAND");
    EXPECT_EQ(records[2].curImageFile, "~~");
    EXPECT_EQ(records[3].curImageFile, "");
    EXPECT_NE(ReadAll(qxj).find("\nREPROCESS COMMAND<~~<1<1<0<1<Pixel Math<"), std::string::npos);
    EXPECT_FALSE(fs::exists(project.file("~~")));
}

TEST(ProjectSave, FailuresKeepTheOldProjectWhole) {
    ScratchDir images, project;
    History h(images.path().string());
    const std::string qxj = project.file("p.qxj");
    ASSERT_TRUE(h.window.SaveProject(qxj, "f", "Y", "Y", "N"));
    const std::string good = ReadAll(qxj);

    // A step file that has gone: the two texts of a failed copy, the old project unchanged.
    fs::remove(images.file("M31$2.fit"));
    fs::remove(project.file("M31$2.fit"));
    ScratchDir elsewhere;
    const std::string q2 = elsewhere.file("p.qxj");
    WriteText(q2, good);
    h.notify.messages.clear();
    EXPECT_FALSE(h.window.SaveProject(q2, "f", "Y", "Y", "Y"));
    const std::string e = elsewhere.path().string();
    ASSERT_EQ(h.notify.messages.size(), 2u);
    EXPECT_EQ(h.notify.messages[0], "Could not save project to the specified directory.");
    EXPECT_EQ(h.notify.messages[1],
              "Error 2 Copying Image File : Path = " + q2 +
                  "\n Name = f\n Commands = Y\n Images = Y\n Text = Y\n From = " +
                  images.file("M31$2.fit") + "\n To = " + e + "/M31$2.fit");
    EXPECT_EQ(ReadAll(q2), good);
    EXPECT_FALSE(fs::exists(elsewhere.file("p.txt")));
    for (const auto& f : fs::directory_iterator(elsewhere.path()))
        EXPECT_NE(f.path().extension(), ".part");

    // A folder that can't hold the project: under a regular file.
    h.notify.messages.clear();
    const std::string bad = images.file("M31.fit") + "/p.qxj";
    EXPECT_FALSE(h.window.SaveProject(bad, "f", "Y", "N", "N"));
    ASSERT_EQ(h.notify.messages.size(), 1u);
    EXPECT_EQ(h.notify.messages[0], "Error Opening Project File : Path = " + bad +
                                        "\n Name = f\n Commands = Y\n Images = N\n Text = N");
    h.notify.messages.clear();
    EXPECT_FALSE(h.window.SaveProject(bad, "f", "N", "N", "Y"));
    ASSERT_EQ(h.notify.messages.size(), 1u);
    EXPECT_EQ(h.notify.messages[0], "Error Opening Text File : Path = " + bad +
                                        "\n Name = f\n Commands = N\n Images = N\n Text = Y");
}

TEST(ProjectLoad, V2ProjectTakesDefaultBlendValues) {
    ScratchDir dir;
    Image img;
    MakeImage(img, 4, 3, ColorGray, [](int, int x, int y) { return 10 * x + y; });
    const std::string origin = dir.file("moon.fit");
    ASSERT_TRUE(img.WriteFile(origin, KindFITS));
    const std::string qxj = dir.file("moon.qxj");
    WriteText(qxj, "Astrivelle Monochrome Project v2.0<>\n" + origin + "<" + origin +
                       "<0<1<1<1<Read<<>\n" + origin + "<" + dir.file("moon$1.fit") +
                       "<0<1<1<1<Negative<<>\n" + dir.file("moon$1.fit") + "<" +
                       dir.file("moon$2.fit") +
                       "<1<1<0<0<Pixel Math<Operation: Add#Constant: 5.000#Threshold Min: "
                       "0#Threshold Max: 65535#Feather Range: 0#<>\n");
    RecordingNotify notify;
    CProcessWindow w(&notify);
    ProjectLoadResult result;
    ASSERT_TRUE(LoadProjectFile(qxj, w, {}, &result));
    EXPECT_TRUE(notify.messages.empty());
    EXPECT_EQ(result.version, 2);
    EXPECT_FALSE(result.color);
    ASSERT_EQ(w.history.size(), 3u);
    EXPECT_EQ(w.currentStep, 0);
    const CProcessStructure fresh;
    for (const CProcessStructure& r : w.history) {
        EXPECT_EQ(r.blendMode, 0);
        EXPECT_EQ(r.opacity, 1.0);
        EXPECT_EQ(r.filterFile, "");
        EXPECT_EQ(r.applyMask, 1);
        EXPECT_EQ(r.maskLevel, 65535u);
        EXPECT_EQ(r.maskSurface, DefaultMaskSurface());
        EXPECT_EQ(r.luminanceMask, 1);
        EXPECT_EQ(r.maskFile, "");
        EXPECT_FALSE(BlendActive(r));
    }
    EXPECT_EQ(w.history[2].channelSelect, 1);
    EXPECT_EQ(w.history[2].channelGreen, 0);
    EXPECT_EQ(w.history[2].channelBlue, 0);
    EXPECT_EQ(w.history[1].operation, "Negative");
    EXPECT_EQ(w.image.curPlane[0][2 * 4 + 3], 32);

    std::vector<CProcessStructure> commands;
    std::string model, error;
    ASSERT_TRUE(ReadProjectCommands(qxj, &commands, &model, &error));
    EXPECT_EQ(model, "MONO");
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[1].opacity, 1.0);
}

TEST(ProjectLoad, MovedProjectAsksForAFolderAndRestoresIntoIt) {
    ScratchDir base;
    const fs::path oldFolder = base.path() / "old";
    fs::create_directories(oldFolder);
    {
        History h(oldFolder.string());
        ASSERT_TRUE(h.window.SaveProject((oldFolder / "p.qxj").string(), "f", "Y", "Y", "N"));
    }
    const fs::path moved = base.path() / "moved";
    fs::rename(oldFolder, moved);
    const std::string qxj = (moved / "p.qxj").string();
    const auto movedFiles = Snapshot(moved);

    struct Case {
        const char* name;
        std::string answer; // the folder picked; empty: the picker is cancelled
        bool copies;
    };
    const fs::path restore = base.path() / "restore";
    fs::create_directories(restore);
    const Case cases[] = {
        {"into another folder", restore.string(), true},
        {"into the project's own folder", moved.string(), false},
        {"cancelled", "", false},
    };
    for (const Case& c : cases) {
        FolderNotify notify;
        notify.answerFolder = c.answer;
        notify.cancel = c.answer.empty();
        CProcessWindow w(&notify);
        ProjectLoadResult result;
        const bool ok = LoadProjectFile(qxj, w, {}, &result);
        ASSERT_EQ(notify.messages.size(), 1u) << c.name;
        EXPECT_EQ(notify.messages[0],
                  "The Directory Path Saved In The Project Does Not Match The Current Open "
                  "Project Path.\nPlease Select Or Create A Directory On A Hard Drive To "
                  "Restore The Project.");
        ASSERT_EQ(notify.folderTitles.size(), 1u);
        EXPECT_EQ(notify.folderTitles[0], "Select A Project File Save Directory On A Hard Drive.");
        EXPECT_TRUE(result.moved);
        if (notify.cancel) {
            EXPECT_FALSE(ok);
            EXPECT_TRUE(w.history.empty());
            continue;
        }
        ASSERT_TRUE(ok) << c.name;
        EXPECT_TRUE(result.complete);
        EXPECT_FALSE(result.placeholder);
        const fs::path where(c.answer);
        EXPECT_EQ(w.filePath, (where / "M31.fit").string()) << c.name;
        ASSERT_EQ(w.history.size(), 4u);
        for (std::size_t i = 1; i < 4; ++i) {
            EXPECT_EQ(fs::path(w.history[i].prevImageFile).parent_path(), where) << c.name << i;
            EXPECT_EQ(fs::path(w.history[i].curImageFile).parent_path(), where) << c.name << i;
            EXPECT_TRUE(fs::exists(w.history[i].curImageFile)) << c.name << i;
        }
        if (c.copies) {
            for (const char* name : {"M31.fit", "M31$1.fit", "M31$2.fit", "M31$3.fit"})
                EXPECT_EQ(ReadAll((restore / name).string()), ReadAll((moved / name).string()))
                    << name;
        }
        EXPECT_EQ(Snapshot(moved), movedFiles) << "the project's own files stay: " << c.name;
    }
}

TEST(ProjectLoad, MissingOriginGivesAPlaceholderWithForwardOnlyCommands) {
    ScratchDir dir;
    const std::string qxj = dir.file("p.qxj");
    CProcessStructure step;
    step.prevImageFile = dir.file("gone.fit");
    step.curImageFile = dir.file("gone$1.fit");
    step.operation = "Negative";
    WriteText(qxj, std::string(kColorHeading) + "\n" + dir.file("gone.fit") + "<" +
                       dir.file("gone.fit") + "<0<1<1<1<Read<<>\n" + FormatProjectLine(step) +
                       FormatProjectLine(step));
    WriteText(dir.file("NI__1.fit"), "taken"); // the first free number is 2
    RecordingNotify notify;
    CProcessWindow w(&notify);
    ProjectLoadOptions options;
    options.defaultSaveType = "UNCOMPFIT32";
    ProjectLoadResult result;
    ASSERT_TRUE(LoadProjectFile(qxj, w, options, &result));
    ASSERT_EQ(notify.messages.size(), 1u);
    EXPECT_EQ(notify.messages[0], "The Project Initial Image Is Not Available.\nA New Color Image "
                                  "Will Be Created And the Commands Copied.");
    EXPECT_TRUE(result.placeholder);
    EXPECT_TRUE(w.placeholderImage);
    EXPECT_EQ(w.filePath, dir.file("NI__2.fit"));
    EXPECT_EQ(w.image.width, 200);
    EXPECT_EQ(w.image.height, 200);
    EXPECT_EQ(w.image.colorType, ColorRGB);
    ASSERT_EQ(w.history.size(), 3u);
    EXPECT_EQ(w.history[0].curImageFile, dir.file("NI__2.fit"));
    for (std::size_t i = 1; i < 3; ++i) {
        EXPECT_EQ(w.history[i].prevImageFile, "REPROCESS COMMAND");
        EXPECT_EQ(w.history[i].curImageFile, "~~");
    }
    EXPECT_EQ(PlaceholderImagePath(dir.path().string(), "UNCOMPTIF"), dir.file("NI__1.tif"));
}

TEST(ProjectLoad, FormatFailuresTellTheirTextsAndKeepWhatWasRead) {
    ScratchDir dir;
    Image img;
    MakeImage(img, 4, 3, ColorGray, [](int, int x, int) { return x; });
    const std::string o = dir.file("o.fit");
    ASSERT_TRUE(img.WriteFile(o, KindFITS));
    CProcessStructure step;
    step.prevImageFile = o;
    step.operation = "Negative";
    const std::string head = "Astrivelle Monochrome Project v5.0<>\n";
    const std::string originLine = o + "<" + o + "<0<1<1<1<Read<<>\n";
    struct Case {
        const char* name;
        std::string content;
        bool opened;
        std::size_t records;
        std::vector<std::string> texts;
    };
    const Case cases[] = {
        {"empty file", "", false, 0, {"Project Format Error. The Project Did Not Load."}},
        {"not a project",
         "Some Text<>\n" + originLine,
         false,
         0,
         {"Project Format Error - Not An QX Project 2.0 or 5.0?\nThe Project Did Not Load."}},
        {"heading without >",
         "Astrivelle Monochrome Project v5.0<\n" + originLine,
         false,
         0,
         {"Project Format Error. The Project Did Not Load."}},
        {"origin without fields",
         head + "nothing>\n",
         false,
         0,
         {"Project Format Error - Corrupt Project File.\nThe Project Did Not Load."}},
        {"origin names differ",
         head + o + "<" + dir.file("x.fit") + "<0<1<1<1<Read<<>\n" + FormatProjectLine(step),
         true,
         2,
         {"Project Format Error - Corrupt Project Initial Image File Name.\nThe Project May Not "
          "Load."}},
        {"line without >",
         head + originLine + FormatProjectLine(step) + "abc<def\n" + FormatProjectLine(step),
         true,
         2,
         {"Project Format Error. The Project Did Not Load."}},
        {"short line",
         head + originLine + FormatProjectLine(step) + o + "<" + o + "<0<1<1<1<Negative<<0<>\n",
         true,
         2,
         {"Operation Format Error - Not All Operations Loaded."}},
        {"short origin line",
         head + o + "<" + o + "<0<1<>\n",
         true,
         1,
         {"Operation Format Error - Not All Operations Loaded."}},
    };
    for (const Case& c : cases) {
        const std::string qxj = dir.file("c.qxj");
        WriteText(qxj, c.content);
        RecordingNotify notify;
        CProcessWindow w(&notify);
        ProjectLoadResult result;
        EXPECT_EQ(LoadProjectFile(qxj, w, {}, &result), c.opened) << c.name;
        EXPECT_EQ(w.history.size(), c.records) << c.name;
        EXPECT_EQ(notify.messages, c.texts) << c.name;
        EXPECT_TRUE(fs::exists(o)) << c.name;
    }
    RecordingNotify notify;
    CProcessWindow w(&notify);
    EXPECT_FALSE(LoadProjectFile(dir.file("absent.qxj"), w));
    EXPECT_TRUE(notify.messages.empty()) << "a file that can't be opened is not told";
}

TEST(ProjectCommands, FailureTexts) {
    ScratchDir dir;
    const std::string head = "Astrivelle Color Project v5.0<>\n";
    const std::string origin = "/a/o.fit</a/o.fit<0<1<1<1<Read<<>\n";
    CProcessStructure step;
    step.operation = "Negative";
    struct Case {
        std::string content;
        const char* text;
    };
    const Case cases[] = {
        {head + origin, "The Project File Contains No Commands."},
        {head, "The Project File Contains No Commands."},
        {"Astrivelle Color Project v3.0<>\n" + origin, "Project Format Error - Not An QX Project "
                                                       "2.0 or 5.0?\nThe Project Did Not Load."},
        {head + origin + FormatProjectLine(step) + "x<y<1<1<1<1<Negative<<>\n",
         "Project File Format Error."},
        {head + origin + "no close\n", "Project Format Error. The Project Did Not Load."},
    };
    for (const Case& c : cases) {
        const std::string path = dir.file("c.qxj");
        WriteText(path, c.content);
        std::vector<CProcessStructure> list(2);
        std::string model, error;
        EXPECT_FALSE(ReadProjectCommands(path, &list, &model, &error)) << c.content;
        EXPECT_EQ(error, c.text) << c.content;
        EXPECT_TRUE(list.empty());
    }
}

TEST(ProjectLoad, VeryLongParameterLineRoundTrips) {
    // Far beyond the 10000 characters of a fixed line buffer.
    ScratchDir images, project;
    History h(images.path().string());
    std::string params;
    for (int i = 0; params.size() < 200000; ++i)
        params += "Point " + std::to_string(i) + ": (" + std::to_string(i % 65536) + ", " +
                  std::to_string((i * 7) % 65536) + ")#";
    h.window.history[2].parameters = params;
    const std::string qxj = project.file("long.qxj");
    ASSERT_TRUE(h.window.SaveProject(qxj, "f", "Y", "Y", "N"));
    RecordingNotify notify;
    CProcessWindow w(&notify);
    ASSERT_TRUE(LoadProjectFile(qxj, w));
    EXPECT_TRUE(notify.messages.empty());
    ASSERT_EQ(w.history.size(), 4u);
    EXPECT_EQ(w.history[2].parameters, params);
    EXPECT_EQ(w.history[3].operation, "Pixel Math");
}

TEST(ProjectLoad, CorruptAndTruncatedProjectsNeverCrashOrDeleteFiles) {
    ScratchDir images, project;
    {
        History h(images.path().string());
        ASSERT_TRUE(h.window.SaveProject(project.file("p.qxj"), "f", "Y", "Y", "N"));
    }
    const std::string good = ReadAll(project.file("p.qxj"));
    const auto files = Snapshot(project.path());
    const std::set<std::string> fixed = {kProjectFormatErrorText,     kProjectNotProjectText,
                                         kProjectCorruptText,         kProjectInitialNameText,
                                         kProjectMovedText,           kProjectInitialMissingText,
                                         kProjectNotAllOperationsText};
    const std::string damaged = project.file("d.qxj");
    const char patches[] = {'<', '>', '\n', '\0', 'x', '/'};
    int loads = 0;
    const std::size_t stride = std::max<std::size_t>(1, good.size() / 100);
    for (std::size_t at = 0; at <= good.size(); at += stride) {
        std::vector<std::string> variants = {good.substr(0, at)};
        if (at < good.size())
            for (char c : patches) {
                std::string v = good;
                v[at] = c;
                variants.push_back(v);
            }
        for (const std::string& v : variants) {
            WriteText(damaged, v);
            FolderNotify notify; // a moved-looking project is restored in place
            notify.answerFolder = project.path().string();
            CProcessWindow w(&notify);
            ProjectLoadResult result;
            const bool opened = LoadProjectFile(damaged, w, {}, &result);
            ++loads;
            if (opened) {
                ASSERT_FALSE(w.history.empty()) << at;
                EXPECT_EQ(w.currentStep, 0);
                EXPECT_LE(w.history.size(), 4u);
            }
            for (const std::string& m : notify.messages)
                EXPECT_TRUE(fixed.count(m)) << "offset " << at << ": " << m;
            std::vector<CProcessStructure> list;
            std::string model, error;
            ReadProjectCommands(damaged, &list, &model, &error);
            bool color;
            ReadProjectRecords(damaged, &list, &color, &error);
        }
    }
    EXPECT_GT(loads, 400);
    fs::remove(damaged);
    auto after = Snapshot(project.path());
    for (const auto& [path, content] : files) {
        ASSERT_TRUE(after.count(path)) << path << " was deleted";
        EXPECT_EQ(after[path], content) << path << " was changed";
    }
}
