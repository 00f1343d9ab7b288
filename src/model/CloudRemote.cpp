#include "model/CloudRemote.h"

#include <array>

namespace {
struct Provider
{
    QStringView type;
    QStringView displayName;
    ProviderIcon::Kind iconKind;
    QStringView iconName;
};

using enum ProviderIcon::Kind;
constexpr std::array<Provider, 7> kProviders{{
    {u"drive", u"Google Drive", asset, u"drive"},
    {u"dropbox", u"Dropbox", asset, u"dropbox"},
    {u"onedrive", u"OneDrive", asset, u"onedrive"},
    {u"s3", u"Amazon S3", asset, u"s3"},
    {u"webdav", u"WebDAV", symbol, u"network"},
    {u"b2", u"Backblaze B2", symbol, u"internaldrive.fill"},
    {u"sftp", u"SFTP", symbol, u"terminal.fill"},
}};

const Provider *providerOf(const QString &type)
{
    const QString lower = type.toLower();
    for (const Provider &provider : kProviders) {
        if (provider.type == lower)
            return &provider;
    }
    return nullptr;
}

// Upper-cases the first letter of every blank-separated word and lower-cases the rest.
QString capitalizeWords(const QString &text)
{
    QString result;
    result.reserve(text.size());
    bool wordStart = true;
    for (const QChar c : text) {
        result += wordStart ? c.toUpper() : c.toLower();
        wordStart = c.isSpace();
    }
    return result;
}
} // namespace

QString CloudRemote::displayTypeName() const
{
    if (const Provider *provider = providerOf(type))
        return provider->displayName.toString();
    return capitalizeWords(type);
}

ProviderIcon CloudRemote::providerIcon() const
{
    if (const Provider *provider = providerOf(type))
        return {provider->iconKind, provider->iconName.toString()};
    return {symbol, QStringLiteral("cloud.fill")};
}
