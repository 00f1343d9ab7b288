#include "cli/CommandLine.h"

#include "model/FolderSelection.h"
#include "model/ConflictResolution.h"
#include "model/UuidString.h"

#include <QHash>

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
    Subcommand{"resume", Kind::resume, "", -1},          Subcommand{"open", Kind::open, "--removed", 1},
    Subcommand{"quit", Kind::quit, "", 0},               Subcommand{"review", Kind::review, "--apply --json", 1},
    Subcommand{"file-status", Kind::fileStatus, "--json", -1},
};

QString quoted(const QString &text)
{
    return u'\'' + text + u'\'';
}

// The actions of `nimbrell remotes ACTION` and `nimbrell folders ACTION`.
struct Action
{
    const char *group;
    const char *name;
    Kind kind;
    const char *flags;   // options without a value
    const char *valued;  // options with one ("--conflict X" or "--conflict=X")
    int minWords;
    int maxWords; // -1: any number
};

constexpr const char *kSwitches = "--exclude-git --no-exclude-git --exclude-hidden --no-exclude-hidden "
                                  "--exclude-node-modules --no-exclude-node-modules --keep-removed --no-keep-removed";

constexpr std::array kActions{
    Action{"remotes", "add", Kind::remoteAdd, "--keep --interactive --json", "", 1, -1},
    Action{"remotes", "test", Kind::remoteTest, "--json", "", 1, 1},
    Action{"remotes", "remove", Kind::remoteRemove, "--force", "", 1, 1},
    Action{"remotes", "types", Kind::remoteTypes, "--json", "", 0, 0},
    Action{"folders", "list", Kind::list, "--json", "", 0, 0},
    Action{"folders", "add", Kind::folderAdd, "--json", "--conflict", 3, -1},
    Action{"folders", "edit", Kind::folderEdit, "--json", "--conflict --add-target --remove-target --rename --local-path --skip --unskip --ignore --unignore --direction", 1, 1},
    Action{"folders", "remove", Kind::folderRemove, "", "", 1, 1},
};

