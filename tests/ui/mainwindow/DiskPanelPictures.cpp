// Saves pictures of the detail panel for an internal ext4 volume, a read-only and a writable NTFS
// volume, in the light and dark theme and in every interface language, for a person to look at.
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTDiskViewController.h"

#include <QApplication>
#include <QDir>
#include <QVBoxLayout>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

struct Volume {
    QString picture;
    QString name;
    QString bsdName;
    QString mountPath;
    QString format;
    bool writable;
    bool internal;
    qint64 total;
    qint64 free;
};

NTDiskDrivePtr driveFor(const Volume &volume) {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setName(volume.name);
    drive->setBsdName(volume.bsdName);
    drive->setMountPath(volume.mountPath);
    drive->setFormatDescription(volume.format);
    drive->setIsWritable(volume.writable);
    drive->setIsInternal(volume.internal);
    drive->setIsEjectable(!volume.internal);
    drive->setIcon(volume.internal ? u"drive-harddisk"_s : u"drive-removable-media"_s);
    drive->setTotalSize(volume.total);
    drive->setFreeSize(volume.free);
    return drive;
}

void save(const Volume &volume, bool dark, const QString &folder, const QString &suffix) {
    // The main window's right pane the panel sits on.
    NTBackGroundView pane;
    const int grey = dark ? 41 : 255;
    pane.setBackgroundColor(QColor(grey, grey, grey));
    auto *layout = new QVBoxLayout(&pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new NTDiskViewController(driveFor(volume)));
    pane.resize(560, 400);
    pane.show();
    QApplication::processEvents();
    const QString path = folder % u"/panel_"_s % volume.picture % u'_' % suffix % u".png"_s;
    if (!pane.grab().save(path))
        std::fprintf(stderr, "could not save %s\n", qPrintable(path));
}

} // namespace

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString folder = QStringLiteral(VANTRELO_PICTURES_DIR);
    QDir().mkpath(folder);
    const Volume volumes[] = {
        {u"ext4"_s, u"Debian"_s, u"nvme0n1p2"_s, u"/"_s, u"ext4"_s, true, true, 511'000'000'000,
         203'400'000'000},
        {u"ntfs_readonly"_s, u"Windows Backup"_s, u"sdb1"_s, u"/media/anna/Windows Backup"_s,
         u"Windows NTFS"_s, false, false, 1'000'000'000'000, 312'500'000'000},
        {u"ntfs_writable"_s, u"USB-Stick"_s, u"sdc1"_s, u"/media/anna/USB-Stick"_s,
         u"Windows NTFS"_s, true, false, 64'000'000'000, 51'200'000'000},
    };
    for (const bool dark : {false, true}) {
        UserDefaults::globalDomain().setObject(dark ? u"Dark"_s : u"Light"_s,
                                               u"AppleInterfaceStyle"_s);
        ThemePalette::apply();
        for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
            MuLanguage::setLanguage(language);
            for (const Volume &volume : volumes)
                save(volume, dark, folder, (dark ? u"dark_"_s : u"light_"_s) % language);
        }
    }
    std::printf("pictures in %s\n", qPrintable(folder));
    return 0;
}
