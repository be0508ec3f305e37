#include "CliSession.h"

#include "async/Blocking.h"
#include "model/FilePath.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool isFinal(ProcessingStatus status) {
    return status == ProcessingStatus::completed || status == ProcessingStatus::failed ||
           status == ProcessingStatus::skipped;
}

} // namespace

CliSession::CliSession(Options options)
    : options_(std::move(options)), service_(std::make_unique<RemuxService>()) {
    service_->setCustomOutputDirectory(options_.outputDirectory);
    service_->setPostsNotification(options_.notify);
    progressOnTerminal_ = !options_.json && ::isatty(STDOUT_FILENO);

    // Ctrl-C, kill or a closed terminal: every run cancelled, its files removed.
    connect(&signals_, &TerminationSignals::received, this, &CliSession::interrupt);
}

CliSession::~CliSession() = default;

void CliSession::emitEvent(const QJsonObject& event) const {
    std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

QJsonObject CliSession::itemEvent(const QString& name, const RemuxItem& item) const {
    QJsonObject event{{u"event"_s, name},
                      {u"id"_s, item.id.toString(QUuid::WithoutBraces)},
                      {u"path"_s, item.url},
                      {u"status"_s, rawValue(item.status)}};
    if (item.outputURL) {
        event.insert(u"output"_s, *item.outputURL);
    }
    if (item.error) {
        event.insert(u"error"_s, *item.error);
    }
    if (item.statusMessage) {
        event.insert(u"statusMessage"_s, *item.statusMessage);
    }
    if (name == u"done" && item.status == ProcessingStatus::failed && item.errorDetails) {
        event.insert(u"details"_s, *item.errorDetails);
    }
    return event;
}

// "Completed  Clip.mkv  Clip.mp4": the status word, the file, then the output name,
// the note or the error.
void CliSession::reportLine(const RemuxItem& item) const {
    QString detail;
    if (item.status == ProcessingStatus::failed) {
        detail = item.error.value_or(QString());
    } else if (item.status == ProcessingStatus::skipped) {
        detail = item.statusMessage.value_or(QString());
    } else {
        const QString output = item.outputURL.value_or(service_->outputURL(item));
        detail = u"→ "_s + FilePath::lastPathComponent(output);
        if (item.statusMessage) {
            detail += u" ("_s + *item.statusMessage + u')';
        }
    }
    if (progressOnTerminal_) {
        std::printf("\r\033[K");
    }
    std::printf("%-9s  %s  %s\n", qUtf8Printable(rawValue(item.status)),
                qUtf8Printable(FilePath::lastPathComponent(item.url)), qUtf8Printable(detail));
    // What the tool said, under the line it explains.
    if (item.status == ProcessingStatus::failed && item.errorDetails) {
        for (const QString& line : item.errorDetails->split(u'\n', Qt::SkipEmptyParts)) {
            std::printf("    %s\n", qUtf8Printable(line));
        }
    }
    std::fflush(stdout);
}

void CliSession::reportDone(const RemuxItem& item) {
    if (reported_.contains(item.id)) {
        return;
    }
    reported_.insert(item.id);
    if (options_.json) {
        emitEvent(itemEvent(u"done"_s, item));
    } else {
        reportLine(item);
    }
}

// One line for the running items, redrawn in place.
void CliSession::drawProgress() const {
    QStringList parts;
    for (const RemuxItem& item : service_->items()) {
        if (item.status == ProcessingStatus::processing) {
            parts.append(FilePath::lastPathComponent(item.url) + u' ' +
                         QString::number(int(item.progress * 100)) + u'%');
        }
    }
    std::printf("\r\033[K%s", qUtf8Printable(parts.join(u"   "_s)));
    std::fflush(stdout);
}

bool CliSession::settledEarly() const {
    for (const RemuxItem& item : service_->items()) {
        if (item.status == ProcessingStatus::pending && !item.cachedMediaInfo) {
            return false;
        }
    }
    return true;
}

void CliSession::interrupt() {
    interrupted_ = true;
    // A second signal while the engine winds down changes nothing: it is already
    // cancelled, and the wait goes on.
    service_->cancelAll();
}

int CliSession::run(const QStringList& paths) {
    try {
        FFmpegService::verifyTools();
    } catch (const FFmpegError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return usageExit;
    }

    connect(service_.get(), &RemuxService::itemsInserted, this,
            [this](qsizetype first, qsizetype last) {
                if (options_.json) {
                    for (qsizetype i = first; i <= last; ++i) {
                        emitEvent(itemEvent(u"added"_s, service_->items().at(i)));
                    }
                }
            });
    service_->addFiles(paths, 0);
    const std::optional<QString> feedback = service_->dropFeedbackMessage();
    if (feedback) {
        if (options_.json) {
            emitEvent({{u"event"_s, u"feedback"_s}, {u"message"_s, *feedback}});
        } else {
            std::fprintf(stderr, "%s\n", qUtf8Printable(*feedback));
        }
    }

    QEventLoop loop;
    const auto quitWhen = [&](auto condition) {
        const QMetaObject::Connection changed =
            connect(service_.get(), &RemuxService::itemChanged, &loop, [&] {
                if (condition()) {
                    loop.quit();
                }
            });
        const QMetaObject::Connection stopped =
            connect(&signals_, &TerminationSignals::received, &loop, &QEventLoop::quit,
                    Qt::QueuedConnection);
        if (!condition() && !interrupted_) {
            loop.exec();
        }
        disconnect(changed);
        disconnect(stopped);
    };

    // The early stage: every new item probed and judged.
    quitWhen([this] { return settledEarly(); });
    for (const RemuxItem& item : service_->items()) {
        if (options_.json) {
            emitEvent(itemEvent(u"verdict"_s, item));
        }
        if (isFinal(item.status)) {
            reportDone(item);
        } else if (!options_.json) {
            reportLine(item);
        }
    }
    if (options_.dryRun || interrupted_) {
        return finish(feedback.has_value());
    }

    connect(service_.get(), &RemuxService::itemChanged, this, [this](const QUuid& id) {
        const std::optional<RemuxItem> item = service_->item(id);
        if (!item) {
            return;
        }
        if (isFinal(item->status)) {
            reportDone(*item);
        } else if (item->status == ProcessingStatus::processing &&
                   lastProgress_.value(id, -1) != item->progress) {
            lastProgress_.insert(id, item->progress);
            if (options_.json) {
                QJsonObject event = itemEvent(u"progress"_s, *item);
                event.insert(u"progress"_s, item->progress);
                emitEvent(event);
            } else if (progressOnTerminal_) {
                drawProgress();
            }
        }
    });
    service_->startBatch();
    const QMetaObject::Connection ended =
        connect(service_.get(), &RemuxService::isRemuxingChanged, &loop, [&](bool remuxing) {
            if (!remuxing) {
                loop.quit();
            }
        });
    if (service_->isRemuxing()) {
        loop.exec();
    }
    disconnect(ended);
    return finish(feedback.has_value());
}

int CliSession::finish(bool rejectedPaths) {
    const BatchTally counts = tally(service_->items());
    if (interrupted_) {
        // Every run is cancelled and waited for until it has deleted what it wrote;
        // only then does the process go. The engine stays whole meanwhile: a change
        // that arrives during the wait still finds it.
        service_->shutDown();
        if (!options_.json) {
            std::fprintf(stderr, "\nInterrupted: partial files removed\n");
        }
        return interruptedExit;
    }
    if (options_.json) {
        emitEvent({{u"event"_s, u"batch"_s},
                   {u"converted"_s, counts.converted},
                   {u"skipped"_s, counts.skipped},
                   {u"failed"_s, counts.failed}});
    } else {
        QStringList parts = counts.parts();
        if (options_.dryRun) {
            const int pending = int(service_->items().size()) - counts.finished();
            parts.prepend(u"%1 to convert"_s.arg(pending));
        }
        std::printf("%s\n",
                    qUtf8Printable(parts.isEmpty() ? u"Nothing to do"_s : parts.join(u", "_s)));
    }
    // Let a notification that is on its way reach the bus before the process goes.
    Async::waitFor(service_->notifier().finishPosting());
    service_->shutDown();
    return (counts.failed > 0 || rejectedPaths) ? failureExit : successExit;
}
