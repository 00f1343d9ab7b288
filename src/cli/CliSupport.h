#pragma once

#include "cli/CommandLine.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <chrono>
#include <optional>

// What every subcommand of the command line shares: its output, and its
// way to the running instance.
namespace CliSupport {

enum ExitCode { kOk = 0, kFailed = 1, kUsage = 2, kNotRunning = 3 };

// Standard output, with what would upset a terminal made visible.
void out(const QString &text);
// "nimbrell: MESSAGE" on standard error.
void say(const QString &message);
// Compact, on one line: a script reads it faster (`jq .` lays it out for a reader).
void printJson(const QJsonObject &document);
// The bundled rclone is there; says so when it is not.
bool hasRclone();

// The running instance's answer, without the channel's own fields; nothing
// when no instance answered.
std::optional<QJsonObject> ask(const QString &command, const QJsonObject &arguments = {},
                               std::chrono::milliseconds timeout = std::chrono::seconds(10));
QString errorOf(const QJsonObject &reply);

QList<CommandLine::NamedFolder> namedFolders(const QJsonObject &report);
// The folders the command names, or every one when it names none. An
// unknown or ambiguous name is reported and gives nothing.
std::optional<QList<QUuid>> chosenFolders(const CliCommand &command, const QJsonObject &report);

// The instance channel's name for a subcommand that has one.
QString commandName(CliCommand::Kind kind);
// "  Label:     value", a line of a human report.
QString line(const QString &label, const QString &value);
// The running instance's status, or nothing (said so) when none runs.
std::optional<QJsonObject> runningStatus();
// A request's folders: {"all": true} when the command names none, otherwise
// {"folders": [ids]}.
QJsonObject folderArguments(const CliCommand &command, const QList<QUuid> &ids);

} // namespace CliSupport
