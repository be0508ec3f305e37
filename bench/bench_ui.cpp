// The queue list with 10,000 rows while two items report progress ten times a
// second: how much of the list each update repaints, the longest stall of the
// main thread, and the process's resident memory. Runs offscreen.

#include "BenchSupport.h"
#include "ui/AppDelegate.h"
#include "ui/FileListView.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPaintEvent>
#include <QTimer>

#include <cstdio>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {
class PaintWatcher final : public QObject {
public:
    int largestHeight = 0;
    int paints = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            // The region may hold several rows' rects at once; each counts alone.
            for (const QRect& rect : static_cast<QPaintEvent*>(event)->region()) {
                largestHeight = std::max(largestHeight, rect.height());
            }
            ++paints;
        }
        return QObject::eventFilter(watched, event);
    }
};
} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    AppDelegate delegate;
    QStringList urls;
    for (int i = 0; i < 10000; ++i) {
        urls.append(u"/videos/season-%1/episode-%2.mkv"_s.arg(i / 100).arg(i));
    }
    RemuxService& engine = delegate.remuxer();
    engine.appendItems(urls);
    MainWindow window(delegate);
    window.resize(900, 600);
    window.show();
    // Let the first full paint of the window pass before watching.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 500) {
        QApplication::processEvents(QEventLoop::AllEvents, 50);
    }

    FileListView& list = window.list();
    const int rowHeight = list.sizeHintForRow(0);
    PaintWatcher watcher;
    list.viewport()->installEventFilter(&watcher);
    const QUuid first = engine.items().at(1).id;
    const QUuid second = engine.items().at(3).id;

    QTimer progress;
    progress.setInterval(100);
    double fraction = 0;
    QObject::connect(&progress, &QTimer::timeout, [&] {
        fraction += 0.02;
        engine.setProgress(fraction, first);
        engine.setProgress(fraction, second);
    });
    const Bench::StallMeter stalls;
    progress.start();
    QTimer::singleShot(3000, &app, &QApplication::quit);
    app.exec();

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("ui_row_height_px,%d\n", rowHeight);
    std::printf("ui_largest_repaint_px,%d\n", watcher.largestHeight);
    std::printf("ui_paints,%d\n", watcher.paints);
    std::printf("ui_worst_stall_ms,%.2f\n", stalls.worstMilliseconds());
    std::printf("ui_max_rss_mib,%.1f\n", usage.ru_maxrss / 1024.0);
    return 0;
}
