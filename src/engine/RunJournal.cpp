#include "RunJournal.h"

#include "Logging.h"
#include "tools/PartialFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QUuid>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// The journal is a list of records, "+path" when a partial file is made and "-path"
// when it is gone, each ended by a NUL (a file name may hold a line feed). Appended
// only, so a process that dies mid-write leaves at worst a last record cut short;
// emptied whenever no partial file is left, so it stays small.

namespace {

const QString journalExtension = u".journal"_s;

QStringList livePaths(const QByteArray& records) {
    QStringList live;
    for (const QByteArray& record : records.split('\0')) {
        if (record.size() < 2) {
            continue;
        }
        const QString path = QFile::decodeName(record.mid(1));
        if (record.front() == '+') {
            live.append(path);
        } else if (record.front() == '-') {
            live.removeOne(path);
        }
    }
    return live;
}

} // namespace

QString RunJournal::folder() {
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(state)) {
        state = QDir::homePath() + u"/.local/state"_s;
    }
    return state + u"/morvane"_s;
}

RunJournal::~RunJournal() {
    if (fd_ < 0) {
        return;
    }
    if (live_ == 0) {
        ::unlink(QFile::encodeName(path_).constData());
    }
    ::close(fd_);
}

void RunJournal::add(const QString& partial) {
    if (fd_ < 0) {
        QDir().mkpath(folder());
        // Made under another name and locked before it is a journal: a start that
        // cleans up meanwhile must never find it unlocked.
        const QString name = QCoreApplication::applicationName() + u'.' +
                             QUuid::createUuid().toString(QUuid::Id128).left(12);
        const QString making = folder() + u'/' + name + u".new"_s;
        fd_ = ::open(QFile::encodeName(making).constData(),
                     O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600);
        if (fd_ < 0 || ::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            qCWarning(lcRemuxService, "No journal for partial files in %s",
                      qUtf8Printable(folder()));
            if (fd_ >= 0) {
                ::close(fd_);
                fd_ = -1;
            }
            return;
        }
        path_ = folder() + u'/' + name + journalExtension;
        ::rename(QFile::encodeName(making).constData(), QFile::encodeName(path_).constData());
    }
    ++live_;
    append(u'+', partial);
}

void RunJournal::remove(const QString& partial) {
    if (fd_ < 0) {
        return;
    }
    if (--live_ <= 0) {
        live_ = 0;
        [[maybe_unused]] const int emptied = ::ftruncate(fd_, 0);
        return;
    }
    append(u'-', partial);
}

void RunJournal::append(QChar mark, const QString& partial) {
    const QByteArray record =
        QByteArray(1, char(mark.unicode())) + QFile::encodeName(partial) + '\0';
    [[maybe_unused]] const ssize_t written = ::write(fd_, record.constData(), record.size());
}

QStringList RunJournal::removeAbandoned() {
    QStringList removed;
    const QDir journals(folder());
    for (const QString& name : journals.entryList({u"*"_s + journalExtension}, QDir::Files)) {
        const QByteArray path = QFile::encodeName(journals.filePath(name));
        const int fd = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        // A held lock is a live process's: its files are its own to keep or delete.
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(fd);
            continue;
        }
        QFile journal;
        journal.open(fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle);
        for (const QString& partial : livePaths(journal.readAll())) {
            // Only what a run made: a damaged journal must never cost a user's file.
            struct stat file {};
            const QByteArray encoded = QFile::encodeName(partial);
            if (!PartialFile::isPartial(partial) || ::lstat(encoded.constData(), &file) != 0 ||
                !S_ISREG(file.st_mode)) {
                continue;
            }
            if (::unlink(encoded.constData()) == 0) {
                qCWarning(lcRemuxService,
                          "Removed %s, left half-written by a run that ended "
                          "with its program",
                          qUtf8Printable(partial));
                removed.append(partial);
            }
        }
        ::unlink(path.constData());
        ::close(fd);
    }
    return removed;
}
