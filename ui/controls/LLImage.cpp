#include "ui/controls/LLImage.h"

#include <QFile>
#include <QHash>

namespace {

QString bundledPath(const QString &name) {
    return QStringLiteral(":/images/") + name + QStringLiteral(".svg");
}

// The theme icon standing in for a bundled image. Only the unselected drive images have one:
// a theme icon looks the same selected or not, and the row's image swap must stay visible. The
// tray keeps the program's own picture.
QString themeNameFor(const QString &name) {
    if (name == QStringLiteral("internaldrive_normal"))
        return QStringLiteral("drive-harddisk");
    if (name == QStringLiteral("externaldrive_normal"))
        return QStringLiteral("drive-removable-media");
    return {};
}

} // namespace

QIcon LLImage::imageNamed(const QString &name) {
    // One icon per name, so its engine's rendered sizes are reused by every window that shows
    // it: drawing a guide picture from its SVG takes milliseconds. Main thread only.
    static QHash<QString, QIcon> cache;
    const auto cached = cache.constFind(name);
    if (cached != cache.constEnd())
        return *cached;
    const QIcon bundled = hasBundledImage(name) ? QIcon(bundledPath(name)) : QIcon();
    const QString themeName = themeNameFor(name);
    return cache.insert(name, themeName.isEmpty() ? bundled : QIcon::fromTheme(themeName, bundled))
        .value();
}

bool LLImage::hasBundledImage(const QString &name) {
    return !name.isEmpty() && !name.contains(QLatin1Char('/')) && QFile::exists(bundledPath(name));
}
