#include "DropOverlay.h"

#include "model/RemuxItem.h"

#include <QIcon>
#include <QPainter>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {
constexpr int symbolSize = 48;
constexpr int lineGap = 12;
// Each line's size against the window's font, and how strongly it is drawn: enough
// for 4.5:1 against the list's background in light and dark palettes alike.
constexpr double scales[] = {1.5, 0.9, 0.8};
constexpr double strengths[] = {0.7, 0.62, 0.62};
} // namespace

DropOverlay::DropOverlay(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAccessibleName(u"Drop video files here"_s);
    setAccessibleDescription(u"Adds files to the conversion queue"_s);
}

QStringList DropOverlay::lines() {
    return {u"Drop video files here"_s, u"or click Import / press Ctrl+O"_s,
            RemuxItem::supportedFormatsLabel()};
}

void DropOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QStringList texts = lines();
    QList<QFont> fonts;
    int height = symbolSize;
    for (qsizetype i = 0; i < texts.size(); ++i) {
        QFont font = this->font();
        font.setPointSizeF(font.pointSizeF() * scales[i]);
        fonts.append(font);
        height += lineGap + QFontMetrics(font).height();
    }
    int y = (this->height() - height) / 2;
    const QIcon icon = QIcon::fromTheme(u"video-x-generic"_s,
                                        style()->standardIcon(QStyle::SP_FileDialogContentsView));
    icon.paint(&painter, QRect((width() - symbolSize) / 2, y, symbolSize, symbolSize),
               Qt::AlignCenter, QIcon::Disabled);
    y += symbolSize;
    const QColor text = palette().color(QPalette::Text);
    for (qsizetype i = 0; i < texts.size(); ++i) {
        y += lineGap;
        QColor colour = text;
        colour.setAlphaF(float(strengths[i]));
        painter.setPen(colour);
        painter.setFont(fonts[i]);
        const int lineHeight = QFontMetrics(fonts[i]).height();
        painter.drawText(QRect(0, y, width(), lineHeight), Qt::AlignHCenter | Qt::AlignTop,
                         texts[i]);
        y += lineHeight;
    }
}
