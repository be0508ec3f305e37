// The road of one file: the early probe and verdict after adding, and the run
// that a batch starts for it. Both decide with the same rules. Every step finds its
// item again by id: the list may change at each suspension.

#include "Logging.h"
#include "RemuxService.h"
#include "async/TaskGroup.h"
#include "model/FilePath.h"
#include "tools/PartialFile.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr int maxConcurrentProbes = 4;

const QString outputExistsText = u"Skipped — output file already exists"_s;
const QString outputUnreadableText =
    u"The converted file can't be read — the source may be cut short or damaged."_s;

// The verdict of the rejection order, plus the rule that an existing output is
// never overwritten.
std::optional<Rejection> verdictFor(const MediaInfo& info, const QString& url,
                                    const QString& output) {
    if (std::optional<Rejection> rejection = rejectionFor(info, FilePath::pathExtension(url))) {
        return rejection;
    }
    if (FFmpegService::nameTaken(output)) {
        return Rejection{ProcessingStatus::skipped, outputExistsText};
    }
    return std::nullopt;
}

bool isCancellation(const FFmpegError& error) {
    return error.kind() == FFmpegError::Case::cancelled;
}

std::optional<QString> detailsOf(const FFmpegError& error) {
    return error.details().isEmpty() ? std::nullopt : std::optional(error.details());
}

} // namespace

QString RemuxService::outputURL(const RemuxItem& item) const {
    const QString folder =
        customOutputDirectory_.value_or(FilePath::deletingLastPathComponent(item.url));
    return FilePath::appendingPathComponent(folder, item.outputFilename());
}

void RemuxService::deleteCreatedOutputs(const QStringList& urls) {
    for (const QString& url : urls) {
        QFile::remove(url);
        if (PartialFile::isPartial(url)) {
            journal_.remove(url);
        }
    }
}

std::optional<QString> RemuxService::claimPartial(const QString& finalPath, QString* error) {
    std::optional<QString> partial = PartialFile::create(finalPath, error);
    if (partial) {
        journal_.add(*partial);
    }
    return partial;
}

void RemuxService::releaseClaims(const QStringList& urls) {
    bool changed = false;
    for (const QString& url : urls) {
        changed |= inflightOutputs_.remove(url);
    }
    if (changed) {
        Q_EMIT inflightOutputsChanged();
    }
}

void RemuxService::probeItems(const QList<QUuid>& ids) {
    if (shuttingDown_) {
        return;
    }
    QList<std::pair<QUuid, QString>> pairs;
    for (const QUuid& id : ids) {
        if (const std::optional<RemuxItem> found = item(id)) {
            pairs.append({id, found->url});
        }
    }
    if (pairs.isEmpty()) {
        return;
    }
    own(Async::start(&RemuxService::probeAll, this, pairs));
}

QCoro::Task<> RemuxService::probeAll(QList<std::pair<QUuid, QString>> pairs, std::stop_token stop) {
    Async::TaskGroup probes(stop);
    for (const auto& [id, url] : pairs) {
        co_await probes.waitUntilFewerThan(maxConcurrentProbes);
        if (stop.stop_requested()) {
            break; // the engine is going away
        }
        probes.start(&RemuxService::preflightItem, this, id, url);
    }
    co_await probes.waitForAll();
}

QCoro::Task<> RemuxService::preflightItem(QUuid id, QString url, std::stop_token stop) {
    const std::optional<RemuxItem> before = item(id);
    if (!before || before->status != ProcessingStatus::pending) {
        co_return;
    }
    std::optional<MediaInfo> info;
    std::optional<FFmpegError> failure;
    try {
        info = co_await FFmpegService::probe(url, stop);
    } catch (const FFmpegError& error) {
        failure = error;
    }
    // The run may have started meanwhile, or the user removed or cancelled the item.
    const std::optional<RemuxItem> after = item(id);
    if (!after || after->status != ProcessingStatus::pending) {
        co_return;
    }
    if (failure) {
        updateItem(id, [&](RemuxItem& item) {
            item.status = ProcessingStatus::failed;
            item.error = FFmpegService::friendlyMessage(*failure);
            item.errorDetails = detailsOf(*failure);
        });
        co_return;
    }
    updateItem(id, [&](RemuxItem& item) { item.cachedMediaInfo = info; });
    const std::optional<RemuxItem> probed = item(id);
    if (const std::optional<Rejection> verdict = verdictFor(*info, url, outputURL(*probed))) {
        updateItem(id, [&](RemuxItem& item) {
            item.status = verdict->status;
            (verdict->status == ProcessingStatus::failed ? item.error : item.statusMessage) =
                verdict->text;
        });
    }
}

