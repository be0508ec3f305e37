#pragma once

// The tool layer's failures. Thrown as an exception through the coroutines; the
// engine turns one into the text of a row with FFmpegService::friendlyMessage().

#include <QByteArray>
#include <QString>

#include <exception>

class FFmpegError final : public std::exception {
public:
    enum class Case {
        probeFailed,
        remuxFailed,
        processFailed,
        ffmpegNotFound,
        ffprobeNotFound,
        cancelled,
        timedOut,
    };

    static FFmpegError probeFailed(QString message) { return {Case::probeFailed, message}; }
    static FFmpegError remuxFailed(QString message) { return {Case::remuxFailed, message}; }
    static FFmpegError processFailed(QString message) { return {Case::processFailed, message}; }
    static FFmpegError ffmpegNotFound() { return {Case::ffmpegNotFound, {}}; }
    static FFmpegError ffprobeNotFound() { return {Case::ffprobeNotFound, {}}; }
    static FFmpegError cancelled() { return {Case::cancelled, {}}; }
    static FFmpegError timedOut() { return {Case::timedOut, {}}; }

    Case kind() const { return case_; }
    // The payload of the three cases that carry one; empty for the others.
    const QString& message() const { return message_; }
    // What the error reports as its description.
    QString localizedDescription() const;
    const char* what() const noexcept override { return what_.constData(); }
    // The last lines of what the tool printed on its error output, for a failure
    // of a tool run; empty for the others. Not part of the row's text.
    const QString& details() const { return details_; }
    FFmpegError&& withDetails(QString details) && {
        details_ = std::move(details);
        return std::move(*this);
    }

    bool operator==(const FFmpegError& other) const {
        return case_ == other.case_ && message_ == other.message_;
    }

private:
    FFmpegError(Case kind, QString message);

    Case case_;
    QString message_;
    QByteArray what_;
    QString details_;
};
