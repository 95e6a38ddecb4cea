#include "ui/mainwindow/NTTableRowView.h"

#include "ui/controls/LLImage.h"
#include "ui/mainwindow/NTImageView.h"
#include "ui/mainwindow/NTTruncatingLabel.h"

#include <QAbstractButton>
#include <QAccessibleWidget>
#include <QHBoxLayout>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

namespace {

constexpr double kSelectionInset = 5.0;
constexpr double kSelectionRadius = 5.0;
// The selection is this light grey in both themes, so its text is always dark.
const QColor kSelectionColour = QColor::fromRgb(212, 212, 212);
const QColor kSelectedTextColour = QColor::fromRgb(29, 29, 31);

// A screen reader meets each row as a list item named by its disk, and hears which is selected.
class AccessibleRow : public QAccessibleWidget {
public:
    explicit AccessibleRow(QWidget *widget)
        : QAccessibleWidget(widget, QAccessible::ListItem) {}

    QString text(QAccessible::Text t) const override {
        if (t == QAccessible::Name && widget()->accessibleName().isEmpty()) {
            if (const auto *name = widget()->findChild<NTTruncatingLabel *>())
                return name->text();
        }
        return QAccessibleWidget::text(t);
    }

    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.selectable = true;
        state.selected = static_cast<NTTableRowView *>(widget())->isSelected();
        return state;
    }
};

QAccessibleInterface *accessibleFactory(const QString &className, QObject *object) {
    if (className == u"NTTableRowView"_s && object && object->isWidgetType())
        return new AccessibleRow(static_cast<QWidget *>(object));
    return nullptr;
}

} // namespace

NTTableRowView::NTTableRowView(QWidget *parent)
    : QWidget(parent) {
    static const bool factoryInstalled = (QAccessible::installFactory(accessibleFactory), true);
    Q_UNUSED(factoryInstalled);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins({});
    layout->setSpacing(0);
}

NTTableRowView::NTTableRowView(const QRect &frame, QWidget *parent)
    : NTTableRowView(parent) {
    setGeometry(frame);
}

void NTTableRowView::setSelected(bool selected) {
    const bool changed = m_selected != selected;
    m_selected = selected;
    if (changed && QAccessible::isActive()) {
        QAccessible::State selection;
        selection.selected = true;
        QAccessibleStateChangeEvent event(this, selection);
        QAccessible::updateAccessibility(&event);
    }
    updateImage();
    updateTextColour();
    update();
}

void NTTableRowView::updateImage() {
    auto *imageView = qobject_cast<NTImageView *>(viewWithTag(kImageViewTag));
    if (!imageView)
        return;
    imageView->setImage(LLImage::imageNamed(imageNameFor(m_isInternal, isSelected())));
    imageView->setAccessibleName(m_isInternal ? qtTrId("disk_internal") : qtTrId("disk_external"));
}

void NTTableRowView::updateTextColour() {
    if (!m_selected) {
        // An empty palette resolves nothing, so the row follows the application's again.
        setPalette(QPalette());
        return;
    }
    QPalette selectedPalette = palette();
    for (QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        selectedPalette.setColor(role, kSelectedTextColour);
    setPalette(selectedPalette);
}

QString NTTableRowView::imageNameFor(bool internal, bool selected) {
    return (internal ? u"internaldrive_"_s : u"externaldrive_"_s) %
           (selected ? u"selected"_s : u"normal"_s);
}

QWidget *NTTableRowView::viewWithTag(int tag) const {
    auto hasTag = [tag](const QObject *object) {
        bool ok = false;
        return object->property("tag").toInt(&ok) == tag && ok;
    };
    if (hasTag(this))
        return const_cast<NTTableRowView *>(this);
    const QList<QWidget *> descendants = findChildren<QWidget *>();
    for (QWidget *view : descendants) {
        if (hasTag(view))
            return view;
    }
    return nullptr;
}

void NTTableRowView::drawSelectionInRect(QPainter &painter, const QRectF &dirty) const {
    QPainterPath shape;
    shape.addRoundedRect(
        QRectF(kSelectionInset, dirty.y(), dirty.width() - 2 * kSelectionInset, dirty.height()),
        kSelectionRadius, kSelectionRadius);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(shape, kSelectionColour);
    painter.restore();
}

void NTTableRowView::addSubview(QWidget *view) {
    if (!view || qobject_cast<QAbstractButton *>(view))
        return;
    layout()->addWidget(view);
}

void NTTableRowView::paintEvent(QPaintEvent *event) {
    // No background and no separator: only the selection.
    if (!isSelected())
        return;
    QPainter painter(this);
    drawSelectionInRect(painter, event->rect());
}
