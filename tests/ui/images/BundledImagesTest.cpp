#include <QImage>
#include <QPainter>
#include <QSet>
#include <QSvgRenderer>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const QSize kGuideSize(480, 300);
const QStringList kLanguages = {u"en"_s, u"zh"_s, u"ja"_s, u"fr"_s, u"de"_s};

QString guideName(const QString &language, const QString &generation) {
    return u"fullaccess_%1_%2"_s.arg(language, generation);
}

// Every image the program looks up, at the size it is shown.
std::vector<std::pair<QString, QSize>> namedImages() {
    std::vector<std::pair<QString, QSize>> images = {
        {u"status_icon"_s, {22, 22}},
        {u"app_menu_icon"_s, {16, 16}},
        {u"internaldrive_normal"_s, {32, 32}},
        {u"internaldrive_selected"_s, {32, 32}},
        {u"externaldrive_normal"_s, {32, 32}},
        {u"externaldrive_selected"_s, {32, 32}},
        {u"disk_rename"_s, {16, 16}},
        {u"disk_rename_dark"_s, {16, 16}},
        {u"vantrelo"_s, {48, 48}},
    };
    for (const QString &language : kLanguages) {
        images.emplace_back(guideName(language, u"12"_s), kGuideSize);
        images.emplace_back(guideName(language, u"13"_s), kGuideSize);
    }
    return images;
}

QStringList svgWarnings;

void collectSvgWarnings(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    if (type != QtDebugMsg && type != QtInfoMsg &&
        QByteArray(context.category).startsWith("qt.svg"))
        svgWarnings << text;
}

struct Rendered {
    bool valid = false;
    QImage image;
};

Rendered render(const QString &name, QSize size) {
    QSvgRenderer renderer(u":/images/%1.svg"_s.arg(name));
    Rendered result{renderer.isValid(), QImage(size, QImage::Format_ARGB32)};
    result.image.fill(Qt::transparent);
    QPainter painter(&result.image);
    renderer.render(&painter);
    return result;
}

double differingShare(const QImage &a, const QImage &b) {
    int differing = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            differing += a.pixel(x, y) != b.pixel(x, y);
    return double(differing) / (a.width() * a.height());
}

} // namespace

TEST(BundledImages, EveryNamedImageIsValidSvgAndDrawsSomethingAtItsSize) {
    const QtMessageHandler previous = qInstallMessageHandler(collectSvgWarnings);
    for (const auto &[name, size] : namedImages()) {
        SCOPED_TRACE(name.toStdString());
        svgWarnings.clear();
        const Rendered rendered = render(name, size);
        EXPECT_TRUE(rendered.valid);
        EXPECT_TRUE(svgWarnings.isEmpty()) << svgWarnings.join(u'\n').toStdString();
        int covered = 0;
        QSet<QRgb> colours;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QRgb pixel = rendered.image.pixel(x, y);
                covered += qAlpha(pixel) > 0;
                colours.insert(pixel);
            }
        }
        EXPECT_GT(covered, size.width() * size.height() / 10);
        EXPECT_GE(colours.size(), 3);
    }
    qInstallMessageHandler(previous);
}

TEST(BundledImages, ImagesThatStandForDifferentThingsLookDifferent) {
    std::vector<std::pair<QString, QString>> pairs = {
        {u"internaldrive_normal"_s, u"internaldrive_selected"_s},
        {u"externaldrive_normal"_s, u"externaldrive_selected"_s},
        {u"internaldrive_normal"_s, u"externaldrive_normal"_s},
        {u"disk_rename"_s, u"disk_rename_dark"_s},
    };
    for (qsizetype i = 0; i < kLanguages.size(); ++i) {
        pairs.emplace_back(guideName(kLanguages[i], u"12"_s), guideName(kLanguages[i], u"13"_s));
        for (qsizetype j = i + 1; j < kLanguages.size(); ++j) {
            for (const QString &generation : {u"12"_s, u"13"_s})
                pairs.emplace_back(guideName(kLanguages[i], generation),
                                   guideName(kLanguages[j], generation));
        }
    }
    for (const auto &[first, second] : pairs) {
        SCOPED_TRACE(QString(first + u" / "_s + second).toStdString());
        const QSize size = first.startsWith(u"fullaccess_"_s) ? kGuideSize : QSize(32, 32);
        // A few per cent of the pixels: more than anti-aliasing noise, less than a caption.
        EXPECT_GT(differingShare(render(first, size).image, render(second, size).image), 0.02);
    }
}
