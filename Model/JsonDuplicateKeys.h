#pragma once

#include <QByteArray>
#include <QJsonDocument>

namespace Veloran {

// QJsonDocument::fromJson(json): a null document for text the parser rejects, and the
// last value of a key an object repeats. Qt's parser leaks the value a repeat
// replaces when that is an array or object, so a text with repeats never reaches it
// as it is: the earlier members of a repeated key are renamed to check the text, and
// removed to read it.
QJsonDocument parseJsonKeepingLastValues(const QByteArray &json);

} // namespace Veloran
