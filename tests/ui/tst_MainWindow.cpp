#include "TestSupport.h"
#include "ui/AppDelegate.h"
#include "ui/ControlBar.h"
#include "ui/DropFeedbackBanner.h"
#include "ui/FileItemRow.h"
#include "ui/FileListView.h"
#include "ui/Legibility.h"
#include "ui/MainWindow.h"

#include <QBitmap>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using namespace Qt::StringLiterals;
using Reply = AppDelegate::TerminateReply;

namespace {

// A remux writes a partial output and holds until "release-<name>" exists, then
// finishes with a real MP4.
const QByteArray holdingFfmpeg =
    "[ -n \"$out\" ] || exit 0\nprintf partial > \"$out\"\ntrap 'exit 255' TERM\n"
    "while [ ! -e \"$here/release-$final\" ]; do sleep 0.02; done\n"
    "cat \"$here/sample.mp4\" > \"$out\"\n";

RemuxItem itemWith(
    ProcessingStatus status, const std::function<void(RemuxItem&)>& change = [](RemuxItem&) {}) {
    RemuxItem item(u"/videos/Clip.mkv"_s);
    item.status = status;
    item.cachedMediaInfo.emplace().duration = 10;
    change(item);
    return item;
}

void press(QWidget* box, const QString& text) {
    for (QAbstractButton* button :
         box ? box->findChildren<QAbstractButton*>() : QList<QAbstractButton*>()) {
        if (button->text() == text) {
            button->click();
        }
    }
}

// Clicks the button with `text` in the next modal box that opens.
void answerNextAlert(const QString& text) {
    QTimer::singleShot(50, [text] { press(QApplication::activeModalWidget(), text); });
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
    QMessageBox* dialog(const QString& name) { return window->findChild<QMessageBox*>(name); }
    QPushButton* button(const char* name) { return window->bar().button(QLatin1StringView(name)); }
    bool enabled(const QString& text) { return window->action(text)->isEnabled(); }
    // Each of `names` (test media) copied as "<n>.mkv" and probed, with a remux that holds.
    void addAndProbe(const QStringList& names) {
        fakeBin = TestSupport::installFakeTool(*folder, u"ffmpeg"_s, holdingFfmpeg);
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s,
                    fakeBin + u"/ffprobe"_s);
        QStringList paths;
        for (const QString& name : names) {
            paths.append(TestSupport::copyInto(*folder, TestSupport::mediaPath(name),
                                               u"%1.mkv"_s.arg(paths.size())));
        }
        engine().addFiles(paths, 0);
        const QList<RemuxItem>& items = engine().items();
        QTRY_VERIFY(std::none_of(items.begin(), items.end(), [](const RemuxItem& item) {
            return item.status == ProcessingStatus::pending && !item.cachedMediaInfo;
        }));
    }
    void release(int n) { QFile(fakeBin + u"/release-%1.mp4"_s.arg(n)).open(QIODevice::WriteOnly); }

private Q_SLOTS:
    void init() {
        window.reset();
        folder = std::make_unique<QTemporaryDir>();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        app = std::make_unique<AppDelegate>();
        app->setQuitAction([this] { ++quits; });
        window = std::make_unique<MainWindow>(*app);
        window->show();
        quits = 0;
    }

    // Menus, bar and title follow the engine. Closing the idle window quits; during a
    // batch the window goes and the batch stays, the quit guard asks first, and with
    // no tray the window comes back as the batch ends.
    void theWindowFollowsTheBatch() {
        QVERIFY(!enabled(u"Start"_s) && !enabled(u"Cancel All"_s) && !enabled(u"Clear All…"_s));
        QVERIFY(!button("start")->isEnabled() && !button("cancel")->isVisible());
        answerNextAlert(u"Keep Running"_s); // an idle quit asks nothing
        window->close();
        QCOMPARE(quits, 1);
        window->show();
        addAndProbe({u"no_video.mkv"_s, u"h264_aac.mkv"_s, u"h264_aac.mkv"_s});
        QVERIFY(button("retryFailed")->isVisible() && enabled(u"Retry Failed"_s));
        release(1);
        button("start")->click();
        // The title counts the items that are done, failed ones too.
        QTRY_COMPARE(window->windowTitle(), u"Morvane — 2 of 3"_s);
        QVERIFY(!enabled(u"Start"_s) && !button("start")->isEnabled() &&
                !enabled(u"Retry Failed"_s));
        QVERIFY(!button("retryFailed")->isVisible() && button("cancel")->isVisible());
        window->close();
        answerNextAlert(u"Keep Running"_s);
        QCOMPARE(app->applicationShouldTerminate(window.get()), Reply::cancel);
        QVERIFY(engine().isRemuxing() && !window->isVisible());
        answerNextAlert(u"Cancel Remux and Quit"_s);
        QCOMPARE(app->applicationShouldTerminate(window.get()), Reply::later); // quits by itself
        QVERIFY(!engine().isRemuxing() && window->isVisible());
        QTRY_COMPARE(quits, 2);
        QTRY_VERIFY(!QFile::exists(folder->filePath(u"2.mp4"_s)));
        // A finished queue can still be started.
        QVERIFY(enabled(u"Start"_s) && button("start")->isEnabled() &&
                !button("cancel")->isVisible());
        QVERIFY(enabled(u"Clear Completed"_s) && button("clearCompleted")->isEnabled());
    }

