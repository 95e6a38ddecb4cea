#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QString>

// The helper's command codes and the parameter dictionaries each one takes.
namespace helpercommand {

inline constexpr quint64 kOpen = 0;
inline constexpr quint64 kMountReadWrite = 1;
inline constexpr quint64 kEject = 2;
inline constexpr quint64 kRepair = 3;
inline constexpr quint64 kErase = 4;
inline constexpr quint64 kHelperVersion = 7;
inline constexpr quint64 kRename = 8;

wire::Dictionary openParameter(const QString &mountPath);
wire::Dictionary mountParameter(const QString &name, const QString &bsdName);
wire::Dictionary ejectParameter(const QString &name, const QString &bsdName);
wire::Dictionary repairParameter(const QString &bsdName);
wire::Dictionary eraseParameter(const QString &bsdName);
wire::Dictionary helperVersionParameter(); // empty, but still sent
wire::Dictionary renameParameter(const QString &newName, const QString &bsdName);

// The reply's "result" when it is text; nothing when it is missing or of any other type, which
// callers take as a failure.
std::optional<QString> resultOf(const wire::ReplyDictionary &reply);

// Orders strings with runs of digits compared as numbers: "1.10" > "1.9" > "1.0.1" > "1.0.0" >
// "1.0". Negative, zero or positive like a three-way compare.
int compareNumeric(const QString &left, const QString &right);

// Whether a helper reporting this version can rename: strictly after "1.0.0".
bool isHelperVersionCurrent(const QString &version);
// Same, from a code 7 reply; a missing or non-text "result" is too old.
bool isHelperVersionCurrent(const wire::ReplyDictionary &reply);

} // namespace helpercommand
