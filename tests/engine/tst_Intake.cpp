#include "TestSupport.h"
#include "engine/RemuxService.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class IntakeTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;
    std::unique_ptr<RemuxService> service;

    QString make(const QString& relative, const QString& media = {}) {
        const QString target = work.filePath(relative);
        QDir().mkpath(QFileInfo(target).absolutePath());
        if (media.isEmpty()) {
            QFile(target).open(QIODevice::WriteOnly);
        } else {
            QFile::copy(TestSupport::mediaPath(media), target);
        }
        return target;
    }
    QStringList urls() const {
        QStringList list;
        for (const RemuxItem& item : service->items()) {
            list.append(item.url);
        }
        return list;
    }

private Q_SLOTS:
    void init() {
        service = std::make_unique<RemuxService>();
        service->setFeedbackDuration(0.3);
    }
    void cleanup() { service.reset(); }

    void dropWithOneProviderThatIsNoFile() {
        const QString a = make(u"drop/a.mkv"_s, u"h264_aac.mkv"_s);
        const QString b = make(u"drop/b.mkv"_s, u"hevc_aac.mkv"_s);
        service->handleDrop(
            {QUrl::fromLocalFile(a), QUrl(u"https://example.com/x.mkv"_s), QUrl::fromLocalFile(b)});
        QCOMPARE(urls(), QStringList({a, b}));
        QCOMPARE(service->dropFeedbackMessage(), std::optional(u"1 unsupported file skipped"_s));
        // The new items are probed at once.
        QTRY_VERIFY(service->items().at(1).cachedMediaInfo.has_value());
    }

    void filesThenFoldersEachWithItsOwnWalk() {
        const QString good = make(u"mixed/good.mkv"_s);
        const QString inFolder = make(u"mixed/folder/inner.mp4"_s);
        make(u"texts/a.txt"_s);
        service->addFiles({work.filePath(u"mixed/folder"_s), make(u"mixed/x.txt"_s), good,
                           make(u"mixed/y.doc"_s), work.filePath(u"mixed/none.mkv"_s)},
                          0);
        QCOMPARE(urls(), QStringList({good, inFolder}));
        QCOMPARE(service->dropFeedbackMessage(), std::optional(u"3 unsupported files skipped"_s));

        // The same file reached from two folders of one call comes twice.
        service->addFiles({work.filePath(u"mixed"_s), work.filePath(u"mixed/folder"_s)}, 0);
        QCOMPARE(urls().count(inFolder), 1); // already listed: the duplicate test keeps it out
        const QString fresh = make(u"twice/deep/v.ts"_s);
        service->addFiles({work.filePath(u"twice"_s), work.filePath(u"twice/deep"_s)}, 0);
        QCOMPARE(urls().count(fresh), 2);
    }

    void aFolderOfTextFilesAddsNothingAndSaysNothing() {
        make(u"only-text/a.txt"_s);
        make(u"only-text/sub/b.md"_s);
        QSignalSpy feedback(service.get(), &RemuxService::dropFeedbackMessageChanged);
        service->addFiles({work.filePath(u"only-text"_s)}, 0);
        service->addFiles({}, 0);
        QVERIFY(service->items().isEmpty());
        QCOMPARE(feedback.size(), 0);
    }

    void bannerClearsItselfUnlessReplaced() {
        // The same text twice: the first wait clears the second banner early.
        service->addFiles({make(u"b1.txt"_s)}, 0);
        QTest::qWait(150);
        service->addFiles({make(u"b2.txt"_s)}, 0);
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY(!service->dropFeedbackMessage());
        QVERIFY2(clock.elapsed() < 250, qPrintable(QString::number(clock.elapsed())));

        // A different text: the first wait leaves it, the second clears it.
        service->addFiles({make(u"c1.txt"_s)}, 0);
        QTest::qWait(150);
        service->addFiles({make(u"c2.txt"_s), make(u"c3.txt"_s)}, 0);
        QTest::qWait(250);
        QCOMPARE(service->dropFeedbackMessage(), std::optional(u"2 unsupported files skipped"_s));
        QTRY_VERIFY(!service->dropFeedbackMessage());

        // A dismissed banner stays dismissed, and the wait touches no new text.
        service->addFiles({make(u"d1.txt"_s)}, 0);
        service->setDropFeedbackMessage(std::nullopt);
        QTest::qWait(400);
        QVERIFY(!service->dropFeedbackMessage());
        QCOMPARE(RemuxService::defaultFeedbackDuration, 4.0);
    }
};

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_Intake.moc"
