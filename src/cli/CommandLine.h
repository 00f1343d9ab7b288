#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <variant>

// What `nimbrell ARGUMENTS` asks for.
struct CliCommand
{
    enum class Kind { window, headless, help, version, status, sync, cancel, list, remotes, pause, resume, open, quit };
    Kind kind = Kind::window;
    QStringList folders; // as typed: names or ids
    bool json = false;
    bool all = false;    // sync and cancel: every folder (also when none is named)
    bool wait = false;
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
