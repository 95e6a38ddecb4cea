#pragma once

#include <QDateTime>
#include <QString>

// Stateless helpers shared by every layer.
class TLUtility {
public:
    TLUtility() = delete;

    // Presence of the installed helper and FUSE NTFS driver, looked up afresh on every call.
    static bool checkHelperAppInstalled();
    static bool checkFuseInstalled();
    // The version file beside the helper, trimmed; "" when the helper or the file is unreadable.
    static QString getHelperAppVersion();

    // Size, time and date texts. Sizes use decimal units with strict comparisons, so exactly
    // 1,000,000 bytes read "1000.0 KB".
    static QString getFileSizeStrWithSize(qint64 size);
    static QString getTimeString(double seconds);
    static QString getDateStrBySecond(qint32 seconds);
    // 0 for any text without a "." (even a valid "01:02:03"); a head that is not exactly three
    // ":"-separated fields counts as 0 and only the fraction is kept. The fraction is read as a
    // number parser reads it, so ".25e1" adds 2.5.
    static double getAllSecondsWithHHMMSSMS(const QString &text);
    // Formats are date patterns in the Unicode (LDML) syntax, in the system time zone; a null
    // format means "yyyy-MM-dd HH:mm:ss". An unparsable text gives an invalid QDateTime. A
    // two-digit year ("yy") falls from 80 years before `now` to 20 years after it.
    static QString stringFromFomate(const QDateTime &date, const QString &formate = QString());
    static QDateTime dateFromString(const QString &string, const QString &formate,
                                    const QDateTime &now = QDateTime::currentDateTime());
    // Whole calendar days from one date to the other in local time; negative when to is earlier.
    static qint64 numberOfDaysWithFromDate(const QDateTime &fromDate, const QDateTime &toDate);
    // Whether the type of files with this extension is, or derives from, the given type
    // identifier ("public.image", "com.compuserve.gif"). Case does not matter.
    static bool conformsToUTI(const QString &extension, const QString &conformsUTI);

    // The application's data folder under $XDG_DATA_HOME and its "temporary" sub-folder, created
    // when missing (a failure to create is ignored; the path is returned anyway).
    static QString getSupportPath();
    static QString getTempPath();
    // path, or "name(n).ext" with the first n >= 1 that does not exist yet.
    static QString newFilePathAlias(const QString &path);
    static QString createPathAlias(const QString &path, qint32 newcount);
};
