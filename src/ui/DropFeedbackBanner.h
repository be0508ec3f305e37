#pragma once

// The strip above the list that tells what an intake left out ("3 unsupported
// files skipped"), shown while the engine holds a feedback text, with a button that
// dismisses it.

#include <QFrame>
#include <QParallelAnimationGroup>
#include <QPointer>

class QGraphicsOpacityEffect;
class QLabel;
class QToolButton;
class RemuxService;

class DropFeedbackBanner final : public QFrame {
    Q_OBJECT
public:
    explicit DropFeedbackBanner(RemuxService& service, QWidget* parent = nullptr);

    QString text() const;
    // Whether the banner is up, or on its way up (the animation aside).
    bool isShowing() const { return shown_; }
    QToolButton* dismissButton() const { return dismiss_; }

private:
    void follow();

    RemuxService& service_;
    QLabel* text_;
    QToolButton* dismiss_;
    QGraphicsOpacityEffect* opacity_ = nullptr;
    // The slide and fade under way, if any; it deletes itself when it stops.
    QPointer<QParallelAnimationGroup> animation_;
    bool shown_ = false;
};
