#include "HelperTestSupport.h"

namespace helpertest {
namespace {

struct CaptureState {
    QMutex mutex;
    QByteArray category;
    QStringList lines;
    QtMessageHandler previous = nullptr;
};

CaptureState &state() {
    static CaptureState instance;
    return instance;
}

} // namespace

LogCapture::LogCapture(const char *category) {
    CaptureState &s = state();
    QMutexLocker lock(&s.mutex);
    s.category = category;
    s.lines.clear();
    s.previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture() {
    CaptureState &s = state();
    qInstallMessageHandler(s.previous);
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    CaptureState &s = state();
    QtMessageHandler previous = nullptr;
    {
        QMutexLocker lock(&s.mutex);
        if (context.category && s.category == context.category)
            s.lines.append(text);
        previous = s.previous;
    }
    if (previous)
        previous(type, context, text);
}

QStringList LogCapture::lines() const {
    CaptureState &s = state();
    QMutexLocker lock(&s.mutex);
    return s.lines;
}

qsizetype LogCapture::count(const QString &prefix) const {
    qsizetype n = 0;
    for (const QString &line : lines())
        if (line.startsWith(prefix))
            ++n;
    return n;
}

} // namespace helpertest
