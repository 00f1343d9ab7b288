#pragma once

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

// The fake rclone of tests/fakes/fake-rclone: scripts what each call does and
// reads back the arguments each call got. Child processes find the scripts
// through FAKE_RCLONE_DIR, set while this object lives.
class FakeRclone
{
public:
    FakeRclone()
    {
        QVERIFY(m_dir.isValid());
        qputenv("FAKE_RCLONE_DIR", QFile::encodeName(m_dir.path()));
    }
    ~FakeRclone() { qunsetenv("FAKE_RCLONE_DIR"); }

    static QString path() { return QStringLiteral(FAKE_RCLONE_PATH); }
    QString directory() const { return m_dir.path(); }

    // What the calls of `command` do ("bisync"), or only its n-th call ("bisync.2"):
    // a bash snippet, run with the call's arguments as "$@".
    void script(const QString &call, const QByteArray &bash)
    {
        QFile file(m_dir.filePath(call + QStringLiteral(".sh")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bash);
    }

    // The arguments of every call so far, in order.
    QList<QStringList> calls() const
    {
        QList<QStringList> calls;
        const QDir callDir(m_dir.filePath(QStringLiteral("calls")));
        for (const QString &name : callDir.entryList({QStringLiteral("[0-9][0-9][0-9][0-9]")}, QDir::Files, QDir::Name)) {
            QFile file(callDir.filePath(name));
            if (!file.open(QIODevice::ReadOnly))
                continue;
            QByteArray bytes = file.readAll();
            bytes.chop(1); // the last NUL
            QStringList arguments;
            for (const QByteArray &argument : bytes.isEmpty() ? QByteArrayList() : bytes.split('\0'))
                arguments.append(QString::fromUtf8(argument));
            calls.append(arguments);
        }
        return calls;
    }

    // The first argument of every call: "mkdir", "bisync", ...
    QStringList commands() const
    {
        QStringList commands;
        for (const QStringList &call : calls())
            commands.append(call.value(0));
        return commands;
    }

private:
    QTemporaryDir m_dir;
};
