#pragma once

#include <QString>

// A passive message from Nimbrell through the desktop's notification service
// (org.freedesktop.Notifications), sent without waiting for an answer. Goes
// nowhere without a session bus.
void notify(const QString &summary, const QString &body);
