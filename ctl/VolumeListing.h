#pragma once

#include "disk/NTDiskDrive.h"

#include <QByteArray>
#include <QString>

// A JSON array with one object per volume, keyed by the record's property names (all but the
// icon and the child list), sizes as integers and flags as booleans.
QByteArray volumesAsJson(const NTDiskDriveList &drives);

// How the text listing writes sizes: for a person ("268.0 MB") or in exact bytes.
enum class SizeStyle { Readable, Bytes };

// One volume per line, columns separated by tabs, control characters in names and paths escaped
// so a line is always one volume.
QString volumesAsText(const NTDiskDriveList &drives, SizeStyle sizes = SizeStyle::Readable);
