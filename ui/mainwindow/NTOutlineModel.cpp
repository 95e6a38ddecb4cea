#include "ui/mainwindow/NTOutlineModel.h"

#include "disk/NTDiskDrive.h"

#include <algorithm>

namespace {

const NTDiskDrive *recordOf(const QVariant &item) {
    return item.metaType() == QMetaType::fromType<NTDiskDrivePtr>()
               ? item.value<NTDiskDrivePtr>().get()
               : nullptr;
}

} // namespace

NTOutlineModel::NTOutlineModel(const NTOutlineViewDataSource &dataSource, QObject *parent)
    : QAbstractItemModel(parent)
    , m_dataSource(dataSource) {}

NTOutlineModel::~NTOutlineModel() = default;

bool NTOutlineModel::isSameItem(const QVariant &a, const QVariant &b) {
    const NTDiskDrive *recordA = recordOf(a);
    const NTDiskDrive *recordB = recordOf(b);
    if (recordA || recordB)
        return recordA == recordB;
    return a == b;
}

void NTOutlineModel::fill(Node &node) const {
    node.children.clear();
    if (node.parent && !m_dataSource.isItemExpandable(node.item))
        return;
    const qint64 count = m_dataSource.numberOfChildrenOfItem(node.item);
    for (qint64 i = 0; i < count; ++i) {
        auto child = std::make_unique<Node>();
        child->item = m_dataSource.childOfItem(i, node.item);
        child->parent = &node;
        fill(*child);
        node.children.push_back(std::move(child));
    }
}

void NTOutlineModel::reloadData() {
    beginResetModel();
    fill(m_root);
    endResetModel();
}

void NTOutlineModel::reloadItem(const QVariant &item, bool reloadChildren) {
    Node *node = find(m_root, item);
    if (!node)
        return;
    if (reloadChildren && !this->reloadChildren(*node)) {
        reloadData();
        return;
    }
    const QModelIndex index = indexOf(node);
    if (index.isValid())
        Q_EMIT dataChanged(index, index);
}

bool NTOutlineModel::reloadChildren(Node &node) {
    QList<QVariant> wanted;
    if (m_dataSource.isItemExpandable(node.item)) {
        const qint64 count = m_dataSource.numberOfChildrenOfItem(node.item);
        for (qint64 i = 0; i < count; ++i)
            wanted << m_dataSource.childOfItem(i, node.item);
    }
    auto isWanted = [&wanted](const QVariant &item) {
        return std::any_of(wanted.cbegin(), wanted.cend(),
                           [&item](const QVariant &w) { return isSameItem(w, item); });
    };
    const QModelIndex parentIndex = indexOf(&node);
    for (int row = int(node.children.size()) - 1; row >= 0; --row) {
        if (isWanted(node.children[row]->item))
            continue;
        beginRemoveRows(parentIndex, row, row);
        node.children.erase(node.children.begin() + row);
        endRemoveRows();
    }
    // What is left must keep its order among the wanted items; then only insertions remain.
    size_t kept = 0;
    for (const QVariant &item : wanted)
        if (kept < node.children.size() && isSameItem(node.children[kept]->item, item))
            ++kept;
    if (kept != node.children.size())
        return false;
    for (int row = 0; row < wanted.size(); ++row) {
        if (size_t(row) < node.children.size() && isSameItem(node.children[row]->item, wanted[row]))
            continue;
        auto child = std::make_unique<Node>();
        child->item = wanted[row];
        child->parent = &node;
        fill(*child);
        beginInsertRows(parentIndex, row, row);
        node.children.insert(node.children.begin() + row, std::move(child));
        endInsertRows();
    }
    return true;
}

NTOutlineModel::Node *NTOutlineModel::find(Node &node, const QVariant &item) const {
    if (node.parent && isSameItem(node.item, item))
        return &node;
    if (!node.parent && !item.isValid())
        return &node;
    for (const auto &child : node.children)
        if (Node *found = find(*child, item))
            return found;
    return nullptr;
}

QModelIndex NTOutlineModel::indexOf(const Node *node) const {
    if (!node || !node->parent)
        return {};
    const auto &siblings = node->parent->children;
    const auto it = std::find_if(siblings.cbegin(), siblings.cend(),
                                 [node](const auto &sibling) { return sibling.get() == node; });
    return createIndex(int(it - siblings.cbegin()), 0, node);
}

const NTOutlineModel::Node *NTOutlineModel::nodeAt(const QModelIndex &index) const {
    return index.isValid() ? static_cast<const Node *>(index.internalPointer()) : &m_root;
}

QVariant NTOutlineModel::itemAtIndex(const QModelIndex &index) const {
    return index.isValid() ? nodeAt(index)->item : QVariant();
}

QModelIndex NTOutlineModel::indexOfItem(const QVariant &item) const {
    return item.isValid() ? indexOf(find(const_cast<Node &>(m_root), item)) : QModelIndex();
}

QModelIndex NTOutlineModel::index(int row, int column, const QModelIndex &parent) const {
    const Node *node = nodeAt(parent);
    if (column != 0 || row < 0 || size_t(row) >= node->children.size())
        return {};
    return createIndex(row, 0, node->children[row].get());
}

QModelIndex NTOutlineModel::parent(const QModelIndex &child) const {
    return child.isValid() ? indexOf(nodeAt(child)->parent) : QModelIndex();
}

int NTOutlineModel::rowCount(const QModelIndex &parent) const {
    return parent.column() > 0 ? 0 : int(nodeAt(parent)->children.size());
}

int NTOutlineModel::columnCount(const QModelIndex &) const {
    return 1;
}

bool NTOutlineModel::hasChildren(const QModelIndex &parent) const {
    // An expandable item can be expanded while it is still empty, as an outline's groups are.
    const Node *node = nodeAt(parent);
    return !node->children.empty() ||
           (parent.isValid() && m_dataSource.isItemExpandable(node->item));
}

QVariant NTOutlineModel::data(const QModelIndex &index, int role) const {
    const NTDiskDrive *record = recordOf(itemAtIndex(index));
    if (!record)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return record->name();
    case Qt::AccessibleDescriptionRole: {
        // A screen reader says which group a volume is in.
        const NTDiskDrive *group = recordOf(itemAtIndex(index.parent()));
        return group ? group->name() : QVariant();
    }
    default:
        return {};
    }
}
