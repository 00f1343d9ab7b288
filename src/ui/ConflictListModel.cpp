#include "ui/ConflictListModel.h"

#include "model/RelativePath.h"
#include "platform/Background.h"
#include "platform/StallProbe.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace {
bool same(const ConflictCopies::Copy &a, const ConflictCopies::Copy &b)
{
    return a.path == b.path && a.exists == b.exists && a.size == b.size && a.modified == b.modified
        && a.fromRemote == b.fromRemote;
}
} // namespace

bool ConflictListModel::Row::operator==(const Row &other) const
{
    return record == other.record && same(original, other.original) && same(renamed, other.renamed);
}

ConflictListModel::ConflictListModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

void ConflictListModel::show(const QString &localPath, const QList<ActivityRecord> &conflicts)
{
    struct Look
    {
        QList<Row> rows;
        bool copiesGone = false;
    };
    const int looking = ++m_looking;
    Background::run(
        this,
        [localPath, conflicts] {
            // Gone as OpenConflicts sees it: nothing at all under the name.
            const auto there = [&localPath](const ConflictCopies::Copy &copy) {
                if (copy.exists)
                    return true;
                const std::optional<QString> absolute = RelativePath::inside(localPath, copy.path);
                return absolute && QFileInfo::exists(*absolute);
            };
            Look look;
            look.rows.reserve(conflicts.size());
            for (const ActivityRecord &record : conflicts) {
                const ConflictCopies copies(localPath, record);
                look.rows.append({record, copies.original(), copies.renamed()});
                look.copiesGone = look.copiesGone || !there(copies.original()) || !there(copies.renamed());
            }
            return look;
        },
        [this, looking, localPath](Look look) {
            if (look.copiesGone)
                Q_EMIT copiesGone(); // may well ask for another look
            if (looking == m_looking)
                update(localPath, std::move(look.rows));
        });
}

void ConflictListModel::clear()
{
    ++m_looking;
    if (!m_rows.isEmpty())
        replace({}, {});
}

void ConflictListModel::replace(const QString &localPath, QList<Row> rows)
{
    beginResetModel();
    m_localPath = localPath;
    m_rows = std::move(rows);
    endResetModel();
    Q_EMIT countChanged();
}

void ConflictListModel::update(const QString &localPath, QList<Row> rows)
{
    StallProbe::Step step("conflict list");
    if (rows.isEmpty() && m_rows.isEmpty()) {
        m_localPath = localPath;
        return;
    }
    if (localPath != m_localPath || m_rows.isEmpty())
        return replace(localPath, std::move(rows));
    const qsizetype before = m_rows.size();
    QSet<QString> incoming;
    for (const Row &row : rows)
        incoming.insert(row.key());
    // Those settled, from the bottom up, a run of rows at a time.
    for (qsizetype last = m_rows.size() - 1; last >= 0;) {
        if (incoming.contains(m_rows.at(last).key())) {
            --last;
            continue;
        }
        qsizetype first = last;
        while (first > 0 && !incoming.contains(m_rows.at(first - 1).key()))
            --first;
        beginRemoveRows({}, int(first), int(last));
        m_rows.remove(first, last - first + 1);
        endRemoveRows();
        last = first - 1;
    }
    // Then the new ones in their places, and the copies that changed.
    QSet<QString> staying;
    for (const Row &row : std::as_const(m_rows))
        staying.insert(row.key());
    for (qsizetype at = 0; at < rows.size();) {
        const QString key = rows.at(at).key();
        if (at < m_rows.size() && m_rows.at(at).key() == key) {
            if (!(m_rows.at(at) == rows.at(at))) {
                m_rows[at] = rows.at(at);
                Q_EMIT dataChanged(index(int(at)), index(int(at)));
            }
            ++at;
            continue;
        }
        if (staying.contains(key)) // another order: never from OpenConflicts
            return replace(localPath, std::move(rows));
        qsizetype end = at + 1;
        while (end < rows.size() && !staying.contains(rows.at(end).key()))
            ++end;
        beginInsertRows({}, int(at), int(end - 1));
        m_rows = m_rows.mid(0, at) + rows.mid(at, end - at) + m_rows.mid(at);
        endInsertRows();
        at = end;
    }
    if (m_rows.size() != rows.size())
        return replace(localPath, std::move(rows));
    if (m_rows.size() != before)
        Q_EMIT countChanged();
}

int ConflictListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant ConflictListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case NameRole: return row.record.path;
    case RenamedRole: return row.record.renamed;
    case TimeRole: return row.record.time;
    case CopiesRole: {
        QVariantList both;
        for (const ConflictCopies::Copy *copy : {&row.original, &row.renamed}) {
            both.append(QVariantMap{
                {QStringLiteral("path"), copy->path},
                {QStringLiteral("fileName"), copy->path.section(u'/', -1)},
                {QStringLiteral("filePath"), QDir(m_localPath).filePath(copy->path)},
                {QStringLiteral("size"), copy->size},
                {QStringLiteral("modified"), copy->modified},
                {QStringLiteral("side"), copy->fromRemote ? row.record.target : QStringLiteral("this computer")},
                {QStringLiteral("fromRemote"), copy->fromRemote},
                {QStringLiteral("keepsName"), copy == &row.original},
            });
        }
        return both;
    }
    default: return {};
    }
}

QHash<int, QByteArray> ConflictListModel::roleNames() const
{
    return {{NameRole, "name"}, {RenamedRole, "renamed"}, {TimeRole, "time"}, {CopiesRole, "copies"}};
}
