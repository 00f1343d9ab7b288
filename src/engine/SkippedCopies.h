#pragma once

#include "engine/ChangeParser.h"

#include <QSet>
#include <QString>
#include <QStringList>

// The copies a pair's bisyncs skipped (see ChangeParser::SkippedCopy), kept
// in the work directory until they are made: once a bisync of the pair has
// succeeded, both sides agree on everything else, and each is copied again
// without comparing, from the side that has the edit. A crash, a stop or a
// failed copy loses none of them; a path the other side has since changed
// again was copied by that bisync already, and copying it once more repeats
// the same contents.
//
// There are two lists, one per side copied to, one path per line: rclone
// reads them as they are (--files-from-raw).
class SkippedCopies
{
public:
    SkippedCopies(const QString &localPath, const QString &remoteSpec);

    // Adds what a bisync skipped; a path skipped the other way before now
    // goes this way. False when the lists could not be saved.
    bool add(const QList<ChangeParser::SkippedCopy> &skipped);
    bool isEmpty() const { return m_toSide[0].isEmpty() && m_toSide[1].isEmpty(); }
    // Every path listed, either way.
    QSet<QString> paths() const { return m_toSide[0] + m_toSide[1]; }
    // Takes out paths a bisync since copied or deleted: both sides hold the
    // same then, and copying one again would only replace the copy that
    // bisync kept of it. False when the lists could not be saved.
    bool settle(const QSet<QString> &paths);

    // The next copy to make, with the kept-files arguments of the bisync
    // (its backup directory for the side copied to); empty when none is left.
    QStringList nextCommand(const QStringList &keepArguments);
    // That copy succeeded: its list is done.
    void madeNext();

private:
    int nextSide() const { return m_toSide[1].isEmpty() ? 1 : 2; }
    QString listPath(int side) const;
    bool isLocalDirectory(const QString &path) const;
    bool save(int side) const;

    QString m_localPath;
    QString m_remoteSpec;
    QString m_base; // the lists' path without the side
    QSet<QString> m_toSide[2];
};
