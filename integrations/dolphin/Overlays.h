#pragma once

#include <QString>

// The emblem a file manager draws on a file in this state (a name from the
// icon theme, installed under hicolor beside Nimbrell's own icon): one for
// each state Nimbrell tells, none for any other state or for a file in no
// sync folder (an empty state).
QString overlayFor(const QString &state);
