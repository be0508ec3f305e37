// Renders the window in the states a person meets, for the eye and for docs/:
// the empty start, the banner, a queue with one item of each status and a failed
// row's tooltip open, a confirmation, and the Help window. Run under an X server by
// scripts/screenshots, once per theme and scale:
//     morvane_screenshots OUT_DIR light|dark
// Each picture is OUT_DIR/<state>.png, cut from the screen to the window it shows.

#include "TestSupport.h"
#include "ui/AppDelegate.h"
#include "ui/DropFeedbackBanner.h"
#include "ui/FileListView.h"
#include "ui/MainWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCursor>
#include <QMessageBox>
#include <QScreen>
#include <QStyleFactory>
#include <QTest>
#include <QToolTip>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// A run of sidecars alone and a remux of "Night market" are the real ffmpeg's; any
// other finishes with a real MP4 unless "hold-<output>" exists, in
// which case it waits for "release-<output>".
const QByteArray fakeFfmpeg = R"SH([ -n "$out" ] || exec "$here/real" "$@"
case "$out" in *"Night market"*) exec "$here/real" "$@";; esac
name=$(basename "$out")
printf partial > "$out"
trap 'exit 255' TERM
if [ -e "$here/hold-$name" ]; then
  while [ ! -e "$here/release-$name" ]; do sleep 0.05; done
fi
cat "$here/sample.mp4" > "$out"
)SH";

QPalette darkPalette() {
    QPalette dark;
    const QColor window(0x2b, 0x2b, 0x2b);
    const QColor base(0x1e, 0x1e, 0x1e);
    const QColor text(0xe8, 0xe8, 0xe8);
    dark.setColor(QPalette::Window, window);
    dark.setColor(QPalette::WindowText, text);
    dark.setColor(QPalette::Base, base);
    dark.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x26));
    dark.setColor(QPalette::Text, text);
    dark.setColor(QPalette::Button, window);
    dark.setColor(QPalette::ButtonText, text);
    dark.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3a));
    dark.setColor(QPalette::ToolTipText, text);
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0x9a));
    dark.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xb3));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::Mid, QColor(0x3c, 0x3c, 0x3c));
    dark.setColor(QPalette::Link, QColor(0x7a, 0xb7, 0xff));
    dark.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x80));
    dark.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x80));
    dark.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x80));
    return dark;
}

bool save(const QWidget* window, const QString& path) {
    QTest::qWait(400);
    QScreen* screen = window->screen();
    const QPixmap shot = screen->grabWindow(0, window->frameGeometry().x(),
                                            window->frameGeometry().y(),
                                            window->frameGeometry().width(),
                                            window->frameGeometry().height());
    const bool saved = shot.save(path);
    std::printf("%s %s\n", saved ? "wrote" : "could not write", qPrintable(path));
    return saved;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: morvane_screenshots OUT_DIR light|dark\n");
        return 2;
    }
    const QString out = QString::fromLocal8Bit(argv[1]);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    if (qstrcmp(argv[2], "dark") == 0) {
        QApplication::setPalette(darkPalette());
    }
    QTemporaryDir work;
    const QString bin = TestSupport::installFakeTool(work, u"ffmpeg"_s, fakeFfmpeg);
    QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffmpeg"_s, bin + u"/real"_s);
    QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s, bin + u"/ffprobe"_s);
    for (const char* held : {"Concert.mp4", "Second in line.mp4", "Waiting its turn.mp4"}) {
        QFile(bin + u"/hold-"_s + QString::fromLatin1(held)).open(QIODevice::WriteOnly);
    }

    AppDelegate delegate;
    delegate.setQuitAction([] {});
    MainWindow window(delegate);
    window.resize(900, 640);
    window.move(40, 40);
    window.show();
    bool ok = QTest::qWaitForWindowExposed(&window) && save(&window, out + u"/empty.png"_s);

    RemuxService& engine = delegate.remuxer();
    engine.setDropFeedbackMessage(u"2 unsupported files skipped"_s);
    ok &= save(&window, out + u"/banner.png"_s);
    engine.setDropFeedbackMessage(std::nullopt);

    QStringList urls;
    for (const auto& [media, name] :
         {std::pair{"h264_aac.mkv", "Holiday in Lisbon.mkv"}, {"cut_start.ts", "Night market.ts"},
          {"long_20s.mkv", "Concert.mkv"}, {"h264_aac.mp4", "Already fine.mp4"},
          {"not_video.mkv", "Podcast episode 12.mkv"}, {"long_20s.mkv", "Second in line.mkv"},
          {"h264_aac.mkv", "Waiting its turn.mkv"}}) {
        urls.append(TestSupport::copyInto(work, TestSupport::mediaPath(QString::fromLatin1(media)),
                                          QString::fromLatin1(name)));
    }
    engine.addFiles(urls, 0);
    ok &= QTest::qWaitFor([&] {
        return std::all_of(engine.items().begin(), engine.items().end(), [](const RemuxItem& i) {
            return i.status != ProcessingStatus::pending || i.cachedMediaInfo;
        });
    });
    engine.startBatch();
    ok &= QTest::qWaitFor([&] {
        return engine.items().at(2).status == ProcessingStatus::processing &&
               engine.items().at(5).status == ProcessingStatus::processing;
    }, 20000);
    engine.setProgress(0.42, engine.items().at(2).id);
    engine.setProgress(0.08, engine.items().at(5).id);
    FileListView& list = window.list();
    const QModelIndex failed = list.model()->index(4, 0);
    // Near the row's left edge, so that the whole tip lies within the window.
    const QRect row = list.visualRect(failed);
    const QPoint at = list.viewport()->mapToGlobal(QPoint(row.left() + 40, row.center().y()));
    // The pointer rests on the row, as a person's would while the tip is up.
    QCursor::setPos(at);
    QTest::qWait(300);
    QToolTip::showText(at, failed.data(Qt::ToolTipRole).toString(), list.viewport());
    ok &= save(&window, out + u"/queue.png"_s);
    QToolTip::hideText();

    window.action(u"Clear All…"_s)->trigger();
    ok &= save(&window, out + u"/confirm.png"_s);
    if (auto* confirm = window.findChild<QMessageBox*>(u"clearAllConfirmation"_s)) {
        confirm->button(QMessageBox::Cancel)->click();
    }

    window.action(u"Morvane Help"_s)->trigger();
    QWidget* help = delegate.helpWindow();
    help->resize(760, 720);
    help->move(60, 60);
    ok &= QTest::qWaitForWindowExposed(help) && save(help, out + u"/help.png"_s);
    help->close();

    engine.cancelAll();
    QTest::qWait(300);
    return ok ? 0 : 1;
}
