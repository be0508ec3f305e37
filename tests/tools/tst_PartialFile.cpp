#include "TestSupport.h"
#include "tools/PartialFile.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using PartialFileTesting::Rename;

namespace {

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

void write(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

} // namespace

class PartialFileTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { PartialFileTesting::forceRename(Rename::noReplaceFlag); }

    // Each run has a hidden partial file of its own beside the final name, one that
    // fits the file system's limit and keeps the final name's extension.
    void partialNames() {
        QTemporaryDir dir;
        QString error;
        const QString final = dir.filePath(u"Clip.mp4"_s);
        QCOMPARE(PartialFile::create(final, &error), std::optional(dir.filePath(u".Clip.mp4.morvane-partial"_s)));
        QCOMPARE(PartialFile::create(final, &error), std::optional(dir.filePath(u".Clip.mp4.1.morvane-partial"_s)));
        const QString longest = dir.filePath(QString(251, u'a') + u".mp4"_s);
        const std::optional<QString> partial = PartialFile::create(longest, &error);
        QVERIFY(partial && QFileInfo::exists(*partial));
        QCOMPARE(QFileInfo(*partial).fileName().toUtf8().size(), 255);
        QVERIFY(partial->endsWith(u"a.mp4.morvane-partial"_s));
        // A final name that can never be given fails at once.
        QVERIFY(!PartialFile::create(dir.filePath(QString(252, u'a') + u".mp4"_s), &error));
        QCOMPARE(error, u"File name too long"_s);
    }

    // clang-format off
    void putInPlace_data() {
        QTest::addColumn<int>("method");
        QTest::addColumn<QStringList>("taken");
        QTest::addColumn<QStringList>("reserved");
        QTest::addColumn<QString>("expected");
        const QList<std::pair<const char*, Rename>> methods{
            {"the kernel's flag", Rename::noReplaceFlag},
            {"a hard link", Rename::linkThenUnlink},
            {"a test, then the rename", Rename::testThenRename}};
        for (const auto& [name, method] : methods) {
            QTest::addRow("%s: a free name is taken", name) << int(method) << QStringList() << QStringList() << u"Clip.mp4"_s;
            QTest::addRow("%s: a taken name is kept, the next one given", name) << int(method) << QStringList{u"Clip.mp4"_s} << QStringList() << u"Clip.1.mp4"_s;
            QTest::addRow("%s: a name another run claimed is passed over", name) << int(method) << QStringList{u"Clip.mp4"_s} << QStringList{u"Clip.1.mp4"_s} << u"Clip.2.mp4"_s;
        }
    }
    // clang-format on
    // Never over anything: whatever another program put at the final name stays.
    void putInPlace() {
        QFETCH(int, method);
        QFETCH(QStringList, taken);
        QFETCH(QStringList, reserved);
        QFETCH(QString, expected);
        PartialFileTesting::forceRename(Rename(method));
        QTemporaryDir dir;
        const QString partial = dir.filePath(u".Clip.mp4.morvane-partial"_s);
        write(partial, "ours");
        for (const QString& name : taken) {
            write(dir.filePath(name), "theirs");
        }
        QSet<QString> claims;
        for (const QString& name : reserved) {
            claims.insert(dir.filePath(name));
        }
        QString error;
        QCOMPARE(PartialFile::putInPlace(partial, dir.filePath(u"Clip.mp4"_s), claims, &error),
                 std::optional(dir.filePath(expected)));
        QCOMPARE(contentOf(dir.filePath(expected)), QByteArray("ours"));
        for (const QString& name : taken) {
            QCOMPARE(contentOf(dir.filePath(name)), QByteArray("theirs"));
        }
        QVERIFY(!QFileInfo::exists(partial));
    }
};

QTEST_GUILESS_MAIN(PartialFileTest)
#include "tst_PartialFile.moc"
