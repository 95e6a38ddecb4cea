#include "ctl/HelperCommands.h"
#include "ctl/VolumeListing.h"
#include "disk/NTDiskManager.h"

#include <QLoggingCategory>
#include <QStringList>
#include <QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void write(FILE *stream, const QByteArray &bytes) {
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}

int usage() {
    write(stderr, "usage: vantreloctl list [--json] [--bytes] [--verbose]\n"
                  "       vantreloctl mount-rw DEVICE | open PATH | eject DEVICE | repair DEVICE\n"
                  "       vantreloctl erase DEVICE | rename DEVICE NAME | helper-version\n");
    return 2;
}

int listVolumes(const QStringList &options) {
    for (const QString &option : options)
        if (option != "--json"_L1 && option != "--bytes"_L1 && option != "--verbose"_L1)
            return usage();
    // The per-volume log lines are for the application's log, not a terminal.
    if (!options.contains("--verbose"_L1))
        QLoggingCategory::setFilterRules(u"vantrelo.disk.info=false"_s);
    NTDiskManager manager(DiskSystem::local());
    const NTDiskDriveList drives = manager.getAllDiskDrive();
    // JSON always carries exact bytes, so --bytes changes only the text listing.
    const SizeStyle sizes = options.contains("--bytes"_L1) ? SizeStyle::Bytes : SizeStyle::Readable;
    write(stdout, options.contains("--json"_L1) ? volumesAsJson(drives)
                                                : volumesAsText(drives, sizes).toUtf8());
    return 0;
}

} // namespace

// Listing needs neither a display nor an event loop; helper commands make their own.
int main(int argc, char **argv) {
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (arguments.isEmpty())
        return usage();
    const QString verb = arguments.first();
    if (verb == "list"_L1)
        return listVolumes(arguments.mid(1));
    if (isHelperCommand(verb)) {
        QTextStream out(stdout);
        QTextStream err(stderr);
        return runHelperCommand(arguments, out, err);
    }
    return usage();
}
