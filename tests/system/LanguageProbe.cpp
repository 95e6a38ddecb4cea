// Prints one looked-up text, so a test can check what a fresh process shows: with a language
// chosen before the application object exists (argument), or the system's choice (no argument).
#include "system/MuLanguage.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv) {
    if (argc > 1)
        MuLanguage::setLanguage(QString::fromUtf8(argv[1]));
    QCoreApplication app(argc, argv);
    std::fputs(qtTrId("disk_action_eject").toUtf8().constData(), stdout);
    return 0;
}
