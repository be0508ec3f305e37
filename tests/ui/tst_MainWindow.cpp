#include "TestSupport.h"
#include "ui/AppDelegate.h"
#include "ui/ControlBar.h"
#include "ui/DropFeedbackBanner.h"
#include "ui/DropOverlay.h"
#include "ui/FileItemRow.h"
#include "ui/Legibility.h"
#include "ui/FileListView.h"
#include "ui/HelpView.h"
#include "ui/MainWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QAccessible>
#include <QClipboard>
#include <QTimer>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

// Sidecars are written at once; a remux writes a partial output and holds until
// "release-<name>" exists, then finishes with a real MP4.
const QByteArray holdingFfmpeg = R"SH(for a in "$@"; do case "$a" in *.srt) printf '1\n00:00:00,000 --> 00:00:01,000\nx\n' > "$a";; esac; done
[ -n "$out" ] || exit 0
printf partial > "$out"
trap 'exit 255' TERM
while [ ! -e "$here/release-$(basename "$out")" ]; do sleep 0.02; done
cat "$here/sample.mp4" > "$out"
exit 0
)SH";

RemuxItem itemWith(ProcessingStatus status, double duration = 10, double progress = 0) {
    RemuxItem item(u"/videos/Season 1/Clip.mkv"_s);
    item.status = status;
    item.progress = progress;
    if (duration >= 0) {
        MediaInfo info;
        info.hasVideoStream = true;
        info.videoCodec = u"h264"_s;
        info.duration = duration;
        item.cachedMediaInfo = info;
    }
    return item;
}

// Clicks the button with `text` in the next modal message box that opens.
void answerNextAlert(const QString& text) {
    QTimer::singleShot(50, [text] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) {
            return;
        }
        for (QAbstractButton* button : box->buttons()) {
            if (button->text() == text) {
                button->click();
            }
        }
    });
}

} // namespace

class MainWindowTest final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<AppDelegate> app;
    std::unique_ptr<MainWindow> window;
    QString fakeBin;
    int quits = 0;

    RemuxService& engine() { return app->remuxer(); }
    bool enabled(const QString& text) { return window->action(text)->isEnabled(); }
    QList<QUuid> addAndProbe(const QStringList& media) {
        QStringList urls;
        for (const QString& name : media) {
            urls.append(TestSupport::copyInto(*folder,
                                              TestSupport::mediaPath(name.section(u'>', 0, 0)),
                                              name.section(u'>', 1, 1)));
        }
        const QList<QUuid> ids = engine().appendItems(urls);
        engine().probeItems(ids);
        for (const QUuid& id : ids) {
            if (!QTest::qWaitFor(
                    [&] {
                        const auto item = engine().item(id);
                        return item->status != ProcessingStatus::pending || item->cachedMediaInfo;
                    },
                    20000)) {
                qWarning("early probe did not end");
            }
        }
        return ids;
    }
    void useHoldingFfmpeg() {
        fakeBin = TestSupport::installFakeTool(*folder, u"ffmpeg"_s, holdingFfmpeg);
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s,
                    fakeBin + u"/ffprobe"_s);
    }
    void release(const QString& output) {
        QFile(fakeBin + u"/release-"_s + output).open(QIODevice::WriteOnly);
    }

