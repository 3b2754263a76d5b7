#pragma once

#include "vrfetcher_export.h"

#include <QString>
#include <QVariantList>
#include <QVariantMap>

/// \file
/// Reading and writing the timeline model's JSON texts: timeline documents, a
/// material folder's "config.json" and its "resource.rcc". Everything here is silent
/// on failure: unreadable files give empty text, bad JSON an empty map or list.
/// No shared state: callable from any thread (files are the caller's to coordinate).
namespace Veloran {

/// The whole file read as UTF-8 text; empty when it cannot be opened.
VRFETCHER_EXPORT QString getFileContent(const QString &path);
/// Writes `content` as UTF-8, replacing the file; does nothing when it cannot be opened.
VRFETCHER_EXPORT void saveToFile(const QString &content, const QString &path);

/// The JSON object text as a map; empty for bad JSON or a non-object.
VRFETCHER_EXPORT QVariantMap jsonToVariantMap(const QString &json);
/// The JSON array text as a list; empty for bad JSON or a non-array.
VRFETCHER_EXPORT QVariantList jsonToVariantList(const QString &json);
/// `map` as JSON object text, indented or compact.
VRFETCHER_EXPORT QString variantMapToJson(const QVariantMap &map, bool indented);

/// The document at `path` as indented JSON, with a "preview_param"/"timeline_dir" of
/// "." replaced by the absolute folder of the file.
VRFETCHER_EXPORT QString loadTimelineJsonFromPath(const QString &path);

/// "file_path" of the first entry of "clips", unresolved; empty without clips.
VRFETCHER_EXPORT QString getTimelineFirstClipPath(const QVariantMap &timeline);

/// Registers dir/resource.rcc (once per process and file) and returns
/// ":/<rcc_prefix>/<source>" inside it, or an empty string when the resource file
/// cannot be registered.
VRFETCHER_EXPORT QString getRccSourcePath(const QString &dir, const QVariantMap &material);

/// The material description dir/config.json as a map.
VRFETCHER_EXPORT QVariantMap getMaterialJsonMap(const QString &dir);

} // namespace Veloran
