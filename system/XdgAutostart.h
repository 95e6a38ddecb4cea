#pragma once

#include "system/LoginItemService.h"

#include <QHash>
#include <QString>

// Login items as XDG autostart entries: "<identifier>.desktop" in the user's autostart folder.
// An entry starts at login when it exists and is not Hidden=true. Every call looks at the folder
// afresh; nothing is cached.
class XdgAutostart : public LoginItemService {
public:
    // An empty folder means $XDG_CONFIG_HOME/autostart, read at each call; an empty executable
    // means the running program's own file.
    explicit XdgAutostart(QString folder = {}, QString executable = {});

    static QString defaultFolder();
    QString folder() const;
    QString executable() const;

    QList<QVariantMap> copyAllJobDictionaries() override;
    // Enabling writes the entry (atomically, creating the folder); disabling removes it, and
    // succeeds when there was none.
    bool setLoginItemEnabled(const QString &identifier, bool enabled) override;

    // The older session login-items list, which is every entry of the folder. Adds an entry
    // named after the program file.
    bool addSessionItem(const QString &programPath);
    // Removes every entry whose Exec program has this file name, wherever that program lives
    // and whoever wrote the entry; returns how many were removed.
    int removeSessionItemsNamed(const QString &programFileName);

    // The [Desktop Entry] group of a file, values unescaped; empty with *ok false when the file
    // cannot be read.
    static QHash<QString, QString> readDesktopEntry(const QString &path, bool *ok = nullptr);
    // The program of an Exec line (its first argument, quotes and escapes resolved).
    static QString execProgram(const QString &exec);
    // One argument quoted for an Exec line.
    static QString quoteExecArgument(const QString &argument);

private:
    bool writeEntry(const QString &fileName, const QString &program) const;

    QString m_folder;
    QString m_executable;
};
