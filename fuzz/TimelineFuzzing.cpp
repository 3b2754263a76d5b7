#include "FuzzCheck.h"
#include "FuzzTargets.h"

#include "Model/EditCommand.h"
#include "Model/NLListNode.h"
#include "Model/NLMapNode.h"

#include <QByteArray>
#include <QList>

namespace Veloran::Fuzz {

namespace {

// Input layout, in chunks separated by NUL bytes:
//   chunk 0      the timeline document (JSON text, usually an object);
//   every other  one edit command: its first byte chooses the kind (byte % 6, so
//                that an unknown kind occurs too), the text up to the first
//                newline is the target id, the rest is the JSON content.
EditCommand commandFrom(const QByteArray &chunk)
{
    EditCommand command;
    if (chunk.isEmpty())
        return command;
    command.kind = static_cast<unsigned char>(chunk.at(0)) % 6;
    const QByteArray rest = chunk.mid(1);
    const int newline = rest.indexOf('\n');
    command.targetID = QString::fromUtf8(newline < 0 ? rest : rest.left(newline));
    command.content = newline < 0 ? QString() : QString::fromUtf8(rest.mid(newline + 1));
    return command;
}

// Reads every value of a node the way clip views do, and walks its children.
void readAll(const NLMapNodePtr &node, int depth)
{
    if (!node || depth > 64)
        return;
    const QVariantMap props = node->toMap();
    for (auto it = props.begin(); it != props.end(); ++it) {
        node->stringValue(it.key());
        node->int64Value(it.key());
        node->doubleValue(it.key());
        node->pathValue(it.key());
        if (const NLMapNodePtr child = NLMapNode::mapChild(it.value()))
            readAll(child, depth + 1);
    }
}

} // namespace

void fuzzTimeline(const uint8_t *data, size_t size)
{
    const QList<QByteArray> chunks = QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split('\0');
    const NLMapNodePtr root(new NLMapNode(QString::fromUtf8(chunks.first())));

    // A deep copy, and a tree made from the root's properties (sharing its children),
    // taken before the edits must not see any of them.
    const NLMapNodePtr before = root->clone();
    const NLMapNodePtr shared(new NLMapNode(root->toMap()));
    const QString beforeJson = before->toJson();
    VR_FUZZ_CHECK(root->toJson() == beforeJson && shared->toJson() == beforeJson, "copies serialise like their source");

    for (int i = 1; i < chunks.size() && i <= 64; ++i) {
        const EditCommand command = commandFrom(chunks.at(i));
        // Held across the edit: must stay valid whatever the edit does to the tree.
        INode *parent = nullptr;
        INode *target = root->findNode(command.targetID, &parent);
        const QString targetId = target ? target->tagID() : QString();
        root->processCommand(command, nullptr);
        VR_FUZZ_CHECK(!target || targetId == command.targetID, "findNode returns the node with the id");
    }

    VR_FUZZ_CHECK(before->toJson() == beforeJson && shared->toJson() == beforeJson, "edits leave earlier copies unchanged");

    readAll(root, 0);
    root->setTimelineDir(QStringLiteral("/timeline"));
    readAll(root, 0);

    // Written out and read back, a document is stable from then on. (The first
    // reading may change it: values merged in by ModifyNode stay plain, and an
    // array inside such a value becomes a list of empty nodes once read.)
    const QString once = NLMapNode(root->toJson()).toJson();
    VR_FUZZ_CHECK(NLMapNode(once).toJson() == once, "a document read from its own JSON reads back unchanged");
}

} // namespace Veloran::Fuzz