QCoro::Task<MediaInfo> RemuxService::resolveMediaInfo(QUuid id, QString url,
                                                      std::optional<MediaInfo> cachedInfo,
                                                      std::stop_token stop) {
    if (cachedInfo) {
        co_return *cachedInfo;
    }
    MediaInfo info = co_await FFmpegService::probe(url, stop);
    updateItem(id, [&](RemuxItem& item) { item.cachedMediaInfo = info; });
    co_return info;
}

// ffmpeg can end with status 0 and leave a file that does not play: a source cut
// off after its header gives an output without a single frame. One probe of the
// output's header tells; it never reads the file through. What fails it throws, so
// that the run ends as any failed run does; a cancellation is a cancellation.
QCoro::Task<OutputCheck> RemuxService::checkWrittenOutput(MediaInfo source, QString output,
                                                          QString remuxLines,
                                                          std::stop_token stop) {
    std::optional<MediaInfo> written;
    try {
        written = co_await FFmpegService::probe(output, stop);
    } catch (const FFmpegError& error) {
        const FFmpegError::Case kind = error.kind();
        if (kind == FFmpegError::Case::cancelled || kind == FFmpegError::Case::ffprobeNotFound) {
            throw;
        }
        throw FFmpegError::remuxFailed(outputUnreadableText)
            .withDetails(error.details().isEmpty() ? remuxLines : error.details());
    }
    OutputCheck check = checkOutput(source, *written);
    if (check.failure) {
        throw FFmpegError::remuxFailed(*check.failure).withDetails(remuxLines);
    }
    co_return check;
}

