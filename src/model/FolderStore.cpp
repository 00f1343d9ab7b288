#include "model/FolderStore.h"

#include "model/UuidString.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace FolderStore {
namespace {

constexpr qint64 kReferenceDateMSecsSinceEpoch = 978307200000; // 2001-01-01T00:00:00Z
constexpr double kMaxExactInteger = 9007199254740992.0;       // 2^53
// Far beyond any real date, near enough to keep milliseconds exact in a double.
constexpr double kMaxDateSeconds = 1e14;

// ---- writing ----------------------------------------------------------------

// Writes compact JSON in the store's own style: keys in the order given,
// "/" escaped as "\/", integral numbers without a fraction.
class Writer
{
public:
    explicit Writer(qsizetype reserve) { m_out.reserve(reserve); }

    QByteArray take() { return std::move(m_out); }

    void key(const char *name)
    {
        if (m_needsComma)
            m_out.append(',');
        m_out.append('"').append(name).append("\":");
        m_needsComma = true;
    }
    void open(char bracket)
    {
        m_out.append(bracket);
        m_needsComma = false;
    }
    void close(char bracket)
    {
        m_out.append(bracket);
        m_needsComma = true;
    }
    void element()
    {
        if (m_needsComma)
            m_out.append(',');
        m_needsComma = false;
    }

    void value(bool b) { m_out.append(b ? "true" : "false"); }
    void value(qint64 i) { m_out.append(QByteArray::number(i)); }
    void value(double d)
    {
        if (std::trunc(d) == d && std::fabs(d) <= kMaxExactInteger) {
            value(static_cast<qint64>(d));
            return;
        }
        char buffer[32];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, d); // shortest round trip
        m_out.append(buffer, result.ptr - buffer);
    }
    void value(const QString &text) { string(text.toUtf8()); }
    void string(const QByteArray &utf8)
    {
        m_out.append('"');
        for (const char c : utf8) {
            switch (c) {
            case '"': m_out.append("\\\""); break;
            case '\\': m_out.append("\\\\"); break;
            case '/': m_out.append("\\/"); break;
            case '\b': m_out.append("\\b"); break;
            case '\f': m_out.append("\\f"); break;
            case '\n': m_out.append("\\n"); break;
            case '\r': m_out.append("\\r"); break;
            case '\t': m_out.append("\\t"); break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
                    m_out.append(escape);
                } else {
                    m_out.append(c);
                }
            }
        }
        m_out.append('"');
    }

    template <typename T>
    void member(const char *name, const T &v)
    {
        key(name);
        value(v);
    }
    template <typename T>
    void member(const char *name, const std::optional<T> &v)
    {
        if (v)
            member(name, *v);
    }

private:
    QByteArray m_out;
    bool m_needsComma = false;
};

bool writeFolder(Writer &out, const SyncFolder &folder)
{
    if (!std::isfinite(folder.progress) || (folder.lastSync && !folder.lastSync->isValid()))
        return false;

    out.element();
    out.open('{');
    out.member("id", uuidString(folder.id));
    out.member("name", folder.name);
    out.member("localPath", folder.localPath);
    out.key("remoteTargets");
    out.open('[');
    for (const RemoteTarget &target : folder.remoteTargets) {
        out.element();
        out.open('{');
        out.member("id", uuidString(target.id));
        out.member("remoteName", target.remoteName);
        out.member("remotePath", target.remotePath);
        out.member("hasResynced", target.hasResynced);
        out.close('}');
    }
    out.close(']');
    if (folder.lastSync)
        out.member("lastSync", secondsSinceReferenceDate(*folder.lastSync));
    out.member("status", rawValue(folder.status));
    out.member("currentTargetIndex", folder.currentTargetIndex);
    out.member("progress", folder.progress);
    out.member("transferredSize", folder.transferredSize);
    out.member("transferredFiles", folder.transferredFiles);
    out.member("transferSpeed", folder.transferSpeed);
    out.member("lastError", folder.lastError);
    out.key("filters");
    out.open('{');
    out.member("excludeGit", folder.filters.excludeGit);
    out.member("excludeHidden", folder.filters.excludeHidden);
    out.member("excludeNodeModules", folder.filters.excludeNodeModules);
    out.close('}');
    out.member("conflictResolution", rawValue(folder.conflictResolution));
    out.member("periodicIntervalMinutes", folder.periodicIntervalMinutes);
    if (folder.localPathBookmarkData) {
        out.key("localPathBookmarkData");
        out.string(folder.localPathBookmarkData->toBase64());
    }
    out.close('}');
    return true;
}

// ---- reading ----------------------------------------------------------------

// Where in the document a value lies; a chain on the stack, turned into text
// only when something fails.
struct Path
{
    const Path *parent = nullptr;
    const char *key = nullptr; // null for an array element
    qsizetype index = -1;

