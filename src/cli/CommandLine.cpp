#include "cli/CommandLine.h"

#include "model/UuidString.h"

#include <array>

namespace {

using Kind = CliCommand::Kind;

struct Subcommand
{
    const char *name;
    Kind kind;
    const char *options; // the options it takes, blank-separated
    int maxFolders;      // -1: any number
};

constexpr std::array kSubcommands{
    Subcommand{"status", Kind::status, "--json", -1},   Subcommand{"sync", Kind::sync, "--all --wait", -1},
    Subcommand{"cancel", Kind::cancel, "--all", -1},    Subcommand{"list", Kind::list, "--json", 0},
    Subcommand{"remotes", Kind::remotes, "--json", 0},  Subcommand{"pause", Kind::pause, "", -1},
    Subcommand{"resume", Kind::resume, "", -1},          Subcommand{"open", Kind::open, "", 1},
    Subcommand{"quit", Kind::quit, "", 0},
};

QString quoted(const QString &text)
{
    return u'\'' + text + u'\'';
}

} // namespace

namespace CommandLine {

QString usage()
{
    return QStringLiteral(R"(Usage: nimbrell [COMMAND] [OPTIONS] [FOLDER...]

Without a command, opens Nimbrell's window (or brings it forward).

Commands:
  status [--json] [FOLDER...]      each folder's status, last sync, targets, progress and error
  sync [FOLDER...|--all] [--wait]  sync folders (all when none is named); --wait follows
                                   the runs and exits 1 when any failed
  cancel [FOLDER...|--all]         stop running syncs (all when none is named)
  list [--json]                    folders with their local path, targets, filters and
                                   conflict policy
  remotes [--json]                 the rclone remotes
  pause [FOLDER...]                pause those folders: only sync runs them; without a
                                   folder, turn automatic sync off
  resume [FOLDER...]               resume those folders; without a folder, turn automatic
                                   sync on
  open [FOLDER]                    show the window, at that folder
  quit                             quit the running Nimbrell once its syncs have stopped

Options:
  --headless     run the syncs, watchers and periodic check without a window
  --json         one JSON document on standard output
  --help         show this help
  --version      show the version
  --             what follows is a folder name, even when it starts with "-"

FOLDER is a folder's name (exact, then in any case) or its id.

Exit status: 0 ok, 1 a sync failed, 2 usage error or unknown folder,
3 Nimbrell is not running.
)");
}

std::variant<CliCommand, QString> parse(const QStringList &arguments)
{
    CliCommand command;
    if (arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h"))) {
        const qsizetype end = arguments.indexOf(QStringLiteral("--"));
        const qsizetype help = std::max(arguments.indexOf(QStringLiteral("--help")), arguments.indexOf(QStringLiteral("-h")));
        if (end < 0 || help < end) {
            command.kind = Kind::help;
            return command;
        }
    }
    if (arguments.isEmpty())
        return command;
    const QString &first = arguments.first();
    if (first == u"--version") {
        command.kind = Kind::version;
        return arguments.size() == 1 ? std::variant<CliCommand, QString>(command)
                                     : QStringLiteral("--version takes no arguments");
    }
    if (first == u"--headless") {
        command.kind = Kind::headless;
        return arguments.size() == 1 ? std::variant<CliCommand, QString>(command)
                                     : QStringLiteral("--headless takes no arguments");
    }
    // Qt's own options (-platform, -style, ...) go to the window.
    if (first.startsWith(u'-') && !first.startsWith(QStringLiteral("--"))) {
        command.windowArguments = arguments;
        return command;
    }
    if (first.startsWith(u'-'))
        return QStringLiteral("unknown option %1").arg(quoted(first));

    const auto subcommand = std::find_if(kSubcommands.begin(), kSubcommands.end(),
                                         [&first](const Subcommand &s) { return first == QLatin1String(s.name); });
    if (subcommand == kSubcommands.end())
        return QStringLiteral("unknown command %1").arg(quoted(first));
    command.kind = subcommand->kind;
    const QStringList options = QString::fromLatin1(subcommand->options).split(u' ', Qt::SkipEmptyParts);
    bool optionsEnded = false;
    for (const QString &argument : arguments.mid(1)) {
        if (!optionsEnded && argument == u"--") {
            optionsEnded = true;
        } else if (!optionsEnded && argument.startsWith(u'-') && argument.size() > 1) {
            if (!options.contains(argument))
                return QStringLiteral("%1 does not take %2").arg(first, quoted(argument));
            command.json |= argument == u"--json";
            command.all |= argument == u"--all";
            command.wait |= argument == u"--wait";
        } else {
            command.folders.append(argument);
        }
    }
    if (subcommand->maxFolders == 0 && !command.folders.isEmpty())
        return QStringLiteral("%1 takes no folder").arg(first);
    if (subcommand->maxFolders == 1 && command.folders.size() > 1)
        return QStringLiteral("%1 takes one folder").arg(first);
    if (command.all && !command.folders.isEmpty())
        return QStringLiteral("name folders or use --all, not both");
    if ((command.kind == Kind::sync || command.kind == Kind::cancel) && command.folders.isEmpty())
        command.all = true;
    return command;
}

std::variant<QList<QUuid>, QString> resolve(const QStringList &names, const QList<NamedFolder> &folders)
{
    QList<QUuid> ids;
    for (const QString &name : names) {
        QList<NamedFolder> matches;
        for (const Qt::CaseSensitivity sensitivity : {Qt::CaseSensitive, Qt::CaseInsensitive}) {
            for (const NamedFolder &folder : folders) {
                if (folder.name.compare(name, sensitivity) == 0)
                    matches.append(folder);
            }
            if (!matches.isEmpty())
                break;
        }
        if (matches.isEmpty()) {
            const QUuid id = QUuid::fromString(name);
            for (const NamedFolder &folder : folders) {
                if (!id.isNull() && folder.id == id)
                    matches.append(folder);
            }
        }
        if (matches.isEmpty())
            return QStringLiteral("no sync folder named %1").arg(quoted(name));
        if (matches.size() > 1) {
            QString message = QStringLiteral("more than one sync folder is named %1; name one by its id:").arg(quoted(name));
            for (const NamedFolder &folder : std::as_const(matches))
                message += QStringLiteral("\n  %1  %2").arg(uuidString(folder.id), folder.name);
            return message;
        }
        if (!ids.contains(matches.first().id))
            ids.append(matches.first().id);
    }
    return ids;
}

} // namespace CommandLine
