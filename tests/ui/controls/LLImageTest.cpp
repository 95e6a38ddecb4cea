#include "ui/controls/LLImage.h"

#include <QPixmap>

#include <gtest/gtest.h>

TEST(LLImage, NamesFindTheirImageAndNothingElse) {
    const std::pair<const char *, bool> cases[] = {
        {"internaldrive_normal", true},
        {"internaldrive_selected", true},
        {"externaldrive_normal", true},
        {"externaldrive_selected", true},
        {"status_icon", true},
        {"no_such_image", false},
        {"", false},
        {"../images/status_icon", false},
    };
    for (const auto &[name, found] : cases) {
        const QIcon icon = LLImage::imageNamed(QString::fromLatin1(name));
        EXPECT_EQ(!icon.isNull() && !icon.pixmap(32, 32).isNull(), found) << name;
    }
    EXPECT_TRUE(LLImage::hasBundledImage(QStringLiteral("internaldrive_selected")));
    EXPECT_FALSE(LLImage::hasBundledImage(QStringLiteral("../images/status_icon")));
}

TEST(LLImage, SelectedDrivesDrawDifferently) {
    for (const char *drive : {"internaldrive", "externaldrive"}) {
        const QString name = QString::fromLatin1(drive);
        const QImage normal =
            LLImage::imageNamed(name + QStringLiteral("_normal")).pixmap(32, 32).toImage();
        const QImage selected =
            LLImage::imageNamed(name + QStringLiteral("_selected")).pixmap(32, 32).toImage();
        EXPECT_NE(normal, selected) << drive;
    }
}
