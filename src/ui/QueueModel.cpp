#include "QueueModel.h"

#include "FileItemRow.h"

using namespace Qt::StringLiterals;

QueueModel::QueueModel(RemuxService& service, QObject* parent)
    : QAbstractListModel(parent), service_(service) {
    connect(&service_, &RemuxService::itemChanged, this, [this](const QUuid& id) {
        const int row = rowOf(id);
        if (row >= 0) {
            Q_EMIT dataChanged(index(row), index(row));
        }
    });
    connect(
        &service_, &RemuxService::itemsAboutToBeInserted, this,
        [this](qsizetype first, qsizetype last) { beginInsertRows({}, int(first), int(last)); });
    connect(&service_, &RemuxService::itemsInserted, this, [this] { endInsertRows(); });
    connect(
        &service_, &RemuxService::itemsAboutToBeRemoved, this,
        [this](qsizetype first, qsizetype last) { beginRemoveRows({}, int(first), int(last)); });
    connect(&service_, &RemuxService::itemsRemoved, this, [this] { endRemoveRows(); });
    connect(&service_, &RemuxService::itemsAboutToBeReset, this, [this] { beginResetModel(); });
    connect(&service_, &RemuxService::itemsReset, this, [this] { endResetModel(); });
}

int QueueModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(service_.items().size());
}

int QueueModel::rowOf(const QUuid& id) const {
    const QList<RemuxItem>& items = service_.items();
    for (int row = 0; row < items.size(); ++row) {
        if (items.at(row).id == id) {
            return row;
        }
    }
    return -1;
}

QVariant QueueModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const RemuxItem& item = itemAt(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return FileItemRow::fileName(item);
    case Qt::ToolTipRole:
        return FileItemRow::toolTip(item).isEmpty() ? QVariant() : FileItemRow::toolTip(item);
    case Qt::AccessibleTextRole:
        return FileItemRow::accessibleText(item);
    case Qt::AccessibleDescriptionRole:
        return FileItemRow::accessibleValue(item).isEmpty() ? FileItemRow::errorLine(item)
                                                            : FileItemRow::accessibleValue(item);
    case ItemRole:
        return QVariant::fromValue(item);
    case IdRole:
        return item.id;
    default:
        return {};
    }
}

Qt::ItemFlags QueueModel::flags(const QModelIndex& index) const {
    return QAbstractListModel::flags(index) | Qt::ItemIsDropEnabled;
}

QStringList QueueModel::mimeTypes() const {
    return {u"text/uri-list"_s};
}

Qt::DropActions QueueModel::supportedDropActions() const {
    return Qt::CopyAction;
}
