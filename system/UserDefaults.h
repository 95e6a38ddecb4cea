#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>

// A persistent key-value store in one JSON file. Keys are any text (a path such as "/" or
// "/media/a b/" is a key like any other); values are typed: bool, integer (64-bit), double,
// string, string list or bytes, and keep their type through the file.
//
// Changes live in memory until synchronize(), which merges them into the file under a lock file:
// the file is read again, only the keys this object changed or removed since its last
// synchronize are applied, and the result is written atomically. Two processes writing at once
// therefore lose neither's keys. A file that cannot be read as a defaults file is renamed aside
// (kept, never deleted), logged once, and the store starts empty.
//
// The file is read when the object is created. All methods may be called from any thread.
class UserDefaults {
public:
    // The application's own store: $XDG_CONFIG_HOME/vantrelo/defaults.json ($HOME/.config when
    // XDG_CONFIG_HOME is unset or empty). The variable is read once, at the first call, so tests
    // point it at a temporary folder before anything touches the defaults. Lookups that find
    // nothing here fall back to globalDomain(), as the platform's defaults search list does.
    static UserDefaults &standard();
    // Settings shared by every program of the user: $XDG_CONFIG_HOME/vantrelo/globaldefaults.json.
    // "AppleLanguages" and "AppleInterfaceStyle" are read from here (through standard() or
    // directly).
    static UserDefaults &globalDomain();
    // Where standard() and globalDomain() keep their files, from the current environment.
    static QString standardFilePath();
    static QString globalDomainFilePath();

    explicit UserDefaults(const QString &filePath, const UserDefaults *fallback = nullptr);
    UserDefaults(const UserDefaults &) = delete;
    UserDefaults &operator=(const UserDefaults &) = delete;

    QString filePath() const { return m_filePath; }

    // An invalid QVariant when absent. Types come back as QMetaType::Bool, LongLong, Double,
    // QString, QStringList or QByteArray.
    QVariant objectForKey(const QString &key) const;
    // Conversions follow the platform's defaults: numbers and "YES"/"true" strings count as
    // booleans, numeric strings as numbers; anything else gives false, 0 or an empty value.
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;
    QString stringForKey(const QString &key) const;
    QStringList stringArrayForKey(const QString &key) const;
    QByteArray dataForKey(const QString &key) const;
    // Keys held by this store itself (not the fallback).
    QStringList allKeys() const;

    // An invalid (null) QVariant removes the key. Values of unsupported types are refused with a
    // log line and leave the store as it was; a QVariantList of strings is kept as a string list.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setDouble(double value, const QString &key);
    void setString(const QString &value, const QString &key);
    void setStringArray(const QStringList &value, const QString &key);
    void setData(const QByteArray &value, const QString &key);
    void removeObjectForKey(const QString &key);

    // Merges this object's changes into the file and takes in everything other writers stored.
    // False when the file could not be locked or written; the changes then stay pending.
    bool synchronize();

private:
    using Values = QHash<QString, QVariant>;
    enum class Load { Ok, Missing, Unreadable, Corrupt };

    static QVariant normalized(const QVariant &value, bool *ok);
    Load readFile(Values *values) const;
    void setAsideCorruptFile() const;
    bool writeFile(const Values &values) const;
    void store(const QString &key, const QVariant &value);
    QVariant lookup(const QString &key) const;

    const QString m_filePath;
    const UserDefaults *const m_fallback;
    // m_mutex guards the values and is never held during disk work, so lookups do not wait for
    // a write; m_syncMutex lets one synchronize of this object run at a time.
    mutable QMutex m_mutex;
    QMutex m_syncMutex;
    Values m_values;
    // Keys set or removed since the last synchronize, each with the number of its latest change,
    // so a change made while a write is under way stays pending.
    QHash<QString, quint64> m_changed;
    quint64 m_changeCount = 0;
};
