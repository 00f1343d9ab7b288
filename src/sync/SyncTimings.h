#pragma once

#include <chrono>

// The delays of automatic syncing. Tests shorten them.
struct SyncTimings
{
    std::chrono::milliseconds periodicCheck{60'000}; // how often due folders are looked for
    std::chrono::milliseconds debounce{5'000};       // quiet time after the last change before a run
    std::chrono::milliseconds followUp{2'000};       // delay of the run that catches changes made during a run
    std::chrono::milliseconds storeRetry{30'000};    // until a failed read or save of the folder list is tried again
};
