#include "cli/CliSupport.h"

#include "model/Formatting.h"
#include "model/UuidString.h"
#include "platform/InstallLayout.h"
#include "platform/InstanceChannel.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>

namespace CliSupport {

void out(const QString &text)
{
    std::fputs(Formatting::printable(text).toUtf8().constData(), stdout);
}

void say(const QString &message)
{
    std::fputs((QStringLiteral("nimbrell: ") + Formatting::printable(message) + u'\n').toUtf8().constData(), stderr);
}

std::optional<QJsonObject> ask(const QString &command, const QJsonObject &arguments, std::chrono::milliseconds timeout)
{
    std::optional<QJsonObject> reply = InstanceChannel::send(command, arguments, timeout);
    if (reply) {
        reply->remove(QStringLiteral("nimbrell"));
        reply->remove(QStringLiteral("ok"));
    }
    return reply;
}

QString errorOf(const QJsonObject &reply)
{
    return reply.value(QStringLiteral("error")).toString();
}

QList<CommandLine::NamedFolder> namedFolders(const QJsonObject &report)
{
    QList<CommandLine::NamedFolder> folders;
    for (const QJsonValue &value : report.value(QStringLiteral("folders")).toArray()) {
        const QJsonObject folder = value.toObject();
        folders.append({QUuid::fromString(folder.value(QStringLiteral("id")).toString()),
                        folder.value(QStringLiteral("name")).toString()});
    }
    return folders;
}

std::optional<QList<QUuid>> chosenFolders(const CliCommand &command, const QJsonObject &report)
{
    const QList<CommandLine::NamedFolder> folders = namedFolders(report);
    if (command.folders.isEmpty()) {
        QList<QUuid> ids;
        for (const CommandLine::NamedFolder &folder : folders)
            ids.append(folder.id);
        return ids;
    }
    const auto resolved = CommandLine::resolve(command.folders, folders);
    if (const QString *error = std::get_if<QString>(&resolved)) {
        say(*error);
        return std::nullopt;
    }
    return std::get<QList<QUuid>>(resolved);
}

void printJson(const QJsonObject &document)
{
    const QByteArray json = QJsonDocument(document).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
}

bool hasRclone()
{
    if (QFileInfo::exists(InstallLayout::bundledRclonePath()))
        return true;
    say(QStringLiteral("Failed to find rclone binary in bundle"));
    return false;
}

using Kind = CliCommand::Kind;

QString commandName(Kind kind)
{
    switch (kind) {
    case Kind::status: return QStringLiteral("status");
    case Kind::list: return QStringLiteral("list");
    case Kind::remotes: return QStringLiteral("remotes");
    case Kind::sync: return QStringLiteral("sync");
    case Kind::cancel: return QStringLiteral("cancel");
    case Kind::pause: return QStringLiteral("pause");
    case Kind::resume: return QStringLiteral("resume");
    case Kind::open: return QStringLiteral("open");
    case Kind::quit: return QStringLiteral("quit");
    default: return {};
    }
}

QString line(const QString &label, const QString &value)
{
    return QStringLiteral("  %1 %2\n").arg(label.isEmpty() ? label : label + u':', -11).arg(value);
}

std::optional<QJsonObject> runningStatus()
{
    std::optional<QJsonObject> status = InstanceChannel::isHeld() ? ask(QStringLiteral("status")) : std::nullopt;
    if (!status)
        say(QStringLiteral("not running"));
    return status;
}

QJsonObject folderArguments(const CliCommand &command, const QList<QUuid> &ids)
{
    if (command.folders.isEmpty())
        return {{QStringLiteral("all"), true}};
    QJsonArray array;
    for (const QUuid &id : ids)
        array.append(uuidString(id));
    return {{QStringLiteral("folders"), array}};
}

} // namespace CliSupport
