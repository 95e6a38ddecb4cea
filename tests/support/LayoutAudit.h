#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace testsupport {

// What a person would find wrong with a window's texts, one line per fault naming the widget:
// a label or button whose text does not fit its space, or a text that is still a string key.
QStringList clippedTexts(const QWidget *root);
QStringList untranslatedTexts(const QWidget *root, const QStringList &keys);

// Every key of resources/translations/keys.txt.
QStringList translationKeys();

} // namespace testsupport