    Path child(const char *childKey) const { return {this, childKey, -1}; }
    Path element(qsizetype childIndex) const { return {this, nullptr, childIndex}; }

    QString toString() const
    {
        QString prefix = parent ? parent->toString() : QString();
        if (key)
            return prefix.isEmpty() ? QString::fromLatin1(key) : prefix + u'.' + QLatin1String(key);
        if (index >= 0)
            return prefix + u'[' + QString::number(index) + u']';
        return prefix;
    }
};

struct Failure
{
    DecodeError error;
};

using Kind = DecodeError::Kind;

[[noreturn]] void fail(Kind kind, const Path &path, const QString &message)
{
    throw Failure{{kind, path.toString(), message}};
}

// The value of a key that must be there and must not be null.
QJsonValue required(const QJsonObject &object, const Path &path)
{
    const QJsonValue value = object.value(QLatin1String(path.key));
    if (value.isUndefined())
        fail(Kind::keyNotFound, path, QStringLiteral("the key is missing"));
    if (value.isNull())
        fail(Kind::valueNotFound, path, QStringLiteral("the value is null"));
    return value;
}

// The value of an optional key; missing and null are both "none".
std::optional<QJsonValue> optional(const QJsonObject &object, const Path &path)
{
    const QJsonValue value = object.value(QLatin1String(path.key));
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    return value;
}

QJsonObject readObject(const QJsonValue &value, const Path &path)
{
    if (!value.isObject())
        fail(Kind::typeMismatch, path, QStringLiteral("expected an object"));
    return value.toObject();
}

QJsonArray readArray(const QJsonValue &value, const Path &path)
{
    if (!value.isArray())
        fail(Kind::typeMismatch, path, QStringLiteral("expected an array"));
    return value.toArray();
}

QString readString(const QJsonValue &value, const Path &path)
{
    if (!value.isString())
        fail(Kind::typeMismatch, path, QStringLiteral("expected a string"));
    return value.toString();
}

bool readBool(const QJsonValue &value, const Path &path)
{
    if (!value.isBool())
        fail(Kind::typeMismatch, path, QStringLiteral("expected a boolean"));
    return value.toBool();
}

double readDouble(const QJsonValue &value, const Path &path)
{
    if (!value.isDouble())
        fail(Kind::typeMismatch, path, QStringLiteral("expected a number"));
    return value.toDouble();
}

qint64 readInteger(const QJsonValue &value, const Path &path)
{
    if (!value.isDouble())
        fail(Kind::typeMismatch, path, QStringLiteral("expected an integer"));
    // toInteger() takes integral numbers only, 2.0 included, and gives the
    // fallback for anything else.
    const qint64 integer = value.toInteger(0);
    if (integer == 0 && value.toDouble() != 0.0)
        fail(Kind::dataCorrupted, path, QStringLiteral("the number is not a 64-bit integer"));
    return integer;
}

QUuid readUuid(const QJsonValue &value, const Path &path)
{
    const QString text = readString(value, path);
    // QUuid also takes braces; the store holds the bare 36-character form only.
    const QUuid id = text.size() == 36 ? QUuid::fromString(text) : QUuid();
    if (id.isNull() && text != u"00000000-0000-0000-0000-000000000000")
        fail(Kind::dataCorrupted, path, QStringLiteral("not a UUID: %1").arg(text));
    return id;
}

QDateTime readDate(const QJsonValue &value, const Path &path)
{
    const auto date = dateFromSecondsSinceReferenceDate(readDouble(value, path));
    if (!date)
        fail(Kind::dataCorrupted, path, QStringLiteral("the date is out of range"));
    return *date;
}

QByteArray readData(const QJsonValue &value, const Path &path)
{
    const QString text = readString(value, path);
    auto decoded = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    // Qt's strict mode still takes a missing padding; the store always pads.
    if (!decoded || text.size() % 4 != 0)
        fail(Kind::dataCorrupted, path, QStringLiteral("not padded base64"));
    return *std::move(decoded);
}

template <typename Enum, typename FromRaw>
Enum readEnum(const QJsonValue &value, const Path &path, FromRaw fromRaw)
{
    const QString raw = readString(value, path);
    const std::optional<Enum> result = fromRaw(raw);
    if (!result)
        fail(Kind::dataCorrupted, path, QStringLiteral("unknown value \"%1\"").arg(raw));
    return *result;
}

// Reads a required key with one of the readers above.
template <typename Read>
auto readRequired(const QJsonObject &object, const Path &path, Read read)
{
    return read(required(object, path), path);
}

// Reads an optional key; none when it is missing or null.
template <typename Read>
auto readOptional(const QJsonObject &object, const Path &path, Read read)
    -> std::optional<decltype(read(QJsonValue(), path))>
{
    if (const auto value = optional(object, path))
        return read(*value, path);
    return std::nullopt;
}

