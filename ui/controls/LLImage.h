#pragma once

#include <QIcon>
#include <QString>

// The application's named images ("status_icon", "internaldrive_normal", "fullaccess_de_13",
// ...). Drives and the tray follow the desktop's icon theme where it has a fitting icon; every
// name falls back to the bundled :/images/NAME.svg. An unknown name gives a null icon.
class LLImage {
public:
    LLImage() = delete;
    static QIcon imageNamed(const QString &name);
    // Whether NAME is bundled.
    static bool hasBundledImage(const QString &name);
};
