#include "DiskLedger.h"
#include "TestSupport.h"
#include "engine/RemuxService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class HostileInputTest final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> root;
    std::unique_ptr<QTemporaryDir> tools;
    std::unique_ptr<RemuxService> service;
    QString in;     // the folder dropped, where the outputs go too
    QString banner; // what the drop said it left out
    const QString startDir = QDir::currentPath();

    // Copies `media` to a path given as bytes, which need not be UTF-8.
    static bool writeRaw(const QByteArray& path, const QString& media) {
        QFile source(TestSupport::mediaPath(media));
        const QByteArray bytes = source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        const bool written = fd >= 0 && ::write(fd, bytes.constData(), size_t(bytes.size())) ==
                                            ssize_t(bytes.size());
        return (fd < 0 || ::close(fd) == 0) && written && !bytes.isEmpty();
    }
    // Drops `urls` (the folder by default), runs what they added and gives what went
    // wrong. New files may appear only in `targets`.
    QStringList dropAndRun(QStringList targets = {}, QList<QUrl> urls = {}) {
        DiskLedger ledger(root->path(), targets.isEmpty() ? QStringList{in} : targets);
        service->handleDrop(urls.isEmpty() ? QList<QUrl>{QUrl::fromLocalFile(in)} : urls);
        banner = service->dropFeedbackMessage().value_or(QString());
        const bool probed = DiskLedger::settled(*service);
        service->startBatch();
        return probed && DiskLedger::settled(*service) ? ledger.problems(service.get())
                                                       : QStringList{u"the queue never settled"_s};
    }

