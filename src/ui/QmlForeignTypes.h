#pragma once

#include "sync/SyncManager.h"

#include <QtQml/qqml.h>

// Types of the core library that QML sees (the core itself links no QML).
struct AutomaticSyncForeign
{
    Q_GADGET
    QML_FOREIGN(AutomaticSync)
    QML_NAMED_ELEMENT(AutomaticSync)
    QML_UNCREATABLE("owned by the application")
};

struct FolderRepositoryForeign
{
    Q_GADGET
    QML_FOREIGN(FolderRepository)
    QML_NAMED_ELEMENT(FolderRepository)
    QML_UNCREATABLE("owned by the application")
};

struct SyncManagerForeign
{
    Q_GADGET
    QML_FOREIGN(SyncManager)
    QML_NAMED_ELEMENT(SyncManager)
    QML_UNCREATABLE("owned by the application")
};
