#pragma once

// Records the log lines of the com.morvane categories while it lives, and passes
// every message on to the handler that was there before.

#include <QList>
#include <QString>
#include <QtGlobal>

#include <cstring>
#include <mutex>

class LogCapture {
public:
    LogCapture() {
        instance() = this;
        previous_ = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() {
        qInstallMessageHandler(previous_);
        instance() = nullptr;
    }

    // Lines of `category` (as "com.morvane.X") that begin with `prefix`.
    int count(const char* category, const QString& prefix) const {
        const std::lock_guard guard(lock_);
        int n = 0;
        for (const auto& [cat, text] : lines_) {
            n += (cat == QLatin1StringView(category) && text.startsWith(prefix)) ? 1 : 0;
        }
        return n;
    }

private:
    static LogCapture*& instance() {
        static LogCapture* current = nullptr;
        return current;
    }
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (LogCapture* self = instance()) {
            if (context.category && std::strncmp(context.category, "com.morvane", 11) == 0) {
                const std::lock_guard guard(self->lock_);
                self->lines_.append({QString::fromLatin1(context.category), text});
            }
            if (self->previous_) {
                self->previous_(type, context, text);
            }
        }
    }

    mutable std::mutex lock_;
    QList<std::pair<QString, QString>> lines_;
    QtMessageHandler previous_ = nullptr;
};
