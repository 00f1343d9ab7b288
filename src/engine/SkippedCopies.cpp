#include "engine/SkippedCopies.h"
#include "engine/BisyncLocks.h"

#include "engine/RcloneEngine.h"

#include "platform/AppLogger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>

SkippedCopies::SkippedCopies(const QString &localPath, const QString &remoteSpec)
    : m_localPath(localPath)
    , m_remoteSpec(remoteSpec)
    , m_base(BisyncLocks::pairFile(QStringLiteral("skipped"), localPath, remoteSpec))
{
    for (int side = 1; side <= 2; ++side) {
        QFile list(listPath(side));
        if (!list.open(QIODevice::ReadOnly))
            continue;
        while (!list.atEnd()) {
            QByteArray line = list.readLine(64 * 1024);
            if (line.endsWith('\n'))
                line.chop(1);
            if (!line.isEmpty())
                m_toSide[side - 1].insert(QString::fromUtf8(line));
        }
    }
}

// Directories are made, not copied: rclone refuses one in the list.
bool SkippedCopies::isLocalDirectory(const QString &path) const
{
    return QFileInfo(QDir(m_localPath).filePath(path)).isDir();
}

QString SkippedCopies::listPath(int side) const
{
    return m_base + (side == 1 ? QStringLiteral("-to-path1.lst") : QStringLiteral("-to-path2.lst"));
}

bool SkippedCopies::add(const QList<ChangeParser::SkippedCopy> &skipped)
{
    bool changed[2] = {false, false};
    for (const ChangeParser::SkippedCopy &copy : skipped) {
        // A name with a line break cannot be listed; rclone's own copy is all it gets.
        if (copy.path.contains(u'\n') || copy.path.contains(u'\r') || (copy.toSide != 1 && copy.toSide != 2)
            || isLocalDirectory(copy.path))
            continue;
        const int to = copy.toSide - 1;
        if (!m_toSide[to].contains(copy.path)) {
            m_toSide[to].insert(copy.path);
            changed[to] = true;
        }
        changed[1 - to] |= m_toSide[1 - to].remove(copy.path);
    }
    bool saved = true;
    for (int side = 1; side <= 2; ++side) {
        if (changed[side - 1])
            saved &= save(side);
    }
    return saved;
}

bool SkippedCopies::settle(const QSet<QString> &paths)
{
    bool saved = true;
    for (int side = 1; side <= 2; ++side) {
        if (m_toSide[side - 1].removeIf([&paths](const QString &path) { return paths.contains(path); }))
            saved &= save(side);
    }
    return saved;
}

bool SkippedCopies::save(int side) const
{
    const QSet<QString> &paths = m_toSide[side - 1];
    if (paths.isEmpty())
        return QFile::remove(listPath(side)) || !QFile::exists(listPath(side));
    QStringList sorted(paths.cbegin(), paths.cend());
    std::sort(sorted.begin(), sorted.end());
    QSaveFile list(listPath(side));
    if (!list.open(QIODevice::WriteOnly)) {
        qCWarning(lcEngine, "Could not save the copies to make again: %s", qUtf8Printable(list.errorString()));
        return false;
    }
    list.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    list.write(sorted.join(u'\n').toUtf8() + '\n');
    return list.commit();
}

QStringList SkippedCopies::nextCommand(const QStringList &keepArguments)
{
    for (int side = 1; side <= 2; ++side) {
        if (m_toSide[side - 1].removeIf([this](const QString &path) { return isLocalDirectory(path); }))
            save(side);
    }
    if (isEmpty())
        return {};
    const int side = nextSide();
    QStringList command{QStringLiteral("copy"),
                        side == 2 ? m_localPath : m_remoteSpec,
                        side == 2 ? m_remoteSpec : m_localPath,
                        QStringLiteral("--files-from-raw"),
                        listPath(side),
                        QStringLiteral("--ignore-times"),
                        QStringLiteral("--no-traverse"),
                        QStringLiteral("-v")};
    // What the copy replaces is kept where the bisync would have kept it.
    const qsizetype backup = keepArguments.indexOf(side == 1 ? QStringLiteral("--backup-dir1") : QStringLiteral("--backup-dir2"));
    if (backup >= 0 && backup + 1 < keepArguments.size())
        command << QStringLiteral("--backup-dir") << keepArguments.at(backup + 1);
    return command;
}

void SkippedCopies::madeNext()
{
    const int side = nextSide();
    m_toSide[side - 1].clear();
    save(side);
}
