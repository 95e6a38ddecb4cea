#include "helper/RequestValidation.h"

#include <QList>

using namespace Qt::StringLiterals;

namespace helper {

bool isKernelDeviceName(const QString &name) {
    if (name.isEmpty() || name.size() > 32)
        return false;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t c = name.at(i).unicode();
        const bool alnum =
            (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
        if (alnum)
            continue;
        if (i > 0 && (c == u'-' || c == u'_'))
            continue;
        return false;
    }
    return true;
}

QString ntfsLabelProblem(const QString &label) {
    const QList<uint> codePoints = label.toUcs4();
    if (codePoints.isEmpty())
        return u"The new name is empty. Type a name of 1 to 32 characters."_s;
    if (codePoints.size() > kMaxLabelLength)
        return u"The new name is %1 characters long; an NTFS volume name can have at most %2."_s
            .arg(codePoints.size())
            .arg(kMaxLabelLength);
    for (const uint c : codePoints) {
        if (c < 0x20 || (c >= 0x7f && c < 0xa0))
            return u"The new name contains a control character, which NTFS does not allow."_s;
        if (c >= 0xd800 && c < 0xe000)
            return u"The new name contains an invalid character."_s;
        if (QStringView(u"\"*/:<>?\\|").contains(QChar(char16_t(c))))
            return u"The new name contains \"%1\". An NTFS volume name cannot contain any of "
                   u"\" * / : < > ? \\ |."_s.arg(QChar(char16_t(c)));
    }
    // ntfslabel takes the name as a plain argument and has no way to tell it from an option.
    if (label.startsWith(u'-'))
        return u"The new name cannot begin with a hyphen (-)."_s;
    return {};
}

QString mountPathProblem(const QString &path) {
    if (path.isEmpty())
        return u"No mount path was given."_s;
    if (!path.startsWith(u'/'))
        return u"The mount path \"%1\" is not an absolute path."_s.arg(path);
    if (path.size() > kMaxPathLength)
        return u"The mount path is too long."_s;
    if (path.contains(QChar(0)))
        return u"The mount path contains a NUL character."_s;
    return {};
}

} // namespace helper