    // clang-format off
    void rowTexts_data() {
        QTest::addColumn<RemuxItem>("item");
        QTest::addColumn<QString>("texts"); // name|status|progress|a11y label|a11y value|error line
        QTest::addColumn<QString>("menu"); // after "Show Original in File Manager"
        using S = ProcessingStatus;
        QTest::newRow("pending") << itemWith(S::pending) << u"Clip.mkv|Pending||Status: Pending||"_s << u"Remove"_s;
        QTest::newRow("0.999 reads 99%") << itemWith(S::processing, [](RemuxItem& i) { i.progress = 0.999; }) << u"Clip.mkv|Remuxing|99%|Remuxing Clip.mkv|99 percent complete|"_s << u"Cancel, Remove"_s;
        QTest::newRow("no duration yet: indeterminate") << itemWith(S::processing, [](RemuxItem& i) { i.cachedMediaInfo.reset(); }) << u"Clip.mkv|Remuxing|Remuxing…|Remuxing Clip.mkv||"_s << u"Cancel, Remove"_s;
        QTest::newRow("duration 0: indeterminate") << itemWith(S::processing, [](RemuxItem& i) { i.cachedMediaInfo->duration = 0; }) << u"Clip.mkv|Remuxing|Remuxing…|Remuxing Clip.mkv||"_s << u"Cancel, Remove"_s;
        QTest::newRow("a note replaces the word") << itemWith(S::completed, [](RemuxItem& i) { i.statusMessage = u"1 subtitle track failed"_s; }) << u"Clip.mkv|1 subtitle track failed||Status: 1 subtitle track failed||"_s << u"Remove"_s;
        QTest::newRow("completed with output") << itemWith(S::completed, [](RemuxItem& i) { i.outputURL = u"/videos/Clip.mp4"_s; }) << u"Clip.mkv|Completed||Status: Completed||"_s << u"Show Converted File in File Manager, Remove"_s;
        QTest::newRow("failed shows its error") << itemWith(S::failed, [](RemuxItem& i) { i.error = u"No video stream found"_s; }) << u"Clip.mkv|Error||Status: Error||No video stream found"_s << u"Retry, Remove"_s;
        QTest::newRow("failed with the tool's lines") << itemWith(S::failed, [](RemuxItem& i) { i.errorDetails = u"x"_s; }) << u"Clip.mkv|Error||Status: Error||"_s << u"Retry, Copy Error Details, Remove"_s;
        QTest::newRow("an error on an item no longer failed is not shown") << itemWith(S::skipped, [](RemuxItem& i) { i.error = u"Cancelled"_s; }) << u"Clip.mkv|Skipped||Status: Skipped||"_s << u"Remove"_s;
        // Control characters, separators and direction overrides would break the row or disguise the name.
        QTest::newRow("unprintable name") << itemWith(S::failed, [](RemuxItem& i) { i.url = u"/t/a\nb\tc\u2028d\u202Ee.mkv"_s; i.error = u"a\nb: bad"_s; }) << u"a\uFFFDb\uFFFDc\uFFFDd\uFFFDe.mkv|Error||Status: Error||a\uFFFDb: bad"_s << u"Retry, Remove"_s;
    }
    // clang-format on
    void rowTexts() {
        QFETCH(RemuxItem, item);
        QFETCH(QString, texts);
        QFETCH(QString, menu);
        const QStringList seen{
            FileItemRow::fileName(item),        FileItemRow::statusText(item),
            FileItemRow::progressText(item),    FileItemRow::accessibleLabel(item),
            FileItemRow::accessibleValue(item), FileItemRow::errorLine(item)};
        QCOMPARE(seen.join(u'|'), texts);
        QCOMPARE(FileListView::contextMenuEntries(item).join(u", "_s),
                 u"Show Original in File Manager, "_s + menu);
    }

