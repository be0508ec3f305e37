#pragma once

// Helpers shared by the tests: where the media is, and how to run a coroutine to
// its end from a test function and see whether it returned or threw.

#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <optional>

namespace TestSupport {

inline QString mediaPath(const QString& name) {
    return QStringLiteral(MORVANE_TEST_MEDIA_DIR "/") + name;
}

inline QString corpusPath(const QString& name) {
    return QStringLiteral(MORVANE_CORPUS_DIR "/") + name;
}

inline bool corpusAvailable() {
    return QDir(QStringLiteral(MORVANE_CORPUS_DIR)).exists();
}

// Copies a file into `dir` under `name` (the original's name when empty); the
// shared media is never written next to.
inline QString copyInto(const QTemporaryDir& dir, const QString& source, const QString& name = {}) {
    const QString target = dir.filePath(name.isEmpty() ? QFileInfo(source).fileName() : name);
    QFile::copy(source, target);
    QFile(target).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    return target;
}

// Installs `script` as a stand-in for the tool `name` ("ffmpeg" or "ffprobe") in a
// new shared-support folder under `dir`, and points the tool layer there. Gives the
// folder that holds the tool, where the script may keep files of its own. A real
// MP4 stands there as "sample.mp4", for a fake ffmpeg to give as a finished output.
// The script finds the run's video output (an .mp4 or .mov not read with -i, or
// the partial file of one) in $out, empty for a run that writes only sidecars, and
// the name the output will have in $final. A `mode` for the script to read
// stands in the file "mode" beside it.
inline QString installFakeTool(const QTemporaryDir& dir, const QString& name,
                               const QByteArray& script, const QByteArray& mode = {}) {
    static int serial = 0;
    const QString support = dir.filePath(QStringLiteral("fake-support-%1").arg(++serial));
    const QString bin = support + QStringLiteral("/ffmpeg/bin");
    QDir().mkpath(bin);
    QFile tool(bin + u'/' + name);
    tool.open(QIODevice::WriteOnly | QIODevice::Truncate);
    tool.write("#!/bin/sh\nhere=$(dirname \"$0\")\nout=; prev=\n"
               "for a; do case \"$a\" in *.mp4|*.mov|*.mp4.morvane-partial|*.mov.morvane-partial) "
               "[ \"$prev\" = -i ] || out=$a;; esac; prev=$a; done\n"
               "final=$(basename \"$out\" .morvane-partial); final=${final#.}\n" +
               script);
    tool.close();
    tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::copy(mediaPath(QStringLiteral("h264_aac.mp4")), bin + QStringLiteral("/sample.mp4"));
    QFile modeFile(bin + QStringLiteral("/mode"));
    static_cast<void>(modeFile.open(QIODevice::WriteOnly) && modeFile.write(mode) == mode.size());
    FFmpegServiceTesting::setSharedSupportPath(support);
    return bin;
}

// The shared-support folder of this build, where the bundled tools stand.
inline QString bundledSupportPath() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../share/morvane"));
}

template <typename T> struct Outcome {
    std::optional<T> value;
    std::optional<FFmpegError> error;
};

// Runs the event loop until the task ends; QVERIFY and QCOMPARE stay outside.
template <typename T> Outcome<T> run(QCoro::Task<T> task) {
    Outcome<T> outcome;
    try {
        outcome.value = Async::waitFor(std::move(task));
    } catch (const FFmpegError& error) {
        outcome.error = error;
    }
    return outcome;
}

} // namespace TestSupport
