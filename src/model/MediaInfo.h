#pragma once

// What ffprobe said about one file, and the rules that decide from it whether the
// file can be remuxed, needs no remux, or is rejected. The rules are pure: they
// start no process and touch no file, except the one-time AV1 hardware query.

#include "ProcessingStatus.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

struct SubtitleStream {
    // The stream's index in the whole file, as command lines address it ("0:<index>").
    int index = 0;
    QString codec = QStringLiteral("unknown");
    std::optional<QString> language;

    bool operator==(const SubtitleStream&) const = default;
};

struct MediaInfo {
    double duration = 0;
    bool hasVideoStream = false;
    QString videoCodec = QStringLiteral("unknown");
    std::optional<QString> audioCodec;
    std::optional<int> audioChannels;
    QList<SubtitleStream> subtitleStreams;
    std::optional<QString> pixFmt;
    std::optional<QString> videoCodecTag;
    // Of the first video stream alone: a container lasts as long as its longest stream.
    std::optional<double> videoDuration;
    std::optional<qint64> videoFrameCount;
    // ffprobe's name of the container, such as "matroska,webm" or "mpegts".
    std::optional<QString> formatName;

    // Why the video codec can't be remuxed for QuickTime; absent when it can.
    std::optional<QString> unsupportedReason() const;
    bool isHighBitDepthH264() const;
    // True when a remux would change nothing worth having. Takes the source's
    // extension without its dot, in any case.
    bool isAlreadyCompatible(const QString& containerExtension) const;
    bool hasTextSubtitles() const;

    bool operator==(const MediaInfo&) const = default;
};

// The vocabulary of formats. Entries are lower-case; every comparison lower-cases
// the value it tests.
const QSet<QString>& quickTimeVideoCodecs();
const QSet<QString>& quickTimeAudioCodecs();
const QStringList& textSubtitleCodecs();
const QStringList& compatibleContainers();

bool isTextSubtitleCodec(const QString& codec);
bool isQuickTimeAudioCodec(const QString& codec);

// Whether this machine decodes AV1 in hardware. Asked of the hardware test once,
// the first time an AV1 file needs the answer, and kept until the process exits.
bool supportsHardwareAV1();

// The hardware test: takes a codec's FourCC and says whether it decodes in hardware.
// On Linux the destination device, not this machine, decides playback, so the
// default answers true.
using HardwareDecodeTest = std::function<bool(quint32 fourCC)>;
inline constexpr quint32 av1FourCC = 0x61763031; // 'av01'

namespace MediaInfoTesting {
// Replaces the hardware test and forgets the kept answer.
void setHardwareDecodeTest(HardwareDecodeTest test);
} // namespace MediaInfoTesting

// The first rule of the rejection order that holds for a file, as the status and
// text it gives the item; absent when the file goes on to be remuxed. Both the early
// check after adding and the run itself decide through this one function.
struct Rejection {
    ProcessingStatus status;
    QString text;

    bool operator==(const Rejection&) const = default;
};
std::optional<Rejection> rejectionFor(const MediaInfo& info, const QString& containerExtension);

// What a finished output says about the run that wrote it, judged against what the
// source promised. A failure means the output does not play and must go; notes
// name what a playable output lost. Nothing that plays is ever a failure here.
struct OutputCheck {
    std::optional<QString> failure;
    QStringList notes;

    bool operator==(const OutputCheck&) const = default;
};
OutputCheck checkOutput(const MediaInfo& source, const MediaInfo& output);
// "0:04", "1:12:05"; under a minute with tenths, "0:00.4", so a short clip's loss shows.
QString formatPlayingTime(double seconds);
