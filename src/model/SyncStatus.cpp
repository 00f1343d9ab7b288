#include "model/SyncStatus.h"

#include <array>
#include <utility>

namespace {
constexpr std::array<std::pair<SyncStatus, QStringView>, 4> kNames{{
    {SyncStatus::idle, u"idle"},
    {SyncStatus::syncing, u"syncing"},
    {SyncStatus::error, u"error"},
    {SyncStatus::success, u"success"},
}};
} // namespace

QString rawValue(SyncStatus status)
{
    return kNames.at(qToUnderlying(status)).second.toString(); // listed in enumeration order
}

std::optional<SyncStatus> syncStatusFromRawValue(QStringView raw)
{
    for (const auto &[value, name] : kNames) {
        if (name == raw)
            return value;
    }
    return std::nullopt;
}
