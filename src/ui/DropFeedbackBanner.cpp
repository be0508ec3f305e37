#include "DropFeedbackBanner.h"

#include "engine/RemuxService.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QStyle>
#include <QToolButton>

using namespace Qt::StringLiterals;

DropFeedbackBanner::DropFeedbackBanner(RemuxService& service, QWidget* parent)
    : QFrame(parent), service_(service), text_(new QLabel(this)), dismiss_(new QToolButton(this)) {
    setObjectName(u"dropFeedbackBanner"_s);
    // Yellow at 15 % over the window's colour, across the full width.
    setAutoFillBackground(true);
    QPalette tinted = palette();
    const QColor base = tinted.color(QPalette::Window);
    const QColor yellow(0xff, 0xcc, 0x00);
    tinted.setColor(QPalette::Window,
                    QColor::fromRgbF(base.redF() * 0.85f + yellow.redF() * 0.15f,
                                     base.greenF() * 0.85f + yellow.greenF() * 0.15f,
                                     base.blueF() * 0.85f + yellow.blueF() * 0.15f));
    setPalette(tinted);

    auto* icon = new QLabel(this);
    icon->setPixmap(
        QIcon::fromTheme(u"dialog-warning"_s, style()->standardIcon(QStyle::SP_MessageBoxWarning))
            .pixmap(16, 16));
    dismiss_->setIcon(
        QIcon::fromTheme(u"window-close"_s, style()->standardIcon(QStyle::SP_TitleBarCloseButton)));
    dismiss_->setAutoRaise(true);
    dismiss_->setAccessibleName(u"Dismiss notification"_s);
    dismiss_->setToolTip(u"Dismiss notification"_s);
    connect(dismiss_, &QToolButton::clicked, this,
            [this] { service_.setDropFeedbackMessage(std::nullopt); });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 16, 8);
    layout->setSpacing(8);
    layout->addWidget(icon);
    layout->addWidget(text_, 1);
    layout->addWidget(dismiss_);
    connect(&service_, &RemuxService::dropFeedbackMessageChanged, this,
            &DropFeedbackBanner::follow);
    follow();
}

QString DropFeedbackBanner::text() const {
    return text_->text();
}

// Comes in from the top edge and fades in, or goes the same way, in 0.2 s; the list
// below moves along since the stack has no gap.
void DropFeedbackBanner::follow() {
    const std::optional<QString>& message = service_.dropFeedbackMessage();
    if (message) {
        text_->setText(*message);
    }
    const bool showing = message.has_value();
    if (showing == shown_) {
        return;
    }
    shown_ = showing;
    if (showing) {
        setMaximumHeight(0);
        setVisible(true);
    }
    const int fullHeight = sizeHint().height();
    auto* slide = new QPropertyAnimation(this, "maximumHeight", this);
    slide->setDuration(200);
    slide->setEasingCurve(QEasingCurve::InOutQuad);
    slide->setStartValue(showing ? 0 : height());
    slide->setEndValue(showing ? fullHeight : 0);
    auto* fade = new QPropertyAnimation(opacity_, "opacity", this);
    fade->setDuration(200);
    fade->setEasingCurve(QEasingCurve::InOutQuad);
    fade->setStartValue(showing ? 0.0 : 1.0);
    fade->setEndValue(showing ? 1.0 : 0.0);
    auto* both = new QParallelAnimationGroup(this);
    both->addAnimation(slide);
    both->addAnimation(fade);
    connect(both, &QAbstractAnimation::finished, this, [this, showing] {
        setMaximumHeight(QWIDGETSIZE_MAX);
        if (!showing) {
            setVisible(false);
        }
    });
    both->start(QAbstractAnimation::DeleteWhenStopped);
}