private Q_SLOTS:
    void init() {
        root = std::make_unique<QTemporaryDir>();
        tools = std::make_unique<QTemporaryDir>();
        in = root->filePath(u"in"_s);
        QDir().mkdir(in);
        // A shell that ran a name would write "pwned" here, under the ledger's eyes.
        QDir::setCurrent(root->path());
        service = std::make_unique<RemuxService>();
        service->setPostsNotification(false);
    }
    void cleanup() {
        service.reset();
        QDir::setCurrent(startDir);
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        QCOMPARE(Async::BackgroundTask::liveCount(), 0);
    }

    // clang-format off
    void hostileNames_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("link"); // a link to nowhere, where a file will be named
        QTest::addColumn<QString>("outcome"); // <in> stands for the folder
        QTest::newRow("spaces") << QByteArray(" two  spaces .mkv") << QString() << u"Completed"_s;
        QTest::newRow("quotes") << QByteArray("it's a \"clip\".mkv") << QString() << u"Completed"_s;
        QTest::newRow("a newline") << QByteArray("line\nbreak.mkv") << QString() << u"Completed"_s;
        QTest::newRow("a leading dash") << QByteArray("-y -i x.mkv") << QString() << u"Completed"_s;
        QTest::newRow("a colon") << QByteArray("file:clip.mkv") << QString() << u"Completed"_s;
        QTest::newRow("shell syntax") << QByteArray("$(touch pwned) `touch pwned`; touch pwned.mkv") << QString() << u"Completed"_s;
        QTest::newRow("non-ASCII") << u"Ünïcødé 日本.mkv"_s.toUtf8() << QString() << u"Completed"_s;
        QTest::newRow("bytes that are not UTF-8") << QByteArray("bad\xff\xfe.mkv") << QString() << u"Banner: 1 unsupported file skipped"_s;
        QTest::newRow("255 bytes, sidecar names too long") << QByteArray(251, 'a') + ".mkv" << QString() << u"Completed: 3 subtitle tracks failed to extract"_s;
        QTest::newRow("255 bytes, output name too long") << QByteArray(252, 'a') + ".ts" << QString() << u"Error: <in>/%1.mp4: File name too long"_s.arg(QString(252, u'a'));
        QTest::newRow("255 bytes of CJK, output name too long") << u"日"_s.repeated(84).toUtf8() + ".ts" << QString() << u"Error: File name too long"_s;
        QTest::newRow("a link to nowhere as the output") << QByteArray("clip.mkv") << u"clip.mp4"_s << u"Skipped: Skipped — output file already exists"_s;
        QTest::newRow("a link to nowhere as a sidecar") << QByteArray("clip.mkv") << u"clip.eng.srt"_s << u"Completed"_s;
    }
    // clang-format on
    void hostileNames() {
        QFETCH(QByteArray, name);
        QFETCH(QString, link);
        QFETCH(QString, outcome);
        const QByteArray path = QFile::encodeName(in) + '/' + name;
        // Qt can't name a file whose name isn't UTF-8, so it can't delete it either.
        const auto removeRaw = qScopeGuard([&] { ::unlink(path.constData()); });
        QVERIFY(writeRaw(path, u"subtitles.mkv"_s));
        // Writing through it would put a file outside the folder.
        QVERIFY(link.isEmpty() || QFile::link(root->filePath(u"elsewhere"_s), in + u'/' + link));
        const QStringList problems =
            dropAndRun({}, {QUrl::fromEncoded("file://" + path.toPercentEncoding("/"))});
        QCOMPARE(service->items().isEmpty() ? u"Banner: "_s + banner
                                            : DiskLedger::outcome(service->items().first()),
                 outcome.replace(u"<in>"_s, in));
        QCOMPARE(service->items().size(), outcome.startsWith(u"Banner") ? 0 : 1);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }

    // clang-format off
    void hostileLanguageTags_data() {
        QTest::addColumn<QStringList>("tags");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("sidecars");
        QTest::newRow("path separators") << QStringList{u"../../x"_s, u"a/b"_s, u"/"_s} << u"Completed"_s << 3;
        QTest::newRow("dots and nothing") << QStringList{u".."_s, u"."_s, QString(u""_s)} << u"Completed"_s << 3;
        QTest::newRow("control characters") << QStringList{QString(QChar(0)), u"e\u0001\n"_s, u"\u001b[31m"_s} << u"Completed"_s << 3;
        // A name too long to create loses its own track only.
        QTest::newRow("longer than a file name") << QStringList{QString(300, u'x'), u"eng"_s, u"eng"_s} << u"Completed: 1 subtitle track failed to extract"_s << 2;
    }
    // clang-format on
    // ffprobe reports the three subtitle streams of the file under hostile language
    // tags; the real ffmpeg then writes the sidecars under the names they give.
    void hostileLanguageTags() {
        QFETCH(QStringList, tags);
        QFETCH(QString, outcome);
        QFETCH(int, sidecars);
        QJsonArray streams = QJsonDocument::fromJson(R"([
            {"index": 0, "codec_type": "video", "codec_name": "h264"},
            {"index": 1, "codec_type": "audio", "codec_name": "aac"}])")
                                 .array();
        for (int i = 0; i < 3; ++i) {
            streams.append(QJsonObject{{u"index"_s, i + 2},
                                       {u"codec_type"_s, u"subtitle"_s},
                                       {u"codec_name"_s, u"subrip"_s},
                                       {u"tags"_s, QJsonObject{{u"language"_s, tags[i]}}}});
        }
        // The output is probed for real.
        const QString bin = TestSupport::installFakeTool(
            *tools, u"ffprobe"_s,
            "case \"$*\" in *.mp4) exec " +
                QFile::encodeName(TestSupport::bundledSupportPath()) +
                "/ffmpeg/bin/ffprobe \"$@\";; esac\ncat \"$here/probe.json\"\n");
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffmpeg"_s,
                    bin + u"/ffmpeg"_s);
        QFile json(bin + u"/probe.json"_s);
        QVERIFY(json.open(QIODevice::WriteOnly));
        json.write(QJsonDocument(QJsonObject{{u"streams"_s, streams},
                                             {u"format"_s, QJsonObject{{u"duration"_s, u"1.0"_s}}}})
                       .toJson());
        json.close();
        QVERIFY(writeRaw(QFile::encodeName(in) + "/subtitles.mkv", u"subtitles.mkv"_s));

        const QStringList problems = dropAndRun();
        QCOMPARE(DiskLedger::outcome(service->items().first()), outcome);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
        const QStringList written = QDir(in).entryList({u"*.srt"_s}, QDir::Files);
        QCOMPARE(written.size(), sidecars);
        for (const QString& name : written) {
            QVERIFY2(!name.contains(QRegularExpression(u"\\p{Cc}"_s)), qPrintable(name));
        }
    }

    // A folder reachable through itself: the walk ends, and each real file becomes
    // one item.
    void aSymlinkLoopEndsAndAddsRealFilesOnce() {
        QDir().mkdir(in + u"/sub"_s);
        QVERIFY(writeRaw(QFile::encodeName(in) + "/clip.mkv", u"h264_aac.mkv"_s));
        QVERIFY(writeRaw(QFile::encodeName(in) + "/sub/clip2.mkv", u"h264_aac.mkv"_s));
        QFile::link(in, in + u"/sub/up"_s);
        QFile::link(in + u"/sub"_s, in + u"/sub/self"_s);
        QFile::link(in, in + u"/loop.mkv"_s);
        QFile::link(in + u"/b.mkv"_s, in + u"/a.mkv"_s);
        QFile::link(in + u"/a.mkv"_s, in + u"/b.mkv"_s);

        const QStringList problems = dropAndRun({in, in + u"/sub"_s});
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
        QStringList realFiles;
        for (const RemuxItem& item : service->items()) {
            if (QFileInfo(item.url).isFile()) {
                realFiles << QFileInfo(item.url).canonicalFilePath();
            }
        }
        realFiles.sort();
        QCOMPARE(realFiles, QStringList({QFileInfo(in + u"/clip.mkv"_s).canonicalFilePath(),
                                         QFileInfo(in + u"/sub/clip2.mkv"_s).canonicalFilePath()}));
    }

    void tenThousandEntriesAreWalked() {
        for (int i = 0; i < 10000; ++i) {
            const QString folder = in + u"/d%1"_s.arg(i / 1000);
            if (i % 1000 == 0) {
                QDir().mkdir(folder);
            }
            const QString name = i % 1000 == 0 ? u"clip-%1.mkv"_s : u"note-%1.txt"_s;
            QFile(folder + u'/' + name.arg(i)).open(QIODevice::WriteOnly);
        }
        const QStringList problems = dropAndRun();
        QCOMPARE(service->items().size(), 10);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }
};

QTEST_GUILESS_MAIN(HostileInputTest)
#include "tst_HostileInput.moc"
