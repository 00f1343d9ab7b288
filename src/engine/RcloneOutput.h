#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QStringView>

// Reading what rclone prints, and saying what it was asked.
namespace RcloneOutput {
// Removes ANSI colour and cursor sequences (ESC [ digits/semicolons letter).
QString stripAnsi(QString text);
// The lines of a text, split at any line break, without empty ones.
QStringList nonEmptyLines(const QString &text);
QStringView trimBlanks(QStringView text);
// UTF-8 text, or the empty text when the bytes are not valid UTF-8.
QString decodeUtf8OrEmpty(const QByteArray &bytes);
// ["bisync", "/home/ann/Documents", ...] for the log. The settings given to
// rclone's configurator (passwords among them) are left out: "pass=…".
QString describeArguments(const QStringList &arguments);
} // namespace RcloneOutput
