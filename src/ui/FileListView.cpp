#include "FileListView.h"

#include "Alert.h"
#include "DropOverlay.h"
#include "FileItemRow.h"
#include "intake/Panels.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QIcon>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QResizeEvent>
#include <QStyledItemDelegate>
#include <QTextLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int padding = 4;
constexpr int gap = 4;
constexpr int margin = 12;

QFont headline(const QFont& base) {
    QFont font = base;
    font.setBold(true);
    font.setPointSizeF(base.pointSizeF() * 1.05);
    return font;
}

QFont caption(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * 0.85);
    return font;
}

// Softer than the file name, yet 4.5:1 on the row; on a selected row the accent
// leaves no room for softening.
QColor secondary(const QPalette& palette, bool selected) {
    if (selected) {
        return palette.color(QPalette::HighlightedText);
    }
    QColor colour = palette.color(QPalette::Text);
    colour.setAlphaF(0.68f);
    return colour;
}


// Paints a row: its background, separator, texts, then the state line, with the
// progress bar drawn by the style.
class FileItemDelegate final : public QStyledItemDelegate {
public:
    explicit FileItemDelegate(QAbstractItemView* view) : QStyledItemDelegate(view), view_(view) {}

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const RemuxItem item = index.data(QueueModel::ItemRole).value<RemuxItem>();
        const QFontMetrics head(headline(option.font));
        const QFontMetrics small(caption(option.font));
        int height =
            2 * padding + head.height() + gap + small.height() + gap + std::max(small.height(), 16);
        if (!FileItemRow::errorLine(item).isEmpty()) {
            // While the list lays itself out the option carries neither a rect nor the
            // view; the row is as wide as the view.
            const int rowWidth =
                option.rect.width() > 0 ? option.rect.width() : view_->viewport()->width();
            height +=
                gap + int(errorLines(item, caption(option.font), rowWidth - 2 * margin).size()) *
                          small.lineSpacing();
        }
        return {option.rect.width(), height + 2 * padding};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        const RemuxItem item = index.data(QueueModel::ItemRole).value<RemuxItem>();
        const auto* view = qobject_cast<const QAbstractItemView*>(option.widget);
        const bool selected = option.state & QStyle::State_Selected;
        const QPalette& palette = option.palette;
        painter->save();

        const QColor background =
            selected ? palette.color(QPalette::Highlight)
                     : palette.color(index.row() % 2 ? QPalette::AlternateBase : QPalette::Base);
        painter->fillRect(option.rect, background);
        // A line parts two selected neighbours, and nothing else has one.
        const QModelIndex below = index.sibling(index.row() + 1, 0);
        if (selected && below.isValid() && view && view->selectionModel()->isSelected(below)) {
            painter->fillRect(
                QRect(option.rect.left(), option.rect.bottom(), option.rect.width(), 1),
                palette.color(QPalette::Mid));
        }

        const QColor text = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
        const QFont head = headline(option.font);
        const QFont small = caption(option.font);
        const QFontMetrics headMetrics(head);
        const QFontMetrics smallMetrics(small);
        const int width = option.rect.width() - 2 * margin;
        int y = option.rect.top() + 2 * padding;
        const int x = option.rect.left() + margin;

        painter->setFont(head);
        painter->setPen(text);
        painter->drawText(
            QRect(x, y, width, headMetrics.height() + 2), Qt::AlignLeft | Qt::AlignTop,
            headMetrics.elidedText(FileItemRow::fileName(item), Qt::ElideRight, width));
        y += headMetrics.height() + gap;

        painter->setFont(small);
        painter->setPen(secondary(palette, selected));
        // Top-aligned in a rect with room below, so that descenders and underscores show.
        painter->drawText(
            QRect(x, y, width, smallMetrics.height() + 2), Qt::AlignLeft | Qt::AlignTop,
            smallMetrics.elidedText(FileItemRow::pathText(item), Qt::ElideMiddle, width));
        y += smallMetrics.height() + gap;

