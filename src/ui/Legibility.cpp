#include "Legibility.h"

#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace Legibility {

double contrastRatio(const QColor& a, const QColor& b) {
    const auto luminance = [](const QColor& colour) {
        const auto channel = [](float value) {
            return value <= 0.04045f ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * channel(colour.redF()) + 0.7152 * channel(colour.greenF()) +
               0.0722 * channel(colour.blueF());
    };
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

QPixmap visiblePixmap(const QIcon& icon, QSize size, qreal devicePixelRatio,
                      const QColor& background, const QColor& ink) {
    QPixmap pixmap = icon.pixmap(size, devicePixelRatio);
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    double red = 0, green = 0, blue = 0, weight = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            red += pixel.redF() * pixel.alphaF();
            green += pixel.greenF() * pixel.alphaF();
            blue += pixel.blueF() * pixel.alphaF();
            weight += pixel.alphaF();
        }
    }
    if (weight == 0 ||
        contrastRatio(QColor::fromRgbF(float(red / weight), float(green / weight),
                                       float(blue / weight)),
                      background) >= 3.0) {
        return pixmap;
    }
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), ink);
    return pixmap;
}

} // namespace Legibility
