#pragma once

#include <QString>
#include <QVariant>

#include <optional>

namespace Veloran {

/// The typed getters of a map node, written once for the node itself and for the
/// views over it. `Source` provides `const QVariant *valueEntry(const QString &key) const`:
/// the stored value of `key`, or null when the key is absent or holds an invalid value.
///
/// The op… getters are empty when there is no entry; the others give the entry
/// converted as QVariant does, or 0, false or an empty string without one.
template <typename Source>
class NodeValues
{
public:
    std::optional<QString> opStringValue(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return v.toString(); });
    }
    std::optional<int> opIntValue(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return v.toInt(); });
    }
    std::optional<qint64> opInt64Value(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return qint64(v.toLongLong()); });
    }
    std::optional<bool> opBoolValue(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return v.toBool(); });
    }
    std::optional<double> opDoubleValue(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return v.toDouble(); });
    }
    std::optional<float> opFloatValue(const QString &key) const
    {
        return read(key, [](const QVariant &v) { return v.toFloat(); });
    }

    QString stringValue(const QString &key) const { return opStringValue(key).value_or(QString()); }
    int intValue(const QString &key) const { return opIntValue(key).value_or(0); }
    qint64 int64Value(const QString &key) const { return opInt64Value(key).value_or(0); }
    bool boolValue(const QString &key) const { return opBoolValue(key).value_or(false); }
    double doubleValue(const QString &key) const { return opDoubleValue(key).value_or(0.0); }
    float floatValue(const QString &key) const { return opFloatValue(key).value_or(0.0f); }

protected:
    ~NodeValues() = default;

private:
    template <typename Convert>
    auto read(const QString &key, Convert convert) const -> std::optional<decltype(convert(QVariant()))>
    {
        if (const QVariant *value = static_cast<const Source *>(this)->valueEntry(key))
            return convert(*value);
        return std::nullopt;
    }
};

} // namespace Veloran
