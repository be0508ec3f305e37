#pragma once

// The manual's window: at most one, brought forward when asked for again. Its pages
// are a scrolling column.

#include <QWidget>

class HelpWindow final : public QWidget {
    Q_OBJECT
public:
    explicit HelpWindow(QWidget* parent = nullptr);
};
