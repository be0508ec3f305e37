#pragma once

// A private D-Bus session bus for one test process (Debian's dbus-daemon), and a
// stand-in freedesktop notification service on it that records every Notify call.
// Start the session before anything touches QDBusConnection::sessionBus().

#include <QDBusConnection>
#include <QDBusMetaType>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QVariantMap>

class NotificationRecorder final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Call {
        QString appName;
        uint replacesId;
        QString summary;
        QString body;
        QVariantMap hints;
    };
    QList<Call> calls;

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& /*appIcon*/,
                const QString& summary, const QString& body, const QStringList& /*actions*/,
                const QVariantMap& hints, int /*expireTimeout*/) {
        calls.append(Call{appName, replacesId, summary, body, hints});
        return uint(calls.size());
    }
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion) {
        vendor = QStringLiteral("Morvane tests");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("recorder");
    }
};

// Stands in for the desktop's file manager: records the items it is asked to show.
class FileManagerRecorder final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> shown;

public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString& /*startupId*/) { shown.append(uris); }
};

class DBusSession {
public:
    // Starts the bus and points this process's session bus at it.
    bool start() {
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--nofork"),
                       QStringLiteral("--print-address")});
        if (!daemon_.waitForStarted(5000) || !daemon_.waitForReadyRead(5000)) {
            return false;
        }
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
        return !address_.isEmpty();
    }

    // Offers a recording service under its well-known name, from a connection of its
    // own, as another program would.
    bool registerRecorder(NotificationRecorder* recorder) {
        return offer(QStringLiteral("recorder"), QStringLiteral("org.freedesktop.Notifications"),
                     recorder);
    }
    bool registerFileManager(FileManagerRecorder* recorder) {
        return offer(QStringLiteral("files"), QStringLiteral("org.freedesktop.FileManager1"),
                     recorder);
    }

    void unregisterRecorder() {
        QDBusConnection service(QStringLiteral("recorder"));
        service.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        service.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
    }

    ~DBusSession() {
        QDBusConnection::disconnectFromBus(QStringLiteral("recorder"));
        QDBusConnection::disconnectFromBus(QStringLiteral("files"));
        daemon_.kill();
        daemon_.waitForFinished(2000);
    }

private:
    bool offer(const QString& connection, const QString& name, QObject* object) {
        QDBusConnection service = QDBusConnection::connectToBus(address_, connection);
        return service.registerObject(QLatin1Char('/') +
                                          QString(name).replace(QLatin1Char('.'), QLatin1Char('/')),
                                      object, QDBusConnection::ExportAllSlots) &&
               service.registerService(name);
    }

    QProcess daemon_;
    QString address_;
};
