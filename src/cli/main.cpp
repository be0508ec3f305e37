// morvane-cli: the queue engine without a window, for servers, NAS boxes and
// scripts. Paths go in through addFiles() exactly as a drop does, the early verdicts
// are reported, then the batch runs two at a time; the same rules, texts and files
// as the application.

#include "CliSession.h"
#include "engine/RunJournal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[]) {
    // The engine's log is for developers; QT_LOGGING_RULES, which wins over this,
    // turns it back on.
    QLoggingCategory::setFilterRules(u"com.morvane.*=false"_s);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"morvane-cli"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Remuxes video files so that QuickTime plays them: streams are copied into MP4 "
        u"(MOV for MJPEG and ProRes), only unplayable audio becomes AAC, text subtitles are "
        u"embedded and written as .srt files. Sources are never changed."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption outputDir(
        {u"o"_s, u"output-dir"_s}, u"Write every output into DIR instead of beside its source."_s,
        u"DIR"_s);
    const QCommandLineOption dryRun({u"n"_s, u"dry-run"_s},
                                    u"Probe and report each verdict; convert and write nothing."_s);
    const QCommandLineOption json(u"json"_s, u"Print one JSON object per line on stdout."_s);
    const QCommandLineOption notify(u"notify"_s,
                                    u"Post the desktop notification when the batch ends."_s);
    parser.addOptions({outputDir, dryRun, json, notify});
    parser.addPositionalArgument(u"PATH"_s, u"Video files or folders to convert."_s, u"PATH..."_s);
    parser.process(app);

    const auto usageError = [](const QString& message) {
        std::fprintf(stderr, "morvane-cli: %s\nTry 'morvane-cli --help' for more information.\n",
                     qUtf8Printable(message));
        return CliSession::usageExit;
    };
    QStringList paths;
    for (const QString& path : parser.positionalArguments()) {
        // The queue takes absolute paths; relative ones are the user's working folder's.
        paths.append(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    }
    if (paths.isEmpty()) {
        return usageError(u"no PATH given"_s);
    }
    CliSession::Options options;
    if (parser.isSet(outputDir)) {
        const QFileInfo folder(parser.value(outputDir));
        if (!folder.isDir()) {
            return usageError(u"the output folder "_s + parser.value(outputDir) +
                              u" does not exist or is not a folder"_s);
        }
        options.outputDirectory = folder.absoluteFilePath();
    }
    options.dryRun = parser.isSet(dryRun);
    options.json = parser.isSet(json);
    options.notify = parser.isSet(notify);

    // What a killed or crashed run of either program left half-written goes first.
    for (const QString& removed : RunJournal::removeAbandoned()) {
        std::fprintf(stderr,
                     "morvane-cli: removed %s, left half-written by a run that was cut "
                     "short\n",
                     qUtf8Printable(removed));
    }
    CliSession session(options);
    return session.run(paths);
}
