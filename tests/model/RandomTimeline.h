#pragma once

#include "Model/EditCommand.h"
#include "Model/NLMapNode.h"

#include <QRandomGenerator>
#include <QStringList>
#include <QVariantMap>

// Random timeline documents and edit commands for them, the same for the same seed.
class RandomTimeline
{
public:
    explicit RandomTimeline(quint32 seed);

    // A root "/" with a directory, tracks of clips (transform, filters, speed curve) and settings.
    QVariantMap document();
    // A command of any kind (unknown too) for one of `ids` or a missing node, often with nested content.
    Veloran::EditCommand command(const QStringList &ids);
    // A command on one clip, its transform, its filters or its speed curve.
    Veloran::EditCommand clipCommand(const QString &clipId);

    // The ids of every node of a tree, maps and lists, in search order.
    static QStringList ids(const Veloran::NLMapNodePtr &node);
    static QStringList ids(const Veloran::NLListNodePtr &list); ///< \overload
    // The clips of every track of a root, in order.
    static QList<Veloran::NLMapNodePtr> clips(const Veloran::NLMapNodePtr &root);

    QRandomGenerator &random() { return mRandom; }

private:
    QVariantMap clip(const QString &id);
    QVariantList elements(const QString &prefix, int count);
    QVariantMap object(const QString &id, int depth);

    QRandomGenerator mRandom;
    int mNext = 0;
};
