#include "intake/DropIntake.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

class DropIntakeTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;
    QString root;

    QString path(const QString& relative) const { return root + u'/' + relative; }
    void touch(const QString& relative) const {
        QDir().mkpath(QFileInfo(path(relative)).absolutePath());
        QFile(path(relative)).open(QIODevice::WriteOnly);
    }
    QSet<QString> scan(const QString& folder) const {
        QSet<QString> visited;
        QStringList found;
        DropIntake::scanFolder(folder, visited, found);
        return QSet<QString>(found.begin(), found.end());
    }

private Q_SLOTS:
    void initTestCase() {
        root = work.filePath(u"root"_s);
        for (const char* file :
             {"Clip.MKV", "Other.Mp4", "noext", "notes.txt", ".hidden.mp4", ".hiddendir/inner.mkv",
              "sub/a.mp4", "sub/deeper/b.ts", "folder.mp4/c.mkv", "locked/d.mkv"}) {
            touch(QString::fromLatin1(file));
        }
        QDir().mkpath(path(u"empty"_s));
        QFile::link(root, path(u"loop.mkv"_s)); // a link to a folder with a video name
        QFile::link(root, path(u"sub/back"_s)); // a link back up, no video name
        QFile::link(path(u"sub/a.mp4"_s), path(u"linkToFile.mp4"_s));
        QFile::link(path(u"sub"_s), work.filePath(u"topLink"_s));
        QFile::setPermissions(path(u"locked"_s), QFileDevice::Permissions());
    }
    void cleanupTestCase() {
        QFile::setPermissions(path(u"locked"_s), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                     QFileDevice::ExeOwner);
    }

    void partitionSortsInOrder() {
        const DropIntake::Partition result = DropIntake::partitionURLs({
            path(u"Clip.MKV"_s),
            path(u"noext"_s),
            path(u"sub"_s),
            path(u"notes.txt"_s),
            work.filePath(u"gone.mkv"_s),
            u"relative/x.mkv"_s,
            work.filePath(u"topLink"_s),
            path(u"folder.mp4"_s),
            path(u"Other.Mp4"_s),
        });
        QCOMPARE(result.files, QStringList({path(u"Clip.MKV"_s), path(u"Other.Mp4"_s)}));
        QCOMPARE(result.folders,
                 QStringList({path(u"sub"_s), work.filePath(u"topLink"_s), path(u"folder.mp4"_s)}));
        QCOMPARE(result.rejects, 4); // no extension, .txt, missing, relative
    }

    void walkFindsVideosAndNothingElse() {
        QSet<QString> expected{path(u"Clip.MKV"_s),         path(u"Other.Mp4"_s),
                               path(u".hidden.mp4"_s),      path(u".hiddendir/inner.mkv"_s),
                               path(u"sub/a.mp4"_s),        path(u"sub/deeper/b.ts"_s),
                               path(u"folder.mp4/c.mkv"_s), path(u"loop.mkv"_s),
                               path(u"linkToFile.mp4"_s)};
        if (::geteuid() == 0) {
            expected.insert(path(u"locked/d.mkv"_s)); // root reads the locked folder anyway
        }
        QCOMPARE(scan(root), expected);
    }

    void unreadableFolderIsPassedOverQuietly() {
        if (::geteuid() == 0) {
            QSKIP("running as root, which reads a folder whatever its permissions");
        }
        QVERIFY(!scan(root).contains(path(u"locked/d.mkv"_s)));
    }

    void aFolderMetTwiceIsWalkedOnce() {
        QSet<QString> visited;
        QStringList found;
        DropIntake::scanFolder(path(u"sub"_s), visited, found);
        DropIntake::scanFolder(work.filePath(u"topLink"_s), visited, found); // same folder
        QCOMPARE(found.size(), 2);
        QVERIFY(scan(path(u"empty"_s)).isEmpty());
    }

    void dropProvidersThatAreNotLocalFilesCount() {
        const DropIntake::ResolvedDrop drop = DropIntake::resolveURLs(
            {QUrl::fromLocalFile(path(u"Clip.MKV"_s)), QUrl(u"https://example.com/a.mkv"_s),
             QUrl::fromLocalFile(path(u"sub"_s))});
        QCOMPARE(drop.urls, QStringList({path(u"Clip.MKV"_s), path(u"sub"_s)}));
        QCOMPARE(drop.failed, 1);
    }
};

QTEST_GUILESS_MAIN(DropIntakeTest)
#include "tst_DropIntake.moc"
