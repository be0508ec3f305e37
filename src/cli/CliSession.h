#pragma once

// One invocation of morvane-cli: adds the paths, reports verdicts, runs the batch,
// prints the tally, and on SIGINT, SIGTERM or SIGHUP cancels everything and lets the
// runs delete what they wrote before it exits.

#include "async/TerminationSignals.h"
#include "engine/RemuxService.h"

#include <QObject>
#include <QSet>

#include <memory>
#include <optional>

class CliSession final : public QObject {
    Q_OBJECT
public:
    static constexpr int successExit = 0;
    static constexpr int failureExit = 1;
    static constexpr int usageExit = 2;
    static constexpr int interruptedExit = 130;

    struct Options {
        std::optional<QString> outputDirectory;
        bool dryRun = false;
        bool json = false;
        bool notify = false;
    };

    explicit CliSession(Options options);
    ~CliSession() override;

    // Runs the whole invocation and gives the exit status.
    int run(const QStringList& paths);

private:
    void emitEvent(const QJsonObject& event) const;
    QJsonObject itemEvent(const QString& name, const RemuxItem& item) const;
    void reportLine(const RemuxItem& item) const;
    void reportDone(const RemuxItem& item);
    void drawProgress() const;
    bool settledEarly() const;
    void interrupt();
    int finish(bool rejectedPaths);

    Options options_;
    std::unique_ptr<RemuxService> service_;
    QSet<QUuid> reported_;
    QHash<QUuid, double> lastProgress_;
    bool interrupted_ = false;
    bool progressOnTerminal_ = false;
    TerminationSignals signals_;
};
