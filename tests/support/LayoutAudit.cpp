#include "tests/support/LayoutAudit.h"

#include <QAbstractButton>
#include <QFile>
#include <QLabel>
#include <QTextDocument>
#include <QWidget>

namespace testsupport {

using namespace Qt::StringLiterals;

namespace {

QString describe(const QWidget *widget, const QString &text) {
    return QString::fromLatin1(widget->metaObject()->className()) + u" "_s + widget->objectName() +
           u" \""_s + text + u"\""_s;
}

bool labelFits(const QLabel *label) {
    const QRect space = label->contentsRect();
    if (label->wordWrap() || Qt::mightBeRichText(label->text())) {
        return label->heightForWidth(space.width()) <= space.height();
    }
    return label->fontMetrics().horizontalAdvance(label->text()) <= space.width();
}

bool buttonFits(const QAbstractButton *button) {
    const QSize needed = button->minimumSizeHint();
    return needed.width() <= button->width() && needed.height() <= button->height();
}

template <typename Check> QStringList visibleTextFaults(const QWidget *root, Check check) {
    QStringList faults;
    const auto visit = [&](const QWidget *widget, const QString &text) {
        if (widget->isVisibleTo(root) && !text.isEmpty() && !check(widget, text)) {
            faults << describe(widget, text);
        }
    };
    for (const QLabel *label : root->findChildren<QLabel *>()) {
        visit(label, label->text());
    }
    for (const QAbstractButton *button : root->findChildren<QAbstractButton *>()) {
        visit(button, button->text());
    }
    return faults;
}

} // namespace

QStringList clippedTexts(const QWidget *root) {
    return visibleTextFaults(root, [](const QWidget *widget, const QString &) {
        if (const auto *label = qobject_cast<const QLabel *>(widget)) {
            return labelFits(label);
        }
        return buttonFits(qobject_cast<const QAbstractButton *>(widget));
    });
}

QStringList untranslatedTexts(const QWidget *root, const QStringList &keys) {
    QStringList faults = visibleTextFaults(
        root, [&](const QWidget *, const QString &text) { return !keys.contains(text); });
    if (keys.contains(root->windowTitle())) {
        faults << describe(root, root->windowTitle());
    }
    return faults;
}

QStringList translationKeys() {
    QFile file(QStringLiteral(VANTRELO_SOURCE_DIR "/resources/translations/keys.txt"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return {};
    }
    QStringList keys;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (!line.isEmpty() && !line.startsWith(u'#')) {
            keys << line;
        }
    }
    return keys;
}

} // namespace testsupport
