#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>
#include <variant>

// What `nimbrell ARGUMENTS` asks for.
struct CliCommand
{
    enum class Kind {
        window, headless, help, version, status, sync, cancel, list, remotes, pause, resume, open, quit,
        review, share, fileStatus, remoteAdd, remoteTest, remoteRemove, remoteTypes, folderAdd, folderEdit, folderRemove,
        complete, // one name a line, for the shell's completion: "remotes", "folders" or "types"
    };
    Kind kind = Kind::window;
    QStringList folders; // as typed: names or ids
    bool json = false;
    bool all = false;    // sync and cancel: every folder (also when none is named)
    bool wait = false;
    bool apply = false; // review: runs what it shows
    bool removed = false; // open: at the folder's Recently Removed
    // remotes and folders add, edit, test and remove: the words after the
    // action (NAME TYPE KEY=VALUE...; NAME LOCAL REMOTE:PATH...; FOLDER).
    QStringList words;
    bool keep = false;        // remotes add: a remote that does not answer stays
    bool interactive = false; // remotes add: asks on the terminal
    bool force = false;       // remotes remove: also out of folders with other targets
    // folders add and edit; unset leaves a folder's as it is (or the default).
    std::optional<QString> conflict;
    std::optional<bool> excludeGit;
    std::optional<bool> excludeHidden;
    std::optional<bool> excludeNodeModules;
    std::optional<bool> keepRemoved;
    QStringList addTargets;
    QStringList removeTargets;
    std::optional<QString> rename;
    std::optional<QString> localPath;
    // folders edit: what of the folder syncs.
    QStringList skip, unskip;     // directories relative to the folder
    QStringList ignore, unignore; // rclone filter patterns
    std::optional<QString> direction; // "two-way", "upload", "download"
    // share: how long the link lasts, as rclone takes it ("1d", "2h30m").
    std::optional<QString> expire;
    QStringList windowArguments; // a start of the window: Qt's own options, passed on
};

namespace CommandLine {

// The arguments after the program's name; a usage error is a message.
std::variant<CliCommand, QString> parse(const QStringList &arguments);
QString usage();

struct NamedFolder
{
    QUuid id;
    QString name;
};
// Folder arguments to ids: a name exactly, then a name in any case, then an
// id. An unknown or ambiguous name is an error message; naming a folder
// twice names it once.
std::variant<QList<QUuid>, QString> resolve(const QStringList &names, const QList<NamedFolder> &folders);

} // namespace CommandLine
