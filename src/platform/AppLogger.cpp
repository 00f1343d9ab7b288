#include "platform/AppLogger.h"

Q_LOGGING_CATEGORY(lcEngine, "org.nimbrell.Nimbrell.RcloneEngine")
Q_LOGGING_CATEGORY(lcSyncManager, "org.nimbrell.Nimbrell.SyncManager")
Q_LOGGING_CATEGORY(lcGeneral, "org.nimbrell.Nimbrell.General")
