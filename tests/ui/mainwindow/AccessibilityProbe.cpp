// Not a test: puts the rename dialog (with its error line), a loading sheet on a window holding a
// short disk list and a usage bar, and the guide on screen at once, without modal loops, and keeps
// them up until killed, so the AT-SPI tree and a picture of a real X server can be read.
#include "ui/controls/LLLineProgressView.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTBackGroundView.h"
#include "ui/mainwindow/NTFullAccessWindowController.h"
#include "ui/mainwindow/NTLoadingWindowController.h"
#include "ui/mainwindow/NTRenameWindowController.h"
#include "ui/mainwindow/NTTableCellView.h"
#include "ui/mainwindow/NTTableRowView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QApplication>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

void addRows(QWidget &list) {
    auto *layout = new QVBoxLayout(&list);
    layout->setContentsMargins(0, 6, 0, 6);
    layout->setSpacing(0);
    const std::tuple<bool, bool, QString> rows[] = {
        {true, false, u"System"_s}, {true, true, u"Windows"_s}, {false, false, u"USB-Stick"_s}};
    for (const auto &[internal, selected, name] : rows) {
        auto *row = new NTTableRowView;
        row->setFixedHeight(36);
        row->setInternal(internal);
        auto *cell = new NTTableCellView;
        cell->textField()->setText(name);
        row->addSubview(cell);
        row->setSelected(selected);
        layout->addWidget(row);
    }
    layout->addStretch();
    auto *usage = new LLLineProgressView;
    usage->setAccessibleName(u"Used space"_s);
    usage->setFixedHeight(12);
    usage->setProgressValue(40.0);
    layout->addWidget(usage);
}

} // namespace

int main(int argc, char **argv) {
    QApplication app(argc, argv);
    ThemePalette::follow();

    NTBackGroundView window;
    window.setWindowTitle(u"Vantrelo"_s);
    window.setBackgroundColor(QApplication::palette().color(QPalette::Window));
    addRows(window);
    window.setGeometry(40, 60, 520, 360);
    window.show();
    NTLoadingWindowController::beginSheet(&window, qtTrId("disk_repair_loading"));

    NTRenameWindowController rename(&window);
    rename.move(620, 60);
    rename.show();
    rename.okAction();

    NTFullAccessWindowController guide(&window);
    guide.move(620, 340);
    guide.show();
    return QApplication::exec();
}
