#pragma once

#include <QAbstractItemModel>
#include <QVariant>

#include <memory>
#include <vector>

// What an outline asks of its owner. Items are QVariants: an invalid one is the invisible root,
// a disk record is an NTDiskDrivePtr, and an owner may answer anything else.
class NTOutlineViewDataSource {
public:
    virtual ~NTOutlineViewDataSource() = default;
    virtual qint64 numberOfChildrenOfItem(const QVariant &item) const = 0;
    virtual QVariant childOfItem(qint64 index, const QVariant &item) const = 0;
    virtual bool isItemExpandable(const QVariant &item) const = 0;
};

// The outline's items as a tree model. It holds what the data source said when last asked and
// asks again only on reloadData() or reloadItem(), so the view learns each change as inserted or
// removed rows and keeps its selection on the same items.
class NTOutlineModel final : public QAbstractItemModel {
    Q_OBJECT
public:
    explicit NTOutlineModel(const NTOutlineViewDataSource &dataSource, QObject *parent = nullptr);
    ~NTOutlineModel() override;

    void reloadData();
    // Asks again for the item itself and, with reloadChildren, for its children too.
    void reloadItem(const QVariant &item, bool reloadChildren);

    QVariant itemAtIndex(const QModelIndex &index) const;
    // The first index showing item, or an invalid one.
    QModelIndex indexOfItem(const QVariant &item) const;
    // Records by identity, anything else by value.
    static bool isSameItem(const QVariant &a, const QVariant &b);

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    struct Node {
        QVariant item;
        Node *parent = nullptr;
        std::vector<std::unique_ptr<Node>> children;
    };

    void fill(Node &node) const;
    // False when the children changed other than by insertions and removals.
    bool reloadChildren(Node &node);
    Node *find(Node &node, const QVariant &item) const;
    QModelIndex indexOf(const Node *node) const;
    const Node *nodeAt(const QModelIndex &index) const;

    const NTOutlineViewDataSource &m_dataSource;
    Node m_root;
};