        const int stateHeight = std::max(smallMetrics.height(), 16);
        if (item.status == ProcessingStatus::processing) {
            paintProgress(painter, option, item, QRect(x, y, std::min(width, 360), stateHeight));
        } else {
            const QColor colour = item.status == ProcessingStatus::failed
                                      ? FileItemRow::errorColour(background, text)
                                      : secondary(palette, selected);
            int textX = x;
            const QString iconName = FileItemRow::statusIconName(item);
            if (!iconName.isEmpty()) {
                const QIcon icon = QIcon::fromTheme(iconName, fallbackIcon(item, option.widget));
                const int side = smallMetrics.height();
                icon.paint(painter, QRect(x, y + (stateHeight - side) / 2, side, side));
                textX += side + gap;
            }
            painter->setPen(colour);
            painter->drawText(QRect(textX, y, width - (textX - x), stateHeight),
                              Qt::AlignLeft | Qt::AlignVCenter,
                              smallMetrics.elidedText(FileItemRow::statusText(item), Qt::ElideRight,
                                                      width - (textX - x)));
        }
        y += stateHeight;

        const QStringList error = errorLines(item, small, width);
        if (!error.isEmpty()) {
            y += gap;
            painter->setPen(FileItemRow::errorColour(background, text));
            for (const QString& line : error) {
                painter->drawText(QRect(x, y, width, smallMetrics.lineSpacing()),
                                  Qt::AlignLeft | Qt::AlignVCenter, line);
                y += smallMetrics.lineSpacing();
            }
        }
        // The keyboard's row shows, selected or not, as the style draws focus.
        if (option.state & QStyle::State_HasFocus) {
            QStyleOptionFocusRect focus;
            focus.QStyleOption::operator=(option);
            focus.rect = option.rect.adjusted(2, 2, -2, -2);
            focus.backgroundColor = background;
            QStyle* style = option.widget ? option.widget->style() : QApplication::style();
            style->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, painter, option.widget);
        }
        painter->restore();
    }

private:
    QAbstractItemView* view_;

    // The error wrapped to the row's width, at most three lines, the last one
    // ending in an ellipsis when the text goes on.
    static QStringList errorLines(const RemuxItem& item, const QFont& font, int width) {
        const QString error = FileItemRow::errorLine(item);
        if (error.isEmpty() || width <= 0) {
            return {};
        }
        const QFontMetrics metrics(font);
        QStringList lines;
        QTextLayout layout(error, font);
        layout.beginLayout();
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(width);
            lines.append(error.mid(line.textStart(), line.textLength()).trimmed());
        }
        layout.endLayout();
        if (lines.size() > 3) {
            const QString rest = lines.mid(2).join(u' ');
            lines = lines.mid(0, 2);
            lines.append(metrics.elidedText(rest, Qt::ElideRight, width));
        }
        return lines;
    }

    static QIcon fallbackIcon(const RemuxItem& item, const QWidget* widget) {
        QStyle* style = widget ? widget->style() : QApplication::style();
        switch (item.status) {
        case ProcessingStatus::completed:
            return style->standardIcon(QStyle::SP_DialogApplyButton);
        case ProcessingStatus::failed:
            return style->standardIcon(QStyle::SP_MessageBoxWarning);
        default:
            return style->standardIcon(QStyle::SP_ArrowRight);
        }
    }

    static void paintProgress(QPainter* painter, const QStyleOptionViewItem& option,
                              const RemuxItem& item, const QRect& rect) {
        QStyleOptionProgressBar bar;
        bar.rect = rect;
        bar.state = QStyle::State_Enabled | QStyle::State_Horizontal;
        bar.direction = option.direction;
        bar.fontMetrics = QFontMetrics(caption(option.font));
        bar.palette = option.palette;
        bar.textVisible = true;
        bar.textAlignment = Qt::AlignCenter;
        if (FileItemRow::isMeasurable(item)) {
            bar.minimum = 0;
            bar.maximum = 1000;
            bar.progress = int(std::clamp(item.progress, 0.0, 1.0) * 1000);
            bar.text = FileItemRow::percentText(item.progress);
        } else {
            bar.minimum = 0;
            bar.maximum = 0; // indeterminate
            bar.progress = 0;
            bar.text = u"Remuxing\u2026"_s;
        }
        QStyle* style = option.widget ? option.widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ProgressBar, &bar, painter, option.widget);
    }
};

} // namespace

