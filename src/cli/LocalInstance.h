#pragma once

#include "engine/RcloneEngine.h"
#include "platform/InotifyFileEventService.h"
#include "platform/QSettingsStore.h"
#include "platform/PowerAndNetwork.h"
#include "sync/ActivityLog.h"
#include "sync/SyncManager.h"
#include "sync/SyncService.h"

class InstanceChannel;

// Nimbrell without windows, in this process: the engine, the settings, the
// folder store and the manager, as the program with windows has them. The
// headless service runs it with automatic sync, a one-off `sync --wait`
// without, and the command line reads from it when no instance runs.
class LocalInstance final
{
public:
    LocalInstance(SyncService::Mode mode, bool automaticRuns);

    // Becomes the running instance: answers on the channel, follows the
    // session's signals and quits (gracefully) when asked to.
    void serve(InstanceChannel &channel);

    RcloneEngine &engine() { return m_engine; }
    SyncManager &manager() { return m_manager; }
    SyncService &service() { return m_service; }
    SettingsStore &settings() { return m_settings; }

private:
    RcloneEngine m_engine;
    QSettingsStore m_settings;
    InotifyFileEventService m_fileEvents;
    ActivityLog m_activity;
    SyncManager m_manager;
    SyncService m_service;
    // The headless service's, as the window's: automatic runs may wait on them.
    std::unique_ptr<MeteredNetworkMonitor> m_network;
    std::unique_ptr<BatteryMonitor> m_battery;
};
