#pragma once

// The placeholder of the empty queue: what to do, and which files are accepted. A
// picture only: clicks and drops pass through to the list beneath.

#include <QWidget>

class DropOverlay final : public QWidget {
    Q_OBJECT
public:
    explicit DropOverlay(QWidget* parent = nullptr);
};
