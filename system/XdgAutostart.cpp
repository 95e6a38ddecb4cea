#include "system/XdgAutostart.h"

#include "system/SystemLogging.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kSuffix = u".desktop";
// A desktop entry is a few hundred bytes; anything far larger is not one.
constexpr qint64 kMaxEntrySize = 1024 * 1024;

QString unescapeValue(QStringView value) {
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        const QChar next = value[++i];
        switch (next.unicode()) {
        case u's':
            out += u' ';
            break;
        case u'n':
            out += u'\n';
            break;
        case u't':
            out += u'\t';
            break;
        case u'r':
            out += u'\r';
            break;
        case u'\\':
            out += u'\\';
            break;
        default: // unknown escapes are kept as they stand
            out += u'\\';
            out += next;
            break;
        }
    }
    return out;
}

QString escapeValue(const QString &value) {
    QString out;
    for (const QChar c : value) {
        switch (c.unicode()) {
        case u'\\':
            out += u"\\\\"_s;
            break;
        case u'\n':
            out += u"\\n"_s;
            break;
        case u'\t':
            out += u"\\t"_s;
            break;
        case u'\r':
            out += u"\\r"_s;
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace

XdgAutostart::XdgAutostart(QString folder, QString executable)
    : m_folder(std::move(folder))
    , m_executable(std::move(executable)) {}

QString XdgAutostart::defaultFolder() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + u"/.config"_s;
    return config + u"/autostart"_s;
}

QString XdgAutostart::folder() const {
    return m_folder.isEmpty() ? defaultFolder() : m_folder;
}

QString XdgAutostart::executable() const {
    if (!m_executable.isEmpty())
        return m_executable;
    return QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
}

QHash<QString, QString> XdgAutostart::readDesktopEntry(const QString &path, bool *ok) {
    QHash<QString, QString> entry;
    if (ok)
        *ok = false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxEntrySize)
        return entry;
    const QString text = QString::fromUtf8(file.readAll());
    bool inGroup = false;
    for (QStringView line : QStringView(text).split(u'\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            inGroup = line == u"[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inGroup || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed().toString();
        // The first occurrence of a key wins, as in the desktop-entry readers of the sessions.
        if (!entry.contains(key))
            entry.insert(key, unescapeValue(line.mid(equals + 1).trimmed()));
    }
    if (ok)
        *ok = true;
    return entry;
}

QString XdgAutostart::execProgram(const QString &exec) {
    const QString line = exec.trimmed();
    QString program;
    if (line.startsWith(u'"')) {
        for (qsizetype i = 1; i < line.size(); ++i) {
            if (line[i] == u'\\' && i + 1 < line.size()) {
                program += line[++i];
            } else if (line[i] == u'"') {
                break;
            } else {
                program += line[i];
            }
        }
        return program;
    }
    for (const QChar c : line) {
        if (c.isSpace())
            break;
        program += c;
    }
    return program;
}

QString XdgAutostart::quoteExecArgument(const QString &argument) {
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    QString escaped = argument;
    escaped.replace(u"%"_s, u"%%"_s);
    const bool needsQuotes =
        std::any_of(argument.begin(), argument.end(), [](QChar c) { return reserved.contains(c); });
    if (!needsQuotes)
        return escaped;
    QString quoted = u"\""_s;
    for (const QChar c : std::as_const(escaped)) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
    }
    return quoted + u'"';
}

bool XdgAutostart::writeEntry(const QString &fileName, const QString &program) const {
    if (program.isEmpty()) {
        qCWarning(lcSystem) << "No program to start at login";
        return false;
    }
    const QString dir = folder();
    if (!QDir().mkpath(dir))
        return false;
    QString text = u"[Desktop Entry]\n"
                   u"Type=Application\n"
                   u"Name=Vantrelo\n"
                   u"Comment=Makes NTFS disks writable\n"_s;
    text += u"Exec="_s + escapeValue(quoteExecArgument(program)) + u'\n';
    text += u"Terminal=false\n"_s;

    QSaveFile file(dir + u'/' + fileName);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(text.toUtf8());
    return file.commit();
}

QList<QVariantMap> XdgAutostart::copyAllJobDictionaries() {
    QList<QVariantMap> jobs;
    const QDir dir(folder());
    const QStringList names = dir.entryList(
        {u"*"_s + QStringView(kSuffix)}, QDir::Files | QDir::Readable | QDir::Hidden, QDir::Name);
    for (const QString &name : names) {
        bool ok = false;
        const QHash<QString, QString> entry = readDesktopEntry(dir.filePath(name), &ok);
        const bool onDemand = ok && entry.value(u"Hidden"_s).trimmed() != u"true";
        jobs.append(QVariantMap{{u"Label"_s, name.chopped(QStringView(kSuffix).size())},
                                {u"OnDemand"_s, onDemand}});
    }
    return jobs;
}

bool XdgAutostart::setLoginItemEnabled(const QString &identifier, bool enabled) {
    // The identifier becomes a file name: nothing that could leave the folder.
    if (identifier.isEmpty() || identifier.contains(u'/') || identifier == u"." ||
        identifier == u"..")
        return false;
    const QString fileName = identifier + QStringView(kSuffix);
    if (enabled)
        return writeEntry(fileName, executable());
    QFile entry(folder() + u'/' + fileName);
    return !entry.exists() || entry.remove();
}

bool XdgAutostart::addSessionItem(const QString &programPath) {
    const QString name = QFileInfo(programPath).fileName();
    if (name.isEmpty())
        return false;
    return writeEntry(name + QStringView(kSuffix), programPath);
}

int XdgAutostart::removeSessionItemsNamed(const QString &programFileName) {
    int removed = 0;
    const QDir dir(folder());
    const QStringList names =
        dir.entryList({u"*"_s + QStringView(kSuffix)}, QDir::Files | QDir::Hidden, QDir::Name);
    for (const QString &name : names) {
        bool ok = false;
        const QHash<QString, QString> entry = readDesktopEntry(dir.filePath(name), &ok);
        // Entries that cannot be read or name no program are left alone.
        const QString program = ok ? execProgram(entry.value(u"Exec"_s)) : QString();
        if (!program.isEmpty() && QFileInfo(program).fileName() == programFileName &&
            QFile::remove(dir.filePath(name)))
            ++removed;
    }
    return removed;
}
