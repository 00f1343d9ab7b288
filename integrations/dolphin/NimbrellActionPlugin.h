#pragma once

#include <KAbstractFileItemActionPlugin>

#include <QVariantList>

class NimbrellFiles;

// The "Nimbrell" submenu of the context menu of one file or directory in a
// sync folder: Sync Now, Show in Nimbrell, Copy Share Link, Recently
// Removed…, and for one copy of an open conflict, Keep This and Keep Both.
//
// KIO makes one of these for each context menu (kf5/kfileitemaction), while
// the menu must be ready at once: it reads the folders and states the
// overlay plugin of the same process already keeps.
class NimbrellActionPlugin final : public KAbstractFileItemActionPlugin
{
    Q_OBJECT

public:
    NimbrellActionPlugin(QObject *parent, const QVariantList &arguments);

    QList<QAction *> actions(const KFileItemListProperties &items, QWidget *parentWidget) override;

private:
    static NimbrellFiles *files();
};