FileListView::FileListView(RemuxService& service, QWidget* parent)
    : QListView(parent), service_(service), model_(new QueueModel(service, this)),
      overlay_(new DropOverlay(this)) {
    setModel(model_);
    setItemDelegate(new FileItemDelegate(this));
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setUniformItemSizes(false);
    setAcceptDrops(true);
    setDropIndicatorShown(false);
    viewport()->setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DropOnly);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setAccessibleDescription(u"Drop video files onto this list to add them to the queue"_s);
    setAccessibleName(u"Queue"_s);
    connect(model_, &QAbstractItemModel::rowsInserted, this, &FileListView::updateOverlay);
    connect(model_, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex&, int first, int last) { rememberHeights(first, last); });
    connect(model_, &QAbstractItemModel::modelReset, this, [this] {
        laidOutHeights_.clear();
        rememberHeights(0, model_->rowCount() - 1);
    });
    connect(model_, &QAbstractItemModel::rowsRemoved, this, &FileListView::updateOverlay);
    connect(model_, &QAbstractItemModel::modelReset, this, &FileListView::updateOverlay);
    // A bulk change (Clear Completed) resets the model; the rows that stay keep their
    // selection, and only the ids that are gone leave it.
    connect(model_, &QAbstractItemModel::modelAboutToBeReset, this,
            [this] { keptSelection_ = selectedIds(); });
    connect(model_, &QAbstractItemModel::modelReset, this, [this] {
        QItemSelection kept;
        for (int row = 0; row < model_->rowCount(); ++row) {
            if (keptSelection_.contains(model_->itemAt(row).id)) {
                kept.select(model_->index(row), model_->index(row));
            }
        }
        selectionModel()->select(kept, QItemSelectionModel::Select);
        keptSelection_.clear();
    });
    rememberHeights(0, model_->rowCount() - 1);
    updateOverlay();
}

// One item's change repaints its row alone while the row keeps its height, as it
// does through every progress update; QListView would repaint the whole viewport.
// The height a row was last laid out with is remembered here, since visualRect()
// reports a fresh size at the old position.
void FileListView::dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                               const QList<int>& roles) {
    if (topLeft == bottomRight && topLeft.isValid()) {
        const int height = rowHeight(topLeft);
        const QUuid id = topLeft.data(QueueModel::IdRole).toUuid();
        if (laidOutHeights_.value(id, -1) == height) {
            viewport()->update(visualRect(topLeft));
            return;
        }
        laidOutHeights_.insert(id, height);
    }
    // A row that grows or shrinks (an error line came or went) moves the rows below.
    scheduleDelayedItemsLayout();
    QListView::dataChanged(topLeft, bottomRight, roles);
}

int FileListView::rowHeight(const QModelIndex& index) const {
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.rect = QRect(0, 0, viewport()->width(), 0);
    return itemDelegate()->sizeHint(option, index).height();
}

void FileListView::rememberHeights(int first, int last) {
    for (int row = first; row <= last; ++row) {
        const QModelIndex index = model_->index(row);
        laidOutHeights_.insert(index.data(QueueModel::IdRole).toUuid(), rowHeight(index));
    }
}

