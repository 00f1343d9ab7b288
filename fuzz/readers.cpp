// libFuzzer entry for every reader of outside input: what rclone prints,
// the files the program reads, and the instance channel's requests. One
// program, the reader chosen by NIMBRELL_FUZZ_READER (scripts/fuzz runs each
// in turn with its own corpus).
#include "engine/BackendCatalog.h"
#include "engine/RemoteCommands.h"
#include "engine/RcloneOutput.h"
#include "engine/Bisync.h"
#include "engine/BisyncLocks.h"
#include "engine/FilterCheck.h"
#include "engine/OneWaySync.h"
#include "engine/BisyncPlan.h"
#include "engine/ChangeParser.h"
#include "engine/ProgressParser.h"
#include "engine/RcloneEngine.h"
#include "engine/RemoteConfig.h"
#include "model/FolderSelection.h"
#include "model/FolderStore.h"
#include "platform/InstanceChannel.h"
#include "sync/ActivityLog.h"
#include "sync/BandwidthLimit.h"
#include "sync/ConnectionFailure.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncProblem.h"

#include <QCoreApplication>
#include <QJsonObject>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace {

using Reader = std::function<void(const QByteArray &)>;

QString text(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes);
}

// Each line of the input, as a reader that takes lines gets them.
template <typename Line>
void lines(const QByteArray &bytes, Line line)
{
    for (const QByteArray &part : bytes.split('\n'))
        line(part);
}

const std::pair<const char *, Reader> kReaders[] = {
    {"folderstore", [](const QByteArray &b) { (void)FolderStore::decode(b); }},
    {"progress", [](const QByteArray &b) { lines(b, [](const QByteArray &l) { (void)ProgressParser::parseLine(text(l)); }); }},
    {"changes",
     [](const QByteArray &b) {
         ChangeParser parser;
         parser.watch({QStringLiteral("x.bin"), QStringLiteral("a b/x é.txt"), QStringLiteral("file1.txt")});
         ChangeParser oneWay;
         oneWay.readOneWay(true);
         lines(b, [&](const QByteArray &l) {
             parser.addLine(text(l));
             oneWay.addLine(text(l));
         });
         (void)parser.changes();
         (void)parser.skippedCopies();
         (void)parser.settled();
         (void)parser.foundDeleted(1);
         (void)parser.foundDeletedOnlyOn(2);
         (void)oneWay.changes();
     }},
    {"bisyncplan",
     [](const QByteArray &b) {
         BisyncPlan plan;
         OneWayPlan report;
         lines(b, [&](const QByteArray &l) {
             plan.addLine(text(l));
             plan.addReportLine(text(l), l.size() % 2 == 0);
             report.addReportLine(l);
         });
         (void)plan.changes(QStringLiteral("/nonexistent"));
     }},
    {"problem",
     [](const QByteArray &b) {
         const SyncProblem problem = SyncProblem::classify(text(b));
         (void)problem.title();
         (void)problem.sentence();
         (void)ConnectionFailure::read(QStringLiteral("nas"), text(b)).text();
     }},
    {"channel",
     [](const QByteArray &b) {
         static InstanceChannel channel;
         static const bool ready = [] {
             channel.setHandler(QStringLiteral("status"), [](const QJsonObject &request) { return request; });
             return true;
         }();
         (void)ready;
         channel.answer(b, [](const QJsonObject &) {});
     }},
    {"keptlisting",
     [](const QByteArray &b) {
         RemovedFiles::ListingReader reader(RemoteTarget{QUuid(), QStringLiteral("dav"), QStringLiteral("Docs"), true});
         lines(b, [&](const QByteArray &l) { reader.addLine(l); });
         (void)reader.files();
     }},
    {"bandwidth", [](const QByteArray &b) { (void)BandwidthLimit::scheduleError(text(b)); }},
    {"activity", [](const QByteArray &b) { lines(b, [](const QByteArray &l) { (void)ActivityLog::decode(l); }); }},
    {"backends",
     [](const QByteArray &b) {
         if (const auto backends = BackendCatalog::parse(b)) {
             for (const BackendCatalog::Backend &backend : *backends)
                 (void)BackendCatalog::missing(backend, QStringLiteral("AWS"), {});
         }
     }},
    {"configanswer",
     [](const QByteArray &b) {
         (void)RemoteConfig::parseAnswer(text(b));
         (void)RemoteConfig::parseSettings(text(b), QStringLiteral("dav"));
     }},
    {"rcloneoutput",
     [](const QByteArray &b) {
         (void)RemoteCommands::parseRemoteList(text(b));
         (void)RemoteCommands::parseSpaceInfo(text(b));
         (void)RemoteCommands::parseVersion(text(b));
         (void)BisyncLocks::lockFileIn(text(b));
         (void)RcloneOutput::stripAnsi(text(b));
         (void)RemoteCommands::parseDirectoryNames(text(b));
         (void)FilterCheck::reasonIn(text(b));
         (void)Bisync::listedBeforeTooManyDeletes(text(b));
     }},
    // What a user types as skipped directories and ignore rules, a line each.
    {"selection",
     [](const QByteArray &b) {
         FolderSelection selection;
         lines(b, [&](const QByteArray &l) {
             if (const std::optional<QString> directory = FolderSelection::normalizedDirectory(text(l)))
                 selection.skipped.append(*directory);
             selection.ignore.append(text(l).trimmed());
         });
         (void)selection.filterArguments();
         (void)selection.isSkipped(selection.ignore.value(0));
         (void)selection.holdsSkipped(selection.ignore.value(0));
     }},
};

const Reader *g_reader = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication app(*argc, *argv);
    qputenv("QT_LOGGING_RULES", "*=false");
    const char *chosen = std::getenv("NIMBRELL_FUZZ_READER");
    for (const auto &[name, reader] : kReaders) {
        if (chosen && std::strcmp(chosen, name) == 0)
            g_reader = &reader;
    }
    if (!g_reader) {
        std::fprintf(stderr, "NIMBRELL_FUZZ_READER must name one of:");
        for (const auto &[name, reader] : kReaders)
            std::fprintf(stderr, " %s", name);
        std::fprintf(stderr, "\n");
        std::exit(2);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (*g_reader)(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    return 0;
}
