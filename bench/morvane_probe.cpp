// Probes one file the way the application does and prints what it found.

#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: morvane-probe FILE\n");
        return 2;
    }
    try {
        const MediaInfo info =
            Async::waitFor(FFmpegService::probe(QString::fromLocal8Bit(argv[1])));
        std::printf("%s %.3f\n", qPrintable(info.videoCodec), info.duration);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", qPrintable(FFmpegService::friendlyMessage(error)));
        return 1;
    }
}
