#pragma once

#include <QByteArray>

namespace Veloran {

// Whether any object of a JSON text names one key twice. Qt's JSON parser leaks
// the value it replaces when a duplicate key follows an array or object, so such
// documents are refused before they reach it. Tolerant of malformed text (which
// the parser rejects afterwards anyway).
bool jsonHasDuplicateKeys(const QByteArray &json);

} // namespace Veloran
