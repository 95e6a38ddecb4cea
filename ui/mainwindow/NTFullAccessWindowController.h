#pragma once

#include "ui/mainwindow/NTModalWindowController.h"

#include <functional>
#include <memory>

class LLButton;
class NTImageView;
class QLabel;
namespace Ui {
class NTFullAccessWindowController;
}

// The guide shown when the helper may not mount disks: a picture of the steps that enable it in
// the interface language, a title, an explanation and a button that opens the guide page.
class NTFullAccessWindowController : public NTModalWindowController {
    Q_OBJECT
public:
    // Whether the helper is started through its systemd socket unit.
    using SocketUnitProbe = std::function<bool()>;

    explicit NTFullAccessWindowController(QWidget *parent = nullptr,
                                          SocketUnitProbe socketUnitEnabled = {});
    ~NTFullAccessWindowController() override;

    // Runs a new guide centred on parent's window; returns when it closes.
    static void present(QWidget *parent);

    // 0 English, 1 Simplified Chinese, 2 Japanese, 3 French, 4 German, from the first entry of
    // an "AppleLanguages" value.
    static int languageIndex(const QVariant &appleLanguages);
    // "fullaccess_<language>_13" for a socket-activated helper, "..._12" for one started by hand.
    static QString imageName(int languageIndex, bool socketUnitEnabled);

    // Closes the guide, then opens the guide page once the modal session has unwound.
    void startAuth();

    NTImageView *imageView() const;
    QLabel *titleField() const;
    QLabel *subTitleField() const;
    LLButton *authButton() const;

private:
    void windowDidLoad(const SocketUnitProbe &socketUnitEnabled);

    std::unique_ptr<Ui::NTFullAccessWindowController> m_ui;
};
