#include "system/UserDefaults.h"

#include "system/SystemLogging.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QLockFile>
#include <QMutexLocker>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFormatVersion = 1;
// Waiting longer than this for another writer means something is wrong with it; the caller keeps
// its changes and may try again.
constexpr int kLockTimeoutMs = 10000;
// Refuse to read files that cannot be a defaults file rather than pulling gigabytes into memory.
constexpr qint64 kMaxFileSize = 64LL * 1024 * 1024;

QString configHome() {
    const QString xdg = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!xdg.isEmpty() && QDir::isAbsolutePath(xdg))
        return xdg;
    return QDir::homePath() + u"/.config"_s;
}

QJsonValue encode(const QVariant &value) {
    QJsonObject entry;
    switch (value.typeId()) {
    case QMetaType::Bool:
        entry.insert(u"type"_s, u"bool"_s);
        entry.insert(u"value"_s, value.toBool());
        break;
    case QMetaType::LongLong:
        entry.insert(u"type"_s, u"integer"_s);
        entry.insert(u"value"_s, value.toLongLong());
        break;
    case QMetaType::Double:
        entry.insert(u"type"_s, u"double"_s);
        entry.insert(u"value"_s, value.toDouble());
        break;
    case QMetaType::QString:
        entry.insert(u"type"_s, u"string"_s);
        entry.insert(u"value"_s, value.toString());
        break;
    case QMetaType::QStringList:
        entry.insert(u"type"_s, u"stringArray"_s);
        entry.insert(u"value"_s, QJsonArray::fromStringList(value.toStringList()));
        break;
    case QMetaType::QByteArray:
        entry.insert(u"type"_s, u"data"_s);
        entry.insert(u"value"_s, QString::fromLatin1(value.toByteArray().toBase64()));
        break;
    default:
        Q_UNREACHABLE(); // store() only keeps normalized values
    }
    return entry;
}

bool decode(const QJsonValue &json, QVariant *out) {
    if (!json.isObject())
        return false;
    const QJsonObject entry = json.toObject();
    const QString type = entry.value(u"type"_s).toString();
    const QJsonValue value = entry.value(u"value"_s);
    if (type == u"bool" && value.isBool()) {
        *out = value.toBool();
    } else if (type == u"integer" && value.isDouble()) {
        // The parser keeps integral numbers that fit 64 bits exact; anything else is not ours.
        const QVariant number = value.toVariant();
        if (number.typeId() != QMetaType::LongLong)
            return false;
        *out = number;
    } else if (type == u"double" && value.isDouble()) {
        *out = value.toDouble();
    } else if (type == u"string" && value.isString()) {
        *out = value.toString();
    } else if (type == u"stringArray" && value.isArray()) {
        QStringList list;
        for (const QJsonValue &item : value.toArray()) {
            if (!item.isString())
                return false;
            list.append(item.toString());
        }
        *out = list;
    } else if (type == u"data" && value.isString()) {
        const auto bytes = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
        if (!bytes)
            return false;
        *out = *bytes;
    } else {
        return false;
    }
    return true;
}

// Leading number of a string the way the platform's defaults read one: optional space and sign,
// digits, and whatever follows ignored; 0 when there is none.
double leadingNumber(const QString &text) {
    const QString trimmed = text.trimmed();
    qsizetype end = 0;
    if (end < trimmed.size() && (trimmed[end] == u'+' || trimmed[end] == u'-'))
        ++end;
    bool seenDot = false;
    while (end < trimmed.size() && (trimmed[end].isDigit() || (trimmed[end] == u'.' && !seenDot))) {
        seenDot = seenDot || trimmed[end] == u'.';
        ++end;
    }
    bool ok = false;
    const double value = QLocale::c().toDouble(QStringView(trimmed).left(end), &ok);
    return ok ? value : 0.0;
}

qint64 clampToInteger(double value) {
    if (value != value) // NaN
        return 0;
    if (value >= 9.2233720368547758e18)
        return std::numeric_limits<qint64>::max();
    if (value <= -9.2233720368547758e18)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

} // namespace

UserDefaults &UserDefaults::standard() {
    static UserDefaults instance(standardFilePath(), &globalDomain());
    return instance;
}

UserDefaults &UserDefaults::globalDomain() {
    static UserDefaults instance(globalDomainFilePath());
    return instance;
}

QString UserDefaults::standardFilePath() {
    return configHome() + u"/vantrelo/defaults.json"_s;
}

QString UserDefaults::globalDomainFilePath() {
    return configHome() + u"/vantrelo/globaldefaults.json"_s;
}

