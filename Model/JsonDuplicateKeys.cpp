#include "JsonDuplicateKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <vector>

namespace Veloran {

namespace {

struct Scope
{
    bool isObject = false;
    bool expectsKey = false;
    QSet<QString> keys;
};

// The key a string literal (quotes included) stands for: escapes decoded, so
// "\u0061" and "a" count as the same key.
QString keyOf(const QByteArray &literal)
{
    if (!literal.contains('\\'))
        return QString::fromUtf8(literal.mid(1, literal.size() - 2));
    const QJsonDocument wrapped = QJsonDocument::fromJson('[' + literal + ']');
    return wrapped.array().at(0).toString();
}

} // namespace

bool jsonHasDuplicateKeys(const QByteArray &json)
{
    std::vector<Scope> scopes;
    const int size = json.size();
    for (int i = 0; i < size; ++i) {
        const char c = json.at(i);
        switch (c) {
        case '"': {
            const int start = i;
            for (++i; i < size && json.at(i) != '"'; ++i) {
                if (json.at(i) == '\\')
                    ++i;
            }
            if (!scopes.empty() && scopes.back().isObject && scopes.back().expectsKey) {
                Scope &scope = scopes.back();
                scope.expectsKey = false;
                const QString key = keyOf(json.mid(start, i - start + 1));
                if (scope.keys.contains(key))
                    return true;
                scope.keys.insert(key);
            }
            break;
        }
        case '{':
            scopes.push_back({true, true, {}});
            break;
        case '[':
            scopes.push_back({false, false, {}});
            break;
        case '}':
        case ']':
            if (!scopes.empty())
                scopes.pop_back();
            break;
        case ',':
            if (!scopes.empty() && scopes.back().isObject)
                scopes.back().expectsKey = true;
            break;
        default:
            break;
        }
    }
    return false;
}

} // namespace Veloran