    // An icon too faint on its background is recoloured in the ink, its shape kept.
    void faintIconsTakeTheInk() {
        QPixmap faint(16, 16);
        faint.fill(Qt::transparent);
        QPainter(&faint).fillRect(0, 0, 8, 8, QColor(0x30, 0x30, 0x30));
        const QImage shown = Legibility::visiblePixmap(QIcon(faint), QSize(16, 16), 1,
                                                       QColor(0x1e, 0x1e, 0x1e), Qt::white)
                                 .toImage();
        QCOMPARE(shown.pixel(2, 2), qRgb(255, 255, 255));
        QCOMPARE(qAlpha(shown.pixel(12, 12)), 0);
    }

    void removingAsksWhenItShould() {
        addAndProbe({u"h264_aac.mkv"_s, u"h264_aac.mkv"_s, u"h264_aac.mkv"_s});
        FileListView& list = window->list();
        QPushButton* remove = button("remove");
        list.selectAll(); // many rows: the question counts them, and Cancel keeps them
        QCOMPARE(remove->text(), u"Remove 3"_s);
        remove->click();
        QVERIFY(dialog(u"removeSelectionConfirmation"_s)->isVisible());
        QCOMPARE(dialog(u"removeSelectionConfirmation"_s)->text(), u"Remove 3 items?"_s);
        press(dialog(u"removeSelectionConfirmation"_s), u"Cancel"_s);
        QTRY_VERIFY(!dialog(u"removeSelectionConfirmation"_s));
        engine().startBatch();
        QTRY_VERIFY(QFile::exists(folder->filePath(u".0.mp4.morvane-partial"_s)));
        list.removeFromMenu(engine().items().at(0).id); // a running row's menu asks first
        QVERIFY(dialog(u"removeConfirmation"_s)->isVisible());
        press(dialog(u"removeConfirmation"_s), u"Cancel"_s);
        list.setCurrentIndex(list.model()->index(0, 0)); // the Delete key asks nothing
        QTest::keyClick(&list, Qt::Key_Delete);
        QTRY_VERIFY(!QFile::exists(folder->filePath(u".0.mp4.morvane-partial"_s)));
        list.setCurrentIndex(list.model()->index(0, 0)); // one running row, from the bar
        QCOMPARE(remove->text(), u"Remove"_s);
        remove->click();
        QCOMPARE(dialog(u"removeSelectionConfirmation"_s)->text(), u"Remove this item?"_s);
        press(dialog(u"removeSelectionConfirmation"_s), u"Remove"_s);
        QVERIFY(list.selectedIds().isEmpty() && engine().items().size() == 1);
    }

