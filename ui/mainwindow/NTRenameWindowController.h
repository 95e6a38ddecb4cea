#pragma once

#include "ui/mainwindow/NTModalWindowController.h"

#include <functional>
#include <memory>
#include <optional>

class LLButton;
class LLTextFieldCell;
class QLabel;
namespace Ui {
class NTRenameWindowController;
}

// Asks for a new volume name. The name is taken as typed: only an empty one is refused.
class NTRenameWindowController : public NTModalWindowController {
    Q_OBJECT
public:
    using Continuation = std::function<void(int response, std::optional<QString> name)>;

    explicit NTRenameWindowController(QWidget *parent = nullptr);
    ~NTRenameWindowController() override;

    // Runs a new dialog centred on parent's window, then hands on the response, and the typed
    // name only when the response is 1.
    static void present(QWidget *parent, const Continuation &continuation);

    // 1 after a valid OK, 0 otherwise.
    int response() const { return m_response; }

    void okAction();
    void cancelAction();
    void textDidChangeWithNotification();

    LLButton *okButton() const;
    LLButton *cancelButton() const;
    QLabel *newNameField() const;
    LLTextFieldCell *inputField() const;
    QLabel *tipField() const;

private:
    void windowDidLoad();
    void updateColours();

    std::unique_ptr<Ui::NTRenameWindowController> m_ui;
    int m_response = 0;
};
