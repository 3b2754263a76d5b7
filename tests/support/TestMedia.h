#pragma once

#include <QString>

// Paths of the media generated for the tests (see cmake/VrTestMedia.cmake).
namespace TestMedia {

// The generated file `name`; QFAIL-worthy if missing, so callers check exists().
QString path(const QString &name);
QString dir();

// A fresh scratch folder under the build tree for files a test writes.
QString scratchDir(const QString &testName);

} // namespace TestMedia
