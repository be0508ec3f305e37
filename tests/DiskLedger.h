#pragma once

// What a folder tree held before a queue ran, file by file, so that a test can say
// what the runs did to it: they may add their own outputs and sidecars, in their
// target folders only, and change or remove nothing. Also what the engine must show
// once every run has ended.

#include "engine/RemuxService.h"
#include "model/FilePath.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <QTest>

class DiskLedger {
public:
    DiskLedger(QString root, QStringList targets)
        : root_(std::move(root)), targets_(std::move(targets)), before_(contents()) {}

    // A file another program puts there while the queue runs. It creates it only
    // where the name is free, as a careful program does, and expects it kept.
    bool plant(const QString& path, const QByteArray& bytes) {
        QFile file(path);
        if (!file.open(QIODevice::NewOnly) || file.write(bytes) != bytes.size()) {
            return false;
        }
        before_.insert(path, QCryptographicHash::hash(bytes, QCryptographicHash::Sha1));
        return true;
    }
    // A file the test changes or deletes itself.
    void forget(const QString& path) { ignored_.insert(path); }

    // What is wrong on disk and, unless it is gone, in the engine; one line each.
    // Rows removed from the list still own what they wrote when they completed.
    QStringList problems(const RemuxService* service, const QList<RemuxItem>& removed = {}) const {
        QStringList found;
        const QHash<QString, QByteArray> now = contents();
        for (auto it = before_.begin(); it != before_.end(); ++it) {
            if (now.value(it.key(), "gone") != it.value() && !ignored_.contains(it.key())) {
                found << (now.contains(it.key()) ? QStringLiteral("changed: ")
                                                 : QStringLiteral("gone: ")) +
                             it.key();
            }
        }
        const QList<RemuxItem> items = service ? service->items() : QList<RemuxItem>();
        const QList<RemuxItem> owners = items + removed;
        for (const QString& path : now.keys()) {
            if (!before_.contains(path) && !ignored_.contains(path) &&
                std::none_of(owners.begin(), owners.end(),
                             [&](const RemuxItem& item) { return isOutputOf(item, path); })) {
                found << QStringLiteral("left behind: ") + path;
            }
        }
        if (service && (service->isRemuxing() || !service->activeTaskIds().isEmpty() ||
                        !service->inflightOutputs().isEmpty())) {
            found << QStringLiteral("the engine still holds a batch, a slot or a claim");
        }
        for (const RemuxItem& item : items) {
            const bool done = item.status == ProcessingStatus::completed;
            if ((done && QFileInfo(item.outputURL.value_or(QString())).size() == 0) ||
                (!done && item.status != ProcessingStatus::skipped && !readable(outcome(item)))) {
                found << QStringLiteral("unfinished or unexplained: ") + outcome(item);
            }
        }
        return found;
    }

    // Waits until every run, the cancelled ones still winding down included, and
    // every probe has ended.
    static bool settled(const RemuxService& service) {
        return QTest::qWaitFor(
            [&] { return !service.isRemuxing() && Async::BackgroundTask::liveCount() == 0; },
            60000);
    }

    // "Error: Cancelled", "Completed", "Skipped: Skipped — output file already exists".
    static QString outcome(const RemuxItem& item) {
        const std::optional<QString> text =
            item.status == ProcessingStatus::failed ? item.error : item.statusMessage;
        return rawValue(item.status) + (text ? QStringLiteral(": ") + *text : QString());
    }

    // A failure's sentence, not the tools' bookkeeping: words, no "key=value"
    // progress, no "Last message repeated", no "[component @ 0x…]", no control
    // characters. A pending or running item has none.
    static bool readable(const QString& text) {
        static const QRegularExpression sentence(QStringLiteral("^Error: .*\\p{L}{4,}"));
        static const QRegularExpression noise(QStringLiteral("=|repeated|@ 0x|\\p{Cc}"));
        return text.contains(sentence) && !text.contains(noise);
    }

private:
    // The output of a completed item, or one of its sidecars ("<source name>.….srt"
    // next to it), inside a target folder.
    bool isOutputOf(const RemuxItem& item, const QString& path) const {
        if (item.status != ProcessingStatus::completed || !item.outputURL ||
            !targets_.contains(FilePath::deletingLastPathComponent(path))) {
            return false;
        }
        const QString base = FilePath::deletingPathExtension(FilePath::lastPathComponent(item.url));
        const QString name = FilePath::lastPathComponent(path);
        return path == *item.outputURL ||
               (FilePath::deletingLastPathComponent(path) ==
                    FilePath::deletingLastPathComponent(*item.outputURL) &&
                name.startsWith(base + u'.') && name.endsWith(QStringLiteral(".srt")));
    }

    // Every file under the root by its content; links are not followed into folders,
    // and a file that can't be read counts as empty.
    QHash<QString, QByteArray> contents() const {
        QHash<QString, QByteArray> files;
        QDirIterator it(root_, QDir::Files | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            files.insert(file.fileName(),
                         file.open(QIODevice::ReadOnly)
                             ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1)
                             : QByteArray());
        }
        return files;
    }

    QString root_;
    QStringList targets_;
    QHash<QString, QByteArray> before_;
    QSet<QString> ignored_;
};