    // The empty list shows its placeholder and no empty strip above it. A drop adds its
    // files as a copy and the strip says what it left out; each row reads, to a screen
    // reader, its status or its progress. The strip fades in, goes when told, and stays
    // for a message that comes while the last one slides out.
    void dropsAndWhatTheWindowShows() {
        FileListView& list = window->list();
        DropFeedbackBanner& banner = window->banner();
        QTest::qWait(300);
        QVERIFY(list.overlay()->isVisible() && !banner.isVisible());
        QCOMPARE(list.overlay()->accessibleName(), u"Drop video files here"_s);
        // The placeholder's symbol and lines stand in the middle of the empty list.
        const QImage shot = window->grab().toImage().copy(
            QRect(list.overlay()->mapTo(window.get(), QPoint()), list.overlay()->size()));
        const QRect ink = QRegion(QBitmap::fromImage(
                                      shot.createMaskFromColor(shot.pixel(0, 0), Qt::MaskOutColor)))
                              .boundingRect();
        QVERIFY(qAbs(ink.top() - (shot.height() - 1 - ink.bottom())) < 8);

        addAndProbe({u"no_video.mkv"_s});
        QFile(folder->filePath(u"notes.txt"_s)).open(QIODevice::WriteOnly);
        QMimeData files;
        files.setUrls({QUrl::fromLocalFile(TestSupport::copyInto(
                           *folder, TestSupport::mediaPath(u"long_20s.mkv"_s))),
                       QUrl::fromLocalFile(folder->filePath(u"notes.txt"_s))});
        const QPoint centre = list.viewport()->rect().center();
        QDragEnterEvent enter(centre, Qt::CopyAction, &files, Qt::LeftButton, {});
        QApplication::sendEvent(list.viewport(), &enter);
        QDropEvent drop(centre, Qt::MoveAction | Qt::CopyAction, &files, Qt::LeftButton, {});
        QApplication::sendEvent(list.viewport(), &drop);
        QCOMPARE(drop.dropAction(), Qt::CopyAction); // the sources stay where they are
        QTRY_VERIFY(list.model()->rowCount() == 2 && engine().items().at(1).cachedMediaInfo);
        QVERIFY(!list.overlay()->isVisible() && list.viewport()->acceptDrops());
        QTRY_VERIFY(banner.isVisible());
        QCOMPARE(banner.text(), u"1 unsupported file skipped"_s);
        engine().startBatch();
        QTRY_COMPARE(engine().items().at(1).status, ProcessingStatus::processing);
        QSignalSpy changed(&list.queueModel(), &QAbstractItemModel::dataChanged);
        engine().setProgress(0.42, engine().items().at(1).id);
        QCOMPARE(changed.size(), 1); // the row that changed, alone
        QCOMPARE(changed.first().at(0).toModelIndex().row(), 1);
        const auto read = [&](int row) {
            return list.model()->index(row, 0).data(Qt::AccessibleTextRole).toString();
        };
        QCOMPARE(read(0), u"0.mkv, Status: Error"_s);
        QCOMPARE(read(1), u"long_20s.mkv, Remuxing, 42 percent complete"_s);
        engine().cancelAll();

        banner.dismissButton()->click();
        QTRY_VERIFY(!banner.isVisible());
        engine().setDropFeedbackMessage(u"2 unsupported files skipped"_s);
        QVERIFY(qobject_cast<QGraphicsOpacityEffect*>(banner.graphicsEffect())->opacity() < 1);
        QTest::qWait(300);
        engine().setDropFeedbackMessage(std::nullopt);
        QTest::qWait(50);
        engine().setDropFeedbackMessage(u"3 unsupported files skipped"_s);
        QTest::qWait(500);
        QVERIFY(banner.isVisible() && banner.height() > banner.dismissButton()->height());
        QCOMPARE(banner.text(), u"3 unsupported files skipped"_s);
    }

    // Help opens once, at its size, each key shown in bold beside what it does.
    void helpShowsTheKeys() {
        window->action(u"Morvane Help"_s)->trigger();
        QWidget* help = app->helpWindow();
        QVERIFY(help && help->isVisible());
        QCOMPARE(help->size(), QSize(760, 720));
        window->action(u"Morvane Help"_s)->trigger();
        QCOMPARE(app->helpWindow(), help);
        QMap<QString, QLabel*> labels;
        for (QLabel* label : help->findChildren<QLabel*>()) {
            labels.insert(label->text(), label);
        }
        QCOMPARE(labels[u"Ctrl+O"_s]->y(), labels[u"Import files or folders"_s]->y());
        QCOMPARE(labels[u"Ctrl+O"_s]->font().weight(), QFont::DemiBold);
    }

    void secondLaunchHandsOverAndEnds() {
        QTemporaryDir runtime;
        qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8()); // both launches inherit these
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("QT_LOGGING_RULES", "com.morvane.App.info=true");
        const QString application = QCoreApplication::applicationDirPath() + u"/morvane"_s;
        QProcess first;
        QProcess second;
        first.start(application, {});
        QTRY_VERIFY_WITH_TIMEOUT(
            !QDir(runtime.path()).entryList({u"morvane-*"_s}, QDir::System).isEmpty(), 10000);

        // Unanswered, the second launch would wait and then stay as an instance of its own.
        second.start(application, {TestSupport::mediaPath(u"h264_aac.mkv"_s)});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QString log;
        QTRY_VERIFY_WITH_TIMEOUT((log += QString::fromUtf8(first.readAllStandardError()),
                                  log.contains(u"Another launch handed over 1 path(s)"_s)),
                                 5000);
        first.terminate();
        QVERIFY(first.waitForFinished(10000));
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_MainWindow.moc"
