#include "cli/CliSupport.h"

#include "model/Formatting.h"
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

} // namespace CliSupport
