#pragma once

// One file of the queue: what the user sees as a row, and the record the queue
// engine updates as the file moves along. A plain value; only the engine changes it.

#include "MediaInfo.h"
#include "ProcessingStatus.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

struct RemuxItem {
    QUuid id = QUuid::createUuid();
    // The source file, as an absolute local path.
    QString url;
    ProcessingStatus status = ProcessingStatus::pending;
    double progress = 0;
    std::optional<QString> outputURL;
    std::optional<QString> error;
    // What the tool said when it failed: its last lines, for a tooltip or a copy.
    // The row's own text stays `error`.
    std::optional<QString> errorDetails;
    std::optional<QString> statusMessage;
    // The output's name depends on it; until the probe fills it the output is an MP4.
    std::optional<MediaInfo> cachedMediaInfo;

    RemuxItem() = default;
    explicit RemuxItem(QString sourceURL) : url(std::move(sourceURL)) {}

    // "mov" for MJPEG and ProRes, "mp4" for everything else.
    QString outputExtension() const;
    // The output's file name, without a folder. The ".morvane." infix keeps it from
    // ever equalling the source's name.
    QString outputFilename() const;

    // The container extensions the queue accepts, lower-case.
    static const QSet<QString>& supportedExtensions();
    // "AVI · M2TS · M4V · …": the accepted extensions, sorted and upper-cased.
    static const QString& supportedFormatsLabel();

    bool operator==(const RemuxItem&) const = default;
};

// How many items of a queue ended which way.
struct BatchTally {
    int converted = 0;
    int skipped = 0;
    int failed = 0;

    int finished() const { return converted + skipped + failed; }
    // "3 converted, 1 skipped, 2 failed", counts of 0 left out; empty when all are 0.
    QStringList parts() const;
};
BatchTally tally(const QList<RemuxItem>& items);
