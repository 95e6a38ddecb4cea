#include "ui/mainwindow/StandardOutput.h"

#include <QCborValue>

#include <cstdio>

void StandardOutput::printLine(const QString &line) {
    std::fputs((line + u'\n').toUtf8().constData(), stdout);
    std::fflush(stdout);
}

QString StandardOutput::describe(const wire::ReplyDictionary &reply) {
    return QCborValue::fromVariant(QVariant(reply)).toDiagnosticNotation();
}
