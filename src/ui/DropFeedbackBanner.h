#pragma once

// The strip above the list that tells what an intake left out ("3 unsupported
// files skipped"), shown while the engine holds a feedback text, with a button that
// dismisses it.

#include <QFrame>

class QLabel;
class QToolButton;
class RemuxService;

class DropFeedbackBanner final : public QFrame {
    Q_OBJECT
public:
    explicit DropFeedbackBanner(RemuxService& service, QWidget* parent = nullptr);

    QString text() const;
    QToolButton* dismissButton() const { return dismiss_; }

private:
    void follow();

    RemuxService& service_;
    QLabel* text_;
    QToolButton* dismiss_;
};