UserDefaults::UserDefaults(const QString &filePath, const UserDefaults *fallback)
    : m_filePath(filePath)
    , m_fallback(fallback) {
    switch (readFile(&m_values)) {
    case Load::Ok:
    case Load::Missing:
        break;
    case Load::Unreadable:
        qCWarning(lcSystem) << "Cannot read the defaults file" << m_filePath
                            << "- starting from defaults";
        break;
    case Load::Corrupt: {
        QLockFile lock(m_filePath + u".lock"_s);
        if (lock.tryLock(kLockTimeoutMs)) {
            // Another process may have replaced it with a good file in the meantime.
            Values again;
            if (readFile(&again) == Load::Corrupt)
                setAsideCorruptFile();
            else
                m_values = again;
        } else {
            qCWarning(lcSystem) << "The defaults file" << m_filePath
                                << "cannot be read - starting from defaults";
        }
        break;
    }
    }
}

UserDefaults::Load UserDefaults::readFile(Values *values) const {
    values->clear();
    QFile file(m_filePath);
    if (!file.exists())
        return Load::Missing;
    if (!file.open(QIODevice::ReadOnly))
        return Load::Unreadable;
    if (file.size() > kMaxFileSize)
        return Load::Corrupt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return Load::Unreadable;

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return Load::Corrupt;
    const QJsonObject root = document.object();
    if (root.value(u"format"_s).toInteger(-1) != kFormatVersion ||
        !root.value(u"values"_s).isObject())
        return Load::Corrupt;
    const QJsonObject stored = root.value(u"values"_s).toObject();
    for (auto it = stored.begin(); it != stored.end(); ++it) {
        QVariant value;
        if (!decode(it.value(), &value)) {
            values->clear();
            return Load::Corrupt;
        }
        values->insert(it.key(), value);
    }
    return Load::Ok;
}

void UserDefaults::setAsideCorruptFile() const {
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss"_s);
    QString aside = m_filePath + u".corrupt-"_s + stamp;
    for (int n = 1; QFileInfo::exists(aside); ++n)
        aside = m_filePath + u".corrupt-"_s + stamp + u'-' + QString::number(n);
    if (QFile::rename(m_filePath, aside))
        qCWarning(lcSystem) << "The defaults file" << m_filePath << "is damaged; kept it as"
                            << aside << "and started from defaults";
    else
        qCWarning(lcSystem) << "The defaults file" << m_filePath
                            << "is damaged and cannot be moved aside; starting from defaults";
}

bool UserDefaults::writeFile(const Values &values) const {
    QJsonObject stored;
    for (auto it = values.begin(); it != values.end(); ++it)
        stored.insert(it.key(), encode(it.value()));
    QJsonObject root;
    root.insert(u"format"_s, kFormatVersion);
    root.insert(u"values"_s, stored);

    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(root).toJson(QJsonDocument::Indented));
    return file.commit();
}

QVariant UserDefaults::normalized(const QVariant &value, bool *ok) {
    *ok = true;
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QStringList:
    case QMetaType::QByteArray:
        return value;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::Char:
    case QMetaType::SChar:
        return QVariant(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::UChar:
        return QVariant(value.toLongLong());
    case QMetaType::ULongLong:
        if (value.toULongLong() <= static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
            return QVariant(value.toLongLong());
        break;
    case QMetaType::Float:
        return QVariant(value.toDouble());
    case QMetaType::QVariantList: {
        QStringList list;
        for (const QVariant &item : value.toList()) {
            if (item.typeId() != QMetaType::QString)
                return (*ok = false, QVariant());
            list.append(item.toString());
        }
        return list;
    }
    default:
        break;
    }
    *ok = false;
    return {};
}

void UserDefaults::store(const QString &key, const QVariant &value) {
    QMutexLocker locker(&m_mutex);
    if (value.isValid())
        m_values.insert(key, value);
    else
        m_values.remove(key);
    m_changed.insert(key, ++m_changeCount);
}

QVariant UserDefaults::lookup(const QString &key) const {
    {
        QMutexLocker locker(&m_mutex);
        const auto it = m_values.constFind(key);
        if (it != m_values.constEnd())
            return it.value();
    }
    return m_fallback ? m_fallback->objectForKey(key) : QVariant();
}

QVariant UserDefaults::objectForKey(const QString &key) const {
    return lookup(key);
}

bool UserDefaults::boolForKey(const QString &key) const {
    const QVariant value = lookup(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong() != 0;
    case QMetaType::Double:
        return value.toDouble() != 0.0;
    case QMetaType::QString: {
        const QString text = value.toString().trimmed();
        if (text.compare(u"yes"_s, Qt::CaseInsensitive) == 0 ||
            text.compare(u"true"_s, Qt::CaseInsensitive) == 0)
            return true;
        return leadingNumber(text) != 0.0;
    }
    default:
        return false;
    }
}

qint64 UserDefaults::integerForKey(const QString &key) const {
    const QVariant value = lookup(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? 1 : 0;
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double:
        return clampToInteger(value.toDouble());
    case QMetaType::QString:
        return clampToInteger(leadingNumber(value.toString()));
    default:
        return 0;
    }
}

double UserDefaults::doubleForKey(const QString &key) const {
    const QVariant value = lookup(key);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? 1.0 : 0.0;
    case QMetaType::LongLong:
        return static_cast<double>(value.toLongLong());
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::QString:
        return leadingNumber(value.toString());
    default:
        return 0.0;
    }
}

