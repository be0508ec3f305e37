#include "TestSupport.h"
#include "engine/RunJournal.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class RunJournalTest final : public QObject {
    Q_OBJECT

    QTemporaryDir state;

private Q_SLOTS:
    void initTestCase() { qputenv("XDG_STATE_HOME", QFile::encodeName(state.path())); }

    // A start removes the partial files that an ended program's journal lists, and
    // nothing else: not a live program's, not one its run already gave away, and not a
    // user's file that a damaged journal names.
    void removesOnlyWhatEndedRunsLeft() {
        QTemporaryDir files;
        const auto make = [&](const QString& name) {
            const QString path = files.filePath(name);
            QFile(path).open(QIODevice::WriteOnly);
            return path;
        };
        const QString live = make(u".Live.mp4.morvane-partial"_s);
        const QString left = make(u".Clip.mp4.morvane-partial"_s);
        const QString given = make(u".Clip.eng.srt.morvane-partial"_s);
        const QString odd = make(u".Two\nlines.mp4.morvane-partial"_s);
        const QString users = make(u"Clip.mp4"_s);
        {
            RunJournal running;
            running.add(live);
            QFile ended(RunJournal::folder() + u"/morvane-cli.ended.journal"_s);
            QVERIFY(ended.open(QIODevice::WriteOnly));
            for (const QString& record : {u'+' + left, u'+' + given, u'-' + given, u'+' + odd,
                                          u'+' + users, u"+/cut sh"_s}) {
                ended.write(QFile::encodeName(record) + '\0');
            }
            ended.close();

            QCOMPARE(RunJournal::removeAbandoned(), QStringList({left, odd}));
            QCOMPARE(QDir(files.path()).entryList(QDir::Files | QDir::Hidden),
                     QStringList({u".Clip.eng.srt.morvane-partial"_s, u".Live.mp4.morvane-partial"_s,
                                  u"Clip.mp4"_s}));
            QCOMPARE(QDir(RunJournal::folder()).entryList(QDir::Files).size(), 1);
            running.remove(live);
        }
        // With nothing in flight, a program leaves no journal behind.
        QCOMPARE(QDir(RunJournal::folder()).entryList(QDir::Files), QStringList());
    }
};

QTEST_GUILESS_MAIN(RunJournalTest)
#include "tst_RunJournal.moc"
