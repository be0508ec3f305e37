#include "TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class SingleInstanceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void secondLaunchHandsOverAndEnds() {
        QTemporaryDir runtime;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        environment.insert(u"QT_LOGGING_RULES"_s, u"com.morvane.App.info=true"_s);
        const QString application = QCoreApplication::applicationDirPath() + u"/morvane"_s;

        QProcess first;
        first.setProcessEnvironment(environment);
        first.start(application, {});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(
            !QDir(runtime.path()).entryList({u"morvane-*"_s}, QDir::System).isEmpty(), 10000);

        QTemporaryDir media;
        const QString clip =
            TestSupport::copyInto(media, TestSupport::mediaPath(u"h264_aac.mkv"_s));
        QProcess second;
        second.setProcessEnvironment(environment);
        QElapsedTimer clock;
        clock.start();
        second.start(application, {clip});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(clock.elapsed() < 5000);
        QString log;
        QTRY_VERIFY_WITH_TIMEOUT((log += QString::fromUtf8(first.readAllStandardError()),
                                  log.contains(u"Another launch handed over 1 path(s)"_s)),
                                 5000);
        QCOMPARE(first.state(), QProcess::Running);
        first.terminate();
        QVERIFY(first.waitForFinished(10000));
    }
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_SingleInstance.moc"
