#include "ui/IconTable.h"

#include <array>

namespace {
// The screens name their icons by symbol ("gearshape.fill") rather than by file, so the
// artwork can change without touching them. A file is a Tabler icon under
// :/icons/tabler/, except for the four provider logos, which keep their brand colours and
// live under :/icons/providers/.
struct Icon
{
    QStringView symbol;
    QStringView file;
};

// Symbols ending in ".fill" point at Tabler's filled variant ("-filled") where Tabler has
// one; otherwise at the outline icon, which reads the same at the sizes we draw.
constexpr std::array<Icon, 52> kIcons{{
    // Provider logos
    {u"drive", u"providers/drive"},
    {u"dropbox", u"providers/dropbox"},
    {u"onedrive", u"providers/onedrive"},
    {u"s3", u"providers/s3"},

    // Places and things
    {u"house.fill", u"tabler/home-filled"},
    {u"folder.fill", u"tabler/folder-filled"},
    {u"folder.badge.plus", u"tabler/folder-plus"},
    {u"folder.fill.badge.gearshape", u"tabler/folder-cog"},
    {u"cloud.fill", u"tabler/cloud-filled"},
    {u"cloud.badge.plus", u"tabler/cloud-plus"},
    {u"network", u"tabler/network"},
    {u"terminal.fill", u"tabler/terminal-2"},
    {u"internaldrive.fill", u"tabler/server"},
    {u"externaldrive.fill", u"tabler/device-usb-filled"},
    {u"shippingbox", u"tabler/package"},
    {u"tag.fill", u"tabler/tag-filled"},
    {u"clock", u"tabler/clock"},
    {u"chart.bar.fill", u"tabler/chart-bar"},
    {u"doc", u"tabler/file"},

    // Actions
    {u"plus", u"tabler/plus"},
    {u"trash", u"tabler/trash"},
    {u"trash.fill", u"tabler/trash-filled"},
    {u"pencil", u"tabler/pencil"},
    {u"doc.on.doc", u"tabler/copy"},
    {u"doc.on.doc.fill", u"tabler/copy-filled"},
    {u"gearshape", u"tabler/settings"},
    {u"gearshape.fill", u"tabler/settings-filled"},
    {u"stop.circle", u"tabler/circle-stop"},
    {u"pause", u"tabler/player-pause"},
    {u"play", u"tabler/player-play"},
    {u"chevron.down", u"tabler/chevron-down"},
    {u"chevron.up", u"tabler/chevron-up"},
    {u"checkmark", u"tabler/check"},
    {u"minus.circle.fill", u"tabler/circle-minus"},
    {u"plus.circle.fill", u"tabler/circle-plus-filled"},
    {u"xmark.circle.fill", u"tabler/circle-x-filled"},

    // Sync and state
    {u"arrow.triangle.2.circlepath", u"tabler/refresh"},
    {u"arrow.triangle.2.circlepath.icloud.fill", u"tabler/cloud-upload"},
    {u"arrow.triangle.branch", u"tabler/git-branch"},
    {u"arrow.up", u"tabler/arrow-up"},
    {u"arrow.down", u"tabler/arrow-down"},
    {u"arrow.uturn.backward", u"tabler/arrow-back-up"},
    {u"clock.arrow.circlepath", u"tabler/history"},
    {u"bolt.fill", u"tabler/bolt-filled"},
    {u"bolt.slash.fill", u"tabler/bolt-off"},
    {u"checkmark.circle.fill", u"tabler/circle-check-filled"},
    {u"checkmark.seal.fill", u"tabler/rosette-discount-check-filled"},
    {u"exclamationmark.triangle", u"tabler/alert-triangle"},
    {u"exclamationmark.triangle.fill", u"tabler/alert-triangle-filled"},
    {u"eye.slash", u"tabler/eye-off"},
    {u"eye.slash.circle.fill", u"tabler/eye-off"},
    {u"info.circle", u"tabler/info-circle"},
}};
} // namespace

QString iconResource(QStringView symbol)
{
    for (const Icon &icon : kIcons) {
        if (icon.symbol == symbol) {
            QString path = QStringLiteral(":/icons/");
            path += icon.file;
            path += QStringLiteral(".svg");
            return path;
        }
    }
    return {};
}

QStringList iconSymbols()
{
    QStringList symbols;
    symbols.reserve(qsizetype(kIcons.size()));
    for (const Icon &icon : kIcons)
        symbols.append(icon.symbol.toString());
    return symbols;
}
