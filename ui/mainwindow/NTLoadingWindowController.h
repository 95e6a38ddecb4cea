#pragma once

#include <QDialog>

#include <memory>
#include <optional>

class QLabel;
class QPainterPath;
class NTSpinningIndicator;
namespace Ui {
class NTLoadingWindowController;
}

// A sheet over a window with a spinning indicator and one line of text, up while a long
// operation runs. Its owner replaces the text when the work is done and then closes it; a closed
// sheet deletes itself.
class NTLoadingWindowController : public QDialog {
    Q_OBJECT
public:
    explicit NTLoadingWindowController(QWidget *parent = nullptr);
    ~NTLoadingWindowController() override;

    // Builds a sheet showing tipText and begins it on parent's window through Interaction.
    static NTLoadingWindowController *beginSheet(QWidget *parent,
                                                 const std::optional<QString> &tipText);

    // Shown in tipTextField when the window loads.
    std::optional<QString> tipText() const { return m_tipText; }
    void setTipText(const std::optional<QString> &tipText) { m_tipText = tipText; }

    void windowDidLoad();

    QLabel *tipTextField() const;
    NTSpinningIndicator *loadingIndicator() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    static QPainterPath outline(const QRectF &bounds);

    std::unique_ptr<Ui::NTLoadingWindowController> m_ui;
    std::optional<QString> m_tipText;
};