std::variant<CliCommand, QString> parseAction(const Action &action, const QStringList &arguments)
{
    CliCommand command;
    command.kind = action.kind;
    const QString name = QStringLiteral("%1 %2").arg(QLatin1String(action.group), QLatin1String(action.name));
    QStringList flags = QString::fromLatin1(action.flags).split(u' ', Qt::SkipEmptyParts);
    const QStringList valued = QString::fromLatin1(action.valued).split(u' ', Qt::SkipEmptyParts);
    if (action.kind == Kind::folderAdd || action.kind == Kind::folderEdit)
        flags += QString::fromLatin1(kSwitches).split(u' ');
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString argument = arguments.at(i);
        if (!optionsEnded && argument == u"--") {
            optionsEnded = true;
            continue;
        }
        if (optionsEnded || !argument.startsWith(u'-') || argument.size() == 1) {
            command.words.append(argument);
            continue;
        }
        QString value;
        const qsizetype equals = argument.indexOf(u'=');
        if (equals > 0 && valued.contains(argument.first(equals))) {
            value = argument.mid(equals + 1);
            argument.truncate(equals);
        } else if (valued.contains(argument)) {
            if (++i >= arguments.size())
                return QStringLiteral("%1 needs a value").arg(argument);
            value = arguments.at(i);
        } else if (!flags.contains(argument)) {
            return QStringLiteral("%1 does not take %2").arg(name, quoted(argument));
        }
        command.json |= argument == u"--json";
        command.keep |= argument == u"--keep";
        command.interactive |= argument == u"--interactive";
        command.force |= argument == u"--force";
        for (const auto &[flag, member] : {std::pair{"git", &CliCommand::excludeGit},
                                           {"hidden", &CliCommand::excludeHidden},
                                           {"node-modules", &CliCommand::excludeNodeModules}}) {
            if (argument == QStringLiteral("--exclude-") + QLatin1String(flag))
                command.*member = true;
            else if (argument == QStringLiteral("--no-exclude-") + QLatin1String(flag))
                command.*member = false;
        }
        if (argument == u"--keep-removed" || argument == u"--no-keep-removed")
            command.keepRemoved = argument == u"--keep-removed";
        if (argument == u"--conflict") {
            if (!conflictResolutionFromRawValue(value))
                return QStringLiteral("--conflict takes keepBoth, newerWins, localWins or remoteWins, not %1").arg(quoted(value));
            command.conflict = value;
        }
        if (argument == u"--add-target")
            command.addTargets.append(value);
        if (argument == u"--remove-target")
            command.removeTargets.append(value);
        if (argument == u"--rename")
            command.rename = value;
        if (argument == u"--local-path")
            command.localPath = value;
        if (argument == u"--skip" || argument == u"--unskip") {
            const std::optional<QString> directory = FolderSelection::normalizedDirectory(value);
            if (!directory)
                return QStringLiteral("%1 takes a directory inside the folder, such as Videos or Photos/2019, not %2")
                    .arg(argument, quoted(value));
            (argument == u"--skip" ? command.skip : command.unskip).append(*directory);
        }
        if (argument == u"--ignore" || argument == u"--unignore") {
            if (value.trimmed().isEmpty())
                return QStringLiteral("%1 needs a pattern, such as *.tmp or /build/**").arg(argument);
            (argument == u"--ignore" ? command.ignore : command.unignore).append(value.trimmed());
        }
        if (argument == u"--direction") {
            if (!FolderSelection::directionFromName(value))
                return QStringLiteral("--direction takes two-way, upload or download, not %1").arg(quoted(value));
            command.direction = value;
        }
    }
    const int minWords = action.kind == Kind::remoteAdd && !command.interactive ? 2 : action.minWords;
    if (command.words.size() < minWords || (action.maxWords >= 0 && command.words.size() > action.maxWords)) {
        static const QHash<Kind, QString> forms{
            {Kind::remoteAdd, QStringLiteral("NAME TYPE [KEY=VALUE...]")},
            {Kind::remoteTest, QStringLiteral("NAME")},
            {Kind::remoteRemove, QStringLiteral("NAME [--force]")},
            {Kind::remoteTypes, QString()},
            {Kind::list, QString()},
            {Kind::folderAdd, QStringLiteral("NAME LOCAL_PATH REMOTE:PATH [REMOTE:PATH...]")},
            {Kind::folderEdit, QStringLiteral("FOLDER [OPTIONS]")},
            {Kind::folderRemove, QStringLiteral("FOLDER")},
        };
        const QString form = forms.value(action.kind);
        return form.isEmpty() ? QStringLiteral("%1 takes no arguments").arg(name)
                              : QStringLiteral("usage: nimbrell %1 %2").arg(name, form);
    }
    if (command.kind == Kind::folderEdit || command.kind == Kind::folderRemove)
        command.folders = command.words;
    return command;
}

