// SPDX-License-Identifier: GPL-3.0-or-later
/// \file The workbench library: history step files, projects and the open images of the main
/// window, the engine parts that read and write image files.
namespace astrivelle {
/// Names the library in link maps; the parts live in the files beside this one.
const char* WorkbenchName() { return "astrivelle_workbench"; }
} // namespace astrivelle
