#include "ui/mainwindow/NTLoadingWindowController.h"

#include "ui/controls/Interaction.h"
#include "ui_NTLoadingWindowController.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr double kCornerRadius = 5.0;

} // namespace

NTLoadingWindowController::NTLoadingWindowController(QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint)
    , m_ui(std::make_unique<Ui::NTLoadingWindowController>()) {
    m_ui->setupUi(this);
    // The rounded corners show what is behind the sheet.
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowModality(Qt::WindowModal);
}

NTLoadingWindowController::~NTLoadingWindowController() = default;

NTLoadingWindowController *
NTLoadingWindowController::beginSheet(QWidget *parent, const std::optional<QString> &tipText) {
    auto *sheet = new NTLoadingWindowController(parent ? parent->window() : nullptr);
    sheet->setTipText(tipText);
    sheet->windowDidLoad();
    Interaction::shared().beginSheet(sheet, parent ? parent->window() : nullptr);
    return sheet;
}

void NTLoadingWindowController::windowDidLoad() {
    if (m_tipText) {
        tipTextField()->setText(*m_tipText);
        // The sheet has no title bar, but screen readers announce windows by their title.
        setWindowTitle(*m_tipText);
        loadingIndicator()->setAccessibleName(*m_tipText);
    }
    loadingIndicator()->startAnimation();
}

QLabel *NTLoadingWindowController::tipTextField() const {
    return m_ui->tipTextField;
}

NTSpinningIndicator *NTLoadingWindowController::loadingIndicator() const {
    return m_ui->loadingIndicator;
}

void NTLoadingWindowController::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kCornerRadius,
                         kCornerRadius);
    painter.setPen(palette().color(QPalette::Mid));
    painter.setBrush(palette().color(QPalette::Window));
    painter.drawPath(shape);
}
