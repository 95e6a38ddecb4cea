#include "util/TLUtility.h"

#include "util/InstallPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QStandardPaths>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

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

// The number a strtod-style parser reads at the start of a text (".25e1" is 2.5), without the
// locale's decimal separator; 0 when there is none or it does not fit a double.
double leadingDouble(QStringView text) {
    const QByteArray bytes = text.trimmed().toLatin1();
    double value = 0.0;
    const std::from_chars_result result =
        std::from_chars(bytes.data(), bytes.data() + bytes.size(), value);
    return result.ec == std::errc() ? value : 0.0;
}

// "S" repeated n times: the first n digits of the milliseconds, cut rather than rounded, then
// zeros.
QString fractionDigits(const QTime &time, qsizetype count) {
    const QString millis = QString::number(time.msec()).rightJustified(3, u'0');
    return millis.left(count).leftJustified(count, u'0');
}

struct DatePattern {
    QString format;
    bool twoDigitYear = false;
};

// Rewrites a Unicode date pattern ("yyyy-MM-dd HH:mm:ss", "EEE d MMM 'at' h:mm a") into Qt's
// date format syntax. Letters without a Qt counterpart (era, week numbers) are dropped. Qt has no
// field for one or two fraction digits, so when formatting, `time`'s digits are written as text.
DatePattern qtDateFormat(const QString &ldml, const std::optional<QTime> &time = std::nullopt) {
    DatePattern pattern;
    QString &out = pattern.format;
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
            pattern.twoDigitYear = pattern.twoDigitYear || run == 2;
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
            if (time)
                literal += fractionDigits(*time, run);
            else
                field = run >= 3 ? u"zzz"_s : u"z"_s;
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
    return pattern;
}

// Qt reads "yy" as 19yy; the platform puts a two-digit year in the hundred years that start
// 80 years before now.
QDateTime inTwoDigitYearWindow(const QDateTime &parsed, const QDateTime &now) {
    const QDateTime start = now.addYears(-80);
    const int startYear = start.date().year();
    int year = startYear - startYear % 100 + parsed.date().year() % 100;
    if (year < startYear)
        year += 100;
    const QDateTime shifted = parsed.addYears(year - parsed.date().year());
    return shifted < start ? shifted.addYears(100) : shifted;
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

struct TypeDeclaration {
    const char *identifier;
    const char *conformsTo; // space-separated parents
    const char *extensions; // space-separated, the type is their preferred one
};

// The part of the platform's type tree this program's kinds need: each type with the types it
// directly conforms to.
// clang-format off
constexpr TypeDeclaration kTypes[] = {
    {"public.item",                  "",                                     ""},
    {"public.content",               "",                                     ""},
    {"public.composite-content",     "public.content",                       ""},
    {"public.data",                  "public.item",                          ""},
    {"public.archive",               "",                                     ""},
    {"public.zip-archive",           "public.data public.archive",           "zip"},
    {"org.gnu.gnu-zip-archive",      "public.data public.archive",           "gz gzip"},
    {"public.tar-archive",           "public.data public.archive",           "tar"},
    {"public.disk-image",            "public.archive",                       ""},
    {"public.iso-image",             "public.disk-image",                    "iso"},
    {"public.text",                  "public.data public.content",           ""},
    {"public.plain-text",            "public.text",                          "txt text"},
    {"public.html",                  "public.text",                          "html htm"},
    {"public.xml",                   "public.text",                          "xml"},
    {"public.json",                  "public.text",                          "json"},
    {"public.source-code",           "public.text",                          ""},
    {"public.c-source",              "public.source-code",                   "c"},
    {"public.c-header",              "public.source-code",                   "h"},
    {"public.c-plus-plus-source",    "public.source-code",                   "cpp cc cxx cp c++"},
    {"public.script",                "public.source-code",                   ""},
    {"public.shell-script",          "public.script",                        "sh command"},
    {"public.python-script",         "public.script",                        "py"},
    {"com.adobe.pdf",                "public.data public.composite-content", "pdf"},
    {"public.image",                 "public.data public.content",           ""},
    {"public.jpeg",                  "public.image",                         "jpg jpeg jpe"},
    {"public.png",                   "public.image",                         "png"},
    {"com.compuserve.gif",           "public.image",                         "gif"},
    {"public.tiff",                  "public.image",                         "tif tiff"},
    {"public.audiovisual-content",   "public.data public.content",           ""},
    {"public.audio",                 "public.audiovisual-content",           ""},
    {"public.mp3",                   "public.audio",                         "mp3"},
    {"com.microsoft.waveform-audio", "public.audio",                         "wav wave"},
    {"public.movie",                 "public.audiovisual-content",           ""},
    {"public.mpeg-4",                "public.movie",                         "mp4"},
    {"com.apple.quicktime-movie",    "public.movie",                         "mov qt"},
};
// clang-format on

struct TypeTree {
    QHash<QString, QStringList> parents;
    QHash<QString, QString> byExtension;
};

const TypeTree &typeTree() {
    static const TypeTree tree = [] {
        TypeTree built;
        for (const TypeDeclaration &type : kTypes) {
            const QString identifier = QString::fromLatin1(type.identifier);
            built.parents.insert(
                identifier, QString::fromLatin1(type.conformsTo).split(u' ', Qt::SkipEmptyParts));
            for (const QString &extension :
                 QString::fromLatin1(type.extensions).split(u' ', Qt::SkipEmptyParts))
                built.byExtension.insert(extension, identifier);
        }
        return built;
    }();
    return tree;
}

bool typeConforms(const QString &type, const QString &wanted) {
    if (type == wanted)
        return true;
    const QStringList parents = typeTree().parents.value(type);
    return std::any_of(parents.begin(), parents.end(),
                       [&](const QString &parent) { return typeConforms(parent, wanted); });
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
    const QDateTime local = date.toLocalTime();
    return QLocale().toString(local, qtDateFormat(pattern, local.time()).format);
}

QDateTime TLUtility::dateFromString(const QString &string, const QString &formate,
                                    const QDateTime &now) {
    if (formate.isEmpty())
        return {};
    const DatePattern pattern = qtDateFormat(formate);
    const QDateTime parsed = QLocale().toDateTime(string, pattern.format);
    return pattern.twoDigitYear && parsed.isValid() ? inTwoDigitYearWindow(parsed, now) : parsed;
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
    // An unknown extension gets a dynamic type that conforms to public.data alone.
    const QString type =
        typeTree().byExtension.value(extension.toLower(), QStringLiteral("public.data"));
    return typeConforms(type, conformsUTI.toLower());
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
