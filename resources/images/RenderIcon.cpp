#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

// vantrelo_render_icon SVG PNG SIZE: renders SVG into a SIZE x SIZE PNG, failing on any warning
// the SVG reader gives. Icons hold no text, so no font and no GUI application are needed.
namespace {

bool warned = false;

void noteWarning(QtMsgType type, const QMessageLogContext &context, const QString &message) {
    if (type != QtDebugMsg && type != QtInfoMsg)
        warned = true;
    std::fprintf(stderr, "%s: %s\n", context.category, qPrintable(message));
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool sizeOk = false;
    const int size = arguments.size() == 4 ? arguments.at(3).toInt(&sizeOk) : 0;
    if (!sizeOk || size <= 0) {
        std::fprintf(stderr, "usage: vantrelo_render_icon SVG PNG SIZE\n");
        return 2;
    }
    qInstallMessageHandler(noteWarning);
    QSvgRenderer renderer(arguments.at(1));
    if (!renderer.isValid() || warned) {
        std::fprintf(stderr, "%s: not a valid SVG image\n", qPrintable(arguments.at(1)));
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    painter.end();
    const QString target = arguments.at(2);
    if (warned || !QDir().mkpath(QFileInfo(target).absolutePath()) || !image.save(target)) {
        std::fprintf(stderr, "%s: could not render\n", qPrintable(target));
        return 1;
    }
    return 0;
}
