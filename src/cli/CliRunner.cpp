#include "cli/CliRunner.h"

#include "cli/CliSupport.h"
#include "cli/CommandLine.h"
#include "cli/ConfigCommands.h"
#include "cli/LocalInstance.h"
#include "cli/ReportCommands.h"
#include "cli/SyncCommands.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/DesktopNotifier.h"
#include "platform/InstallLayout.h"
#include "platform/InstanceChannel.h"
#include "platform/StallProbe.h"
#include "platform/UnixSignalNotifier.h"
#include "sync/ProblemNotifier.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <csignal>

using namespace std::chrono_literals;

namespace CliRunner {
namespace {

using namespace CliSupport;
using Kind = CliCommand::Kind;

// cancel, pause, resume, open and quit: only a running instance can.
int control(const CliCommand &command)
{
    const std::optional<QJsonObject> status = runningStatus();
    if (!status)
        return kNotRunning;
    QJsonObject arguments;
    const bool perFolder = (command.kind == Kind::pause || command.kind == Kind::resume) && !command.folders.isEmpty();
    if (perFolder) {
        const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
        if (!ids)
            return kUsage;
        arguments = folderArguments(command, *ids);
    }
    if (command.kind == Kind::cancel || command.kind == Kind::open) {
        const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
        if (!ids)
            return kUsage;
        if (command.kind == Kind::cancel)
            arguments = folderArguments(command, *ids);
        else if (!command.folders.isEmpty())
            arguments.insert(QStringLiteral("folder"), uuidString(ids->first()));
        if (command.removed)
            arguments.insert(QStringLiteral("sheet"), QStringLiteral("removed"));
    }
    const std::optional<QJsonObject> reply = ask(commandName(command.kind), arguments);
    if (!reply) {
        say(QStringLiteral("the running instance did not answer"));
        return kFailed;
    }
    if (const QString error = errorOf(*reply); !error.isEmpty()) {
        say(error == u"no window" ? QStringLiteral("Nimbrell runs here without a window (nimbrell --headless)")
            : error == u"busy"    ? QStringLiteral("Nimbrell runs here only for `nimbrell sync --wait`, without a window")
                                  : error);
        return kFailed;
    }
    switch (command.kind) {
    case Kind::cancel: {
        const QJsonArray cancelled = reply->value(QStringLiteral("cancelled")).toArray();
        for (const CommandLine::NamedFolder &folder : namedFolders(*status)) {
            if (cancelled.contains(uuidString(folder.id)))
                out(QStringLiteral("Stopped %1\n").arg(folder.name));
        }
        if (cancelled.isEmpty())
            out(QStringLiteral("Nothing was syncing.\n"));
        break;
    }
    case Kind::pause:
    case Kind::resume:
        if (perFolder) {
            const QJsonArray changed = reply->value(QStringLiteral("folders")).toArray();
            for (const CommandLine::NamedFolder &folder : namedFolders(*status)) {
                if (changed.contains(uuidString(folder.id)))
                    out((command.kind == Kind::pause ? QStringLiteral("Paused %1\n") : QStringLiteral("Resumed %1\n")).arg(folder.name));
            }
            break;
        }
        out(reply->value(QStringLiteral("automaticSync")).toBool() ? QStringLiteral("Automatic sync is on.\n")
                                                                   : QStringLiteral("Automatic sync is off.\n"));
        break;
    case Kind::quit: {
        // Returns once the instance has gone, its syncs stopped.
        const qint64 pid = status->value(QStringLiteral("instance")).toObject().value(QStringLiteral("pid")).toInteger();
        // A zombie has gone too: the one who started it has yet to reap it.
        const auto gone = [pid] {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
            return pid <= 0 || !stat.open(QIODevice::ReadOnly) || stat.readAll().contains(") Z ");
        };
        QDeadlineTimer deadline(InstanceChannel::kTakeOverWait);
        for (int tries = 0; !gone() && !deadline.hasExpired(); ++tries) {
            if (tries == 10)
                say(QStringLiteral("waiting for the running syncs to stop…"));
            QThread::msleep(100);
        }
        if (!gone()) {
            say(QStringLiteral("Nimbrell is still quitting"));
            return kFailed;
        }
        break;
    }
    default:
        break;
    }
    return kOk;
}

} // namespace

int run(const CliCommand &command)
{
    switch (command.kind) {
    case Kind::status:
    case Kind::list:
    case Kind::remotes:
        return ReportCommands::report(command);
    case Kind::sync:
        return SyncCommands::sync(command);
    case Kind::review:
        return SyncCommands::review(command);
    case Kind::share:
        return ReportCommands::share(command);
    case Kind::fileStatus:
        return ReportCommands::fileStatus(command);
    case Kind::remoteAdd:
    case Kind::remoteTest:
    case Kind::remoteRemove:
    case Kind::remoteTypes:
        return ConfigCommands::remotes(command);
    case Kind::folderAdd:
    case Kind::folderEdit:
    case Kind::folderRemove:
        return ConfigCommands::folders(command);
    case Kind::complete:
        return ConfigCommands::complete(command);
    default:
        return control(command);
    }
}

int runHeadless()
{
    InstanceChannel channel;
    if (!channel.tryLock()) {
        // Started (by systemd, say) while the window runs: take over when it quits.
        qCInfo(lcGeneral, "Another Nimbrell runs for this configuration; waiting for it to quit");
        UnixSignalNotifier quitSignals({SIGTERM, SIGINT, SIGHUP});
        QEventLoop waiting;
        QObject::connect(&quitSignals, &UnixSignalNotifier::received, &waiting, [&waiting] { waiting.exit(1); });
        QTimer retry;
        QObject::connect(&retry, &QTimer::timeout, &waiting, [&] {
            if (channel.tryLock())
                waiting.exit(0);
        });
        retry.start(1s);
        if (waiting.exec() != 0)
            return kOk;
    }
    if (!hasRclone())
        return kFailed;
    StallProbe::startIfWanted(QCoreApplication::instance());
    LocalInstance local(SyncService::Mode::headless, true);
    SyncService &service = local.service();
    local.serve(channel);
    const SyncManager &manager = local.manager();
    qCInfo(lcGeneral, "Nimbrell %s running headless: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(manager.folders().size()),
           manager.automatic().isGlobalSyncEnabled() ? "on" : "off", static_cast<long long>(manager.automatic().globalSyncIntervalMinutes()));
    // Failures, recoveries and conflicts reach the desktop; a click opens the
    // window, which takes over from this service.
    DesktopNotifier notifier;
    QObject::connect(&notifier, &DesktopNotifier::activated, &service,
                     [] { QProcess::startDetached(InstallLayout::launcherPath(), {}); });
    ProblemNotifier problems(local.manager(), local.settings(), notifier);
    return QCoreApplication::exec();
}

} // namespace CliRunner
