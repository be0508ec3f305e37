#pragma once

// Adapts the engine's items for the list: one row an item, in queue order. A change
// of one item repaints that row alone; appends and removals move rows; only a bulk
// change of the engine resets the model.

#include "engine/RemuxService.h"

#include <QAbstractListModel>

class QueueModel final : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        ItemRole = Qt::UserRole + 1, // the RemuxItem itself
        IdRole,
    };

    explicit QueueModel(RemuxService& service, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    Qt::DropActions supportedDropActions() const override;

    const RemuxItem& itemAt(int row) const { return service_.items().at(row); }
    int rowOf(const QUuid& id) const;

private:
    RemuxService& service_;
};

Q_DECLARE_METATYPE(RemuxItem)
