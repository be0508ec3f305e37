#pragma once

// Whether what the window draws can be read on what it is drawn over, in any
// palette: WCAG's contrast ratio, and icons kept visible on dark backgrounds.

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QSize>

namespace Legibility {

// WCAG's contrast ratio of two opaque colours, from 1 to 21.
double contrastRatio(const QColor& a, const QColor& b);
// `icon` as drawn at `size`, or, where its average colour keeps less than 3:1 against
// `background` (a fixed-colour fallback icon on a dark palette), the same shape in
// `ink`, so that no icon vanishes into its background.
QPixmap visiblePixmap(const QIcon& icon, QSize size, qreal devicePixelRatio,
                      const QColor& background, const QColor& ink);

} // namespace Legibility
