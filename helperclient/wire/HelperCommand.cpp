#include "helperclient/wire/HelperCommand.h"

using namespace Qt::StringLiterals;

namespace helpercommand {

wire::Dictionary openParameter(const QString &mountPath) {
    return {{u"mountPath"_s, mountPath}};
}

wire::Dictionary mountParameter(const QString &name, const QString &bsdName) {
    return {{u"name"_s, name}, {u"bsdName"_s, bsdName}};
}

wire::Dictionary ejectParameter(const QString &name, const QString &bsdName) {
    return {{u"name"_s, name}, {u"bsdName"_s, bsdName}};
}

wire::Dictionary repairParameter(const QString &bsdName) {
    return {{u"bsdName"_s, bsdName}};
}

wire::Dictionary eraseParameter(const QString &bsdName) {
    return {{u"bsdName"_s, bsdName}};
}

wire::Dictionary helperVersionParameter() {
    return {};
}

wire::Dictionary renameParameter(const QString &newName, const QString &bsdName) {
    return {{u"newName"_s, newName}, {u"bsdName"_s, bsdName}};
}

std::optional<QString> resultOf(const wire::ReplyDictionary &reply) {
    const auto it = reply.constFind(u"result"_s);
    if (it == reply.cend() || it->typeId() != QMetaType::QString)
        return std::nullopt;
    return it->toString();
}

namespace {

bool isDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

} // namespace

int compareNumeric(const QString &left, const QString &right) {
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < left.size() && j < right.size()) {
        if (isDigit(left[i]) && isDigit(right[j])) {
            // Compare digit runs by value without converting, so any length works.
            while (i < left.size() - 1 && left[i] == u'0' && isDigit(left[i + 1]))
                ++i;
            while (j < right.size() - 1 && right[j] == u'0' && isDigit(right[j + 1]))
                ++j;
            qsizetype endLeft = i;
            qsizetype endRight = j;
            while (endLeft < left.size() && isDigit(left[endLeft]))
                ++endLeft;
            while (endRight < right.size() && isDigit(right[endRight]))
                ++endRight;
            const qsizetype lengthLeft = endLeft - i;
            const qsizetype lengthRight = endRight - j;
            if (lengthLeft != lengthRight)
                return lengthLeft < lengthRight ? -1 : 1;
            const int digits = QStringView(left)
                                   .sliced(i, lengthLeft)
                                   .compare(QStringView(right).sliced(j, lengthRight));
            if (digits != 0)
                return digits < 0 ? -1 : 1;
            i = endLeft;
            j = endRight;
            continue;
        }
        if (left[i] != right[j])
            return left[i] < right[j] ? -1 : 1;
        ++i;
        ++j;
    }
    const qsizetype restLeft = left.size() - i;
    const qsizetype restRight = right.size() - j;
    if (restLeft == restRight)
        return 0;
    return restLeft < restRight ? -1 : 1;
}

bool isHelperVersionCurrent(const QString &version) {
    return compareNumeric(version, u"1.0.0"_s) > 0;
}

bool isHelperVersionCurrent(const wire::ReplyDictionary &reply) {
    const auto version = resultOf(reply);
    return version && isHelperVersionCurrent(*version);
}

} // namespace helpercommand
