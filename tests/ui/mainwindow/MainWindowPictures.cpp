// Not a test. Saves pictures of the main window, the detail panel of each kind of volume, the
// dialogs and list rows, in the light and dark theme and in every interface language, for a person
// to look at. With --show it instead puts the main window under a loading sheet, the rename dialog
// with its error line and the guide on screen at once until killed, for reading the AT-SPI tree.
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/RecordingInteraction.h"
#include "tests/ui/mainwindow/FakeDisks.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTMainWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QVBoxLayout>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QString g_folder = QStringLiteral(VANTRELO_PICTURES_DIR);

void save(QWidget &widget, const QString &name) {
    widget.show();
    QApplication::processEvents();
    const QString path = g_folder % u'/' % name % u".png"_s;
    if (!widget.grab().save(path))
        std::fprintf(stderr, "could not save %s\n", qPrintable(path));
}

// Internal ext4, external read-only NTFS and external writable NTFS, first list loaded.
std::unique_ptr<NTMainWindowController> mainWindow(NTDiskManager &manager) {
    auto window = std::make_unique<NTMainWindowController>(&manager);
    QEventLoop loop;
    QObject::connect(window.get(), &NTMainWindowController::initialListDidLoad, &loop,
                     &QEventLoop::quit);
    window->showWindow();
    loop.exec();
    return window;
}

void saveMainWindow(NTDiskManager &manager, const QString &suffix) {
    const auto window = mainWindow(manager);
    for (const auto &[row, kind] : {std::pair{1, u"ext4"_s}, std::pair{4, u"ntfs_writable"_s},
                                    std::pair{3, u"ntfs_readonly"_s}}) {
        window->outlineView()->selectRow(row);
        save(*window->rightBgView(), u"panel_"_s % kind % u'_' % suffix);
    }
    save(*window, u"main_window_"_s % suffix);
}

void saveRows(const QString &suffix) {
    NTBackGroundView list;
    list.setBackgroundColor(QApplication::palette().color(QPalette::Window));
    list.setFixedWidth(240);
    auto *layout = new QVBoxLayout(&list);
    layout->setContentsMargins(0, 6, 0, 6);
    layout->setSpacing(0);
    const std::tuple<bool, bool, QString> rows[] = {
        {true, false, u"Debian"_s},
        {true, true, u"Windows"_s},
        {false, false, u"USB-Stick"_s},
        {false, true, u"Sauvegarde externe très longue"_s}};
    for (const auto &[internal, selected, name] : rows) {
        auto *row = new NTTableRowView;
        row->setFixedHeight(36);
        row->setInternal(internal);
        auto *cell = new NTTableCellView;
        cell->textField()->setText(name);
        row->addSubview(cell);
        row->setSelected(!selected);
        row->setSelected(selected);
        layout->addWidget(row);
    }
    save(list, u"rows_"_s % suffix);
}

void saveDialogs(const QString &suffix) {
    QWidget parent;
    parent.resize(900, 600);
    NTRenameWindowController rename(&parent);
    save(rename, u"rename_"_s % suffix);
    rename.okAction();
    save(rename, u"rename_error_"_s % suffix);
    rename.hide();
    parent.show();
    NTLoadingWindowController *sheet =
        NTLoadingWindowController::beginSheet(&parent, qtTrId("disk_repair_loading"));
    save(*sheet, u"loading_"_s % suffix);
    sheet->close();
    NTFullAccessWindowController guide(&parent, [] { return true; });
    save(guide, u"guide_"_s % suffix);
}

int show(NTDiskManager &manager) {
    ThemePalette::follow();
    const auto window = mainWindow(manager);
    window->move(40, 60);
    NTLoadingWindowController::beginSheet(window.get(), qtTrId("disk_repair_loading"));
    NTRenameWindowController rename(window.get());
    rename.show();
    rename.okAction();
    NTFullAccessWindowController guide(window.get());
    guide.show();
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv) {
    const bool onScreen = argc > 1 && qstrcmp(argv[1], "--show") == 0;
    if (!onScreen)
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    auto disks = std::make_shared<FakeDisks>();
    disks->add({u"nvme0n1p2"_s, u"/"_s, u"Debian"_s, u"ext4"_s, false, false});
    disks->add({u"sdb1"_s, u"/media/anna/My Passport"_s, u"My Passport"_s, u"ntfs"_s, true, true});
    disks->add({u"sdc1"_s, u"/media/anna/Sauvegarde"_s, u"Sauvegarde"_s, u"ntfs"_s, true, false});
    NTDiskManager manager(FakeDisks::system(disks));
    if (onScreen)
        return show(manager);

    QDir().mkpath(g_folder);
    RecordingInteraction interaction;
    for (const bool dark : {false, true}) {
        UserDefaults::globalDomain().setObject(dark ? u"Dark"_s : u"Light"_s,
                                               u"AppleInterfaceStyle"_s);
        ThemePalette::apply();
        for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
            MuLanguage::setLanguage(language);
            UserDefaults::standard().setObject(QStringList{language}, u"AppleLanguages"_s);
            const QString suffix = (dark ? u"dark_"_s : u"light_"_s) % language;
            saveMainWindow(manager, suffix);
            saveRows(suffix);
            saveDialogs(suffix);
        }
    }
    std::printf("pictures in %s\n", qPrintable(g_folder));
    return 0;
}
