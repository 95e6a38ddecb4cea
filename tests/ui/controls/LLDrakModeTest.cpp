#include "ui/controls/LLDrakMode.h"

#include "system/UserDefaults.h"
#include "tests/support/Wait.h"
#include "ui/controls/AppearancePortal.h"
#include "ui/controls/LLTextFieldCell.h"
#include "ui/controls/ThemePalette.h"

#include <QApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

// No test reaches the user's session bus: the real portal finds no bus at all.
const bool kNoSessionBus =
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/vantrelo-test-bus");

const QString kStyleKey = QStringLiteral("AppleInterfaceStyle");

class FakePortal final : public AppearancePortal {
public:
    explicit FakePortal(std::optional<uint> scheme)
        : m_scheme(scheme) {}
    std::optional<uint> readColorScheme() override { return m_scheme; }
    void change(uint scheme) { Q_EMIT colorSchemeChanged(scheme); }

private:
    std::optional<uint> m_scheme;
};

QPalette paletteWithWindow(const QColor &window) {
    QPalette palette = QApplication::palette();
    palette.setColor(QPalette::Window, window);
    return palette;
}

class LLDrakModeTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(kNoSessionBus);
        m_palette = QApplication::palette();
        UserDefaults::globalDomain().removeObjectForKey(kStyleKey);
    }
    void TearDown() override {
        UserDefaults::globalDomain().removeObjectForKey(kStyleKey);
        LLDrakMode::setPortal(std::make_unique<FakePortal>(std::nullopt));
        QApplication::setPalette(m_palette);
    }
    FakePortal *usePortal(std::optional<uint> scheme) {
        auto portal = std::make_unique<FakePortal>(scheme);
        FakePortal *raw = portal.get();
        LLDrakMode::setPortal(std::move(portal));
        return raw;
    }
    // Lets the notifier's pending signal out, then reports how many came.
    static qsizetype settledCount(QSignalSpy &spy) {
        testsupport::waitUntil([&] { return !spy.isEmpty(); });
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        return spy.count();
    }

private:
    QPalette m_palette;
};

TEST_F(LLDrakModeTest, TheUserDefaultWinsWhenSet) {
    // The portal and the palette say dark, so only the default can make it light.
    usePortal(1);
    QApplication::setPalette(paletteWithWindow(Qt::black));
    const std::pair<QVariant, bool> cases[] = {
        {QStringLiteral("Dark"), true}, {QStringLiteral("dark"), true},
        {QStringLiteral("DARK"), true}, {QStringLiteral("Light"), false},
        {QStringLiteral(""), false},    {QVariant(qint64(1)), false},
        {QVariant(true), false},        {QStringList{QStringLiteral("Dark")}, false},
    };
    for (const auto &[value, dark] : cases) {
        UserDefaults::globalDomain().setObject(value, kStyleKey);
        EXPECT_EQ(LLDrakMode::isDarkMode(), dark) << value.toString().toStdString();
        EXPECT_EQ(LLTextFieldCell::backgroundColor(),
                  dark ? QColor::fromRgbF(29 / 255.0f, 29 / 255.0f, 31 / 255.0f)
                       : QColor(Qt::white));
        LLTextFieldCell field;
        field.resize(120, 28);
        EXPECT_EQ(field.grab().toImage().pixelColor(116, 14), LLTextFieldCell::backgroundColor());
    }
}

TEST_F(LLDrakModeTest, WithoutTheDefaultThePortalThenThePaletteDecide) {
    struct {
        std::optional<uint> scheme;
        QColor window;
        bool dark;
    } const cases[] = {
        {1, Qt::white, true},
        {2, Qt::black, false},
        // No preference, or no portal: the palette.
        {0, Qt::black, true},
        {0, Qt::white, false},
        {std::nullopt, QColor(40, 40, 40), true},
        {std::nullopt, QColor(239, 239, 239), false},
    };
    for (const auto &c : cases) {
        usePortal(c.scheme);
        QApplication::setPalette(paletteWithWindow(c.window));
        EXPECT_EQ(LLDrakMode::isDarkMode(), c.dark) << c.scheme.value_or(99);
    }
    // The real portal without a session bus has no answer.
    EXPECT_FALSE(AppearancePortal::createSessionPortal()->readColorScheme().has_value());
}

// Open windows each get a palette change too; the program hears of it once. A portal change is
// one theme change as well, and is followed.
TEST_F(LLDrakModeTest, EachChangeIsOneThemeChange) {
    FakePortal *portal = usePortal(2);
    QWidget windows[3];
    for (QWidget &window : windows)
        window.show();
    QSignalSpy spy(LLDrakMode::shared(), &LLDrakMode::themeChanged);
    QApplication::setPalette(paletteWithWindow(QColor(30, 30, 30)));
    EXPECT_EQ(settledCount(spy), 1);
    EXPECT_FALSE(LLDrakMode::isDarkMode());
    spy.clear();
    portal->change(1);
    EXPECT_EQ(settledCount(spy), 1);
    EXPECT_TRUE(LLDrakMode::isDarkMode());
}

TEST_F(LLDrakModeTest, TextFieldRecoloursItsTextOnAThemeChange) {
    FakePortal *portal = usePortal(2);
    LLTextFieldCell field;
    const QColor lightText = field.palette().color(QPalette::Text);
    QSignalSpy spy(LLDrakMode::shared(), &LLDrakMode::themeChanged);
    portal->change(1);
    settledCount(spy);
    EXPECT_GT(field.palette().color(QPalette::Text).lightness(), 200);
    EXPECT_LT(lightText.lightness(), 60);
}

TEST_F(LLDrakModeTest, ThePaletteFollowsTheAskedAppearanceAndOnlyThat) {
    ThemePalette::follow();
    FakePortal *portal = usePortal(2);
    QApplication::setPalette(paletteWithWindow(Qt::white));
    QSignalSpy spy(LLDrakMode::shared(), &LLDrakMode::themeChanged);
    portal->change(1);
    EXPECT_TRUE(testsupport::waitUntil(
        [] { return QApplication::palette().color(QPalette::Window).lightness() < 128; }));
    EXPECT_GT(QApplication::palette().color(QPalette::WindowText).lightness(), 200);
    // The palette it set raises its own change, which must not flip it back.
    settledCount(spy);
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 128);

    UserDefaults::globalDomain().setObject(QStringLiteral("Light"), kStyleKey);
    ThemePalette::apply();
    EXPECT_GT(QApplication::palette().color(QPalette::Window).lightness(), 128);

    // Nothing asked: a dark desktop palette stays.
    UserDefaults::globalDomain().removeObjectForKey(kStyleKey);
    usePortal(0);
    QApplication::setPalette(paletteWithWindow(QColor(30, 30, 30)));
    ThemePalette::apply();
    EXPECT_EQ(QApplication::palette().color(QPalette::Window), QColor(30, 30, 30));
}

} // namespace
