#include "ui/RemoteStorage.h"

#include "engine/RcloneJob.h"
#include "engine/RemoteCommands.h"

#include <cmath>

RemoteStorage::~RemoteStorage()
{
    if (m_job)
        m_job->cancel();
}

void RemoteStorage::load(RcloneEngine &engine, const QString &remoteName)
{
    if (m_job)
        m_job->cancel();
    m_isLoading = true;
    m_error.clear();
    emit changed();
    m_job = RemoteCommands::getSpaceInfo(engine, remoteName, this, [this](const RcloneResult<RemoteSpaceInfo> &result) {
        if (result.isCancelled()) // replaced by a newer query
            return;
        if (result.ok())
            m_spaceInfo = result.value();
        else
            m_error = result.error().description;
        m_isLoading = false;
        emit changed();
    });
}

void RemoteStorage::setError(const QString &error)
{
    m_error = error;
    emit changed();
}

QVariant RemoteStorage::figure(std::optional<qint64> RemoteSpaceInfo::*field) const
{
    if (!m_spaceInfo || !((*m_spaceInfo).*field))
        return {};
    return *((*m_spaceInfo).*field);
}

std::optional<double> RemoteStorage::usageFraction(const RemoteSpaceInfo &info)
{
    if (!info.total || *info.total < 1)
        return std::nullopt;
    return double(info.used.value_or(0)) / double(*info.total);
}

std::optional<double> RemoteStorage::currentFraction() const
{
    return m_spaceInfo ? usageFraction(*m_spaceInfo) : std::nullopt;
}

QVariant RemoteStorage::usageFractionValue() const
{
    const auto fraction = currentFraction();
    return fraction ? QVariant(*fraction) : QVariant();
}

bool RemoteStorage::usageCritical() const
{
    const auto fraction = currentFraction();
    return fraction && *fraction > 0.9;
}

QString RemoteStorage::usagePercentage() const
{
    const auto fraction = currentFraction();
    return fraction ? QString::number(qint64(std::trunc(*fraction * 100.0))) + u'%' : QString();
}

void RemoteStorage::setSpaceInfo(const std::optional<RemoteSpaceInfo> &info)
{
    m_spaceInfo = info;
    emit changed();
}
