#include "util/TLUtility.h"

#include "util/InstallPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QMimeDatabase>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

bool TLUtility::checkHelperAppInstalled() {
    return QFileInfo::exists(InstallPaths::helperExecutable());
}

bool TLUtility::checkFuseInstalled() {
    return QFileInfo::exists(InstallPaths::ntfs3gDriver()) &&
           QFileInfo::exists(InstallPaths::fuseDevice());
}

QString TLUtility::getHelperAppVersion() {
    if (!checkHelperAppInstalled())
        return {};
    QFile file(InstallPaths::helperVersionFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Only the first line counts; the cap keeps a wrong file (a binary, a device) from being
    // slurped.
    const QString text = QString::fromUtf8(file.read(256));
    return text.section(u'\n', 0, 0).trimmed();
}

namespace {

// The application's identifier and name, which name its data folder.
constexpr auto kBundleIdentifier = u"com.corvin.Vantrelo";
constexpr auto kBundleName = u"Vantrelo";

// Truncating double -> int conversion that cannot overflow: out-of-range values saturate and NaN
// reads 0, so absurd input gives an absurd text rather than undefined behaviour.
qint32 truncatedInt32(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= 2147483647.0)
        return std::numeric_limits<qint32>::max();
    if (value <= -2147483648.0)
        return std::numeric_limits<qint32>::min();
    return static_cast<qint32>(value);
}

// Leading integer of a text (space, sign, digits; the rest ignored), 0 when there is none.
qint64 leadingInteger(QStringView text) {
    text = text.trimmed();
    qsizetype end = 0;
    if (end < text.size() && (text[end] == u'+' || text[end] == u'-'))
        ++end;
    while (end < text.size() && text[end].isDigit())
        ++end;
    bool ok = false;
    const qint64 value = QLocale::c().toLongLong(text.left(end), &ok);
    return ok ? value : 0;
}

// Leading decimal number of a text (".25" included), 0 when there is none.
double leadingDouble(QStringView text) {
    text = text.trimmed();
    qsizetype end = 0;
    if (end < text.size() && (text[end] == u'+' || text[end] == u'-'))
        ++end;
    bool seenDot = false;
    while (end < text.size() && (text[end].isDigit() || (text[end] == u'.' && !seenDot))) {
        seenDot = seenDot || text[end] == u'.';
        ++end;
    }
    bool ok = false;
    const double value = QLocale::c().toDouble(text.left(end), &ok);
    return ok ? value : 0.0;
}

// Rewrites a Unicode date pattern ("yyyy-MM-dd HH:mm:ss", "EEE d MMM 'at' h:mm a") into Qt's
// date format syntax. Letters without a Qt counterpart (era, week numbers) are dropped.
QString qtDateFormat(const QString &ldml) {
    QString out;
    QString literal;
    auto flushLiteral = [&] {
        if (literal.isEmpty())
            return;
        out += u'\'' + QString(literal).replace(u"'"_s, u"''"_s) + u'\'';
        literal.clear();
    };
    for (qsizetype i = 0; i < ldml.size();) {
        const QChar c = ldml[i];
        if (c == u'\'') {
            if (i + 1 < ldml.size() && ldml[i + 1] == u'\'') {
                literal += u'\'';
                i += 2;
                continue;
            }
            qsizetype j = i + 1;
            while (j < ldml.size()) {
                if (ldml[j] == u'\'' && j + 1 < ldml.size() && ldml[j + 1] == u'\'') {
                    literal += u'\'';
                    j += 2;
                } else if (ldml[j] == u'\'') {
                    break;
                } else {
                    literal += ldml[j++];
                }
            }
            i = j + 1;
            continue;
        }
        if (!((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'))) {
            literal += c;
            ++i;
            continue;
        }
        qsizetype run = 1;
        while (i + run < ldml.size() && ldml[i + run] == c)
            ++run;
        i += run;
        QString field;
        switch (c.unicode()) {
        case u'y':
        case u'Y':
        case u'u':
            field = run == 2 ? u"yy"_s : u"yyyy"_s;
            break;
        case u'M':
        case u'L':
            field = QString(qMin<qsizetype>(run, 4), u'M');
            break;
        case u'd':
            field = run == 1 ? u"d"_s : u"dd"_s;
            break;
        case u'E':
        case u'c':
        case u'e':
            field = run >= 4 ? u"dddd"_s : u"ddd"_s;
            break;
        case u'a':
            field = u"AP"_s;
            break;
        case u'h':
        case u'K':
            field = run == 1 ? u"h"_s : u"hh"_s;
            break;
        case u'H':
        case u'k':
            field = run == 1 ? u"H"_s : u"HH"_s;
            break;
        case u'm':
            field = run == 1 ? u"m"_s : u"mm"_s;
            break;
        case u's':
            field = run == 1 ? u"s"_s : u"ss"_s;
            break;
        case u'S':
            field = u"zzz"_s;
            break;
        case u'z':
        case u'Z':
        case u'v':
        case u'V':
        case u'O':
        case u'x':
        case u'X':
            field = u"t"_s;
            break;
        default:
            break;
        }
        if (!field.isEmpty()) {
            flushLiteral();
            out += field;
        }
    }
    flushLiteral();
    return out;
}

// The path split the way the platform splits an extension off: the extension is what follows
// the last "." of the last component, unless that dot starts the component.
void splitExtension(const QString &path, QString *stem, QString *extension) {
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(u'/'))
        trimmed.chop(1);
    const qsizetype slash = trimmed.lastIndexOf(u'/');
    const qsizetype dot = trimmed.lastIndexOf(u'.');
    if (dot > slash + 1 && dot > 0) {
        *stem = trimmed.left(dot);
        *extension = trimmed.mid(dot + 1);
    } else {
        *stem = trimmed;
        extension->clear();
    }
}

// Common "public.*" type identifiers, as the MIME type every member derives from.
// An empty value stands for "any type".
QString mimeForIdentifier(const QString &identifier) {
    static const QHash<QString, QString> table = {
        {u"public.item"_s, QString()},
        {u"public.data"_s, QString()},
        {u"public.content"_s, QString()},
        {u"public.text"_s, u"text/plain"_s},
        {u"public.plain-text"_s, u"text/plain"_s},
        {u"public.html"_s, u"text/html"_s},
        {u"public.xml"_s, u"application/xml"_s},
        {u"public.json"_s, u"application/json"_s},
        {u"public.image"_s, u"image/"_s},
        {u"public.jpeg"_s, u"image/jpeg"_s},
        {u"public.png"_s, u"image/png"_s},
        {u"public.movie"_s, u"video/"_s},
        {u"public.audiovisual-content"_s, u"video/"_s},
        {u"public.audio"_s, u"audio/"_s},
        {u"public.archive"_s, u"application/x-archive"_s},
        {u"public.zip-archive"_s, u"application/zip"_s},
        {u"com.adobe.pdf"_s, u"application/pdf"_s},
        {u"public.disk-image"_s, u"application/x-raw-disk-image"_s},
    };
    return table.value(identifier, identifier);
}

} // namespace

QString TLUtility::getFileSizeStrWithSize(qint64 size) {
    const double s = static_cast<double>(size);
    if (size <= 999)
        return QString::asprintf("%.0f", s) + u"B"_s;
    double value = s / 1000.0;
    QString unit = u"KB"_s;
    if (s / 1000000.0 > 1000.0) {
        value = s / 1000000000.0;
        unit = u"GB"_s;
    } else if (s / 1000.0 > 1000.0) {
        value = s / 1000000.0;
        unit = u"MB"_s;
    }
    return QString::asprintf("%.1f ", value) + unit;
}

QString TLUtility::getTimeString(double seconds) {
    const qint32 hours = truncatedInt32(std::floor(seconds / 3600.0));
    double rest = seconds - static_cast<double>(hours) * 3600.0;
    const qint32 minutes = truncatedInt32(std::floor(rest / 60.0));
    rest -= static_cast<double>(minutes) * 60.0;
    const qint32 wholeSeconds = truncatedInt32(std::floor(rest));
    const qint32 hundredths = truncatedInt32((rest - wholeSeconds) * 100.0);
    return QString::asprintf("%.2d:%.2d:%.2d.%.2d", hours, minutes, wholeSeconds, hundredths);
}

QString TLUtility::getDateStrBySecond(qint32 seconds) {
    const qint64 n = seconds;
    const qint64 hours = static_cast<qint64>(static_cast<double>(n) / 3600.0);
    const qint64 minutes = static_cast<qint64>(static_cast<double>(n - hours * 3600) / 60.0);
    const qint64 rest = n - hours * 3600 - minutes * 60;
    const auto part = [](qint64 value) {
        return value < 10 ? u"0"_s + QString::number(value) : QString::number(value);
    };
    if (hours < 1)
        return part(minutes) + u':' + part(rest);
    return part(hours) + u':' + part(minutes) + u':' + part(rest);
}

double TLUtility::getAllSecondsWithHHMMSSMS(const QString &text) {
    const qsizetype dot = text.indexOf(u'.');
    if (dot < 0)
        return 0.0;
    const QList<QStringView> fields = QStringView(text).left(dot).split(u':');
    double total = 0.0;
    if (fields.size() == 3)
        total = static_cast<double>(leadingInteger(fields[0])) * 3600.0 +
                static_cast<double>(leadingInteger(fields[1])) * 60.0 +
                static_cast<double>(leadingInteger(fields[2]));
    return total + leadingDouble(QStringView(text).mid(dot));
}

QString TLUtility::stringFromFomate(const QDateTime &date, const QString &formate) {
    const QString pattern = formate.isNull() ? u"yyyy-MM-dd HH:mm:ss"_s : formate;
    if (!date.isValid())
        return {};
    return QLocale().toString(date.toLocalTime(), qtDateFormat(pattern));
}

QDateTime TLUtility::dateFromString(const QString &string, const QString &formate) {
    if (formate.isEmpty())
        return {};
    return QLocale().toDateTime(string, qtDateFormat(formate));
}

qint64 TLUtility::numberOfDaysWithFromDate(const QDateTime &fromDate, const QDateTime &toDate) {
    if (!fromDate.isValid() || !toDate.isValid())
        return 0;
    const QDateTime from = fromDate.toLocalTime();
    const QDateTime to = toDate.toLocalTime();
    qint64 days = from.date().daysTo(to.date());
    // Only whole days count: an unfinished last day is dropped, in either direction.
    if (days > 0 && to.time() < from.time())
        --days;
    else if (days < 0 && to.time() > from.time())
        ++days;
    return days;
}

bool TLUtility::conformsToUTI(const QString &extension, const QString &conformsUTI) {
    const QMimeDatabase database;
    const QList<QMimeType> candidates = database.mimeTypesForFileName(u"file."_s + extension);
    const QMimeType type = candidates.isEmpty()
                               ? database.mimeTypeForName(u"application/octet-stream"_s)
                               : candidates.first();
    const QString wanted = mimeForIdentifier(conformsUTI);
    if (wanted.isEmpty())
        return true;
    if (wanted.endsWith(u'/')) {
        if (type.name().startsWith(wanted))
            return true;
        const QStringList ancestors = type.allAncestors();
        return std::any_of(ancestors.begin(), ancestors.end(),
                           [&](const QString &name) { return name.startsWith(wanted); });
    }
    return type.inherits(wanted);
}

QString TLUtility::getSupportPath() {
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::homePath() + u"/.local/share"_s;
    const QString path =
        base + u'/' + QStringView(kBundleIdentifier) + u'/' + QStringView(kBundleName);
    QDir().mkpath(path);
    return path;
}

QString TLUtility::getTempPath() {
    const QString path = getSupportPath() + u"/temporary"_s;
    QDir().mkpath(path);
    return path;
}

QString TLUtility::newFilePathAlias(const QString &path) {
    if (!QFileInfo::exists(path))
        return path;
    for (qint32 n = 1; n < std::numeric_limits<qint32>::max(); ++n) {
        const QString candidate = createPathAlias(path, n);
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
    return path;
}

QString TLUtility::createPathAlias(const QString &path, qint32 newcount) {
    QString stem;
    QString extension;
    splitExtension(path, &stem, &extension);
    return stem + u'(' + QString::number(newcount) + u")."_s + extension;
}
