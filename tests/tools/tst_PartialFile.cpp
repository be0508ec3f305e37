#include "TestSupport.h"
#include "engine/RunJournal.h"
#include "tools/PartialFile.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using PartialFileTesting::Rename;

// Partial files: given their final names without replacing anything, and removed at
// the next start when the program that made them has ended.
class PartialFileTest final : public QObject {
    Q_OBJECT

    QTemporaryDir state;

private Q_SLOTS:
    void initTestCase() { qputenv("XDG_STATE_HOME", QFile::encodeName(state.path())); }

    // A start removes the partial files that an ended program's journal lists, and
    // nothing else: not one its run already gave away, and not a user's file that a
    // damaged journal names. (A live program's journal: tst_Endings.)
    void removesOnlyWhatEndedRunsLeft() {
        QTemporaryDir files;
        QFile ended(RunJournal::folder() + u"/morvane-cli.ended.journal"_s);
        QVERIFY(QDir().mkpath(RunJournal::folder()) && ended.open(QIODevice::WriteOnly));
        const QStringList names{u".Clip.mp4.morvane-partial"_s, u".Clip.eng.srt.morvane-partial"_s,
                                u".Two\nlines.mp4.morvane-partial"_s, u"Clip.mp4"_s};
        for (const QString& name : names) {
            QFile(files.filePath(name)).open(QIODevice::WriteOnly);
            ended.write(QFile::encodeName(u'+' + files.filePath(name)) + '\0');
        }
        ended.write(QFile::encodeName(u'-' + files.filePath(names[1])) +
                    QByteArray("\0+/cut sh", 9));
        ended.close();
        QCOMPARE(RunJournal::removeAbandoned(),
                 QStringList({files.filePath(names[0]), files.filePath(names[2])}));
        QCOMPARE(QDir(files.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name),
                 QStringList({names[1], names[3]}));
        QCOMPARE(QDir(RunJournal::folder()).entryList(QDir::Files), QStringList());
    }

    void cleanup() { PartialFileTesting::forceRename(Rename::noReplaceFlag); }

    // clang-format off
    void putInPlace_data() {
        QTest::addColumn<int>("method");
        QTest::newRow("the kernel's flag") << int(Rename::noReplaceFlag);
        QTest::newRow("a hard link, where the flag is missing") << int(Rename::linkThenUnlink);
        QTest::newRow("a test, then the rename, where links are too") << int(Rename::testThenRename);
    }
    // clang-format on
    // Never over anything: what another program put at the final name stays, and a
    // name another run has claimed is passed over.
    void putInPlace() {
        QFETCH(int, method);
        PartialFileTesting::forceRename(Rename(method));
        QTemporaryDir dir;
        const QString ours = TestSupport::mediaPath(u"h264_aac.mp4"_s);
        const QString theirs = TestSupport::mediaPath(u"h264_aac.mkv"_s);
        const QString partial = TestSupport::copyInto(dir, ours, u".Clip.mp4.morvane-partial"_s);
        TestSupport::copyInto(dir, theirs, u"Clip.mp4"_s);
        QString error;
        QCOMPARE(PartialFile::putInPlace(partial, dir.filePath(u"Clip.mp4"_s),
                                         {dir.filePath(u"Clip.1.mp4"_s)}, &error),
                 std::optional(dir.filePath(u"Clip.2.mp4"_s)));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name),
                 QStringList({u"Clip.2.mp4"_s, u"Clip.mp4"_s}));
        QCOMPARE(QFileInfo(dir.filePath(u"Clip.mp4"_s)).size(), QFileInfo(theirs).size());
        QCOMPARE(QFileInfo(dir.filePath(u"Clip.2.mp4"_s)).size(), QFileInfo(ours).size());
    }
};

QTEST_GUILESS_MAIN(PartialFileTest)
#include "tst_PartialFile.moc"
