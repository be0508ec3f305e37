#pragma once

// How one queue item reads and looks in the list: its texts, its state line and
// what assistive technology says of it. Pure functions of the item, shared by the
// list's model (for accessibility and tests) and its delegate (for painting).

#include "model/RemuxItem.h"

#include <QColor>
#include <QString>
#include <QStringList>

namespace FileItemRow {

// A file name may hold a line feed, other control characters or bidirectional
// overrides, which would break a row's line, vanish or disguise the name: each
// shows as U+FFFD instead.
QString printable(QString text);
QString fileName(const RemuxItem& item);
// The source's whole path, as the row's second line shows it.
QString pathText(const RemuxItem& item);
// statusMessage if present, else the status's display word.
QString statusText(const RemuxItem& item);
// Whether a processing item shows a determinate bar: its duration is known and above 0.
bool isMeasurable(const RemuxItem& item);
// progress × 100 cut toward zero, with a percent sign: 0.999 → "99%".
QString percentText(double progress);
// The error line, only for a failed item that has one.
QString errorLine(const RemuxItem& item);
// What a failed item's tool said, made printable; empty when it said nothing.
QString errorDetailsText(const RemuxItem& item);
// The row's tooltip: a failure's line with the tool's last lines under it, or the
// whole note of a completed or skipped item, which the row may have to cut short.
QString toolTip(const RemuxItem& item);
// The colour of a failure's text on `background`: a red that keeps 4.5:1 there, light
// on a dark row and dark on a light one, or else `fallback` (the row's own text).
QColor errorColour(const QColor& background, const QColor& fallback);
// What a screen reader reads for the row: the file, then its status, or while it
// runs, "Remuxing" and how far it has come.
QString accessibleText(const RemuxItem& item);
// Freedesktop icon name of the state line's icon; empty when there is none.
QString statusIconName(const RemuxItem& item);

// The label of a processing item's indicator: the percent for a determinate bar,
// "Remuxing…" for an indeterminate one; empty in any other status.
QString progressText(const RemuxItem& item);
// What assistive technology reads for the state line: "Status: …", or for a
// processing item "Remuxing <file>" with its value ("42 percent complete").
QString accessibleLabel(const RemuxItem& item);
QString accessibleValue(const RemuxItem& item);

// "Status: Completed", for the state line of any status but processing.
QString statusAccessibilityLabel(const RemuxItem& item);
// "Remuxing Clip.mkv", for the progress indicator.
QString progressAccessibilityLabel(const RemuxItem& item);
// "42 percent complete" for a determinate bar; empty for the indeterminate one.
QString progressAccessibilityValue(const RemuxItem& item);

} // namespace FileItemRow