QSet<QUuid> FileListView::selectedIds() const {
    QSet<QUuid> ids;
    for (const QModelIndex& index : selectionModel()->selectedRows()) {
        ids.insert(index.data(QueueModel::IdRole).toUuid());
    }
    return ids;
}

// The overlay lies over the list as a sibling, not a child: a list tells assistive
// technology of its rows only, and the placeholder must be found too.
void FileListView::updateOverlay() {
    if (!overlay_) {
        return;
    }
    QWidget* host = parentWidget() ? parentWidget() : this;
    if (overlay_->parentWidget() != host) {
        overlay_->setParent(host);
    }
    overlay_->setGeometry(host == this ? viewport()->geometry()
                                       : QRect(viewport()->mapTo(host, QPoint()),
                                               viewport()->size()));
    overlay_->raise();
    overlay_->setVisible(model_->rowCount() == 0 && (host == this || isVisibleTo(host)));
}

FileListView::~FileListView() {
    delete overlay_;
}

bool FileListView::event(QEvent* event) {
    const bool handled = QListView::event(event);
    switch (event->type()) {
    case QEvent::ParentChange:
    case QEvent::Move:
    case QEvent::Show:
    case QEvent::Hide:
        updateOverlay();
        break;
    default:
        break;
    }
    return handled;
}

void FileListView::resizeEvent(QResizeEvent* event) {
    QListView::resizeEvent(event);
    // Error lines wrap to the width, so a new width may give those rows new heights;
    // the list lays itself out again after a resize anyway.
    if (event->size().width() != event->oldSize().width()) {
        for (int row = 0; row < model_->rowCount(); ++row) {
            if (!FileItemRow::errorLine(model_->itemAt(row)).isEmpty()) {
                rememberHeights(row, row);
            }
        }
    }
    updateOverlay();
}

void FileListView::setDragging(bool dragging) {
    if (dragging == dragging_) {
        return;
    }
    dragging_ = dragging;
    // The accent colour at a tenth of its strength while a drop would be taken.
    QPalette tinted = palette();
    if (dragging) {
        const QColor base = tinted.color(QPalette::Base);
        const QColor accent = tinted.color(QPalette::Highlight);
        tinted.setColor(QPalette::Base,
                        QColor::fromRgbF(base.redF() * 0.9f + accent.redF() * 0.1f,
                                         base.greenF() * 0.9f + accent.greenF() * 0.1f,
                                         base.blueF() * 0.9f + accent.blueF() * 0.1f));
    }
    viewport()->setPalette(tinted);
    viewport()->update();
}

QList<QUrl> FileListView::localFiles(const QMimeData* data) {
    QList<QUrl> files;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) {
            files.append(url);
        }
    }
    return files;
}

// A drop is always a copy: the sources stay where they are, whatever the dragging
// application proposes.
void FileListView::dragEnterEvent(QDragEnterEvent* event) {
    if (!localFiles(event->mimeData()).isEmpty()) {
        setDragging(true);
        event->setDropAction(Qt::CopyAction);
        event->accept();
    } else {
        event->ignore();
    }
}

void FileListView::dragMoveEvent(QDragMoveEvent* event) {
    if (!localFiles(event->mimeData()).isEmpty()) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
    } else {
        event->ignore();
    }
}

void FileListView::dragLeaveEvent(QDragLeaveEvent* event) {
    setDragging(false);
    QListView::dragLeaveEvent(event);
}

void FileListView::dropEvent(QDropEvent* event) {
    setDragging(false);
    const QList<QUrl> urls = localFiles(event->mimeData());
    if (urls.isEmpty()) {
        event->ignore();
        return;
    }
    // Success at once, whatever the files are: the engine tells what it left out.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    QMetaObject::invokeMethod(
        this, [this, urls] { service_.handleDrop(urls); }, Qt::QueuedConnection);
}

void FileListView::deleteSelection() {
    const QSet<QUuid> ids = selectedIds();
    if (ids.isEmpty()) {
        return;
    }
    service_.removeItems(ids);
    clearSelection();
}

