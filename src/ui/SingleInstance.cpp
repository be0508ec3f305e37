#include "SingleInstance.h"

#include <QDir>
#include <QLocalSocket>

#include <unistd.h>

using namespace Qt::StringLiterals;

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {
    connect(&server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                // One message per launch: the paths, one a line, then an empty line.
                const QByteArray pending = socket->peek(socket->bytesAvailable());
                if (!pending.startsWith('\n') && !pending.contains("\n\n")) {
                    return;
                }
                QStringList paths;
                while (socket->canReadLine()) {
                    const QString line = QString::fromUtf8(socket->readLine()).chopped(1);
                    if (line.isEmpty()) {
                        break;
                    }
                    paths.append(line);
                }
                socket->write("ok\n");
                socket->flush();
                Q_EMIT activated(paths);
            });
        }
    });
}

// Per user and per session: the runtime folder is the session's own.
QString SingleInstance::serverName() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR", QDir::tempPath());
    return runtime + u"/morvane-"_s + QString::number(::getuid()) + u".socket"_s;
}

bool SingleInstance::forwardToRunning(const QStringList& paths) {
    QLocalSocket socket;
    socket.connectToServer(serverName());
    if (!socket.waitForConnected(500)) {
        return false;
    }
    QByteArray message;
    for (const QString& path : paths) {
        message += QDir::cleanPath(QDir::current().absoluteFilePath(path)).toUtf8() + '\n';
    }
    socket.write(message + '\n');
    socket.flush();
    // The running instance answers once it has the message.
    return socket.waitForReadyRead(2000) && socket.readLine().startsWith("ok");
}

bool SingleInstance::listen() {
    QLocalServer::removeServer(serverName()); // a socket left by a crashed instance
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    return server_.listen(serverName());
}
