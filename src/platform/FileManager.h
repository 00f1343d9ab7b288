#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>

// The desktop's file manager, over org.freedesktop.FileManager1: shows a file
// selected in its folder. `done` learns whether a file manager took it; when
// none did, the caller opens the folder itself.
void showInFileManager(const QDBusConnection &bus, const QString &path, QObject *context,
                       const std::function<void(bool shown)> &done);
