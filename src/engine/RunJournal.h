#pragma once

// Where a program writes down the partial files of its runs while they live, so
// that the next start of either program (the window or the command line) can remove
// what a killed, crashed or powered-off process left. Each process has a journal of
// its own in $XDG_STATE_HOME/morvane/ and holds it locked for its whole life; the
// kernel lets go of the lock however the process ends, so a journal whose lock is
// free belongs to a process that is gone, and one that is held is never touched.

#include <QString>
#include <QStringList>

class RunJournal final {
public:
    RunJournal() = default;
    // With no partial file left, the journal goes; otherwise it stays for the next
    // start to clean up after.
    ~RunJournal();
    RunJournal(const RunJournal&) = delete;
    RunJournal& operator=(const RunJournal&) = delete;

    // Notes a partial file that a run has created, and that it has gone (deleted or
    // given its final name). The journal is made at the first note.
    void add(const QString& partial);
    void remove(const QString& partial);

    // The journals' folder: $XDG_STATE_HOME/morvane, or ~/.local/state/morvane.
    static QString folder();
    // Removes each partial file that a journal of an ended process lists, and that
    // journal; logs every file it removes and gives their paths.
    static QStringList removeAbandoned();

private:
    void append(QChar mark, const QString& partial);

    int fd_ = -1;
    QString path_;
    int live_ = 0;
};
