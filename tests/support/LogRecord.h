#pragma once

#include <QLoggingCategory>
#include <QMutex>
#include <QRegularExpression>
#include <QStringList>

// While it lives, keeps the program's log instead of printing it, from whatever thread wrote it:
// the usage events of the analytics debug log, and the lines of every other category.
class LogRecord {
public:
    using Event = QStringList; // name, action, label

    LogRecord() {
        QLoggingCategory::setFilterRules(QStringLiteral("vantrelo.analytics.debug=true"));
        clear();
        m_previous = qInstallMessageHandler(&LogRecord::record);
    }
    ~LogRecord() { qInstallMessageHandler(m_previous); }
    LogRecord(const LogRecord &) = delete;
    LogRecord &operator=(const LogRecord &) = delete;

    static void clear() {
        QMutexLocker lock(&s_mutex);
        s_events.clear();
        s_lines.clear();
    }
    static QList<Event> events() {
        QMutexLocker lock(&s_mutex);
        return s_events;
    }
    static QList<Event> takeEvents() {
        QMutexLocker lock(&s_mutex);
        return std::exchange(s_events, {});
    }
    static QStringList lines(const char *category) {
        QMutexLocker lock(&s_mutex);
        return s_lines.value(category);
    }

private:
    static QString field(const QString &message, const QString &key) {
        const QRegularExpression pattern(
            QStringLiteral("\"%1\"\\s*,\\s*\"((?:[^\"\\\\]|\\\\.)*)\"").arg(key));
        static const QRegularExpression escaped(QStringLiteral("\\\\(.)"));
        return pattern.match(message).captured(1).replace(escaped, QStringLiteral("\\1"));
    }
    static void record(QtMsgType, const QMessageLogContext &context, const QString &message) {
        static const QRegularExpression event(QStringLiteral("^event \"([^\"]*)\""));
        const QRegularExpressionMatch match = event.match(message);
        QMutexLocker lock(&s_mutex);
        if (qstrcmp(context.category, "vantrelo.analytics") == 0 && match.hasMatch())
            s_events.append({match.captured(1), field(message, QStringLiteral("event_action")),
                             field(message, QStringLiteral("event_label"))});
        else
            s_lines[context.category].append(message);
    }

    // Kept for the process: a thread may still be writing while the record goes.
    inline static QMutex s_mutex;
    inline static QList<Event> s_events;
    inline static QHash<QByteArray, QStringList> s_lines;
    QtMessageHandler m_previous = nullptr;
};
