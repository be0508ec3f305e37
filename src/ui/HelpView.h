#pragma once

// The manual: a header and twelve sections of fixed text in one scrolling column,
// at most 720 points wide and centred. The keys named are this build's (Ctrl), and
// the credits name the FFmpeg that runs, as it answers -version.

#include "tools/FFmpegService.h"

#include <QLabel>
#include <QProcess>
#include <QScrollArea>

#include <optional>

class HelpView final : public QScrollArea {
    Q_OBJECT
public:
    explicit HelpView(QWidget* parent = nullptr);
    ~HelpView() override;

    // Every text the view shows, in order, as plain text, for tests and search.
    QStringList texts() const;

private:
    static QString creditsText(const std::optional<FFmpegService::FFmpegBuild>& build);
    void readFFmpegBuild();

    QLabel* credits_ = nullptr;
    QLabel* license_ = nullptr;
    QProcess* versionQuery_ = nullptr;
};
