#include "engine/BackendCatalog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace BackendCatalog {
namespace {

// rclone's Hide bit for options its configurator does not ask for.
constexpr int kHiddenFromConfigurator = 1;

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

bool flag(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toBool();
}

} // namespace

Option parseOption(const QJsonObject &option)
{
    Option parsed{text(option, "Name"),       text(option, "Help"),     text(option, "DefaultStr"),
                  text(option, "Type"),       {},                       flag(option, "Required"),
                  flag(option, "IsPassword"), flag(option, "Advanced"), flag(option, "Exclusive"),
                  text(option, "Provider")};
    for (const QJsonValue &example : option.value(QLatin1String("Examples")).toArray()) {
        const QJsonObject e = example.toObject();
        parsed.examples.append({text(e, "Value"), text(e, "Help"), text(e, "Provider")});
    }
    return parsed;
}

std::optional<QList<Backend>> parse(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isArray())
        return std::nullopt;
    QList<Backend> backends;
    for (const QJsonValue &entry : document.array()) {
        const QJsonObject object = entry.toObject();
        Backend backend{text(object, "Name"), text(object, "Description"), {}};
        if (backend.name.isEmpty())
            return std::nullopt;
        if (flag(object, "Hide"))
            continue;
        for (const QJsonValue &value : object.value(QLatin1String("Options")).toArray()) {
            const QJsonObject option = value.toObject();
            if (option.value(QLatin1String("Hide")).toInt() & kHiddenFromConfigurator)
                continue;
            const Option parsed = parseOption(option);
            if (!parsed.name.isEmpty())
                backend.options.append(parsed);
        }
        backends.append(backend);
    }
    return backends;
}

bool appliesTo(const QString &rule, const QString &provider)
{
    if (rule.isEmpty() || provider.isEmpty())
        return true;
    const bool negated = rule.startsWith(u'!');
    const bool listed = rule.mid(negated ? 1 : 0).split(u',').contains(provider);
    return listed != negated;
}

QList<Option> formOptions(const Backend &backend, const QString &provider)
{
    QList<Option> options;
    for (const Option &option : backend.options) {
        if (!appliesTo(option.provider, provider))
            continue;
        Option shown = option;
        shown.examples.removeIf([&provider](const Example &example) { return !appliesTo(example.provider, provider); });
        options.append(shown);
    }
    const auto rank = [](const Option &option) { return option.required ? 0 : option.advanced ? 2 : 1; };
    std::stable_sort(options.begin(), options.end(),
                     [&rank](const Option &a, const Option &b) { return rank(a) < rank(b); });
    return options;
}

QList<Option> missing(const Backend &backend, const QString &provider, const QMap<QString, QString> &values)
{
    QList<Option> absent;
    for (const Option &option : formOptions(backend, provider)) {
        if (option.required && values.value(option.name).isEmpty())
            absent.append(option);
    }
    return absent;
}

} // namespace BackendCatalog
