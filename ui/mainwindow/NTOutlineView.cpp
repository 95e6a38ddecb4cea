#include "ui/mainwindow/NTOutlineView.h"

#include "ui/mainwindow/NTOutlineModel.h"
#include "ui/mainwindow/NTTableRowView.h"

#include <QHeaderView>
#include <QStyledItemDelegate>

// Rows are widgets; the item delegate only gives each row its height.
class NTOutlineView::RowDelegate final : public QStyledItemDelegate {
public:
    explicit RowDelegate(NTOutlineView *view)
        : QStyledItemDelegate(view)
        , m_view(view) {}
    void paint(QPainter *, const QStyleOptionViewItem &, const QModelIndex &) const override {}
    QSize sizeHint(const QStyleOptionViewItem &, const QModelIndex &index) const override {
        const QVariant item = m_view->m_model->itemAtIndex(index);
        return {-1, qRound(m_view->m_delegate ? m_view->m_delegate->heightOfRowByItem(item) : 0)};
    }

private:
    NTOutlineView *m_view;
};

NTOutlineView::NTOutlineView(QWidget *parent)
    : QTreeView(parent) {
    header()->hide();
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setExpandsOnDoubleClick(false);
    setUniformRowHeights(false);
    setIndentation(6);
    setFrameShape(QFrame::NoFrame);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::StrongFocus);
    // The pane behind shows through: the list has the window's sidebar colour.
    viewport()->setAutoFillBackground(false);
    setItemDelegate(new RowDelegate(this));
}

NTOutlineView::~NTOutlineView() = default;

void NTOutlineView::setDataSource(const NTOutlineViewDataSource *dataSource) {
    delete m_model;
    m_model = new NTOutlineModel(*dataSource, this);
    setModel(m_model);
    // The model's own changes only: setIndexWidget() reports one too.
    connect(m_model, &QAbstractItemModel::dataChanged, this, &NTOutlineView::itemsDidChange);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        updateRowSelection();
        Q_EMIT selectionDidChange();
    });
}

void NTOutlineView::setDelegate(NTOutlineViewDelegate *delegate) {
    m_delegate = delegate;
}

void NTOutlineView::reloadData() {
    m_model->reloadData();
}

void NTOutlineView::reloadItem(const QVariant &item, bool reloadChildren) {
    m_model->reloadItem(item, reloadChildren);
}

void NTOutlineView::expandItem(const QVariant &item, bool expandChildren) {
    const QModelIndex index = m_model->indexOfItem(item);
    if (index.isValid() && m_delegate && m_delegate->shouldExpandItem(item))
        expand(index);
    if (!expandChildren)
        return;
    for (int row = 0; row < m_model->rowCount(index); ++row)
        expandItem(m_model->itemAtIndex(m_model->index(row, 0, index)), true);
}

int NTOutlineView::numberOfRows() const {
    int rows = 0;
    for (QModelIndex index = m_model->index(0, 0); index.isValid(); index = indexBelow(index))
        ++rows;
    return rows;
}

QVariant NTOutlineView::itemAtRow(int row) const {
    QModelIndex index = m_model->index(0, 0);
    for (int i = 0; i < row && index.isValid(); ++i)
        index = indexBelow(index);
    return row >= 0 ? m_model->itemAtIndex(index) : QVariant();
}

int NTOutlineView::selectedRow() const {
    const QModelIndexList selected = selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return -1;
    int row = 0;
    for (QModelIndex index = m_model->index(0, 0); index.isValid(); index = indexBelow(index)) {
        if (index == selected.first())
            return row;
        ++row;
    }
    return -1;
}

NTTableRowView *NTOutlineView::rowViewAtRow(int row) const {
    return qobject_cast<NTTableRowView *>(indexWidget(m_model->indexOfItem(itemAtRow(row))));
}

void NTOutlineView::selectRow(int row) {
    const QModelIndex index = m_model->indexOfItem(itemAtRow(row));
    if (!index.isValid()) {
        selectionModel()->clearSelection();
        return;
    }
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
}

QItemSelectionModel::SelectionFlags NTOutlineView::selectionCommand(const QModelIndex &index,
                                                                    const QEvent *event) const {
    if (m_delegate && index.isValid() && !m_delegate->shouldSelectItem(m_model->itemAtIndex(index)))
        return QItemSelectionModel::NoUpdate;
    return QTreeView::selectionCommand(index, event);
}

QModelIndex NTOutlineView::moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers modifiers) {
    // Keys pass over rows that cannot be selected, as they do in a source list.
    const QModelIndex start = currentIndex();
    QModelIndex index = QTreeView::moveCursor(cursorAction, modifiers);
    while (index.isValid() && m_delegate &&
           !m_delegate->shouldSelectItem(m_model->itemAtIndex(index))) {
        const QModelIndex next = cursorAction == MoveUp ? indexAbove(index) : indexBelow(index);
        if (!next.isValid() || (cursorAction != MoveUp && cursorAction != MoveDown))
            return start;
        index = next;
    }
    return index;
}

void NTOutlineView::makeRowView(const QModelIndex &index) {
    if (!m_delegate)
        return;
    const QVariant item = m_model->itemAtIndex(index);
    NTTableRowView *row = m_delegate->rowViewForItem(item);
    row->addSubview(m_delegate->viewForTableColumn(item));
    row->setSelected(selectionModel()->isSelected(index));
    setIndexWidget(index, row);
}

void NTOutlineView::makeRowViews(const QModelIndex &parent, int start, int end) {
    for (int row = start; row <= end; ++row) {
        const QModelIndex index = m_model->index(row, 0, parent);
        makeRowView(index);
        makeRowViews(index, 0, m_model->rowCount(index) - 1);
    }
}

void NTOutlineView::rowsInserted(const QModelIndex &parent, int start, int end) {
    QTreeView::rowsInserted(parent, start, end);
    makeRowViews(parent, start, end);
}

void NTOutlineView::itemsDidChange(const QModelIndex &topLeft, const QModelIndex &bottomRight) {
    for (int row = topLeft.row(); row <= bottomRight.row(); ++row)
        makeRowView(m_model->index(row, 0, topLeft.parent()));
}

void NTOutlineView::reset() {
    QTreeView::reset();
    if (m_model)
        makeRowViews({}, 0, m_model->rowCount() - 1);
}

void NTOutlineView::updateRowSelection() {
    for (QModelIndex index = m_model->index(0, 0); index.isValid(); index = indexBelow(index))
        if (auto *row = qobject_cast<NTTableRowView *>(indexWidget(index)))
            row->setSelected(selectionModel()->isSelected(index));
}
