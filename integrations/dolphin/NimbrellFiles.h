#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// A sync folder as the running instance names it.
struct NimbrellFolder
{
    QString id;
    QString path; // its local directory, absolute
    QString name;

    bool operator==(const NimbrellFolder &other) const = default;
};

// What the overlay plugin shares with the context menu plugin of the same
// process. Dolphin loads the overlay plugin once, and with it the one
// subscription to Nimbrell whose states both plugins show; the context menu
// plugin reaches it through this interface (see NimbrellActionPlugin), as the
// two plugins are separate modules.
class NimbrellFiles
{
public:
    using Reply = std::function<void(const QJsonObject &reply)>;

    virtual ~NimbrellFiles() = default;

    // The sync folder that holds `path`, while Nimbrell runs.
    virtual std::optional<NimbrellFolder> folderOf(const QString &path) const = 0;
    // The state Nimbrell last told for `path` ("synced", "conflict"...), or
    // empty when not known (yet).
    virtual QString stateOf(const QString &path) = 0;
    // One command to the running instance; `reply` gets its answer, or
    // {"ok": false, "error": ...} when Nimbrell does not answer.
    virtual void request(const QString &command, const QJsonObject &fields, Reply reply) = 0;
};

#define NimbrellFiles_iid "org.nimbrell.Nimbrell.Files/1"
Q_DECLARE_INTERFACE(NimbrellFiles, NimbrellFiles_iid)