QString UserDefaults::stringForKey(const QString &key) const {
    const QVariant value = lookup(key);
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::LongLong:
        return QString::number(value.toLongLong());
    case QMetaType::Double:
        return QString::number(value.toDouble());
    default:
        return {};
    }
}

QStringList UserDefaults::stringArrayForKey(const QString &key) const {
    const QVariant value = lookup(key);
    return value.typeId() == QMetaType::QStringList ? value.toStringList() : QStringList();
}

QByteArray UserDefaults::dataForKey(const QString &key) const {
    const QVariant value = lookup(key);
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

QStringList UserDefaults::allKeys() const {
    QMutexLocker locker(&m_mutex);
    return m_values.keys();
}

void UserDefaults::setObject(const QVariant &value, const QString &key) {
    if (!value.isValid()) {
        store(key, QVariant());
        return;
    }
    bool ok = false;
    const QVariant kept = normalized(value, &ok);
    if (!ok) {
        qCWarning(lcSystem) << "Not storing a value of type" << value.typeName() << "under" << key;
        return;
    }
    store(key, kept);
}

void UserDefaults::setBool(bool value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::setInteger(qint64 value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::setDouble(double value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::setString(const QString &value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::setStringArray(const QStringList &value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::setData(const QByteArray &value, const QString &key) {
    store(key, QVariant(value));
}

void UserDefaults::removeObjectForKey(const QString &key) {
    store(key, QVariant());
}

bool UserDefaults::synchronize() {
    QMutexLocker syncLocker(&m_syncMutex);

    // This object's pending changes, taken out so the disk work runs without m_mutex.
    QHash<QString, quint64> changed;
    Values pending;
    {
        QMutexLocker locker(&m_mutex);
        changed = m_changed;
        for (auto it = changed.constBegin(); it != changed.constEnd(); ++it) {
            const auto value = m_values.constFind(it.key());
            if (value != m_values.constEnd())
                pending.insert(it.key(), value.value());
        }
    }

    const QString folder = QFileInfo(m_filePath).absolutePath();
    if (!QDir().mkpath(folder)) {
        qCWarning(lcSystem) << "Cannot create the defaults folder" << folder;
        return false;
    }
    QLockFile lock(m_filePath + u".lock"_s);
    if (!lock.tryLock(kLockTimeoutMs)) {
        qCWarning(lcSystem) << "Cannot lock the defaults file" << m_filePath << lock.error();
        return false;
    }

    Values merged;
    switch (readFile(&merged)) {
    case Load::Ok:
    case Load::Missing:
        break;
    case Load::Unreadable:
        // Writing now could replace settings we never saw.
        qCWarning(lcSystem) << "Cannot read the defaults file" << m_filePath << "- not writing it";
        return false;
    case Load::Corrupt:
        setAsideCorruptFile();
        {
            QMutexLocker locker(&m_mutex);
            merged = m_values;
        }
        break;
    }
    for (auto it = changed.constBegin(); it != changed.constEnd(); ++it) {
        const auto value = pending.constFind(it.key());
        if (value != pending.constEnd())
            merged.insert(it.key(), value.value());
        else
            merged.remove(it.key());
    }

    if (!writeFile(merged)) {
        qCWarning(lcSystem) << "Cannot write the defaults file" << m_filePath;
        return false;
    }

    QMutexLocker locker(&m_mutex);
    for (auto it = changed.constBegin(); it != changed.constEnd(); ++it) {
        if (m_changed.value(it.key()) == it.value())
            m_changed.remove(it.key());
    }
    // Keys changed again during the write keep their newer in-memory state.
    for (auto it = m_changed.constBegin(); it != m_changed.constEnd(); ++it) {
        const auto value = m_values.constFind(it.key());
        if (value != m_values.constEnd())
            merged.insert(it.key(), value.value());
        else
            merged.remove(it.key());
    }
    m_values = merged;
    return true;
}
