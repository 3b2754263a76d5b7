#pragma once

#include "Model/INode.h"
#include "vrfetcher_export.h"

#include <QMetaType>
#include <QScopedPointer>
#include <QSharedPointer>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <QVector>

#include <optional>

namespace Veloran {

class NLMapNode;
class NLListNode;
using NLMapNodePtr = QSharedPointer<NLMapNode>;
using NLListNodePtr = QSharedPointer<NLListNode>;

// A JSON object of the timeline document. Its properties live in one map that is
// also its child table: a value that was an object holds an NLMapNodePtr, a value
// that was an array holds an NLListNodePtr, every other value is a plain QVariant.
class VRFETCHER_EXPORT NLMapNode : public INode
{
public:
    explicit NLMapNode(const QVariantMap &map = QVariantMap());
    explicit NLMapNode(const QString &json);
    ~NLMapNode() override;

    NLMapNode(const NLMapNode &) = delete;
    NLMapNode &operator=(const NLMapNode &) = delete;

    QString tagID() const override;
    INode *findNode(const QString &id, INode **parent) override;
    void processCommand(const EditCommand &cmd, INode *parent) override;
    void copyOnWrite() override;

    // Rebuilds the node from a plain map, reusing the existing child node of a key
    // so that pointers held elsewhere stay valid. Keys missing from `map` disappear.
    virtual void resetNode(const QVariantMap &map);
    // Merges `map` into the properties; values are stored as given (no child nodes).
    virtual void modifyNode(const QVariantMap &map);

    void assertMapIsSingleLevel(const QVariantMap &map) const;

    // Empty when the key is absent or holds an invalid QVariant.
    std::optional<QString> opStringValue(const QString &key) const;
    std::optional<int> opIntValue(const QString &key) const;
    std::optional<qint64> opInt64Value(const QString &key) const;
    std::optional<bool> opBoolValue(const QString &key) const;
    std::optional<double> opDoubleValue(const QString &key) const;
    std::optional<float> opFloatValue(const QString &key) const;

    QString stringValue(const QString &key) const;
    int intValue(const QString &key) const;
    qint64 int64Value(const QString &key) const;
    bool boolValue(const QString &key) const;
    double doubleValue(const QString &key) const;
    float floatValue(const QString &key) const;

    // A stored path resolved against the timeline directory; resource paths (":...")
    // and drive paths ("C:...") are returned as they are.
    QString pathValue(const QString &key) const;

    NLMapNodePtr getMapNodeByKey(const QString &key) const;
    NLListNodePtr getListNodeByID(const QString &id) const;

    QVariantMap toMap() const;     // the properties, children still as node pointers
    QVariantMap toJsonMap() const; // a plain map, children converted recursively
    QString toJson() const;        // indented JSON text of toJsonMap()

    void setValue(const QString &key, const QVariant &value);

    NLMapNodePtr clone() const;

    QString timelineDir() const;
    // Sets the directory of this node and of every node below it.
    void setTimelineDir(const QString &dir);

    // Child pointers inside a QVariant; null when the value holds something else.
    static NLMapNodePtr mapChild(const QVariant &value);
    static NLListNodePtr listChild(const QVariant &value);
    static QVariant wrap(const NLMapNodePtr &node);
    static QVariant wrap(const NLListNodePtr &list);

    // Meta-type ids of the pointer types, registered on first use.
    static int mapMetaTypeId();
    static int listMetaTypeId();

private:
    NLMapNode(const QVariantMap &map, const QString &timelineDir);
    friend class NLListNode;

    // The entry of `key` when it holds a valid value, else null.
    const QVariant *entry(const QString &key) const;
    // To be called after every change of mProps: refreshes the cached id and the
    // child table.
    void propsChanged();

    QScopedPointer<QVariantMap> mProps;
    QString mTimelineDir;
    QString mId;                // props["id"] as a string
    QVector<INode *> mChildren; // child nodes in key order, owned through mProps
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::NLMapNodePtr)
