#include "platform/AppLogger.h"

#include "model/Formatting.h"

Q_LOGGING_CATEGORY(lcEngine, "org.nimbrell.Nimbrell.RcloneEngine")
Q_LOGGING_CATEGORY(lcSyncManager, "org.nimbrell.Nimbrell.SyncManager")
Q_LOGGING_CATEGORY(lcGeneral, "org.nimbrell.Nimbrell.General")

namespace {
QtMessageHandler s_qtHandler = nullptr;

void printableMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    s_qtHandler(type, context, Formatting::printable(message));
}
} // namespace

void AppLogger::keepLogPrintable()
{
    if (!s_qtHandler)
        s_qtHandler = qInstallMessageHandler(&printableMessage);
}
