#include "ui/RemoteSettingsForm.h"

#include <QVariantMap>

namespace {

using BackendCatalog::Option;

QString firstLine(const QString &text)
{
    return text.section(u'\n', 0, 0).trimmed();
}

QString kindOf(const Option &option)
{
    if (option.isPassword)
        return QStringLiteral("password");
    if (!option.examples.isEmpty())
        return QStringLiteral("choice");
    if (option.type == u"bool")
        return QStringLiteral("bool");
    return QStringLiteral("text");
}

} // namespace

RemoteSettingsForm::RemoteSettingsForm(QObject *parent)
    : QAbstractListModel(parent)
{
}

int RemoteSettingsForm::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_options.size());
}

QVariant RemoteSettingsForm::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Option &option = m_options.at(index.row());
    switch (role) {
    case NameRole: return option.name;
    case LabelRole: return labelOf(option.name);
    case HintRole: return firstLine(option.help);
    case HelpRole: return option.help.trimmed();
    case PlaceholderRole: return option.defaultText;
    case KindRole: return kindOf(option);
    case ChoicesRole: return choicesOf(option);
    case ExclusiveRole: return option.exclusive;
    case RequiredRole: return option.required;
    case AdvancedRole: return option.advanced;
    case ValueRole: return value(option.name);
    case IsSetRole: return option.isPassword && !m_current.value(option.name).isEmpty();
    case DecidesFormRole: return option.name == u"provider";
    case ChoiceIndexRole: {
        const QString current = value(option.name);
        for (qsizetype i = 0; i < option.examples.size(); ++i) {
            if (option.examples.at(i).value == current)
                return int(i);
        }
        return -1;
    }
    default: return {};
    }
}

QHash<int, QByteArray> RemoteSettingsForm::roleNames() const
{
    return {{NameRole, "name"},         {LabelRole, "label"},         {HintRole, "hint"},
            {HelpRole, "help"},         {PlaceholderRole, "placeholder"}, {KindRole, "kind"},
            {ChoicesRole, "choices"},   {ExclusiveRole, "exclusive"}, {RequiredRole, "required"},
            {AdvancedRole, "advanced"}, {ValueRole, "value"},         {IsSetRole, "isSet"},
            {ChoiceIndexRole, "choiceIndex"}, {DecidesFormRole, "decidesForm"}};
}

void RemoteSettingsForm::setBackend(const BackendCatalog::Backend &backend, const QMap<QString, QString> &current)
{
    m_backend = backend;
    m_current = current;
    m_values.clear();
    rebuild();
    Q_EMIT formChanged();
    Q_EMIT valuesChanged();
}

void RemoteSettingsForm::clear()
{
    setBackend({}, {});
}

int RemoteSettingsForm::advancedCount() const
{
    return int(std::count_if(m_options.begin(), m_options.end(), [](const Option &option) { return option.advanced; }));
}

void RemoteSettingsForm::rebuild()
{
    beginResetModel();
    m_options = BackendCatalog::formOptions(m_backend, provider());
    endResetModel();
}

void RemoteSettingsForm::setValue(const QString &name, const QString &value)
{
    if (this->value(name) == value && (m_values.contains(name) || !value.isEmpty()))
        return;
    const QString providerBefore = provider();
    m_values.insert(name, value);
    if (provider() != providerBefore) {
        rebuild(); // other settings apply now
        Q_EMIT formChanged();
    } else if (const qsizetype row = std::find_if(m_options.begin(), m_options.end(),
                                                  [&name](const Option &o) { return o.name == name; })
                   - m_options.begin();
               row < m_options.size()) {
        Q_EMIT dataChanged(index(int(row)), index(int(row)), {ValueRole, ChoiceIndexRole});
    }
    Q_EMIT valuesChanged();
}

QString RemoteSettingsForm::value(const QString &name) const
{
    if (m_values.contains(name))
        return m_values.value(name);
    const bool isPassword = std::any_of(m_backend.options.begin(), m_backend.options.end(),
                                        [&name](const Option &o) { return o.name == name && o.isPassword; });
    return isPassword ? QString() : m_current.value(name);
}

QList<Option> RemoteSettingsForm::missing() const
{
    QList<Option> absent;
    for (const Option &option : m_options) {
        const bool isSet = !value(option.name).isEmpty() || (option.isPassword && !m_current.value(option.name).isEmpty());
        if (option.required && !isSet)
            absent.append(option);
    }
    return absent;
}

QStringList RemoteSettingsForm::missingNames() const
{
    QStringList names;
    for (const Option &option : missing())
        names.append(option.name);
    return names;
}

RemoteConfig::Settings RemoteSettingsForm::settings() const
{
    RemoteConfig::Settings settings;
    for (const Option &option : m_options) {
        if (!m_values.contains(option.name))
            continue;
        const QString typed = m_values.value(option.name);
        // A password left empty keeps the one set; a new remote has none.
        if (option.isPassword && typed.isEmpty())
            continue;
        const bool changed = m_current.isEmpty() ? !typed.isEmpty() : typed != m_current.value(option.name);
        if (changed || option.isPassword)
            settings.append({option.name, typed});
    }
    return settings;
}

QVariantList RemoteSettingsForm::choicesOf(const BackendCatalog::Option &option)
{
    QVariantList choices;
    for (const BackendCatalog::Example &example : option.examples) {
        const QString help = firstLine(example.help);
        choices.append(QVariantMap{{QStringLiteral("value"), example.value},
                                   {QStringLiteral("label"), help.isEmpty() || help == example.value
                                                                 ? example.value
                                                                 : example.value + QStringLiteral(" — ") + help}});
    }
    return choices;
}

QString RemoteSettingsForm::labelOf(const QString &name)
{
    static const QStringList kAcronyms{QStringLiteral("id"),  QStringLiteral("url"), QStringLiteral("acl"),
                                       QStringLiteral("sse"), QStringLiteral("kms"), QStringLiteral("api"),
                                       QStringLiteral("http"), QStringLiteral("ssh"), QStringLiteral("tls"),
                                       QStringLiteral("md5"),  QStringLiteral("sha1"), QStringLiteral("uri")};
    QStringList words = name.split(u'_', Qt::SkipEmptyParts);
    for (QString &word : words) {
        if (kAcronyms.contains(word))
            word = word.toUpper();
    }
    QString label = words.join(u' ');
    if (!label.isEmpty())
        label[0] = label[0].toUpper();
    return label;
}
