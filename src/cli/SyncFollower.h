#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <cstdio>

// Follows runs through the snapshots of `status` that a subscription sends
// as they change, and tells the user how they go:
// on a terminal one progress line that rewrites itself, elsewhere a plain
// line whenever what a folder shows changes; and a last line per folder.
class SyncFollower final
{
public:
    SyncFollower(const QList<QUuid> &folders, std::FILE *out);

    // Takes the latest status; true once every run has ended.
    bool update(const QJsonObject &status);
    // The runs can no longer be followed (the instance went away).
    void abandon(const QString &reason);
    bool succeeded() const { return m_failed == 0 && m_pending.isEmpty(); }

    // What a running folder shows: "42% → remote:path (1 of 2), 12 MiB / 40 MiB, ..."
    static QString progressText(const QJsonObject &folder);

private:
    void print(const QString &line);
    void setLiveLine(const QString &line);

    std::FILE *m_out;
    bool m_isTerminal;
    QList<QUuid> m_pending;
    QHash<QUuid, QString> m_names;
    QHash<QUuid, QString> m_shown; // the line each folder showed last (not on a terminal)
    QString m_liveLine;
    int m_failed = 0;
};