// share PATH [--expire DURATION] [--json]
std::variant<CliCommand, QString> parseShare(const QStringList &arguments)
{
    CliCommand command;
    command.kind = Kind::share;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (!optionsEnded && argument == u"--") {
            optionsEnded = true;
        } else if (!optionsEnded && argument == u"--json") {
            command.json = true;
        } else if (!optionsEnded && (argument == u"--expire" || argument.startsWith(QStringLiteral("--expire=")))) {
            if (argument == u"--expire" && ++i >= arguments.size())
                return QStringLiteral("--expire needs a value");
            command.expire = argument == u"--expire" ? arguments.at(i) : argument.mid(9);
            if (command.expire->isEmpty())
                return QStringLiteral("--expire needs a value");
        } else if (!optionsEnded && argument.startsWith(u'-') && argument.size() > 1) {
            return QStringLiteral("share does not take %1").arg(quoted(argument));
        } else {
            command.words.append(argument);
        }
    }
    if (command.words.size() != 1)
        return QStringLiteral("usage: nimbrell share PATH [--expire DURATION] [--json]");
    return command;
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
  remotes add NAME TYPE [KEY=VALUE...] [--keep] [--interactive] [--json]
                                   make a remote of a storage kind with its settings,
                                   then check that it answers; --interactive asks for
                                   each setting on the terminal; --keep keeps it when
                                   it does not answer
  remotes test NAME [--json]       check that a remote answers (exit 1 when it does not)
  remotes remove NAME [--force]    delete a remote; refused while it is a folder's only
                                   target; --force takes it out of folders it is one of
                                   several targets of
  remotes types [--json]           the storage kinds rclone reaches
  folders [list] [--json]          the same as list
  folders add NAME LOCAL_PATH REMOTE:PATH [REMOTE:PATH...] [FOLDER OPTIONS] [--json]
                                   add a sync folder; prints its id
  folders edit FOLDER [FOLDER OPTIONS] [--add-target REMOTE:PATH] [--remove-target REMOTE:PATH] [--rename NEW] [--local-path PATH]
               [--skip DIR] [--unskip DIR] [--ignore PATTERN] [--unignore PATTERN] [--direction two-way|upload|download]
                                   change a sync folder's options, targets, name or
                                   local folder; leave a directory (relative to the
                                   folder) out of the sync or take it back; add or
                                   drop an ignore rule in rclone's filter syntax
                                   (checked by rclone); sync both ways (the default),
                                   or only upload or only download
  folders remove FOLDER            remove a sync folder (its files stay where they are)
  pause [FOLDER...]                pause those folders: only sync runs them; without a
                                   folder, turn automatic sync off
  resume [FOLDER...]               resume those folders; without a folder, turn automatic
                                   sync on
  file-status PATH... [--json]     each path's state in its sync folder: synced, pending,
                                   syncing, error, conflict, excluded or paused (exit 2
                                   when one is in no sync folder)
  share PATH [--expire DURATION] [--json]
                                   a link to a file or folder of a sync folder, made
                                   by rclone on the folder's first remote that makes
                                   links; --expire as rclone takes it (1d, 2h30m)
  review FOLDER [--apply] [--json]
                                   what the recovery that the folder's failed run asks
                                   for would change (a resync, or past too many
                                   deletions or changes); --apply carries it out and
                                   follows the run
  open [FOLDER] [--removed]        show the window, at that folder (--removed: at its
                                   Recently Removed)
  quit                             quit the running Nimbrell once its syncs have stopped

Folder options:
  --conflict keepBoth|newerWins|localWins|remoteWins
                                                       what a file changed on both
                                                       sides becomes (default: keepBoth)
  --exclude-git, --no-exclude-git                      (default: excluded)
  --exclude-hidden, --no-exclude-hidden                (default: included)
  --exclude-node-modules, --no-exclude-node-modules    (default: excluded)
  --keep-removed, --no-keep-removed                    keep files that syncs remove or
                                                       replace, for a while (default: off)

Options:
  --headless     run the syncs, watchers and periodic check without a window
  --json         one JSON document on standard output
  --help         show this help
  --version      show the version
  --             what follows is a folder name, even when it starts with "-"

FOLDER is a folder's name (exact, then in any case) or its id.

Exit status: 0 ok, 1 a sync failed (or a remote did not answer, or a change
was refused), 2 usage error, unknown folder or remote, missing setting,
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
    if (first == u"--complete") {
        command.kind = Kind::complete;
        command.words = arguments.mid(1);
        return command;
    }
    if (first.startsWith(u'-'))
        return QStringLiteral("unknown option %1").arg(quoted(first));
    if (first == u"folders" && arguments.size() == 1) {
        command.kind = Kind::list;
        return command;
    }
    if ((first == u"remotes" || first == u"folders") && arguments.size() > 1 && !arguments.at(1).startsWith(u'-')) {
        for (const Action &action : kActions) {
            if (first == QLatin1String(action.group) && arguments.at(1) == QLatin1String(action.name))
                return parseAction(action, arguments.mid(2));
        }
        return QStringLiteral("unknown command %1").arg(quoted(first + u' ' + arguments.at(1)));
    }
    if (first == u"folders")
        return parseAction(kActions[4], arguments.mid(1)); // "folders --json"
    if (first == u"share")
        return parseShare(arguments.mid(1));

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
            command.apply |= argument == u"--apply";
            command.removed |= argument == u"--removed";
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
    if (command.removed && command.folders.isEmpty())
        return QStringLiteral("usage: nimbrell open FOLDER --removed");
    if (command.kind == Kind::review && command.folders.isEmpty())
        return QStringLiteral("usage: nimbrell review FOLDER [--apply] [--json]");
    if (command.kind == Kind::fileStatus && command.folders.isEmpty())
        return QStringLiteral("usage: nimbrell file-status PATH... [--json]");
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
