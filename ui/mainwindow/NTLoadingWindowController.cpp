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

QPainterPath NTLoadingWindowController::outline(const QRectF &bounds) {
    QPainterPath shape;
    shape.addRoundedRect(bounds, kCornerRadius, kCornerRadius);
    return shape;
}

void NTLoadingWindowController::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPainterPath shape = outline(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    // Every pixel the mask lets through is opaque, so none shows black without a compositor.
    painter.fillRect(rect(), palette().color(QPalette::Mid));
    painter.setPen(palette().color(QPalette::Mid));
    painter.setBrush(palette().color(QPalette::Window));
    painter.drawPath(shape);
}

void NTLoadingWindowController::resizeEvent(QResizeEvent *event) {
    QDialog::resizeEvent(event);
    // The rounded corners show what is behind the sheet. A mask rather than a translucent
    // window, which shows black corners wherever nothing composites.
    setMask(QRegion(outline(QRectF(rect())).toFillPolygon().toPolygon()));
}
