#include "DropFeedbackBanner.h"

#include "Legibility.h"
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
    dismiss_->setIcon(Legibility::visiblePixmap(
        QIcon::fromTheme(u"window-close"_s, style()->standardIcon(QStyle::SP_TitleBarCloseButton)),
        QSize(16, 16), devicePixelRatioF(), tinted.color(QPalette::Window),
        tinted.color(QPalette::WindowText)));
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
    // The fade works through this effect; without it the animation has no target.
    opacity_ = new QGraphicsOpacityEffect(this);
    opacity_->setOpacity(1.0);
    setGraphicsEffect(opacity_);
    // Nothing to say yet: the strip is not on screen until there is.
    setVisible(false);
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
        setAccessibleName(*message);
    }
    const bool showing = message.has_value();
    if (showing == shown_) {
        return;
    }
    shown_ = showing;
    // A message that comes while the strip slides out turns it around from where it
    // stands; the slide-out's end must not hide it afterwards.
    const bool midway = animation_ != nullptr;
    if (animation_) {
        animation_->stop();
    }
    const int from = midway ? height() : (showing ? 0 : height());
    const double fadeFrom = midway ? opacity_->opacity() : (showing ? 0.0 : 1.0);
    if (showing) {
        setMaximumHeight(from);
        setVisible(true);
    }
    auto* slide = new QPropertyAnimation(this, "maximumHeight");
    slide->setDuration(200);
    slide->setEasingCurve(QEasingCurve::InOutQuad);
    slide->setStartValue(from);
    slide->setEndValue(showing ? sizeHint().height() : 0);
    auto* fade = new QPropertyAnimation(opacity_, "opacity");
    fade->setDuration(200);
    fade->setEasingCurve(QEasingCurve::InOutQuad);
    fade->setStartValue(fadeFrom);
    fade->setEndValue(showing ? 1.0 : 0.0);
    animation_ = new QParallelAnimationGroup(this);
    animation_->addAnimation(slide);
    animation_->addAnimation(fade);
    connect(animation_, &QAbstractAnimation::finished, this, [this, showing] {
        setMaximumHeight(QWIDGETSIZE_MAX);
        if (!showing) {
            setVisible(false);
        }
    });
    animation_->start(QAbstractAnimation::DeleteWhenStopped);
}
