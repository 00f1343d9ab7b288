#pragma once

#include <QString>

#include <utility>
#include <variant>

// Why an rclone call did not produce its value.
struct RcloneError
{
    enum class Kind {
        exitStatus,   // rclone failed: domain "RcloneError", code = its exit status
        launchFailed, // the executable could not be started
        badOutput,    // rclone succeeded but printed something unreadable
        cancelled,    // the caller cancelled; not an rclone failure
        localFolderMissing, // bisync was not started: its local folder does not exist
        resyncWithheld, // rclone demands a resync that would fill an empty side; left to the user
    };
    static inline const QString domain = QStringLiteral("RcloneError");

    Kind kind = Kind::exitStatus;
    int code = 0;
    QString description; // what the screens show
    // For a failed bisync: its first error lines, wherever they were in the
    // output (the description holds only the last lines, which often no
    // longer name the cause).
    QString detail = {};

    bool isCancelled() const { return kind == Kind::cancelled; }
    // rclone lost the pair's history and asks for a resync; a withheld one
    // is not this.
    bool demandsResync() const { return kind == Kind::exitStatus && description.contains(QLatin1String("--resync")); }
    friend bool operator==(const RcloneError &, const RcloneError &) = default;
};

// The value of an rclone call, or why there is none.
template <typename T>
class RcloneResult
{
public:
    RcloneResult(T value) : m_result(std::in_place_index<0>, std::move(value)) {}
    RcloneResult(RcloneError error) : m_result(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_result.index() == 0; }
    bool isCancelled() const { return !ok() && error().isCancelled(); }
    const T &value() const { return std::get<0>(m_result); }
    const RcloneError &error() const { return std::get<1>(m_result); }
    // The error's description; empty on success.
    QString errorDescription() const { return ok() ? QString() : error().description; }

private:
    std::variant<T, RcloneError> m_result;
};

// The result of a call that has no value beyond its success.
using RcloneStatus = RcloneResult<std::monostate>;
