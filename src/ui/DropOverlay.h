#pragma once

// The placeholder of the empty queue: what to do, and which files are accepted. A
// picture only: clicks and drops pass through to the list beneath. It paints its
// lines itself, so that assistive technology meets one element, named for what to
// do, with its hint, and not four pieces of it.

#include <QWidget>

class DropOverlay final : public QWidget {
    Q_OBJECT
public:
    explicit DropOverlay(QWidget* parent = nullptr);

    // The lines it shows, top to bottom, after the symbol.
    static QStringList lines();

protected:
    void paintEvent(QPaintEvent* event) override;
};
