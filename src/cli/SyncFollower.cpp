#include "cli/SyncFollower.h"

#include "model/Formatting.h"
#include "model/UuidString.h"

#include <QJsonArray>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

int terminalColumns(std::FILE *out)
{
    winsize size{};
    return ::ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

QHash<QUuid, QJsonObject> foldersById(const QJsonObject &status)
{
    QHash<QUuid, QJsonObject> folders;
    for (const QJsonValue &value : status.value(QStringLiteral("folders")).toArray()) {
        const QJsonObject folder = value.toObject();
        folders.insert(QUuid::fromString(folder.value(QStringLiteral("id")).toString()), folder);
    }
    return folders;
}

QString text(const QJsonObject &folder, const char *key)
{
    return folder.value(QLatin1String(key)).toString();
}

} // namespace

SyncFollower::SyncFollower(const QList<QUuid> &folders, std::FILE *out)
    : m_out(out)
    , m_isTerminal(::isatty(fileno(out)))
    , m_pending(folders)
{
}

QString SyncFollower::progressText(const QJsonObject &folder)
{
    if (folder.value(QStringLiteral("waiting")).toBool())
        return QStringLiteral("waiting for another sync to finish…");
    QStringList parts;
    const QJsonValue progress = folder.value(QStringLiteral("progress"));
    QString head = QString::number(int(progress.toDouble() * 100.0)) + u'%';
    const QString current = text(folder, "currentTarget");
    if (!current.isEmpty()) {
        const QJsonArray targets = folder.value(QStringLiteral("targets")).toArray();
        head += QStringLiteral(" → ") + current;
        if (targets.size() > 1)
            head += QStringLiteral(" (%1 of %2)").arg(targets.toVariantList().indexOf(current) + 1).arg(targets.size());
    }
    parts.append(head);
    for (const char *key : {"transferredSize", "transferredFiles", "transferSpeed"}) {
        const QString value = text(folder, key);
        if (!value.isEmpty())
            parts.append(value);
    }
    return QStringLiteral("syncing ") + parts.join(QStringLiteral(", "));
}

bool SyncFollower::update(const QJsonObject &status)
{
    const QHash<QUuid, QJsonObject> folders = foldersById(status);
    QStringList running;
    for (qsizetype i = 0; i < m_pending.size();) {
        const QJsonObject folder = folders.value(m_pending.at(i));
        const QString name = text(folder, "name");
        if (!folder.isEmpty())
            m_names.insert(m_pending.at(i), name);
        if (!folder.isEmpty() && folder.value(QStringLiteral("running")).toBool()) {
            const QString line = name + QStringLiteral(": ") + progressText(folder);
            if (!m_isTerminal && m_shown.value(m_pending.at(i)) != line)
                print(line);
            m_shown.insert(m_pending.at(i), line);
            running.append(line);
            ++i;
            continue;
        }
        // The run has ended: it succeeded, failed, or was stopped.
        const QString state = text(folder, "status");
        if (folder.isEmpty()) {
            print(QStringLiteral("%1: removed before its sync ended").arg(uuidString(m_pending.at(i))));
        } else if (state == u"success") {
            print(name + QStringLiteral(": synced"));
        } else if (state == u"error") {
            const QJsonObject problem = folder.value(QStringLiteral("problems")).toArray().first().toObject();
            const QString target = problem.value(QStringLiteral("target")).toString();
            print(name + QStringLiteral(": failed: ")
                  + (problem.isEmpty() ? text(folder, "error")
                                       : (target.isEmpty() ? QString() : target + QStringLiteral(": "))
                             + problem.value(QStringLiteral("title")).toString()));
        } else {
            print(name + QStringLiteral(": stopped before it finished"));
        }
        if (folder.isEmpty() || state != u"success")
            ++m_failed;
        m_pending.removeAt(i);
    }
    if (m_isTerminal) {
        QString line = running.value(0);
        if (running.size() > 1)
            line += QStringLiteral("  (+%1 more)").arg(running.size() - 1);
        setLiveLine(line);
    }
    return m_pending.isEmpty();
}

void SyncFollower::abandon(const QString &reason)
{
    for (const QUuid &id : std::as_const(m_pending))
        print(m_names.value(id, uuidString(id)) + QStringLiteral(": ") + reason);
    m_failed += int(m_pending.size());
    m_pending.clear();
}

void SyncFollower::print(const QString &line)
{
    const QString live = std::exchange(m_liveLine, QString());
    if (!live.isEmpty())
        std::fputs("\r\033[K", m_out);
    std::fputs(Formatting::printable(line).toUtf8().constData(), m_out);
    std::fputc('\n', m_out);
    if (!live.isEmpty())
        setLiveLine(live);
    std::fflush(m_out);
}

void SyncFollower::setLiveLine(const QString &line)
{
    // Longer than the terminal is wide, it would wrap and "\r" would no
    // longer reach its start.
    const int columns = terminalColumns(m_out) - 1;
    const QString printable = Formatting::printable(line);
    const QString shown = printable.size() > columns ? printable.left(columns - 1) + u'…' : printable;
    if (shown == m_liveLine)
        return;
    m_liveLine = shown;
    std::fputs("\r\033[K", m_out);
    std::fputs(shown.toUtf8().constData(), m_out);
    std::fflush(m_out);
}
