#include "cli/LocalInstance.h"

#include "platform/InstallLayout.h"

LocalInstance::LocalInstance(SyncService::Mode mode, bool automaticRuns)
    : m_engine(InstallLayout::bundledRclonePath())
    , m_manager(SyncEnvironment{m_settings, m_engine, m_fileEvents, {}, &QDateTime::currentDateTimeUtc,
                                defaultConcurrentSyncs(), automaticRuns})
    , m_service(m_manager, m_engine, mode)
{
}
