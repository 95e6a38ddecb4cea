// Saves pictures of the dialogs and list rows in the light and dark theme and in every interface
// language, for a person to look at.
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "tests/support/RecordingInteraction.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

QString g_folder;

void save(QWidget &widget, const QString &name) {
    widget.show();
    QApplication::processEvents();
    const QString path = g_folder % u'/' % name % u".png"_s;
    if (!widget.grab().save(path))
        std::fprintf(stderr, "could not save %s\n", qPrintable(path));
}

void saveRows(const QString &suffix) {
    NTBackGroundView list;
    list.setBackgroundColor(QApplication::palette().color(QPalette::Window));
    list.setFixedWidth(240);
    auto *layout = new QVBoxLayout(&list);
    layout->setContentsMargins(0, 6, 0, 6);
    layout->setSpacing(0);
    const std::tuple<bool, bool, QString> rows[] = {
        {true, false, u"Macintosh HD"_s},
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

void saveWindows(const QString &suffix) {
    QWidget parent;
    parent.resize(900, 600);

    NTRenameWindowController rename(&parent);
    save(rename, u"rename_"_s % suffix);
    rename.okAction();
    save(rename, u"rename_error_"_s % suffix);
    rename.hide();

    RecordingInteraction interaction;
    parent.show();
    NTLoadingWindowController *sheet =
        NTLoadingWindowController::beginSheet(&parent, qtTrId("disk_repair_loading"));
    save(*sheet, u"loading_"_s % suffix);
    sheet->close();

    NTFullAccessWindowController guide(&parent, [] { return true; });
    save(guide, u"guide_"_s % suffix);
}

} // namespace

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    g_folder = QStringLiteral(VANTRELO_PICTURES_DIR);
    QDir().mkpath(g_folder);
    for (const bool dark : {false, true}) {
        UserDefaults::globalDomain().setObject(dark ? u"Dark"_s : u"Light"_s,
                                               u"AppleInterfaceStyle"_s);
        ThemePalette::apply();
        for (const QString &language : {u"en"_s, u"zh-Hans"_s, u"ja"_s, u"de"_s, u"fr"_s}) {
            MuLanguage::setLanguage(language);
            UserDefaults::standard().setObject(QStringList{language}, u"AppleLanguages"_s);
            const QString suffix = (dark ? u"dark_"_s : u"light_"_s) % language;
            saveRows(suffix);
            saveWindows(suffix);
        }
    }
    std::printf("pictures in %s\n", qPrintable(g_folder));
    return 0;
}
