#include "analytics/EventQueueFile.h"

#include "analytics/AnalyticsLogging.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Compaction rewrites the whole file, so it waits until enough of it is dead.
constexpr qsizetype kCompactAfterDeadLines = 2048;

QByteArray lineFor(const EventQueueFile::Entry &entry) {
    return QByteArray::number(entry.sequence) + '\t' + entry.event + '\n';
}

} // namespace

EventQueueFile::EventQueueFile(QString path, int capacity)
    : m_path(std::move(path))
    , m_capacity(std::max(1, capacity))
    , m_file(m_path) {}

QString EventQueueFile::headPath() const {
    return m_path + u".head"_s;
}

bool EventQueueFile::open() {
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    // A second instance of the program must neither send the first one's events again nor
    // interleave its lines with them.
    m_lock = std::make_unique<QLockFile>(m_path + u".lock"_s);
    if (!m_lock->tryLock(0)) {
        if (m_lock->error() == QLockFile::LockFailedError)
            qCWarning(lcAnalytics) << m_path << "is in use by another instance; queueing in memory";
        else
            qCWarning(lcAnalytics) << "cannot lock" << m_path << "; queueing in memory";
        m_lock.reset();
        return false;
    }
    loadHead();
    loadEntries();
    if (const int dropped = dropOverCapacity(); dropped > 0)
        qCWarning(lcAnalytics) << "analytics queue over its bound: dropped" << dropped
                               << "oldest events";
    // Start every run from a clean file: no dead lines, no half-written last line.
    compact();
    return m_writable;
}

void EventQueueFile::loadHead() {
    QFile file(headPath());
    if (!file.open(QIODevice::ReadOnly))
        return;
    bool ok = false;
    const quint64 head = file.read(32).trimmed().toULongLong(&ok);
    if (ok)
        m_head = head;
    else
        qCWarning(lcAnalytics) << "ignoring unreadable queue mark" << headPath();
}

void EventQueueFile::loadEntries() {
    m_nextSequence = m_head + 1;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    qsizetype skipped = 0;
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        if (!line.endsWith('\n')) {
            // Cut short by a crash while appending: that event never fully arrived.
            ++skipped;
            break;
        }
        line.chop(1);
        const qsizetype tab = line.indexOf('\t');
        bool ok = false;
        const quint64 sequence = tab > 0 ? line.left(tab).toULongLong(&ok) : 0;
        if (!ok || tab + 1 >= line.size()) {
            ++skipped;
            continue;
        }
        if (sequence < m_nextSequence)
            continue; // already sent or dropped
        m_entries.push_back({sequence, line.mid(tab + 1)});
        m_nextSequence = sequence + 1;
    }
    if (skipped > 0)
        qCWarning(lcAnalytics) << "skipped" << skipped << "damaged lines in" << m_path;
}

void EventQueueFile::close() {
    m_file.close();
    m_writable = false;
    m_lock.reset();
}

int EventQueueFile::append(const QList<QByteArray> &events) {
    if (events.isEmpty())
        return 0;
    QByteArray lines;
    for (const QByteArray &event : events) {
        Entry entry{m_nextSequence++, event};
        lines += lineFor(entry);
        m_entries.push_back(std::move(entry));
    }
    if (m_writable && (m_file.write(lines) != lines.size() || !m_file.flush())) {
        qCWarning(lcAnalytics) << "cannot append to" << m_path << m_file.errorString()
                               << "- keeping events in memory";
        m_writable = false;
    }
    const int dropped = dropOverCapacity();
    if (dropped > 0)
        qCWarning(lcAnalytics) << "analytics queue full: dropped" << dropped << "oldest events";
    return dropped;
}

QList<EventQueueFile::Entry> EventQueueFile::front(int count) const {
    QList<Entry> result;
    const auto end = m_entries.begin() + std::min<qsizetype>(count, size());
    for (auto it = m_entries.begin(); it != end; ++it)
        result.append(*it);
    return result;
}

void EventQueueFile::removeThrough(quint64 sequence) {
    qsizetype removed = 0;
    while (!m_entries.empty() && m_entries.front().sequence <= sequence) {
        m_entries.pop_front();
        ++removed;
    }
    if (sequence <= m_head)
        return;
    m_head = sequence;
    m_deadLines += removed;
    writeHead();
    if (m_deadLines >= kCompactAfterDeadLines && m_deadLines > size())
        compact();
}

int EventQueueFile::dropOverCapacity() {
    const qsizetype excess = size() - m_capacity;
    if (excess <= 0)
        return 0;
    removeThrough(m_entries[std::size_t(excess - 1)].sequence);
    return int(excess);
}

void EventQueueFile::writeHead() {
    if (!m_lock)
        return;
    QSaveFile file(headPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray::number(m_head) + '\n') < 0 ||
        !file.commit())
        qCWarning(lcAnalytics) << "cannot write" << headPath() << file.errorString();
}

void EventQueueFile::compact() {
    if (!m_lock)
        return;
    m_file.close();
    QSaveFile file(m_path);
    bool written = file.open(QIODevice::WriteOnly);
    for (auto it = m_entries.begin(); written && it != m_entries.end(); ++it)
        written = file.write(lineFor(*it)) >= 0;
    if (written && file.commit())
        m_deadLines = 0;
    else
        qCWarning(lcAnalytics) << "cannot rewrite" << m_path << file.errorString();
    openForAppend();
}

void EventQueueFile::openForAppend() {
    m_writable = m_file.open(QIODevice::WriteOnly | QIODevice::Append);
    if (!m_writable)
        qCWarning(lcAnalytics) << "cannot open" << m_path << m_file.errorString()
                               << "- keeping events in memory";
}
