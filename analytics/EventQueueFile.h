#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QLockFile>
#include <QString>

#include <deque>
#include <memory>

// Events waiting for upload, kept in a file so that none is lost when the program ends or the
// network is down. The file holds one "<sequence>\t<event JSON>" line per event, appended as
// events arrive; "<file>.head" holds the last sequence number that was sent or dropped.
// Removing events only moves that mark, so a batch costs one tiny write; the dead lines are
// compacted away now and then.
class EventQueueFile {
public:
    struct Entry {
        quint64 sequence = 0;
        QByteArray event;
    };

    EventQueueFile(QString path, int capacity);

    // Loads what an earlier run left behind. Returns false when the file cannot be written or
    // another running instance holds it; the queue then still works, in memory only.
    bool open();
    // Lets another instance take the file over; the queue keeps working in memory.
    void close();
    // Appends the events and returns how many of the oldest were dropped to stay within capacity.
    int append(const QList<QByteArray> &events);
    // Up to count entries from the oldest.
    QList<Entry> front(int count) const;
    // Forgets every entry up to and including sequence.
    void removeThrough(quint64 sequence);

    qsizetype size() const { return qsizetype(m_entries.size()); }
    bool isEmpty() const { return m_entries.empty(); }
    QString path() const { return m_path; }

private:
    QString headPath() const;
    void loadHead();
    void loadEntries();
    void writeHead();
    void compact();
    void openForAppend();
    int dropOverCapacity();

    QString m_path;
    int m_capacity;
    std::deque<Entry> m_entries;
    QFile m_file;
    std::unique_ptr<QLockFile> m_lock;
    quint64 m_head = 0;
    quint64 m_nextSequence = 1;
    qsizetype m_deadLines = 0;
    bool m_writable = false;
};
