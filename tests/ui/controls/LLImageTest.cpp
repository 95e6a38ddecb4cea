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
