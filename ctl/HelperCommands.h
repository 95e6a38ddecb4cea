#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <chrono>
#include <functional>
#include <optional>

// vantreloctl's commands that go to the privileged helper: mount-rw, open, eject, repair, erase,
// rename, helper-version.
bool isHelperCommand(const QString &verb);

// Shows a folder in the person's own session; "" or why not.
using FolderOpener = std::function<QString(const QString &path)>;
// xdg-open, started as the person running vantreloctl; never as root.
QString openInSession(const QString &path);

// `arguments` start at the verb. Prints the reply to `out`; a failing "result", an unreachable
// helper or no reply within the time bound prints one line to `err` and returns non-zero.
// `bound` replaces the tool's own wait for the reply. `open` shows the folder once the helper
// answers that open may.
int runHelperCommand(const QStringList &arguments, QTextStream &out, QTextStream &err,
                     std::optional<std::chrono::milliseconds> bound = std::nullopt,
                     const FolderOpener &open = openInSession);
