// Times the timeline model on a document of about 2000 clips: parsing, a few hundred
// edit commands through the root, the timeline length of every clip, and writing JSON.

#include "Model/EditCommand.h"
#include "Model/JSBasicClip.h"
#include "Model/NLListNode.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTextStream>

#include <algorithm>
#include <functional>
#include <vector>

using namespace Veloran;

namespace {

constexpr int kVideoTracks = 10;
constexpr int kClipsPerVideoTrack = 150;
constexpr int kAudioTracks = 5;
constexpr int kClipsPerAudioTrack = 100;
constexpr int kCommands = 300;
constexpr int kRuns = 7;

QVariantMap videoClip(QRandomGenerator &random, const QString &trackId, int index, qint64 &position)
{
    const QString id = QStringLiteral("%1-v%2").arg(trackId).arg(index);
    const qint64 original = 5000 + random.bounded(120000);
    const qint64 begin = random.bounded(int(original / 3));
    const qint64 length = 1000 + random.bounded(int(original - begin - 999));
    QVariantMap clip{{"id", id}, {"type", "clip"}, {"kind", index % 7 ? "video" : "video_only"},
                     {"track_ref", trackId}, {"timeline_pos", position}, {"range_begin", begin},
                     {"range_length", length}, {"original_length", original},
                     {"file_path", QStringLiteral("media/clip%1.mp4").arg(index % 40)},
                     {"stream_index", 0}, {"alpha", 1.0}, {"z_order", index % 3}};
    clip.insert("transform", QVariantMap{{"id", id + "-tr"}, {"zoom", 1.0}, {"rotate", 0},
                                         {"pan_crop_begin", "0,0,1,1"}, {"pan_crop_end", "0.1,0.1,0.8,0.8"}});
    clip.insert("video_filters", QVariantList{
        QVariantMap{{"id", id + "-f1"}, {"name", "brightness"}, {"value", 0.2}},
        QVariantMap{{"id", id + "-f2"}, {"name", "contrast"}, {"value", 1.1}}});
    if (index % 4 == 0) {
        QVariantList curve;
        const int points = 4 + random.bounded(3);
        for (int p = 0; p < points; ++p)
            curve << QVariantMap{{"id", QStringLiteral("%1-s%2").arg(id).arg(p)},
                                 {"original_pos", double(p) / (points - 1)},
                                 {"value", 0.25 + random.generateDouble() * 3.5}};
        clip.insert("variableSpeed", curve);
    } else {
        clip.insert("speed", 0.5 + random.bounded(4) * 0.5);
    }
    if (index % 10 == 0)
        clip.insert("subtitles", QVariantList{QVariantMap{{"id", id + "-sub"}, {"text", "Hello"}}});
    position += length;
    return clip;
}

QVariantMap audioClip(QRandomGenerator &random, const QString &trackId, int index, qint64 &position)
{
    const QString id = QStringLiteral("%1-a%2").arg(trackId).arg(index);
    const qint64 length = 2000 + random.bounded(30000);
    QVariantMap clip{{"id", id}, {"type", "clip"}, {"kind", "audio"}, {"track_ref", trackId},
                     {"timeline_pos", position}, {"range_begin", 0}, {"range_length", length},
                     {"original_length", length * 2}, {"file_path", "audio/track.m4a"},
                     {"file_audio_stream_index", 0}};
    clip.insert("audio_filters", QVariantList{QVariantMap{{"id", id + "-gain"}, {"gain", 0.8}}});
    position += length;
    return clip;
}

QString makeTimeline()
{
    QRandomGenerator random(2024);
    QVariantList tracks;
    for (int t = 0; t < kVideoTracks + kAudioTracks; ++t) {
        const bool video = t < kVideoTracks;
        const QString trackId = QStringLiteral("track%1").arg(t);
        QVariantList clips;
        qint64 position = 0;
        const int count = video ? kClipsPerVideoTrack : kClipsPerAudioTrack;
        for (int i = 0; i < count; ++i)
            clips << (video ? videoClip(random, trackId, i, position) : audioClip(random, trackId, i, position));
        tracks << QVariantMap{{"id", trackId}, {"type", video ? "video" : "audio"}, {"clips", clips}};
    }
    const QVariantMap root{{"id", "/"}, {"version", 3},
                           {"preview_param", QVariantMap{{"timeline_dir", "/projects/demo"}, {"width", 1920}, {"height", 1080}}},
                           {"tracks", tracks}};
    return variantMapToJson(root, false);
}

QList<EditCommand> makeCommands()
{
    QRandomGenerator random(7);
    QList<EditCommand> commands;
    for (int i = 0; i < kCommands; ++i) {
        const int track = random.bounded(kVideoTracks);
        const int clip = random.bounded(kClipsPerVideoTrack / 4) * 4; // clips with a speed curve
        const QString clipId = QStringLiteral("track%1-v%2").arg(track).arg(clip);
        switch (i % 5) {
        case 0:
            commands << EditCommand{EditCommand::ModifyNode, clipId, QStringLiteral("{\"alpha\": 0.5, \"note\": %1}").arg(i)};
            break;
        case 1:
            commands << EditCommand{EditCommand::ModifyNode, clipId + "-tr", QStringLiteral("{\"zoom\": 1.%1}").arg(i)};
            break;
        case 2:
            commands << EditCommand{EditCommand::AppendNode, clipId + "#video_filters",
                                    QStringLiteral("{\"id\": \"x%1\", \"name\": \"blur\"}").arg(i)};
            break;
        case 3:
            commands << EditCommand{EditCommand::ResetList, clipId + "#variableSpeed",
                                    "[{\"id\": \"a\", \"original_pos\": 0, \"value\": 0.5},"
                                    " {\"id\": \"b\", \"original_pos\": 1, \"value\": 2}]"};
            break;
        default:
            commands << EditCommand{EditCommand::RemoveNode, clipId + "#video_filters",
                                    QStringLiteral("{\"id\": \"%1-f1\"}").arg(clipId)};
            break;
        }
    }
    return commands;
}

QList<NLMapNodePtr> allClips(const NLMapNodePtr &root)
{
    QList<NLMapNodePtr> clips;
    const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
    for (const NLMapNodePtr &track : tracks->nodeList()) {
        if (const NLListNodePtr list = track->getListNodeByID(track->tagID() + "#clips"))
            clips << list->nodeList();
    }
    return clips;
}

struct Stats
{
    QString name;
    std::vector<double> ms;
};

void report(QTextStream &out, Stats stats)
{
    std::sort(stats.ms.begin(), stats.ms.end());
    out << qSetFieldWidth(34) << Qt::left << stats.name << qSetFieldWidth(0)
        << QStringLiteral("median %1 ms  min %2 ms  max %3 ms")
               .arg(stats.ms[stats.ms.size() / 2], 0, 'f', 3)
               .arg(stats.ms.front(), 0, 'f', 3)
               .arg(stats.ms.back(), 0, 'f', 3)
        << Qt::endl;
}

double timeMs(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return timer.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    const QString json = makeTimeline();
    const QList<EditCommand> commands = makeCommands();
    out << "timeline JSON: " << json.size() << " characters, "
        << kVideoTracks * kClipsPerVideoTrack + kAudioTracks * kClipsPerAudioTrack << " clips, "
        << commands.size() << " commands, " << kRuns << " runs" << Qt::endl;

    Stats parse{"parse (NLMapNode from JSON)", {}};
    Stats edit{QStringLiteral("%1 edit commands").arg(kCommands), {}};
    Stats length{"timelineLength of every clip", {}};
    Stats write{"toJson", {}};
    qint64 checksum = 0;
    int jsonSize = 0;
    for (int run = 0; run < kRuns; ++run) {
        NLMapNodePtr root;
        parse.ms.push_back(timeMs([&] { root.reset(new NLMapNode(json)); }));
        edit.ms.push_back(timeMs([&] {
            for (const EditCommand &command : commands)
                root->processCommand(command, nullptr);
        }));
        const QList<NLMapNodePtr> clips = allClips(root);
        length.ms.push_back(timeMs([&] {
            for (const NLMapNodePtr &clip : clips)
                checksum += JSBasicClip(clip).timelineLength();
        }));
        write.ms.push_back(timeMs([&] { jsonSize = root->toJson().size(); }));
    }
    report(out, parse);
    report(out, edit);
    report(out, length);
    report(out, write);
    out << "(checksum " << checksum << ", JSON out " << jsonSize << " characters)" << Qt::endl;
    return 0;
}
