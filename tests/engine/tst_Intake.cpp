#include "TestSupport.h"
#include "engine/RemuxService.h"
#include "intake/DropIntake.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class IntakeTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void dropsBecomeItemsAndTheBannerClearsItself() {
        QTemporaryDir work;
        QDir().mkpath(work.filePath(u"folder/deeper"_s));
        const QString inFolder = work.filePath(u"folder/deeper/b.mp4"_s);
        QFile(inFolder).open(QIODevice::WriteOnly);
        RemuxService service;
        service.setFeedbackDuration(0.3);
        service.handleDrop({QUrl::fromLocalFile(TestSupport::mediaPath(u"h264_aac.mkv"_s))});
        // The same file again, under another spelling of its path: one row.
        service.handleDrop(
            {QUrl::fromLocalFile(TestSupport::mediaPath(u"./../test-media/h264_aac.mkv"_s))});
        QCOMPARE(service.items().size(), 1);
        QVERIFY(!service.dropFeedbackMessage());

        service.handleDrop({QUrl::fromLocalFile(work.filePath(u"folder"_s)),
                            QUrl(u"https://example.com/x.mkv"_s),
                            QUrl::fromLocalFile(work.filePath(u"gone.mkv"_s))});
        QCOMPARE(service.items().size(), 2);
        QCOMPARE(service.items().last().url, inFolder);
        QCOMPARE(service.dropFeedbackMessage(), std::optional(u"2 unsupported files skipped"_s));
        QTRY_VERIFY(!service.dropFeedbackMessage());
    }

    void partitionSortsInOrder() {
        QTemporaryDir work;
        const QString clip = work.filePath(u"Clip.MKV"_s);
        const QString notes = work.filePath(u"notes.txt"_s);
        QFile(clip).open(QIODevice::WriteOnly);
        QFile(notes).open(QIODevice::WriteOnly);
        const DropIntake::Partition result = DropIntake::partitionURLs(
            {notes, clip, work.path(), work.filePath(u"gone.mkv"_s), QString(),
             QDir::current().relativeFilePath(clip)}); // a relative path, although it exists
        QCOMPARE(result.files, QStringList({clip}));
        QCOMPARE(result.folders, QStringList({work.path()}));
        QCOMPARE(result.rejects, 4);
    }
};

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_Intake.moc"
