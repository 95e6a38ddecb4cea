#pragma once

#include <QWidget>

class QPainter;

// The widget on each row of the disk list: it paints the row's rounded grey selection, swaps the
// drive image of its cell with the selection and never takes a button (the list shows no
// disclosure buttons). The list calls setSelected() whenever its selection changes.
class NTTableRowView : public QWidget {
    Q_OBJECT
public:
    // The cell's image view carries this tag (the dynamic property "tag").
    static constexpr int kImageViewTag = 100;

    explicit NTTableRowView(QWidget *parent = nullptr);
    explicit NTTableRowView(const QRect &frame, QWidget *parent = nullptr);

    bool isInternal() const { return m_isInternal; }
    void setInternal(bool internal) { m_isInternal = internal; }

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

    // Fills the selection shape for the dirty rectangle: x is always 5, not dirty's x + 5.
    void drawSelectionInRect(QPainter &painter, const QRectF &dirty) const;
    // Buttons are refused; any other widget joins the row's layout.
    void addSubview(QWidget *view);

    // This widget or the first descendant whose "tag" property equals tag.
    QWidget *viewWithTag(int tag) const;
    // The drive image for a row's kind and selection state.
    static QString imageNameFor(bool internal, bool selected);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void updateImage();
    void updateTextColour();

    bool m_isInternal = false;
    bool m_selected = false;
};
