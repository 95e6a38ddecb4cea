#include "ui/controls/ThemePalette.h"

#include "ui/controls/LLDrakMode.h"

#include <QApplication>
#include <QStyle>

namespace {

bool paletteIsDark(const QPalette &palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QPalette darkPalette() {
    QPalette palette;
    const QColor window(45, 45, 47);
    const QColor base(30, 30, 32);
    const QColor text(235, 235, 235);
    const QColor disabledText(125, 125, 128);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, disabledText);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(60, 60, 63));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Light, QColor(75, 75, 78));
    palette.setColor(QPalette::Midlight, QColor(65, 65, 68));
    palette.setColor(QPalette::Mid, QColor(40, 40, 42));
    palette.setColor(QPalette::Dark, QColor(25, 25, 27));
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Highlight, QColor(47, 182, 179));
    palette.setColor(QPalette::HighlightedText, Qt::black);
    palette.setColor(QPalette::Link, QColor(90, 200, 250));
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, disabledText);
    }
    return palette;
}

} // namespace

QPalette ThemePalette::paletteFor(bool dark) {
    return dark ? darkPalette() : QApplication::style()->standardPalette();
}

void ThemePalette::apply() {
    const std::optional<bool> wanted = LLDrakMode::preferredDarkMode();
    if (wanted && *wanted != paletteIsDark(QApplication::palette())) {
        QApplication::setPalette(paletteFor(*wanted));
    }
}

void ThemePalette::follow() {
    apply();
    QObject::connect(LLDrakMode::shared(), &LLDrakMode::themeChanged, LLDrakMode::shared(),
                     &ThemePalette::apply);
}