QCoro::Task<> RemuxService::processItem(QUuid id, QString url, std::optional<MediaInfo> cachedInfo,
                                        std::stop_token stop) {
    QStringList claimedOutputs;
    QStringList createdOutputs;
    int failedSubtitleCount = 0;
    std::optional<FFmpegError> failure;

    try {
        const MediaInfo info = co_await resolveMediaInfo(id, url, cachedInfo, stop);
        const QString extension = FilePath::pathExtension(url);

        if (const std::optional<Rejection> rejection = rejectionFor(info, extension)) {
            if (rejection->status == ProcessingStatus::failed) {
                throw FFmpegError::remuxFailed(rejection->text);
            }
            updateItem(id, [&](RemuxItem& item) {
                item.status = ProcessingStatus::skipped;
                item.statusMessage = rejection->text;
            });
            co_return;
        }

        const std::optional<RemuxItem> current = item(id);
        if (!current) {
            co_return;
        }
        const QString output = outputURL(*current);
        const QString outputFolder = FilePath::deletingLastPathComponent(output);
        // From the tests to the claims nothing suspends, so no other run can come
        // between them.
        if (inflightOutputs_.contains(output)) {
            updateItem(id, [&](RemuxItem& item) {
                item.status = ProcessingStatus::failed;
                item.error = u"Output path collision with another queued file: "_s +
                             FilePath::lastPathComponent(output);
            });
            co_return;
        }
        // An existing output is never overwritten, and the name may have been taken
        // since the early verdict.
        if (FFmpegService::nameTaken(output)) {
            updateItem(id, [&](RemuxItem& item) {
                item.status = ProcessingStatus::skipped;
                item.statusMessage = outputExistsText;
            });
            co_return;
        }
        // The run writes under a partial name, claimed on disk; the output takes its
        // final name only once it has been checked. Creating fails on a folder that
        // can't be written, where ffmpeg would fail the same way.
        QString claimError;
        const std::optional<QString> partial = claimPartial(output, &claimError);
        if (!partial) {
            throw FFmpegError::remuxFailed(output + u": "_s + claimError);
        }
        createdOutputs = {*partial};
        inflightOutputs_.insert(output);
        claimedOutputs = {output};
        Q_EMIT inflightOutputsChanged();
        updateItem(id, [&](RemuxItem& item) { item.outputURL = output; });

        // Each sidecar is written under a partial name of its own. `plans` holds the
        // final names, `partialPlans` the same streams into their partial files.
        QList<FFmpegService::SubtitleExtractionPlan> plans;
        QList<FFmpegService::SubtitleExtractionPlan> partialPlans;
        int unclaimed = 0;
        if (info.hasTextSubtitles()) {
            for (const FFmpegService::SubtitleExtractionPlan& plan :
                 FFmpegService::planSubtitleExtraction(url, info.subtitleStreams, outputFolder,
                                                       inflightOutputs_)) {
                const std::optional<QString> sidecar = claimPartial(plan.url, &claimError);
                if (!sidecar) {
                    ++unclaimed;
                    continue;
                }
                plans.append(plan);
                partialPlans.append({plan.streamIndex, *sidecar});
                inflightOutputs_.insert(plan.url);
                claimedOutputs.append(plan.url);
            }
            Q_EMIT inflightOutputsChanged();
        }
        const auto existingSidecars = [&partialPlans] {
            QStringList existing;
            for (const FFmpegService::SubtitleExtractionPlan& plan : partialPlans) {
                if (QFileInfo::exists(plan.url)) {
                    existing.append(plan.url);
                }
            }
            return existing;
        };
        createdOutputs = existingSidecars() + QStringList{*partial};

        auto throttle = std::make_shared<ProgressThrottle>();
        FFmpegService::ProgressCallback progress = [this, id, throttle](double fraction) {
            forwardProgress(fraction, id, *throttle);
        };
        // One run writes the output and every sidecar, so the source is read once.
        std::optional<QString> remuxLines;
        try {
            remuxLines =
                co_await FFmpegService::remux(url, *partial, info, progress, stop, partialPlans);
        } catch (const FFmpegError& error) {
            if (partialPlans.isEmpty() || error.kind() != FFmpegError::Case::remuxFailed) {
                throw;
            }
            qCWarning(lcRemuxService, "One run for %s and its subtitles failed, trying two: %s",
                      qUtf8Printable(FilePath::lastPathComponent(url)), error.what());
        }
        int missing = 0;
        if (remuxLines) {
            // After a run that wrote every sidecar, an empty one is a stream without
            // cues and stays.
            missing = int(partialPlans.size() - existingSidecars().size());
        } else {
            // A sidecar ffmpeg could not write fails the whole run. What it wrote is
            // emptied, the claims kept, and the sidecars and the video are made in
            // runs of their own, so that the video converts even then.
            for (const QString& written : createdOutputs) {
                QFile::resize(written, 0);
            }
            try {
                missing = co_await FFmpegService::extractSubtitles(url, partialPlans, stop);
            } catch (const FFmpegError& error) {
                const FFmpegError::Case kind = error.kind();
                if (kind == FFmpegError::Case::cancelled ||
                    kind == FFmpegError::Case::ffmpegNotFound ||
                    kind == FFmpegError::Case::ffprobeNotFound) {
                    throw;
                }
                qCCritical(lcRemuxService, "Subtitle extraction failed for %s: %s",
                           qUtf8Printable(FilePath::lastPathComponent(url)), error.what());
                missing = int(partialPlans.size());
            }
            // A claim ffmpeg did not write is left empty.
            if (missing > 0) {
                for (const FFmpegService::SubtitleExtractionPlan& plan : partialPlans) {
                    if (QFileInfo(plan.url).size() == 0) {
                        deleteCreatedOutputs({plan.url});
                    }
                }
            }
            createdOutputs = existingSidecars() + QStringList{*partial};
            remuxLines = co_await FFmpegService::remux(url, *partial, info, progress, stop);
        }
        failedSubtitleCount = unclaimed + missing;
        // What a cancel that the run meets from here on leaves: nothing.
        const auto dropEverything = [&] {
            deleteCreatedOutputs(createdOutputs);
            releaseClaims(claimedOutputs);
        };

        // ffmpeg may finish with status 0 after a cancellation; its output goes.
        if (stop.stop_requested()) {
            dropEverything();
            co_return;
        }
        const OutputCheck check = co_await checkWrittenOutput(info, *partial, *remuxLines, stop);
        // A cancel that came as the check ended still wins: whoever cancelled has set
        // the row, and the output goes.
        if (stop.stop_requested()) {
            dropEverything();
            co_return;
        }
        // The files reach the disk before their names appear, or a power cut could
        // leave a final name over an empty file. The slot is free meanwhile: the next
        // item starts while this one's data is written out.
        releaseSlot(id, stop);
        // Named, not a temporary: GCC 12 destroys a lambda temporary of a co_await
        // expression twice, and this one shares its list with createdOutputs.
        const std::function<void()> syncFiles = [files = createdOutputs] {
            for (const QString& file : files) {
                PartialFile::syncData(file);
            }
        };
        co_await Async::runOffThread(syncFiles);
        if (stop.stop_requested()) {
            dropEverything();
            co_return;
        }
        // The sidecars first, the output last: an output under its final name means
        // that all of the item is in place.
        QStringList placed;
        std::optional<QString> finalOutput;
        for (qsizetype i = 0; i <= partialPlans.size(); ++i) {
            const bool isOutput = i == partialPlans.size();
            const QString from = isOutput ? *partial : partialPlans.at(i).url;
            const QString to = isOutput ? output : plans.at(i).url;
            if (!isOutput && !QFileInfo::exists(from)) {
                continue;
            }
            QString error;
            const std::optional<QString> name =
                PartialFile::putInPlace(from, to, inflightOutputs_, &error);
            if (!name) {
                deleteCreatedOutputs(placed);
                throw FFmpegError::remuxFailed(to + u": "_s + error);
            }
            journal_.remove(from);
            createdOutputs.removeOne(from);
            placed.append(*name);
            if (*name != to) {
                qCWarning(lcRemuxService, "%s was taken while the run wrote it; written as %s",
                          qUtf8Printable(to), qUtf8Printable(*name));
            }
            if (isOutput) {
                finalOutput = name;
            }
        }
        QStringList notes;
        if (failedSubtitleCount >= 1) {
            notes.append(u"%1 subtitle track%2 failed to extract"_s.arg(
                QString::number(failedSubtitleCount),
                failedSubtitleCount == 1 ? QString() : u"s"_s));
        }
        notes += check.notes;
        updateItem(id, [&](RemuxItem& item) {
            item.status = ProcessingStatus::completed;
            item.outputURL = finalOutput;
            if (!notes.isEmpty()) {
                item.statusMessage = notes.join(u" · "_s);
            }
        });
        releaseClaims(claimedOutputs);
        const std::function<void()> syncFolder = [outputFolder] {
            PartialFile::syncFolder(outputFolder);
        };
        co_await Async::runOffThread(syncFolder);
        co_return;
    } catch (const FFmpegError& error) {
        failure = error;
    } catch (const std::exception& error) {
        // Not the tool layer's, but a failure all the same: the run must still end.
        failure = FFmpegError::remuxFailed(QString::fromUtf8(error.what()));
    }

    // The end of a failed or cancelled run: what it wrote goes, whoever cancelled
    // it has already set what the user sees.
    deleteCreatedOutputs(createdOutputs);
    if (!isCancellation(*failure)) {
        updateItem(id, [&](RemuxItem& item) {
            item.status = ProcessingStatus::failed;
            item.error = FFmpegService::friendlyMessage(*failure);
            item.errorDetails = detailsOf(*failure);
        });
    }
    releaseClaims(claimedOutputs);
}
