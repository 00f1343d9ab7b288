#include "cli/LocalInstance.h"

#include "platform/InstallLayout.h"
#include "platform/InstanceChannel.h"

LocalInstance::LocalInstance(SyncService::Mode mode, bool automaticRuns)
    : m_engine(InstallLayout::bundledRclonePath())
    , m_manager(SyncEnvironment{m_settings, m_engine, m_fileEvents, {}, &QDateTime::currentDateTimeUtc,
                                defaultConcurrentSyncs(), automaticRuns, &m_activity})
    , m_service(m_manager, m_engine, mode)
{
}

void LocalInstance::serve(InstanceChannel &channel)
{
    m_service.serve(channel);
    m_network = std::make_unique<MeteredNetworkMonitor>();
    m_battery = std::make_unique<BatteryMonitor>();
    m_manager.automatic().followConditions(m_network.get(), m_battery.get());
    channel.listen();
    m_service.followSession();
    QObject::connect(&m_service, &SyncService::quitRequested, &m_service, &SyncService::quit);
}
