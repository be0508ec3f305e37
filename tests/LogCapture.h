#pragma once

// Records what is logged while it lives, by category, and passes every message on.

#include <QStringList>
#include <QtGlobal>

#include <mutex>

class LogCapture {
public:
    LogCapture() {
        lines().clear();
        previous() = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(previous()); }

    // How many lines of `category` began with `prefix`.
    int count(const char* category, const QString& prefix) const {
        const std::lock_guard guard(lock());
        const QString start = QString::fromLatin1(category) + u' ' + prefix;
        return int(std::count_if(lines().cbegin(), lines().cend(),
                                 [&](const QString& line) { return line.startsWith(start); }));
    }

private:
    static QtMessageHandler& previous() {
        static QtMessageHandler handler = nullptr;
        return handler;
    }
    static std::mutex& lock() {
        static std::mutex instance;
        return instance;
    }
    static QStringList& lines() {
        static QStringList all;
        return all;
    }
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text) {
        {
            const std::lock_guard guard(lock());
            lines().append(QString::fromLatin1(context.category ? context.category : "") + u' ' +
                           text);
        }
        if (previous()) {
            previous()(type, context, text);
        }
    }
};
