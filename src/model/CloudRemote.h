#pragma once

#include <QHashFunctions>
#include <QString>

// The picture a remote is shown with: one of the bundled provider logos, or a
// symbol of the icon set. Screens map the names to images.
struct ProviderIcon
{
    enum class Kind { asset, symbol };
    Kind kind = Kind::symbol;
    QString name;

    friend bool operator==(const ProviderIcon &, const ProviderIcon &) = default;
};

// A remote configured in rclone. Lists identify it by name.
struct CloudRemote
{
    QString name; // without the trailing colon
    QString type; // rclone backend, e.g. "drive"

    const QString &id() const { return name; }
    QString displayTypeName() const;
    ProviderIcon providerIcon() const;

    friend bool operator==(const CloudRemote &, const CloudRemote &) = default;
};

inline size_t qHash(const CloudRemote &remote, size_t seed = 0) noexcept
{
    return qHashMulti(seed, remote.name, remote.type);
}