private Q_SLOTS:
    void init() {
        folder = std::make_unique<QTemporaryDir>();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        app = std::make_unique<AppDelegate>();
        app->setQuitAction([this] { ++quits; });
        window = std::make_unique<MainWindow>(*app);
        window->show();
        quits = 0;
    }
    void cleanup() {
        for (QMessageBox* box : window->findChildren<QMessageBox*>()) {
            box->done(QMessageBox::Cancel);
        }
        window.reset();
        app.reset();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
    }

    void menusFollowTheEngine() {
        QVERIFY(enabled(u"Import…"_s));
        QVERIFY(!enabled(u"Start"_s));
        QVERIFY(!enabled(u"Clear Completed"_s));
        QVERIFY(!enabled(u"Clear All…"_s));
        QVERIFY(!enabled(u"Retry Failed"_s));
        QVERIFY(!enabled(u"Cancel All"_s));
        QVERIFY(!enabled(u"Use Source Folder"_s));

        useHoldingFfmpeg();
        addAndProbe({u"h264_aac.mkv>a.mkv"_s, u"no_video.mkv"_s});
        window->action(u"Start"_s)->trigger();
        QVERIFY(engine().isRemuxing());
        QVERIFY(!enabled(u"Start"_s));
        QVERIFY(!enabled(u"Retry Failed"_s));
        QVERIFY(enabled(u"Cancel All"_s));
        QVERIFY(enabled(u"Clear All…"_s));
        release(u"a.mp4"_s);
        QTRY_VERIFY(!engine().isRemuxing());
        QVERIFY(enabled(u"Start"_s)); // a finished queue can still be started
        QVERIFY(enabled(u"Clear Completed"_s));
        QVERIFY(enabled(u"Retry Failed"_s));
        engine().setCustomOutputDirectory(folder->path());
        QVERIFY(enabled(u"Use Source Folder"_s));
        window->action(u"Use Source Folder"_s)->trigger();
        QVERIFY(!engine().customOutputDirectory());
    }

    // clang-format off
    void contextMenuPerStatus_data() {
        QTest::addColumn<RemuxItem>("item");
        QTest::addColumn<QStringList>("entries");
        RemuxItem done = itemWith(ProcessingStatus::completed);
        done.outputURL = u"/videos/Clip.mp4"_s;
        QTest::newRow("pending") << itemWith(ProcessingStatus::pending) << QStringList{u"Show Original in File Manager"_s, u"Remove"_s};
        QTest::newRow("processing") << itemWith(ProcessingStatus::processing) << QStringList{u"Show Original in File Manager"_s, u"Cancel"_s, u"Remove"_s};
        RemuxItem explained = itemWith(ProcessingStatus::failed);
        explained.errorDetails = u"[h264 @ 0x1] no frame!"_s;
        QTest::newRow("failed") << itemWith(ProcessingStatus::failed) << QStringList{u"Show Original in File Manager"_s, u"Retry"_s, u"Remove"_s};
        QTest::newRow("failed with the tool's lines") << explained << QStringList{u"Show Original in File Manager"_s, u"Retry"_s, u"Copy Error Details"_s, u"Remove"_s};
        QTest::newRow("completed with output") << done << QStringList{u"Show Original in File Manager"_s, u"Show Converted File in File Manager"_s, u"Remove"_s};
        QTest::newRow("completed without output") << itemWith(ProcessingStatus::completed) << QStringList{u"Show Original in File Manager"_s, u"Remove"_s};
        QTest::newRow("skipped") << itemWith(ProcessingStatus::skipped) << QStringList{u"Show Original in File Manager"_s, u"Remove"_s};
    }
    // clang-format on
    // A failure's text keeps 4.5:1 on every row background a palette gives it.
    void errorTextKeepsItsContrast_data() {
        QTest::addColumn<QColor>("background");
        QTest::newRow("light row") << QColor(Qt::white);
        QTest::newRow("light alternate row") << QColor(0xf7, 0xf7, 0xf7);
        QTest::newRow("dark row") << QColor(0x1e, 0x1e, 0x1e);
        QTest::newRow("dark alternate row") << QColor(0x2a, 0x2a, 0x2a);
        QTest::newRow("selected row, Fusion's blue") << QColor(0x30, 0x8c, 0xc6);
        QTest::newRow("selected row, dark blue") << QColor(0x2f, 0x6f, 0xb3);
    }
    void errorTextKeepsItsContrast() {
        QFETCH(QColor, background);
        const QColor fallback = Legibility::contrastRatio(Qt::white, background) >
                                        Legibility::contrastRatio(Qt::black, background)
                                    ? QColor(Qt::white)
                                    : QColor(Qt::black);
        const QColor error = FileItemRow::errorColour(background, fallback);
        QVERIFY2(Legibility::contrastRatio(error, background) >= 4.5,
                 qPrintable(error.name() + u" on "_s + background.name()));
        // Red where red can be read; the row's own text colour elsewhere.
        QVERIFY(error == fallback || (error.red() > error.green() && error.red() > error.blue()));
    }

    void contextMenuPerStatus() {
        QFETCH(RemuxItem, item);
        QFETCH(QStringList, entries);
        QCOMPARE(FileListView::contextMenuEntries(item), entries);
    }

    // The row keeps its one sentence; the tooltip and the copy add what the tool said.
    void aFailureTellsWhatTheToolSaid() {
        const QUuid id = addAndProbe({u"not_video.mkv"_s}).first();
        const QModelIndex row = window->list().model()->index(0, 0);
        const QString tip = row.data(Qt::ToolTipRole).toString();
        QVERIFY2(tip.startsWith(u"This doesn't look like a video file, or it's too damaged to read.\n\n"_s), qPrintable(tip));
        QVERIFY(tip.contains(u"Invalid data found when processing input"_s));
        QMenu* menu = window->list().contextMenuFor(id);
        QVERIFY(menu);
        const QList<QAction*> actions = menu->actions();
        const auto copy = std::find_if(actions.begin(), actions.end(), [](QAction* action) {
            return action->text() == u"Copy Error Details";
        });
        QVERIFY(copy != actions.end());
        (*copy)->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), tip);
        menu->close();
        engine().retryItem(id);
        QVERIFY(!engine().item(id)->errorDetails);
    }

    void deleteAndRemove() {
        useHoldingFfmpeg();
        const QList<QUuid> ids = addAndProbe(
            {u"h264_aac.mkv>a.mkv"_s, u"h264_aac.mkv>b.mkv"_s, u"h264_aac.mkv>c.mkv"_s});
        FileListView& list = window->list();
        list.deleteSelection(); // nothing selected: nothing happens
        QCOMPARE(engine().items().size(), 3);
        engine().startBatch();
        QTRY_VERIFY(QFile::exists(folder->filePath(u"a.mp4"_s)));

        // Remove from the menu of a processing item asks first; Cancel keeps it.
        answerNextAlert(u"Cancel"_s);
        list.removeFromMenu(ids[0]);
        QTRY_VERIFY(!QApplication::activeModalWidget());
        QCOMPARE(engine().items().size(), 3);
        // The Delete key on the same item removes it with no question.
        list.selectionModel()->select(list.model()->index(0, 0), QItemSelectionModel::Select);
        QTest::keyClick(&list, Qt::Key_Delete);
        QCOMPARE(engine().items().size(), 2);
        QVERIFY(list.selectedIds().isEmpty());
        QTRY_VERIFY(!QFile::exists(folder->filePath(u"a.mp4"_s)));
        // A pending item goes at once.
        engine().cancelAll();
        list.removeFromMenu(ids[2]);
        QCOMPARE(engine().items().size(), 1);
        QVERIFY(!QApplication::activeModalWidget());
    }

    // The strip is on screen only while it has something to say, and goes when told.
    void theBannerShowsOnlyAMessage() {
        QTest::failOnWarning(QRegularExpression(u"animation"_s));
        DropFeedbackBanner& banner = window->banner();
        QTest::qWait(300);
        QVERIFY(!banner.isVisible());
        engine().setDropFeedbackMessage(u"2 unsupported files skipped"_s);
        QTRY_VERIFY(banner.isVisible());
        banner.dismissButton()->click();
        QTRY_VERIFY(!banner.isVisible());
        // A message that comes while the last one slides out stays.
        engine().setDropFeedbackMessage(u"1 unsupported file skipped"_s);
        QTRY_VERIFY(banner.isVisible());
        QTest::qWait(300);
        engine().setDropFeedbackMessage(std::nullopt);
        QTest::qWait(50);
        engine().setDropFeedbackMessage(u"3 unsupported files skipped"_s);
        QTest::qWait(500);
        QVERIFY(banner.isVisible());
        QCOMPARE(banner.text(), u"3 unsupported files skipped"_s);
        QVERIFY(banner.height() > banner.dismissButton()->height());
    }

    // A drop is a copy of local files; a link dragged from a browser is no drop.
    void theListTakesLocalFilesAsACopy() {
        FileListView& list = window->list();
        const QPoint centre = list.viewport()->rect().center();
        QMimeData link;
        link.setUrls({QUrl(u"https://example.org/clip.mkv"_s)});
        QDragEnterEvent linkEnter(centre, Qt::CopyAction | Qt::LinkAction, &link, Qt::LeftButton,
                                  Qt::NoModifier);
        QApplication::sendEvent(list.viewport(), &linkEnter);
        QVERIFY(!linkEnter.isAccepted());
        QVERIFY(!list.isDragging());
        QMimeData file;
        file.setUrls({QUrl::fromLocalFile(
            TestSupport::copyInto(*folder, TestSupport::mediaPath(u"h264_aac.mkv"_s)))});
        QDragEnterEvent fileEnter(centre, Qt::MoveAction | Qt::CopyAction, &file, Qt::LeftButton,
                                  Qt::NoModifier);
        QApplication::sendEvent(list.viewport(), &fileEnter);
        QVERIFY(fileEnter.isAccepted());
        QCOMPARE(fileEnter.dropAction(), Qt::CopyAction);
        QDropEvent drop(centre, Qt::MoveAction | Qt::CopyAction, &file, Qt::LeftButton,
                        Qt::NoModifier);
        QApplication::sendEvent(list.viewport(), &drop);
        QCOMPARE(drop.dropAction(), Qt::CopyAction);
        QTRY_COMPARE(engine().items().size(), 1);
    }

    // A right-click opens a row's menu; the selection stays the user's.
    void aRightClickLeavesTheSelection() {
        addAndProbe({u"no_video.mkv>a.mkv"_s, u"no_video.mkv>b.mkv"_s});
        FileListView& list = window->list();
        list.selectionModel()->select(list.model()->index(0, 0), QItemSelectionModel::Select);
        const QPoint onB = list.visualRect(list.model()->index(1, 0)).center();
        QTest::mousePress(list.viewport(), Qt::RightButton, {}, onB);
        QTest::mouseRelease(list.viewport(), Qt::RightButton, {}, onB);
        QCOMPARE(list.selectedIds(), QSet<QUuid>{engine().items().at(0).id});
    }

    // Return on a focused Start does nothing; Ctrl+Return starts, from the Help window
    // too, as do the window's other keys.
    void keysStartAndCancelFromEitherWindow() {
        useHoldingFfmpeg();
        addAndProbe({u"h264_aac.mkv>a.mkv"_s});
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        QPushButton* start = window->bar().button(u"start"_s);
        start->setFocus();
        QTest::keyClick(start, Qt::Key_Return);
        QVERIFY(!engine().isRemuxing());
        QTest::keyClick(window.get(), Qt::Key_F1);
        QWidget* help = app->helpWindow();
        QVERIFY(help && help->isVisible());
        help->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(help));
        QTest::keyClick(help, Qt::Key_Return, Qt::ControlModifier);
        QVERIFY(engine().isRemuxing());
        QTest::keyClick(help, Qt::Key_Escape, Qt::ControlModifier);
        QVERIFY(!engine().isRemuxing());
        help->close();
    }

    // What a screen reader meets: the placeholder as one element and no empty banner
    // at first; then a row an item, each read with its status or its progress.
    void aScreenReaderReadsTheWindow() {
        const auto names = [this] {
            QStringList found;
            const std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
                if (!node || node->state().invisible) {
                    return;
                }
                found.append(node->text(QAccessible::Name));
                for (int i = 0; i < node->childCount(); ++i) {
                    walk(node->child(i));
                }
            };
            walk(QAccessible::queryAccessibleInterface(window.get()));
            return found;
        };
        QTest::qWait(300);
        QCOMPARE(names().count(u"Drop video files here"_s), 1);
        QVERIFY(!names().contains(u"Dismiss notification"_s));
        QVERIFY(names().contains(u"Import"_s) && names().contains(u"Start"_s));
        useHoldingFfmpeg();
        addAndProbe({u"no_video.mkv>a.mkv"_s, u"long_20s.mkv>b.mkv"_s});
        engine().startBatch();
        QTRY_VERIFY(names().contains(u"b.mkv, Remuxing, 0 percent complete"_s));
        QVERIFY(names().contains(u"a.mkv, Status: Error"_s));
        QVERIFY(!names().contains(u"Drop video files here"_s));
        engine().cancelAll();
    }

    // Tab walks the window from the list through the bar, left to right, and back.
    void tabWalksTheWindowInReadingOrder() {
        addAndProbe({u"no_video.mkv>a.mkv"_s});
        engine().setDropFeedbackMessage(u"1 unsupported file skipped"_s);
        QTRY_VERIFY(window->banner().isVisible());
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        window->list().setFocus();
        QStringList order;
        for (int i = 0; i < 7; ++i) {
            QWidget* focus = QApplication::focusWidget();
            order.append(QAccessible::queryAccessibleInterface(focus)->text(QAccessible::Name));
            QTest::keyClick(focus, Qt::Key_Tab);
        }
        QCOMPARE(order, (QStringList{u"Queue"_s, u"Import"_s, u"Save To…"_s, u"Start"_s,
                                     u"Retry Failed"_s, u"Dismiss notification"_s, u"Queue"_s}));
    }

    void dropsAddRowsAndTheOverlayFollows() {
        FileListView& list = window->list();
        QVERIFY(list.overlay()->isVisible());
        const QString clip =
            TestSupport::copyInto(*folder, TestSupport::mediaPath(u"h264_aac.mkv"_s));
        QFile(folder->filePath(u"notes.txt"_s)).open(QIODevice::WriteOnly);
        QMimeData data;
        data.setUrls(
            {QUrl::fromLocalFile(clip), QUrl::fromLocalFile(folder->filePath(u"notes.txt"_s))});
        const QPoint centre = list.viewport()->rect().center();
        QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list.viewport(), &enter);
        QVERIFY(enter.isAccepted());
        QVERIFY(list.isDragging());
        QDropEvent drop(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list.viewport(), &drop);
        QVERIFY(drop.isAccepted());
        QVERIFY(!list.isDragging());
        QTRY_COMPARE(engine().items().size(), 1);
        QCOMPARE(engine().dropFeedbackMessage(), std::optional(u"1 unsupported file skipped"_s));
        QVERIFY(window->banner().isShowing());
        QTRY_VERIFY(window->banner().isVisible());
        QCOMPARE(window->banner().text(), u"1 unsupported file skipped"_s);
        QCOMPARE(window->banner().dismissButton()->accessibleName(), u"Dismiss notification"_s);
        window->banner().dismissButton()->click();
        QVERIFY(!window->banner().isShowing());
        QTRY_VERIFY(!window->banner().isVisible()); // after its 0.2 s slide
        QVERIFY(!engine().dropFeedbackMessage());
        QVERIFY(!list.overlay()->isVisible());
        engine().removeItem(engine().items().first().id);
        QVERIFY(list.overlay()->isVisible());
        QCOMPARE(list.overlay()->accessibleName(), u"Drop video files here"_s);
        QCOMPARE(list.overlay()->accessibleDescription(), u"Adds files to the conversion queue"_s);
    }

    // clang-format off
    void rowTexts_data() {
        QTest::addColumn<RemuxItem>("item");
        QTest::addColumn<QString>("statusText");
        QTest::addColumn<QString>("progressText");
        QTest::addColumn<QString>("accessibleLabel");
        QTest::addColumn<QString>("accessibleValue");
        QTest::addColumn<QString>("errorLine");
        RemuxItem noted = itemWith(ProcessingStatus::completed);
        noted.statusMessage = u"1 subtitle track failed to extract"_s;
        RemuxItem failed = itemWith(ProcessingStatus::failed);
        failed.error = u"No video stream found"_s;
        RemuxItem staleError = itemWith(ProcessingStatus::pending);
        staleError.error = u"Cancelled"_s;
        RemuxItem busyWithNote = itemWith(ProcessingStatus::processing, 10, 0.42);
        busyWithNote.statusMessage = u"note"_s;
        QTest::newRow("pending") << itemWith(ProcessingStatus::pending) << u"Pending"_s << u""_s << u"Status: Pending"_s << u""_s << u""_s;
        QTest::newRow("0.999 reads 99%") << itemWith(ProcessingStatus::processing, 10, 0.999) << u"Remuxing"_s << u"99%"_s << u"Remuxing Clip.mkv"_s << u"99 percent complete"_s << u""_s;
        QTest::newRow("1.0 reads 100%") << itemWith(ProcessingStatus::processing, 10, 1.0) << u"Remuxing"_s << u"100%"_s << u"Remuxing Clip.mkv"_s << u"100 percent complete"_s << u""_s;
        QTest::newRow("no duration yet: indeterminate") << itemWith(ProcessingStatus::processing, -1, 0.5) << u"Remuxing"_s << u"Remuxing…"_s << u"Remuxing Clip.mkv"_s << u""_s << u""_s;
        QTest::newRow("duration 0: indeterminate") << itemWith(ProcessingStatus::processing, 0, 0.5) << u"Remuxing"_s << u"Remuxing…"_s << u"Remuxing Clip.mkv"_s << u""_s << u""_s;
        QTest::newRow("a note replaces the word") << noted << u"1 subtitle track failed to extract"_s << u""_s << u"Status: 1 subtitle track failed to extract"_s << u""_s << u""_s;
        QTest::newRow("failed shows its error") << failed << u"Error"_s << u""_s << u"Status: Error"_s << u""_s << u"No video stream found"_s;
        QTest::newRow("an error on an item no longer failed is not shown") << staleError << u"Pending"_s << u""_s << u"Status: Pending"_s << u""_s << u""_s;
        QTest::newRow("processing ignores a note") << busyWithNote << u"note"_s << u"42%"_s << u"Remuxing Clip.mkv"_s << u"42 percent complete"_s << u""_s;
        QTest::newRow("skipped") << itemWith(ProcessingStatus::skipped) << u"Skipped"_s << u""_s << u"Status: Skipped"_s << u""_s << u""_s;
    }
    // clang-format on
    void rowTexts() {
        QFETCH(RemuxItem, item);
        QFETCH(QString, statusText);
        QFETCH(QString, progressText);
        QFETCH(QString, accessibleLabel);
        QFETCH(QString, accessibleValue);
        QFETCH(QString, errorLine);
        QCOMPARE(FileItemRow::fileName(item), u"Clip.mkv"_s);
        QCOMPARE(FileItemRow::statusText(item), statusText);
        QCOMPARE(FileItemRow::progressText(item), progressText);
        QCOMPARE(FileItemRow::accessibleLabel(item), accessibleLabel);
        QCOMPARE(FileItemRow::accessibleValue(item), accessibleValue);
        QCOMPARE(FileItemRow::errorLine(item), errorLine);
    }

    void controlCharactersInANameShowAsReplacements() {
        RemuxItem item(u"/tmp/line\nbreak\t.mkv"_s);
        item.status = ProcessingStatus::failed;
        item.error = u"/tmp/line\nbreak\t.mkv: Invalid data"_s;
        QCOMPARE(FileItemRow::fileName(RemuxItem(u"/a\u2028b\u202Evkm.exe"_s)),
                 u"a\uFFFDb\uFFFDvkm.exe"_s);
        QCOMPARE(FileItemRow::fileName(item), u"line\uFFFDbreak\uFFFD.mkv"_s);
        QCOMPARE(FileItemRow::pathText(item), u"/tmp/line\uFFFDbreak\uFFFD.mkv"_s);
        QCOMPARE(FileItemRow::errorLine(item), u"/tmp/line\uFFFDbreak\uFFFD.mkv: Invalid data"_s);
    }

    void oneItemsChangeRepaintsItsRowAlone() {
        addAndProbe({u"h264_aac.mkv>a.mkv"_s, u"h264_aac.mkv>b.mkv"_s});
        QSignalSpy changed(&window->list().queueModel(), &QAbstractItemModel::dataChanged);
        QSignalSpy reset(&window->list().queueModel(), &QAbstractItemModel::modelReset);
        engine().setProgress(0.5, engine().items().at(1).id);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.first().at(0).toModelIndex().row(), 1);
        QCOMPARE(changed.first().at(1).toModelIndex().row(), 1);
        QCOMPARE(reset.size(), 0);
    }

    void helpOpensOnceAndComesForward() {
        window->action(u"Morvane Help"_s)->trigger();
        QWidget* help = app->helpWindow();
        QVERIFY(help && help->isVisible());
        QCOMPARE(help->windowTitle(), u"Morvane Help"_s);
        window->action(u"Morvane Help"_s)->trigger();
        QCOMPARE(app->helpWindow(), help);
    }

    void helpTexts() {
        window->action(u"Morvane Help"_s)->trigger();
        HelpView* help = app->helpWindow()->findChild<HelpView*>();
        QVERIFY(help);
        const QStringList texts = help->texts();
        const QString all = texts.join(u'\n');
        for (const QString& title :
             {u"What Morvane Does"_s, u"Supported Files"_s, u"How Video Is Handled"_s,
              u"How Audio Is Handled"_s, u"How Subtitles Are Handled"_s, u"Skipped Files"_s,
              u"Output Location"_s, u"How to Use"_s, u"Keyboard Shortcuts"_s, u"Privacy"_s,
              u"Support"_s, u"Credits"_s}) {
            QVERIFY2(texts.contains(title), qPrintable(title));
        }
        QVERIFY(texts.contains(RemuxItem::supportedFormatsLabel()));
        // Markdown is rendered, never shown as marks.
        QVERIFY(texts.contains(
            u"Subtitles come in two kinds, and Morvane handles each differently."_s));
        QVERIFY(all.contains(u"Morvane remuxes video files into MP4s that play in QuickTime"_s));
        QVERIFY(!all.contains(u"**"_s));
        QVERIFY(!all.contains(u"⌘"_s)); // this build's keys are Ctrl ones
        QVERIFY(texts.contains(u"Ctrl+O"_s) && texts.contains(u"Ctrl+Return"_s));
        for (
            const QString& text :
            {u"The video stream is copied bit-for-bit into the new MP4 — no re-encoding, no quality loss. Even very large files typically finish in seconds because Morvane is rewriting the container, not rebuilding the picture."_s,
             u"A file marked Skipped is not an error. It means one of two things:"_s,
             u"A converted file with the same name already exists at the destination. Morvane will not overwrite existing files."_s,
             u"(Optional) Click Save To… to send every converted file to a single folder."_s,
             u"Cancel everything currently running"_s,
             u"Text subtitles (SubRip, SSA/ASS, mov_text, WebVTT) are stored as words plus timing data — the .srt files you'll find on subtitle download sites are this kind. Morvane embeds them inside the new MP4 as mov_text tracks AND extracts each one as a side-by-side .srt file you can edit or use elsewhere."_s}) {
            QVERIFY2(texts.contains(text), qPrintable(text));
        }
    }

    // The credits name what the ffmpeg that runs says of itself, not what a build
    // once found: a system update of FFmpeg must not make them false.
    void creditsNameTheFFmpegThatRuns() {
        TestSupport::installFakeTool(
            *folder, u"ffmpeg"_s,
            "sleep 0.2\necho 'ffmpeg version 9.8.7-1+deb13u2 Copyright (c) 2000-2031 the FFmpeg developers'\n"
            "echo 'configuration: --prefix=/usr --enable-gpl --enable-version3 --enable-libx265'\n");
        // Closed before ffmpeg answers: its answer must find nothing to write to.
        window->action(u"Morvane Help"_s)->trigger();
        app->helpWindow()->close();
        QTest::qWait(400);
        window->action(u"Morvane Help"_s)->trigger();
        HelpView* help = app->helpWindow()->findChild<HelpView*>();
        QVERIFY(help);
        QTRY_VERIFY(help->texts().contains(
            u"The FFmpeg that Morvane runs is built under the GPL-3.0-or-later license."_s));
        QVERIFY(help->texts().join(u'\n').contains(u"Morvane uses FFmpeg 9.8.7 to do the actual remux work."_s));
    }

    // Every paragraph, step, bullet and shortcut row, as the reader sees it.
    void everyHelpTextIsThere() {
        window->action(u"Morvane Help"_s)->trigger();
        const QStringList texts = app->helpWindow()->findChild<HelpView*>()->texts();
        // clang-format off
        const QStringList expected{
            u"Morvane remuxes video files into MP4s that play in QuickTime, Photos, Final Cut, and other Apple apps. Remuxing means changing the file's container — the outer format that holds the video and audio streams — without re-encoding the streams themselves. The video and audio are copied across exactly as they were in the original."_s,
            u"Because nothing is re-encoded, conversion finishes in seconds rather than hours, and the picture and sound are bit-for-bit identical to the source. The new file is also roughly the same size as the original."_s,
            u"Morvane accepts files with any of these container extensions:"_s,
            u"The extension is only half the story. Inside any video file, the picture data is stored in one of many possible video codecs (the format the video is encoded in). QuickTime only plays a handful of codecs, so Morvane can only remux files whose contents match. An AVI containing H.264 video will work; the same AVI containing an older codec like DivX or Xvid will not."_s,
            u"Compatible video codecs: H.264, HEVC, ProRes, MJPEG, and AV1 (the newer codec used by YouTube and Netflix). You don't need to know which codec your file uses ahead of time — drop it in and Morvane will tell you if it can't convert one. The rest of your batch keeps running either way."_s,
            u"Drop a folder to add every supported file inside it, including subfolders."_s,
            u"The video stream is copied bit-for-bit into the new MP4 — no re-encoding, no quality loss. Even very large files typically finish in seconds because Morvane is rewriting the container, not rebuilding the picture."_s,
            u"HEVC files (the codec iPhones use for modern recordings) are automatically tagged with the hvc1 marker that QuickTime requires. The one common case Morvane can't handle is 10-bit H.264 (sometimes labeled Hi10P), which QuickTime itself doesn't support — those files are rejected with a clear message."_s,
            u"Audio is copied across untouched whenever it's already in a QuickTime-compatible codec: AAC, MP3, Apple Lossless, AC3, or EAC3 (the latter two are the Dolby Digital surround formats found on most movies)."_s,
            u"Less common audio codecs — DTS, FLAC, Vorbis, Opus, TrueHD, and so on — aren't playable by QuickTime, so Morvane transcodes (re-encodes) them to AAC stereo at 192 kbps. This audio transcode is the only re-encoding Morvane ever performs; everything else, video included, is a bit-for-bit copy."_s,
            u"Subtitles come in two kinds, and Morvane handles each differently."_s,
            u"Text subtitles (SubRip, SSA/ASS, mov_text, WebVTT) are stored as words plus timing data — the .srt files you'll find on subtitle download sites are this kind. Morvane embeds them inside the new MP4 as mov_text tracks AND extracts each one as a side-by-side .srt file you can edit or use elsewhere."_s,
            u"Bitmap subtitles (PGS from Blu-rays, VobSub from DVDs) store each subtitle as a small image rather than text. They can't be converted to text without OCR, which Morvane doesn't do, so they're skipped. The video and audio still convert normally — only the bitmap subtitle tracks are dropped from the output."_s,
            u"A file marked Skipped is not an error. It means one of two things:"_s,
            u"If you're not sure whether a file needs converting, drop it in — Morvane will tell you."_s,
            u"By default, the converted file is saved next to the original — same folder, same base name. Drop in Vacation.mkv from your Movies folder and you'll find Vacation.mp4 in the same folder when it finishes. MJPEG footage is written as .mov instead, since that's QuickTime's native MJPEG container. The original is left untouched."_s,
            u"To collect all the converted files in one place, click Save To… in the toolbar and choose a folder. Every conversion will go there until you click Save To… again."_s,
            u"If a file with the same name already exists at the destination, Morvane skips that conversion rather than overwriting it."_s,
            u"Morvane runs entirely on your computer. It does not make network connections, collect telemetry, report analytics, or send any information about you or your files anywhere. The app has nothing to phone home to."_s,
            u"The only files Morvane touches are the ones you drop on it and the MP4s and .srt sidecars it writes next to them (or into the folder you chose with Save To…). It does not read or catalog the rest of your disk."_s,
            u"The file is already fully QuickTime-compatible (right container, right codecs, right HEVC tag). Remuxing it would produce a bit-for-bit copy of the original, so Morvane doesn't bother."_s,
            u"A converted file with the same name already exists at the destination. Morvane will not overwrite existing files."_s,
            u"Drag video files (or whole folders) onto the Morvane window. You can also click Import in the toolbar or press Ctrl+O. Folders are scanned recursively for supported files."_s,
            u"(Optional) Click Save To… to send every converted file to a single folder."_s,
            u"Click Start (or press Ctrl+Return). Morvane remuxes up to two files in parallel and shows live progress for each."_s,
            u"Right-click any item to cancel, retry, or reveal it in the file manager."_s,
            u"When the batch finishes, you'll get a notification. Use Retry Failed in the toolbar to reprocess any items that errored out."_s,
            u"Import files or folders"_s,
            u"Start remuxing"_s,
            u"Start remuxing (from menu)"_s,
            u"Cancel everything currently running"_s,
            u"Clear completed items from the list"_s,
            u"Show this help window"_s,
            u"Ctrl+O"_s,
            u"Ctrl+Return"_s,
            u"Ctrl+R"_s,
            u"Ctrl+Esc or Ctrl+."_s,
            u"Ctrl+K"_s,
            u"Ctrl+? or F1"_s,
        };
        // clang-format on
        for (const QString& text : expected) {
            QVERIFY2(texts.contains(text), qPrintable(text));
        }
    }

    void missingToolsRaiseTheAlertEachTimeTheWindowShows() {
        FFmpegServiceTesting::setSharedSupportPath(folder->filePath(u"nowhere"_s));
        window->hide();
        window->show();
        QMessageBox* alert = nullptr;
        QTRY_VERIFY((alert = window->findChild<QMessageBox*>(u"environmentAlert"_s)));
        QCOMPARE(alert->text(), u"FFmpeg Not Available"_s);
        QVERIFY(alert->informativeText().startsWith(u"ffmpeg not found in app bundle. The app must be built "
                                         u"with ffmpeg-bundle/ present.\n\n"
                                         u"This is a build-time problem"_s));
        QCOMPARE(window->findChildren<QMessageBox*>(u"environmentAlert"_s).size(), 1);
        alert->button(QMessageBox::Ok)->click();
        QTRY_VERIFY(!window->findChild<QMessageBox*>(u"environmentAlert"_s));
        window->hide();
        window->show();
        QTRY_VERIFY(window->findChild<QMessageBox*>(u"environmentAlert"_s));
    }

    void clearAllAsksFirst() {
        addAndProbe({u"no_video.mkv"_s});
        window->action(u"Clear All…"_s)->trigger();
        QMessageBox* confirm = window->findChild<QMessageBox*>(u"clearAllConfirmation"_s);
        QVERIFY(confirm);
        // The title is the text a person reads, where a desktop shows no title bar too.
        QCOMPARE(confirm->text(), u"Clear All Items?"_s);
        QCOMPARE(
            confirm->informativeText(),
            u"This will remove all items from the queue and cancel any in-progress remuxes."_s);
        // Return and Escape both leave everything as it was.
        QTest::keyClick(confirm, Qt::Key_Return);
        QTRY_VERIFY(!window->findChild<QMessageBox*>(u"clearAllConfirmation"_s));
        window->action(u"Clear All…"_s)->trigger();
        confirm = window->findChild<QMessageBox*>(u"clearAllConfirmation"_s);
        QTest::keyClick(confirm, Qt::Key_Escape);
        QCOMPARE(engine().items().size(), 1);
        QTRY_VERIFY(!window->findChild<QMessageBox*>(u"clearAllConfirmation"_s));
        window->action(u"Clear All…"_s)->trigger();
        confirm = window->findChild<QMessageBox*>(u"clearAllConfirmation"_s);
        for (QAbstractButton* button : confirm->buttons()) {
            if (button->text() == u"Clear All") {
                button->click();
            }
        }
        QVERIFY(engine().items().isEmpty());
    }

    void barFollowsTheQueue() {
        ControlBar& bar = window->bar();
        const auto shown = [&](const char* name) {
            return bar.button(QString::fromLatin1(name))->isVisibleTo(window.get());
        };
        const auto on = [&](const char* name) {
            return bar.button(QString::fromLatin1(name))->isEnabled();
        };
        QVERIFY(!on("start") && !on("clearCompleted"));
        QVERIFY(!shown("remove") && !shown("cancel") && !shown("retryFailed"));
        QVERIFY(shown("import") && shown("saveTo"));

        useHoldingFfmpeg();
        addAndProbe({u"no_video.mkv"_s, u"h264_aac.mkv>a.mkv"_s});
        QVERIFY(shown("retryFailed"));
        bar.button(u"start"_s)->click();
        QVERIFY(!on("start") && shown("cancel") && !shown("retryFailed"));
        release(u"a.mp4"_s);
        QTRY_VERIFY(!engine().isRemuxing());
        QVERIFY(on("start") && !shown("cancel") && shown("retryFailed") && on("clearCompleted"));
    }

    void removeButtonAsksWhenItShould() {
        useHoldingFfmpeg();
        const QList<QUuid> ids = addAndProbe({u"h264_aac.mkv>a.mkv"_s, u"h264_aac.mkv>b.mkv"_s,
                                              u"h264_aac.mkv>c.mkv"_s, u"h264_aac.mkv>d.mkv"_s});
        FileListView& list = window->list();
        QPushButton* remove = window->bar().button(u"remove"_s);
        const auto select = [&](QList<int> rows) {
            list.clearSelection();
            for (int row : rows) {
                list.selectionModel()->select(list.model()->index(row, 0),
                                              QItemSelectionModel::Select);
            }
        };
        select({3}); // one pending row: gone at once
        QCOMPARE(remove->text(), u"Remove"_s);
        remove->click();
        QCOMPARE(engine().items().size(), 3);
        QVERIFY(!window->findChild<QMessageBox*>(u"removeSelectionConfirmation"_s));

        select({1, 2}); // two pending rows: the dialog counts them
        QCOMPARE(remove->text(), u"Remove 2"_s);
        remove->click();
        QMessageBox* confirm = window->findChild<QMessageBox*>(u"removeSelectionConfirmation"_s);
        QVERIFY(confirm);
        QCOMPARE(confirm->text(), u"Remove 2 items?"_s);
        confirm->button(QMessageBox::Cancel)->click();
        QCOMPARE(engine().items().size(), 3);
        QTRY_VERIFY(!window->findChild<QMessageBox*>(u"removeSelectionConfirmation"_s));

        engine().startBatch(); // a and b run
        QTRY_COMPARE(engine().item(ids[0])->status, ProcessingStatus::processing);
        select({0});
        remove->click();
        QTRY_VERIFY((confirm = window->findChild<QMessageBox*>(u"removeSelectionConfirmation"_s)));
        QCOMPARE(confirm->text(), u"Remove this item?"_s);
        QCOMPARE(
            confirm->informativeText(),
            u"This stops any in-progress conversion for the selected items. Source files are not affected."_s);
        for (QAbstractButton* button : confirm->buttons()) {
            if (button->text() == u"Remove") {
                button->click();
            }
        }
        QVERIFY(!engine().item(ids[0]));
        QVERIFY(list.selectedIds().isEmpty());
        engine().cancelAll();
    }

    void saveToToggles() {
        QPushButton* saveTo = window->bar().button(u"saveTo"_s);
        QCOMPARE(saveTo->text(), u"Save To…"_s);
        QCOMPARE(saveTo->toolTip(), u"Choose a folder for all converted files"_s);
        engine().setCustomOutputDirectory(folder->filePath(u"Exports"_s));
        QCOMPARE(saveTo->text(), u"Save To: Exports"_s);
        QCOMPARE(saveTo->toolTip(), u"Click to reset to source folder"_s);
        saveTo->click();
        QVERIFY(!engine().customOutputDirectory());
        QCOMPARE(saveTo->text(), u"Save To…"_s);
    }

    void titleCountsFinishedItemsDuringABatch() {
        useHoldingFfmpeg();
        QStringList media{u"no_video.mkv"_s};
        for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h", "i"}) {
            media.append(u"h264_aac.mkv>%1.mkv"_s.arg(QLatin1StringView(name)));
        }
        addAndProbe(media);
        for (const char* name : {"a", "b", "c"}) {
            release(u"%1.mp4"_s.arg(QLatin1StringView(name)));
        }
        QCOMPARE(window->windowTitle(), u"Morvane"_s);
        engine().startBatch();
        QTRY_COMPARE(window->windowTitle(), u"Morvane — 4 of 10"_s);
        // Clear Completed during the run lowers both numbers; the rows that stay keep
        // their selection, and no other row takes it.
        FileListView& list = window->list();
        const QUuid kept = engine().items().at(4).id; // d, running
        list.selectionModel()->select(list.model()->index(1, 0),
                                      QItemSelectionModel::Select); // a, done
        list.selectionModel()->select(list.model()->index(4, 0), QItemSelectionModel::Select);
        engine().clearCompleted();
        QCOMPARE(window->windowTitle(), u"Morvane — 1 of 7"_s);
        QCOMPARE(list.selectedIds(), QSet<QUuid>({kept}));
        engine().cancelAll();
        QCOMPARE(window->windowTitle(), u"Morvane"_s);
    }

    void closingTheWindow() {
        window->close(); // idle: a quit request, granted at once
        QCOMPARE(quits, 1);
        useHoldingFfmpeg();
        addAndProbe({u"h264_aac.mkv>a.mkv"_s});
        window->show();
        engine().startBatch();
        window->close(); // during a batch: the window goes, the batch stays
        QCOMPARE(quits, 1);
        QVERIFY(!window->isVisible());
        QVERIFY(engine().isRemuxing());
        window->bringForward();
        QVERIFY(window->isVisible());
        engine().cancelAll();
    }

    void quitGuard() {
        QCOMPARE(app->applicationShouldTerminate(window.get()),
                 AppDelegate::TerminateReply::now); // idle: no alert
        useHoldingFfmpeg();
        addAndProbe({u"h264_aac.mkv>a.mkv"_s});
        engine().startBatch();
        QTRY_VERIFY(QFile::exists(folder->filePath(u"a.mp4"_s)));

        answerNextAlert(u"Keep Running"_s);
        QCOMPARE(app->applicationShouldTerminate(window.get()),
                 AppDelegate::TerminateReply::cancel);
        QVERIFY(engine().isRemuxing());
        QTest::qWait(500);
        QCOMPARE(quits, 0);

        answerNextAlert(u"Cancel Remux and Quit"_s);
        QCOMPARE(app->applicationShouldTerminate(window.get()),
                 AppDelegate::TerminateReply::later); // the quit comes by itself
        QVERIFY(!engine().isRemuxing());
        QTRY_COMPARE(quits, 1);
        QTRY_VERIFY(!QFile::exists(folder->filePath(u"a.mp4"_s)));
    }

    // A window with one item of each status: rows stand one below the other.
    void lookOfEveryStatus() {
        useHoldingFfmpeg();
        addAndProbe({u"subtitles.mkv>Holiday in Lisbon.mkv"_s, u"hevc_aac.mkv>Concert.mkv"_s,
                     u"h264_aac.mp4>Already fine.mp4"_s, u"no_video.mkv>Podcast episode 12.mkv"_s,
                     u"long_20s.mkv>Second in line.mkv"_s, u"h264_aac.mkv>Waiting its turn.mkv"_s});
        release(u"Holiday in Lisbon.mp4"_s);
        engine().startBatch();
        QTRY_COMPARE(engine().items().at(0).status, ProcessingStatus::completed);
        QTRY_COMPARE(engine().items().at(1).status, ProcessingStatus::processing);
        engine().setProgress(0.42, engine().items().at(1).id);
        // Rows stand one below the other, the failed one taller for its error line.
        FileListView& list = window->list();
        QTRY_COMPARE(list.visualRect(list.model()->index(4, 0)).top(),
                     list.visualRect(list.model()->index(3, 0)).bottom() + 1);
        QVERIFY(list.visualRect(list.model()->index(3, 0)).height() >
                list.visualRect(list.model()->index(2, 0)).height());
        QCOMPARE(rawValue(engine().items().at(2).status), u"Skipped"_s);
        QCOMPARE(rawValue(engine().items().at(3).status), u"Error"_s);
        QCOMPARE(engine().items().at(4).status, ProcessingStatus::processing);
        QCOMPARE(engine().items().at(5).status, ProcessingStatus::pending);
        release(u"Concert.mp4"_s);
        release(u"Second in line.mp4"_s);
        release(u"Waiting its turn.mp4"_s);
        QTRY_VERIFY(!engine().isRemuxing());
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_MainWindow.moc"
