#pragma once

// The manual: a header and twelve sections of fixed text in one scrolling column,
// at most 720 points wide and centred. The keys named are this build's (Ctrl), and
// the credits name the FFmpeg this build bundles.

#include <QScrollArea>

class HelpView final : public QScrollArea {
    Q_OBJECT
public:
    explicit HelpView(QWidget* parent = nullptr);

    // Every text the view shows, in order, as plain text, for tests and search.
    QStringList texts() const;
};
