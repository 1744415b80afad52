// SPDX-License-Identifier: GPL-3.0-or-later
/// \file astrivelle: the desktop program.
#include <QApplication>

#include "shell/MainFrame.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Astrivelle");
    QApplication::setOrganizationName("Astrivelle");
    astrivelle::MainFrame frame;
    frame.show();
    frame.OpenFiles(QApplication::arguments().mid(1));
    return QApplication::exec();
}
