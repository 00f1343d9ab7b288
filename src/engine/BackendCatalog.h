#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

// Every kind of storage rclone reaches, with the settings each one takes, as
// `rclone config providers` describes them. Nothing here knows a backend by
// name: a backend a newer rclone adds is described like the others.
namespace BackendCatalog {

struct Example
{
    QString value;
    QString help;
    QString provider; // the providers it applies to, as for an option
    friend bool operator==(const Example &, const Example &) = default;
};

struct Option
{
    QString name;
    QString help;
    QString defaultText; // what rclone uses when it is left empty
    QString type;        // "string", "bool", "int", "SizeSuffix", ...
    QList<Example> examples;
    bool required = false;
    bool isPassword = false;
    bool advanced = false;
    bool exclusive = false; // only the examples' values are allowed
    // For which of the backend's providers it applies (S3's "AWS,Minio",
    // or "!AWS" for all but AWS); empty for all.
    QString provider;
    friend bool operator==(const Option &, const Option &) = default;
};

struct Backend
{
    QString name; // the type given to `config create`
    QString description;
    QList<Option> options; // in rclone's order, those for its configurator only
};

// One option as rclone describes it, in a backend or in a question.
Option parseOption(const QJsonObject &option);

// The JSON of `rclone config providers`; nothing when it is not that.
std::optional<QList<Backend>> parse(const QByteArray &json);

// Whether a rule of providers ("AWS,Minio", "!AWS", "") takes `provider`,
// as rclone reads it. No provider chosen takes every option.
bool appliesTo(const QString &rule, const QString &provider);

// The options of a form for `provider`: the required ones first, then the
// other basic ones, then the advanced ones, each in rclone's order; the
// examples of each likewise those for the provider.
QList<Option> formOptions(const Backend &backend, const QString &provider);

// The required options of the form that `values` leaves empty.
QList<Option> missing(const Backend &backend, const QString &provider, const QMap<QString, QString> &values);

} // namespace BackendCatalog
