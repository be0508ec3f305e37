#include "DropFeedbackBanner.h"

#include "engine/RemuxService.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QStyle>
#include <QToolButton>

using namespace Qt::StringLiterals;

DropFeedbackBanner::DropFeedbackBanner(RemuxService& service, QWidget* parent)
    : QFrame(parent), service_(service), text_(new QLabel(this)), dismiss_(new QToolButton(this)) {
    setObjectName(u"dropFeedbackBanner"_s);
    setAutoFillBackground(true);
    QPalette tinted = palette();
    QColor accent = tinted.color(QPalette::Highlight);
    const QColor base = tinted.color(QPalette::Window);
    tinted.setColor(QPalette::Window,
                    QColor::fromRgbF(base.redF() * 0.85f + accent.redF() * 0.15f,
                                     base.greenF() * 0.85f + accent.greenF() * 0.15f,
                                     base.blueF() * 0.85f + accent.blueF() * 0.15f));
    setPalette(tinted);

    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon::fromTheme(u"dialog-information"_s,
                                     style()->standardIcon(QStyle::SP_MessageBoxInformation))
                        .pixmap(16, 16));
    dismiss_->setIcon(
        QIcon::fromTheme(u"window-close"_s, style()->standardIcon(QStyle::SP_TitleBarCloseButton)));
    dismiss_->setAutoRaise(true);
    dismiss_->setAccessibleName(u"Dismiss notification"_s);
    dismiss_->setToolTip(u"Dismiss notification"_s);
    connect(dismiss_, &QToolButton::clicked, this,
            [this] { service_.setDropFeedbackMessage(std::nullopt); });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 6, 6);
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

void DropFeedbackBanner::follow() {
    const std::optional<QString>& message = service_.dropFeedbackMessage();
    text_->setText(message.value_or(QString()));
    setVisible(message.has_value());
}
