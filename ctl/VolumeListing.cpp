#include "ctl/VolumeListing.h"

#include "util/TLUtility.h"

#include <algorithm>
#include <functional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Written by hand rather than through QJsonDocument: listing a thousand volumes is then a
// fraction of the process's start-up time.
bool needsEscape(char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20;
}

void appendJsonString(QByteArray &out, const QString &text) {
    const QByteArray utf8 = text.toUtf8();
    out += '"';
    if (std::none_of(utf8.cbegin(), utf8.cend(), needsEscape)) {
        out += utf8;
    } else {
        for (const char c : utf8) {
            const auto byte = static_cast<unsigned char>(c);
            if (!needsEscape(c)) {
                out += c;
            } else if (byte >= 0x20) {
                out += '\\';
                out += c;
            } else {
                out += "\\u00";
                out += "0123456789abcdef"[byte >> 4];
                out += "0123456789abcdef"[byte & 0xf];
            }
        }
    }
    out += '"';
}

using FieldWriter = std::function<void(QByteArray &, const NTDiskDrive &)>;

FieldWriter text(QString (NTDiskDrive::*getter)() const) {
    return
        [getter](QByteArray &out, const NTDiskDrive &d) { appendJsonString(out, (d.*getter)()); };
}

template <typename Number> FieldWriter number(Number (NTDiskDrive::*getter)() const) {
    return [getter](QByteArray &out, const NTDiskDrive &d) {
        out += QByteArray::number((d.*getter)());
    };
}

FieldWriter flag(bool (NTDiskDrive::*getter)() const) {
    return [getter](QByteArray &out, const NTDiskDrive &d) {
        out += (d.*getter)() ? "true" : "false";
    };
}

struct JsonField {
    QByteArray prefix; // the separator and the quoted key, written in one go
    FieldWriter write;
};

const std::vector<JsonField> &jsonFields() {
    static const std::vector<JsonField> fields = [] {
        const std::vector<std::pair<const char *, FieldWriter>> named{
            {"mountPath", text(&NTDiskDrive::mountPath)},
            {"name", text(&NTDiskDrive::name)},
            {"uuid", text(&NTDiskDrive::uuid)},
            {"formatDescription", text(&NTDiskDrive::formatDescription)},
            {"bsdName", text(&NTDiskDrive::bsdName)},
            {"totalSize", number(&NTDiskDrive::totalSize)},
            {"freeSize", number(&NTDiskDrive::freeSize)},
            {"isEjectable", flag(&NTDiskDrive::isEjectable)},
            {"isEncrypted", flag(&NTDiskDrive::isEncrypted)},
            {"isWritable", flag(&NTDiskDrive::isWritable)},
            {"groupType", number(&NTDiskDrive::groupType)},
            {"isGroup", flag(&NTDiskDrive::isGroup)},
            {"isInternal", flag(&NTDiskDrive::isInternal)},
        };
        std::vector<JsonField> result;
        for (const auto &[key, write] : named)
            result.push_back({(result.empty() ? "{\"" : ", \"") + QByteArray(key) + "\": ", write});
        return result;
    }();
    return fields;
}

void appendEscaped(QString &out, const QString &text) {
    for (const QChar c : text) {
        if (c == u'\\')
            out += "\\\\"_L1;
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            out += u"\\x"_s + QString::number(c.unicode(), 16).rightJustified(2, u'0');
        else
            out += c;
    }
}

QString sizeText(qint64 bytes, SizeStyle sizes) {
    return sizes == SizeStyle::Bytes ? QString::number(bytes)
                                     : TLUtility::getFileSizeStrWithSize(bytes);
}

} // namespace

QByteArray volumesAsJson(const NTDiskDriveList &drives) {
    QByteArray out;
    out.reserve(drives.size() * 400 + 4);
    out += '[';
    for (qsizetype i = 0; i < drives.size(); ++i) {
        out += i ? ",\n  " : "\n  ";
        for (const JsonField &field : jsonFields()) {
            out += field.prefix;
            field.write(out, *drives.at(i));
        }
        out += '}';
    }
    out += drives.isEmpty() ? "]\n" : "\n]\n";
    return out;
}

QString volumesAsText(const NTDiskDriveList &drives, SizeStyle sizes) {
    QString out = u"DEVICE\tMOUNT\tFORMAT\tSIZE\tFREE\tACCESS\tGROUP\tNAME\n"_s;
    out.reserve(drives.size() * 120 + out.size());
    for (const NTDiskDrivePtr &drive : drives) {
        appendEscaped(out, drive->bsdName());
        out += u'\t';
        appendEscaped(out, drive->mountPath());
        out += u'\t';
        appendEscaped(out, drive->formatDescription());
        out += u'\t' + sizeText(drive->totalSize(), sizes) + u'\t' +
               sizeText(drive->freeSize(), sizes) + u'\t' +
               (drive->isWritable() ? "read/write"_L1 : "read-only"_L1) + u'\t' +
               (drive->isInternal() ? "internal"_L1 : "external"_L1) + u'\t';
        appendEscaped(out, drive->name());
        out += u'\n';
    }
    return out;
}
