// Saves pictures of the whole main window over an internal ext4 volume, a selected read-only and
// a writable external NTFS volume, in both themes and every interface language.
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/ui/mainwindow/FakeDisks.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTMainWindowController.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void save(const QString &folder, const QString &suffix) {
    auto disks = std::make_shared<FakeDisks>();
    disks->add({u"nvme0n1p2"_s, u"/"_s, u"System"_s, u"ext4"_s, false, false});
    disks->add({u"sdb1"_s, u"/media/anna/My Passport"_s, u"My Passport"_s, u"ntfs"_s, true, true});
    disks->add({u"sdc1"_s, u"/media/anna/Sauvegarde"_s, u"Sauvegarde"_s, u"ntfs"_s, true, false});
    NTDiskManager manager(FakeDisks::system(disks));
    NTMainWindowController window(&manager);
    QEventLoop loop;
    QObject::connect(&window, &NTMainWindowController::initialListDidLoad, &loop,
                     &QEventLoop::quit);
    window.showWindow();
    loop.exec();
    window.outlineView()->selectRow(3);
    QApplication::processEvents();
    const QString path = folder % u"/main_window_"_s % suffix % u".png"_s;
    if (!window.grab().save(path))
        std::fprintf(stderr, "could not save %s\n", qPrintable(path));
}

} // namespace

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString folder = QStringLiteral(VANTRELO_PICTURES_DIR);
    QDir().mkpath(folder);
    RecordingInteraction interaction;
    for (const bool dark : {false, true}) {
        UserDefaults::globalDomain().setObject(dark ? u"Dark"_s : u"Light"_s,
                                               u"AppleInterfaceStyle"_s);
        ThemePalette::apply();
        for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
            MuLanguage::setLanguage(language);
            UserDefaults::standard().setObject(QStringList{language}, u"AppleLanguages"_s);
            save(folder, (dark ? u"dark_"_s : u"light_"_s) % language);
        }
    }
    std::printf("pictures in %s\n", qPrintable(folder));
    return 0;
}
