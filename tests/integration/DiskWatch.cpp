#include "disk/NTDiskManager.h"

#include <QCoreApplication>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// One tab-separated line per delegate call, flushed at once for the test reading them.
class LinePrinter final : public DiskMountDelegate {
public:
    void diskDidMount(const NTDiskDrivePtr &drive) override {
        print({u"mount"_s, drive->bsdName(), drive->mountPath(), drive->formatDescription(),
               drive->name(), drive->uuid(), drive->isWritable() ? u"rw"_s : u"ro"_s});
    }
    void diskDidUnMount(const QString &mountPath) override { print({u"unmount"_s, mountPath}); }
    static void print(const QStringList &fields) {
        std::fputs((fields.join(u'\t') + u'\n').toUtf8().constData(), stdout);
        std::fflush(stdout);
    }
};

} // namespace

// The disk manager as the application runs it, for tests that run it as another account:
// "shared" lists once on another thread as the window's first list build does; "session" starts
// addLisener. It prints "ready", waits for a line on standard input, then follows events.
int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const QString mode = arguments.value(1);
    NTDiskManager *manager = nullptr;
    if (mode == "shared"_L1) {
        std::thread([] { NTDiskManager::shared()->getAllDiskDrive(); }).join();
        manager = NTDiskManager::shared();
    } else if (mode == "session"_L1) {
        manager = new NTDiskManager(DiskSystem::local(), &app);
        manager->addLisener();
    } else {
        std::fputs("usage: vantrelo_disk_watch shared|session\n", stderr);
        return 2;
    }
    LinePrinter printer;
    manager->setDelegate(&printer);
    LinePrinter::print({u"ready"_s});
    std::string line;
    std::getline(std::cin, line);
    return app.exec();
}