void FileListView::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Delete) || event->key() == Qt::Key_Backspace) {
        deleteSelection();
        return;
    }
    QListView::keyPressEvent(event);
}

QStringList FileListView::contextMenuEntries(const RemuxItem& item) {
    QStringList entries{u"Show Original in File Manager"_s};
    if (item.status == ProcessingStatus::failed) {
        entries.append(u"Retry"_s);
        if (item.errorDetails) {
            entries.append(u"Copy Error Details"_s);
        }
    }
    if (item.status == ProcessingStatus::processing) {
        entries.append(u"Cancel"_s);
    }
    if (item.status == ProcessingStatus::completed && item.outputURL) {
        entries.append(u"Show Converted File in File Manager"_s);
    }
    entries.append(u"Remove"_s);
    return entries;
}

QMenu* FileListView::contextMenuFor(const QUuid& id) {
    const std::optional<RemuxItem> item = service_.item(id);
    if (!item) {
        return nullptr;
    }
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    // Each entry acts on this row's item alone, whatever else is selected.
    for (const QString& entry : contextMenuEntries(*item)) {
        QAction* action = menu->addAction(entry);
        if (entry == u"Show Original in File Manager") {
            connect(action, &QAction::triggered, this,
                    [url = item->url] { Panels::revealInFinder(url); });
        } else if (entry == u"Retry") {
            connect(action, &QAction::triggered, this, [this, id] { service_.retryItem(id); });
        } else if (entry == u"Copy Error Details") {
            connect(action, &QAction::triggered, this, [text = FileItemRow::toolTip(*item)] {
                QGuiApplication::clipboard()->setText(text);
            });
        } else if (entry == u"Cancel") {
            connect(action, &QAction::triggered, this, [this, id] { service_.cancelItem(id); });
        } else if (entry == u"Show Converted File in File Manager") {
            connect(action, &QAction::triggered, this,
                    [url = *item->outputURL] { Panels::revealInFinder(url); });
        } else {
            connect(action, &QAction::triggered, this, [this, id] { removeFromMenu(id); });
        }
    }
    return menu;
}

// A right-click opens the row's menu and nothing else: the menu acts on its own row,
// so the selection the user made stays as it was.
void FileListView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton) {
        event->accept();
        return;
    }
    QListView::mousePressEvent(event);
}

// From the keyboard (the Menu key, Shift+F10) the menu is the current row's, shown
// on that row.
void FileListView::contextMenuEvent(QContextMenuEvent* event) {
    const bool keyboard = event->reason() == QContextMenuEvent::Keyboard;
    const QModelIndex index =
        keyboard ? currentIndex() : indexAt(viewport()->mapFromGlobal(event->globalPos()));
    if (!index.isValid()) {
        return;
    }
    if (QMenu* menu = contextMenuFor(index.data(QueueModel::IdRole).toUuid())) {
        menu->popup(keyboard ? viewport()->mapToGlobal(visualRect(index).center())
                             : event->globalPos());
    }
}

void FileListView::removeFromMenu(const QUuid& id) {
    const std::optional<RemuxItem> item = service_.item(id);
    if (!item) {
        return;
    }
    if (item->status != ProcessingStatus::processing) {
        service_.removeItem(id);
        return;
    }
    QMessageBox* confirm = Alert::create(
        this, u"Remove this item?"_s,
        u"This stops the in-progress conversion. The source file is not affected."_s);
    confirm->setObjectName(u"removeConfirmation"_s);
    confirm->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton* remove = confirm->addButton(u"Remove"_s, QMessageBox::DestructiveRole);
    Alert::addCancel(confirm);
    connect(confirm, &QMessageBox::finished, this, [this, confirm, remove, id] {
        if (confirm->clickedButton() == remove) {
            service_.removeItem(id);
        }
    });
    confirm->open();
}
