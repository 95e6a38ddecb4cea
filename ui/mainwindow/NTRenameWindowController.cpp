#include "ui/mainwindow/NTRenameWindowController.h"

#include "ui/controls/LLButton.h"
#include "ui/controls/LLDrakMode.h"
#include "ui_NTRenameWindowController.h"

#include <QAccessible>

namespace {

// Red that stays readable on the light and on the dark window colour.
QColor errorColour(bool dark) {
    return dark ? QColor::fromRgb(255, 123, 99) : QColor::fromRgb(192, 28, 40);
}

// Cancel is a quiet grey beside the coloured OK, so the default answer stands out.
QColor cancelColour(bool dark, int state) {
    const int light[] = {224, 212, 198};
    const int darkGrey[] = {78, 90, 102};
    const int grey = dark ? darkGrey[state] : light[state];
    return QColor::fromRgb(grey, grey, grey);
}

} // namespace

NTRenameWindowController::NTRenameWindowController(QWidget *parent)
    : NTModalWindowController(parent)
    , m_ui(std::make_unique<Ui::NTRenameWindowController>()) {
    m_ui->setupUi(this);
    windowDidLoad();
}

NTRenameWindowController::~NTRenameWindowController() = default;

void NTRenameWindowController::windowDidLoad() {
    connect(inputField(), &QLineEdit::textChanged, this,
            &NTRenameWindowController::textDidChangeWithNotification);
    connect(okButton(), &QPushButton::clicked, this, &NTRenameWindowController::okAction);
    connect(cancelButton(), &QPushButton::clicked, this, &NTRenameWindowController::cancelAction);

    setWindowTitle(qtTrId("rename_window_title"));
    okButton()->setText(qtTrId("Alert_Ok"));
    cancelButton()->setText(qtTrId("disk_installhelper_cancel"));
    newNameField()->setText(qtTrId("rename_newname_input"));
    inputField()->setAccessibleName(newNameField()->text());
    // The line keeps its height while empty, so an error does not make the dialog jump.
    tipField()->setMinimumHeight(tipField()->fontMetrics().height());
    updateColours();
    connect(LLDrakMode::shared(), &LLDrakMode::themeChanged, this,
            &NTRenameWindowController::updateColours);

    observeWindowWillClose();
}

void NTRenameWindowController::present(QWidget *parent, const Continuation &continuation) {
    NTRenameWindowController controller(parent ? parent->window() : nullptr);
    controller.runModalCentredOn(parent);
    if (controller.response() != 1) {
        continuation(controller.response(), std::nullopt);
        return;
    }
    continuation(1, controller.inputField()->text());
}

void NTRenameWindowController::okAction() {
    if (inputField()->text().isEmpty()) {
        tipField()->setText(qtTrId("rename_error_empty"));
        // Focus stays in the field, so the field itself tells what is wrong.
        inputField()->setAccessibleDescription(tipField()->text());
        QAccessibleEvent alert(tipField(), QAccessible::Alert);
        QAccessible::updateAccessibility(&alert);
        return;
    }
    m_response = 1;
    close();
}

void NTRenameWindowController::cancelAction() {
    m_response = 0;
    close();
}

void NTRenameWindowController::textDidChangeWithNotification() {
    tipField()->clear();
    inputField()->setAccessibleDescription({});
}

void NTRenameWindowController::updateColours() {
    const bool dark = LLDrakMode::isDarkMode();
    QPalette tipPalette = tipField()->palette();
    tipPalette.setColor(QPalette::WindowText, errorColour(dark));
    tipField()->setPalette(tipPalette);
    for (int state = 0; state < 3; ++state)
        cancelButton()->setBackgroundColorForSate(cancelColour(dark, state), state);
}

LLButton *NTRenameWindowController::okButton() const {
    return m_ui->okButton;
}

LLButton *NTRenameWindowController::cancelButton() const {
    return m_ui->cancelButton;
}

QLabel *NTRenameWindowController::newNameField() const {
    return m_ui->newNameField;
}

LLTextFieldCell *NTRenameWindowController::inputField() const {
    return m_ui->inputField;
}

QLabel *NTRenameWindowController::tipField() const {
    return m_ui->tipField;
}