RemoteTarget readTarget(const QJsonValue &value, const Path &path)
{
    const QJsonObject object = readObject(value, path);
    return RemoteTarget{
        readRequired(object, path.child("id"), readUuid),
        readRequired(object, path.child("remoteName"), readString),
        readRequired(object, path.child("remotePath"), readString),
        readRequired(object, path.child("hasResynced"), readBool),
    };
}

SyncFilterOptions readFilters(const QJsonValue &value, const Path &path)
{
    const QJsonObject object = readObject(value, path);
    return SyncFilterOptions{
        readRequired(object, path.child("excludeGit"), readBool),
        readRequired(object, path.child("excludeHidden"), readBool),
        readRequired(object, path.child("excludeNodeModules"), readBool),
    };
}

SyncFolder readFolder(const QJsonValue &value, const Path &path)
{
    const QJsonObject object = readObject(value, path);
    SyncFolder folder; // a fresh random id unless the document has one
    if (const auto id = readOptional(object, path.child("id"), readUuid))
        folder.id = *id;
    folder.name = readRequired(object, path.child("name"), readString);
    folder.localPath = readRequired(object, path.child("localPath"), readString);

    const Path targetsPath = path.child("remoteTargets");
    const QJsonArray targets = readRequired(object, targetsPath, readArray);
    folder.remoteTargets.reserve(targets.size());
    for (qsizetype i = 0; i < targets.size(); ++i)
        folder.remoteTargets.append(readTarget(targets.at(i), targetsPath.element(i)));

    folder.lastSync = readOptional(object, path.child("lastSync"), readDate);
    folder.status = readRequired(object, path.child("status"), [](const QJsonValue &v, const Path &p) {
        return readEnum<SyncStatus>(v, p, syncStatusFromRawValue);
    });
    folder.currentTargetIndex = readOptional(object, path.child("currentTargetIndex"), readInteger);
    folder.progress = readOptional(object, path.child("progress"), readDouble).value_or(0.0);
    folder.transferredSize = readOptional(object, path.child("transferredSize"), readString);
    folder.transferredFiles = readOptional(object, path.child("transferredFiles"), readString);
    folder.transferSpeed = readOptional(object, path.child("transferSpeed"), readString);
    folder.lastError = readOptional(object, path.child("lastError"), readString);
    folder.filters = readOptional(object, path.child("filters"), readFilters).value_or(SyncFilterOptions());
    folder.conflictResolution = readOptional(object, path.child("conflictResolution"), [](const QJsonValue &v,
                                                                                             const Path &p) {
                                    return readEnum<ConflictResolution>(v, p, conflictResolutionFromRawValue);
                                }).value_or(ConflictResolution::keepBoth);
    folder.periodicIntervalMinutes = readOptional(object, path.child("periodicIntervalMinutes"), readInteger);
    folder.localPathBookmarkData = readOptional(object, path.child("localPathBookmarkData"), readData);
    return folder;
}

} // namespace

QString DecodeError::toString() const
{
    return keyPath.isEmpty() ? message : keyPath + QStringLiteral(": ") + message;
}

double secondsSinceReferenceDate(const QDateTime &date)
{
    return double(date.toMSecsSinceEpoch() - kReferenceDateMSecsSinceEpoch) / 1000.0;
}

std::optional<QDateTime> dateFromSecondsSinceReferenceDate(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) > kMaxDateSeconds)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(kReferenceDateMSecsSinceEpoch + std::llround(seconds * 1000.0), Qt::UTC);
}

std::optional<QByteArray> encode(const QList<SyncFolder> &folders)
{
    Writer out(folders.size() * 1024);
    out.open('[');
    for (const SyncFolder &folder : folders) {
        if (!writeFolder(out, folder))
            return std::nullopt;
    }
    out.close(']');
    return out.take();
}

std::optional<QList<SyncFolder>> decode(const QByteArray &document, DecodeError *error)
{
    try {
        const Path root;
        QJsonParseError parseError;
        const QJsonDocument json = QJsonDocument::fromJson(document, &parseError);
        if (parseError.error != QJsonParseError::NoError)
            fail(Kind::dataCorrupted, root, QStringLiteral("not valid JSON: %1").arg(parseError.errorString()));
        if (!json.isArray())
            fail(Kind::typeMismatch, root, QStringLiteral("expected an array of folders"));
        const QJsonArray array = json.array();
        QList<SyncFolder> folders;
        folders.reserve(array.size());
        for (qsizetype i = 0; i < array.size(); ++i)
            folders.append(readFolder(array.at(i), root.element(i)));
        return folders;
    } catch (const Failure &failure) {
        if (error)
            *error = failure.error;
        return std::nullopt;
    }
}

} // namespace FolderStore
