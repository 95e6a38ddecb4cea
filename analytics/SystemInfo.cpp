#include "analytics/SystemInfo.h"

#include <QFile>

#include <sys/utsname.h>

using namespace Qt::StringLiterals;

QString SystemInfo::serialNumber(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // DMI strings are short; the cap keeps a wrong path from being slurped.
    return QString::fromUtf8(file.read(256)).trimmed();
}

QString SystemInfo::systemVersion() {
    utsname name{};
    if (::uname(&name) != 0)
        return versionFromRelease({});
    return versionFromRelease(QString::fromUtf8(name.release));
}

QString SystemInfo::versionFromRelease(QStringView release) {
    long parts[3] = {0, 0, 0};
    qsizetype pos = 0;
    for (long &part : parts) {
        qsizetype end = pos;
        while (end < release.size() && release[end].isDigit() && end - pos < 9)
            ++end;
        if (end == pos)
            break;
        part = release.mid(pos, end - pos).toLong();
        if (end >= release.size() || release[end] != u'.')
            break;
        pos = end + 1;
    }
    return u"%1.%2.%3"_s.arg(parts[0]).arg(parts[1]).arg(parts[2]);
}
