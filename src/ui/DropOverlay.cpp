#include "DropOverlay.h"

#include "model/RemuxItem.h"

#include <QIcon>
#include <QLabel>
#include <QStyle>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
QLabel* line(const QString& text, double scale, bool tertiary, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    label->setFont(font);
    QPalette palette = label->palette();
    QColor colour = palette.color(QPalette::WindowText);
    colour.setAlphaF(tertiary ? 0.45 : 0.65);
    palette.setColor(QPalette::WindowText, colour);
    label->setPalette(palette);
    return label;
}
} // namespace

DropOverlay::DropOverlay(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAccessibleName(u"Drop video files here"_s);
    setAccessibleDescription(u"Adds files to the conversion queue"_s);

    auto* symbol = new QLabel(this);
    symbol->setAlignment(Qt::AlignCenter);
    const QIcon icon = QIcon::fromTheme(u"video-x-generic"_s,
                                        style()->standardIcon(QStyle::SP_FileDialogContentsView));
    symbol->setPixmap(icon.pixmap(48, 48, QIcon::Disabled));
    symbol->setAccessibleName(QString()); // decorative

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->addStretch();
    layout->addWidget(symbol);
    layout->addWidget(line(u"Drop video files here"_s, 1.5, false, this));
    layout->addWidget(line(u"or click Import / press Ctrl+O"_s, 0.9, true, this));
    layout->addWidget(line(RemuxItem::supportedFormatsLabel(), 0.8, true, this));
    layout->addStretch();
}
