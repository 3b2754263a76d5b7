#include "JsonDuplicateKeys.h"

#include <QHash>
#include <QJsonArray>
#include <QSet>

#include <algorithm>
#include <optional>
#include <vector>

namespace Veloran {

namespace {

// A range of the text and what stands there instead.
struct Piece
{
    int begin = 0;
    int end = 0; // one past the last byte
    QByteArray text;
};

// One member of an object: its key literal and, once seen, the comma after its value.
struct Member
{
    int keyBegin = 0;
    int keyEnd = 0;
    int comma = -1;
};

struct Scope
{
    bool isObject = false;
    bool expectsKey = false;
    QString lastKey;
    QHash<QString, Member> members; // the latest member of each key
    std::vector<Member> repeated;   // members a later one of the same key replaces
};

// The key a string literal (quotes included) stands for, with escapes decoded so that
// "\u0061" and "a" count as the same key; empty when the parser would reject it.
std::optional<QString> keyOf(const QByteArray &literal)
{
    if (!literal.contains('\\'))
        return QString::fromUtf8(literal.mid(1, literal.size() - 2));
    const QJsonDocument wrapped = QJsonDocument::fromJson('[' + literal + ']');
    if (wrapped.isNull())
        return std::nullopt;
    return wrapped.array().at(0).toString();
}

// `text` with the pieces in place; a piece inside an earlier one goes with it.
QByteArray replaced(const QByteArray &text, std::vector<Piece> pieces)
{
    std::sort(pieces.begin(), pieces.end(), [](const Piece &l, const Piece &r) { return l.begin < r.begin; });
    QByteArray result;
    result.reserve(text.size());
    int done = 0;
    for (const Piece &piece : pieces) {
        if (piece.begin < done)
            continue;
        result.append(text.constData() + done, piece.begin - done).append(piece.text);
        done = piece.end;
    }
    return result.append(text.constData() + done, text.size() - done);
}

// Renames for the repeated members of a finished object (names none of its keys
// has) and removals that drop each of them with its comma.
void collect(Scope &scope, std::vector<Piece> &renames, std::vector<Piece> &removals)
{
    int next = 0;
    for (const Member &member : scope.repeated) {
        QString name;
        do
            name = QStringLiteral("~%1").arg(next++);
        while (scope.members.contains(name));
        renames.push_back({member.keyBegin, member.keyEnd, '"' + name.toUtf8() + '"'});
        removals.push_back({member.keyBegin, member.comma < 0 ? member.keyEnd : member.comma + 1, {}});
    }
}

} // namespace

QJsonDocument parseJsonKeepingLastValues(const QByteArray &json)
{
    std::vector<Scope> scopes;
    std::vector<Piece> renames;
    std::vector<Piece> removals;
    const int size = json.size();
    for (int i = 0; i < size; ++i) {
        switch (json.at(i)) {
        case '"': {
            const int start = i;
            for (++i; i < size && json.at(i) != '"'; ++i) {
                if (json.at(i) == '\\')
                    ++i;
            }
            if (scopes.empty() || !scopes.back().isObject || !scopes.back().expectsKey)
                break;
            Scope &scope = scopes.back();
            scope.expectsKey = false;
            // A key the parser would reject: so is the whole text (it either gets
            // this far, or stops at something earlier).
            const std::optional<QString> key = keyOf(json.mid(start, i - start + 1));
            if (!key)
                return {};
            const auto earlier = scope.members.constFind(*key);
            if (earlier != scope.members.cend())
                scope.repeated.push_back(earlier.value());
            scope.members.insert(*key, {start, i + 1, -1});
            scope.lastKey = *key;
            break;
        }
        case '{':
            scopes.push_back({true, true, {}, {}, {}});
            break;
        case '[':
            scopes.push_back({false, false, {}, {}, {}});
            break;
        case '}':
        case ']':
            if (!scopes.empty()) {
                collect(scopes.back(), renames, removals);
                scopes.pop_back();
            }
            break;
        case ',':
            if (!scopes.empty() && scopes.back().isObject) {
                Scope &scope = scopes.back();
                scope.expectsKey = true;
                const auto last = scope.members.find(scope.lastKey);
                if (last != scope.members.end() && last->comma < 0)
                    last->comma = i;
            }
            break;
        default:
            break;
        }
    }
    for (Scope &scope : scopes)
        collect(scope, renames, removals);

    if (renames.empty())
        return QJsonDocument::fromJson(json);
    // Renamed, the text is valid exactly when the original is, and repeats nothing.
    if (QJsonDocument::fromJson(replaced(json, renames)).isNull())
        return {};
    return QJsonDocument::fromJson(replaced(json, removals));
}

} // namespace Veloran
