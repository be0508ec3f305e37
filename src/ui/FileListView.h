#pragma once

// The queue as a list: one painted row an item, multiple selection, a context menu
// per row, the Delete command, and file drops handed to the engine. While the queue
// is empty the drop overlay lies over it; drops pass through it to the list.

#include "QueueModel.h"

#include <QHash>
#include <QListView>
#include <QPointer>
#include <QSet>
#include <QUuid>

#include "DropOverlay.h"

class FileListView final : public QListView {
    Q_OBJECT
public:
    explicit FileListView(RemuxService& service, QWidget* parent = nullptr);
    ~FileListView() override;

    QueueModel& queueModel() { return *model_; }
    QSet<QUuid> selectedIds() const;
    // The context menu's entries for an item, in their order.
    static QStringList contextMenuEntries(const RemuxItem& item);
    // Builds the context menu of a row; the caller shows it.
    QMenu* contextMenuFor(const QUuid& id);
    // Removes the selection, as the Delete key does.
    void deleteSelection();
    // Remove from a row's menu: asks first when the item is being processed.
    void removeFromMenu(const QUuid& id);
    bool isDragging() const { return dragging_; }
    DropOverlay* overlay() const { return overlay_.data(); }

protected:
    bool event(QEvent* event) override;
    void dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                     const QList<int>& roles = {}) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void setDragging(bool dragging);
    // The local files of a drag; links from a browser and other URLs are not ours.
    static QList<QUrl> localFiles(const QMimeData* data);
    int rowHeight(const QModelIndex& index) const;
    void rememberHeights(int first, int last);
    void updateOverlay();

    RemuxService& service_;
    QueueModel* model_;
    QPointer<DropOverlay> overlay_;
    bool dragging_ = false;
    QSet<QUuid> keptSelection_;
    QHash<QUuid, int> laidOutHeights_;
};
