#pragma once

#include <QTreeView>

class NTOutlineModel;
class NTOutlineViewDataSource;
class NTTableRowView;

// What an outline asks of its delegate about each item's row.
class NTOutlineViewDelegate {
public:
    virtual ~NTOutlineViewDelegate() = default;
    virtual bool shouldExpandItem(const QVariant &item) const = 0;
    // Asked for a person's clicks and keys only; the program may select any row.
    virtual bool shouldSelectItem(const QVariant &item) const = 0;
    virtual double heightOfRowByItem(const QVariant &item) const = 0;
    // The row widget and its content; the outline owns both.
    virtual NTTableRowView *rowViewForItem(const QVariant &item) = 0;
    virtual QWidget *viewForTableColumn(const QVariant &item) = 0;
};

// A source-list outline: no header, no disclosure buttons, no highlight of its own. Each row is a
// widget its delegate makes, told whether it is selected; the rows paint the selection.
class NTOutlineView : public QTreeView {
    Q_OBJECT
public:
    explicit NTOutlineView(QWidget *parent = nullptr);
    ~NTOutlineView() override;

    // Builds the model; the data source and the delegate must outlive the view.
    void setDataSource(const NTOutlineViewDataSource *dataSource);
    void setDelegate(NTOutlineViewDelegate *delegate);
    NTOutlineModel *outlineModel() const { return m_model; }

    void reloadData();
    void reloadItem(const QVariant &item, bool reloadChildren);
    // The invalid item means every top-level item.
    void expandItem(const QVariant &item, bool expandChildren);

    // Rows in display order, every item expanded or not shown; -1 when nothing is selected.
    int numberOfRows() const;
    int selectedRow() const;
    QVariant itemAtRow(int row) const;
    NTTableRowView *rowViewAtRow(int row) const;
    // Selects the row alone, or clears the selection for a row out of range.
    void selectRow(int row);

Q_SIGNALS:
    void selectionDidChange();

protected:
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex &index,
                                                         const QEvent *event) const override;
    QModelIndex moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers modifiers) override;
    void rowsInserted(const QModelIndex &parent, int start, int end) override;
    void reset() override;
    // The row widgets draw everything: no arrows, no highlight of the style beside them.
    void drawRow(QPainter *, const QStyleOptionViewItem &, const QModelIndex &) const override {}

private:
    class RowDelegate;

    void makeRowView(const QModelIndex &index);
    void makeRowViews(const QModelIndex &parent, int start, int end);
    void itemsDidChange(const QModelIndex &topLeft, const QModelIndex &bottomRight);
    void updateRowSelection();

    NTOutlineModel *m_model = nullptr;
    NTOutlineViewDelegate *m_delegate = nullptr;
};
