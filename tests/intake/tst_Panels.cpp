#include "DBusSession.h"
#include "LogCapture.h"
#include "intake/Panels.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QFile>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {
// Selects the named entries in the dialog's list once the folder has loaded.
bool selectInDialog(QFileDialog* dialog, const QStringList& names) {
    auto* view = dialog->findChild<QAbstractItemView*>(u"listView"_s);
    if (!view) {
        return false;
    }
    view->clearSelection();
    for (const QString& name : names) {
        bool found = false;
        if (!QTest::qWaitFor([&] {
                const QModelIndexList hits =
                    view->model()->match(view->model()->index(0, 0, view->rootIndex()),
                                         Qt::DisplayRole, name, 1, Qt::MatchExactly);
                if (!hits.isEmpty()) {
                    view->selectionModel()->select(hits.first(), QItemSelectionModel::Select |
                                                                     QItemSelectionModel::Rows);
                    found = true;
                }
                return found;
            })) {
            return false;
        }
    }
    return true;
}
} // namespace

class PanelsTest final : public QObject {
    Q_OBJECT

    DBusSession bus;
    FileManagerRecorder fileManager;
    QTemporaryDir work;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(bus.start());
        QVERIFY(bus.registerFileManager(&fileManager));
        QDir().mkpath(work.filePath(u"Season 1"_s));
        QFile(work.filePath(u"a.mkv"_s)).open(QIODevice::WriteOnly);
        QFile(work.filePath(u"b.mp4"_s)).open(QIODevice::WriteOnly);
    }

    void importFilterNamesTheTenExtensions() {
        const QString filter = Panels::importNameFilter();
        for (const char* extension :
             {"avi", "m2ts", "m4v", "mkv", "mov", "mp4", "mts", "mxf", "ts", "webm"}) {
            QVERIFY2(filter.contains(u"*."_s + QLatin1StringView(extension) + u' '), extension);
        }
        QCOMPARE(filter.count(u"*."_s), 20);
    }

    void confirmedImportGivesFilesAndFoldersInOrder() {
        QStringList received;
        int calls = 0;
        QFileDialog* dialog = Panels::presentImportPanel(nullptr, [&](QStringList urls) {
            received = urls;
            ++calls;
        });
        QVERIFY(dialog->isVisible()); // open, and open() has returned
        QCOMPARE(dialog->windowTitle(), u"Choose video files or folders to remux"_s);
        QCOMPARE(dialog->labelText(QFileDialog::Accept), u"Add"_s);
        dialog->setDirectory(work.path());
        QVERIFY(selectInDialog(dialog, {u"Season 1"_s}));
        // The button a person presses says what it does with a folder too.
        const auto* buttons = dialog->findChild<QDialogButtonBox*>();
        QTRY_COMPARE(buttons->buttons().first()->text(), u"Add"_s);
        QVERIFY(selectInDialog(dialog, {u"Season 1"_s, u"a.mkv"_s}));
        static_cast<QDialog*>(dialog)->accept(); // the confirming button
        QCOMPARE(calls, 1);
        // In the panel's order: folders first, then files, by name.
        QCOMPARE(received, QStringList({work.filePath(u"Season 1"_s), work.filePath(u"a.mkv"_s)}));
    }

    void cancelledPanelsCallNothing() {
        int calls = 0;
        Panels::presentImportPanel(nullptr, [&](QStringList) { ++calls; })->reject();
        Panels::presentOutputFolderPanel(nullptr, [&](QString) { ++calls; })->reject();
        QCOMPARE(calls, 0);
    }

    void outputPanelGivesOneFolder() {
        QString chosen;
        QFileDialog* dialog =
            Panels::presentOutputFolderPanel(nullptr, [&](QString folder) { chosen = folder; });
        QCOMPARE(dialog->windowTitle(), u"Choose output directory for converted files"_s);
        QCOMPARE(dialog->labelText(QFileDialog::Accept), u"Select"_s);
        QCOMPARE(dialog->fileMode(), QFileDialog::Directory);
        QVERIFY(!dialog->testOption(QFileDialog::ReadOnly)); // new folders can be made
        dialog->setDirectory(work.path());
        dialog->selectFile(work.filePath(u"Season 1"_s));
        static_cast<QDialog*>(dialog)->accept(); // the confirming button
        QCOMPARE(chosen, work.filePath(u"Season 1"_s));
    }

    void revealAsksTheFileManager() {
        Panels::revealInFinder(work.filePath(u"b.mp4"_s));
        QTRY_COMPARE(fileManager.shown.size(), 1);
        QCOMPARE(fileManager.shown.first(),
                 QStringList({QUrl::fromLocalFile(work.filePath(u"b.mp4"_s)).toString()}));
    }

    void revealOfAMissingFileLogsAndAsksNothing() {
        LogCapture log;
        fileManager.shown.clear();
        Panels::revealInFinder(work.filePath(u"moved away.mkv"_s));
        QCOMPARE(log.count("com.morvane.Panels", u"Failed to reveal in Finder: moved away.mkv"_s),
                 1);
        QTest::qWait(100);
        QVERIFY(fileManager.shown.isEmpty());
    }
};

QTEST_MAIN(PanelsTest)
#include "tst_Panels.moc"
