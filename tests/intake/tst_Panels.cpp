#include "DBusSession.h"
#include "LogCapture.h"
#include "intake/Panels.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class PanelsTest final : public QObject {
    Q_OBJECT

    DBusSession bus;
    FileManagerRecorder fileManager;
    QTemporaryDir work;
    QList<QUrl> opened;

public:
    Q_INVOKABLE void open(const QUrl& url) { opened.append(url); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(bus.start() && bus.registerFileManager(&fileManager));
        QFile(work.filePath(u"b.mp4"_s)).open(QIODevice::WriteOnly);
    }

    void outputPanelGivesOneFolder() {
        QString chosen;
        QFileDialog* dialog =
            Panels::presentOutputFolderPanel(nullptr, [&](QString folder) { chosen = folder; });
        QVERIFY(dialog->testOption(QFileDialog::ShowDirsOnly)); // files are not offered
        dialog->setDirectory(work.path());
        static_cast<QDialog*>(dialog)->accept(); // the confirming button
        QCOMPARE(chosen, work.path());
    }

    void revealAsksTheFileManagerElseOpensTheFolder() {
        const QString file = work.filePath(u"b.mp4"_s);
        Panels::revealInFinder(file);
        QTRY_COMPARE(fileManager.shown,
                     QList<QStringList>({{QUrl::fromLocalFile(file).toString()}}));

        QDBusConnection(u"files"_s).unregisterService(u"org.freedesktop.FileManager1"_s);
        QDesktopServices::setUrlHandler(u"file"_s, this, "open");
        Panels::revealInFinder(file);
        QTRY_COMPARE(opened, QList<QUrl>({QUrl::fromLocalFile(work.path())}));

        // The offscreen platform opens nothing, and says so.
        QDesktopServices::unsetUrlHandler(u"file"_s);
        LogCapture log;
        Panels::revealInFinder(file);
        QTRY_COMPARE(log.count("com.morvane.Panels", u"Failed to reveal in Finder: b.mp4"_s), 1);
        Panels::revealInFinder(work.filePath(u"moved away.mkv"_s));
        QCOMPARE(log.count("com.morvane.Panels", u"Failed to reveal in Finder: moved away.mkv"_s),
                 1);
    }
};

QTEST_MAIN(PanelsTest)
#include "tst_Panels.moc"
