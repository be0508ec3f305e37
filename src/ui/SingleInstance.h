#pragma once

// One Morvane per user session. The first launch listens on a local socket; a later
// launch hands it its file paths (the desktop's "Open With") and asks it to come
// forward, then ends.

#include <QLocalServer>
#include <QObject>
#include <QStringList>

class SingleInstance final : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(QObject* parent = nullptr);

    // True when another instance took the paths; this process should end.
    bool forwardToRunning(const QStringList& paths);
    // Becomes the running instance.
    bool listen();

Q_SIGNALS:
    // Another launch asked to be seen, with the paths it was given (maybe none).
    void activated(const QStringList& paths);

private:
    static QString serverName();
    QLocalServer server_;
};
