#pragma once

#include <QPalette>

// Qt keeps the desktop style's palette even when the desktop asks for the other appearance
// through the portal (or the user default does), so standard widgets would not match the
// custom-drawn ones. This sets a palette of the asked appearance and follows later changes.
class ThemePalette {
public:
    ThemePalette() = delete;

    // Applies now and after every LLDrakMode::themeChanged.
    static void follow();
    // Makes the application palette agree with LLDrakMode's preference.
    static void apply();
    static QPalette paletteFor(bool dark);
};
