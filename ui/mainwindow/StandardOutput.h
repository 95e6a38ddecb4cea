#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QString>

// The lines the windows print to standard output, flushed at once so a watching tool sees them.
class StandardOutput {
public:
    StandardOutput() = delete;

    static void printLine(const QString &line);
    // The whole reply, types included: {"result": "..."}.
    static QString describe(const wire::ReplyDictionary &reply);
};
