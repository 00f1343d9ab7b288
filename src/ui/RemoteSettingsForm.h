#pragma once

#include "engine/BackendCatalog.h"
#include "engine/RemoteConfig.h"

#include <QAbstractListModel>
#include <QMap>
#include <QtQml/qqmlregistration.h>

// A backend's settings as a form, built from what rclone says of them: the
// required ones first, then the basic, then the advanced ones; examples as
// choices, passwords hidden, defaults as placeholders. A backend with
// providers (S3's "provider") shows only the settings of the one chosen.
// When it edits a remote, the form starts from the remote's values and
// passes on only what was changed; passwords set are never shown.
class RemoteSettingsForm : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("owned by a sheet's controller")
    Q_PROPERTY(QString backend READ backend NOTIFY formChanged)
    Q_PROPERTY(QString description READ description NOTIFY formChanged)
    Q_PROPERTY(int advancedCount READ advancedCount NOTIFY formChanged)
    // The required settings still empty, by name.
    Q_PROPERTY(QStringList missing READ missingNames NOTIFY valuesChanged)

public:
    enum Role {
        NameRole = Qt::UserRole + 1,
        LabelRole,
        HintRole,     // the help's first line
        HelpRole,     // all of it
        PlaceholderRole,
        KindRole,     // "text", "password", "choice", "bool"
        ChoicesRole,  // [{value, label}]
        ExclusiveRole,
        RequiredRole,
        AdvancedRole,
        ValueRole,
        IsSetRole,    // a password the remote has already
        ChoiceIndexRole,
        DecidesFormRole, // the provider: set once typed, not at each key
    };

    explicit RemoteSettingsForm(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // A new form; `current`: the remote's settings when it edits one.
    void setBackend(const BackendCatalog::Backend &backend, const QMap<QString, QString> &current = {});
    void clear();
    const QString &backend() const { return m_backend.name; }
    const QString &description() const { return m_backend.description; }
    int advancedCount() const;

    Q_INVOKABLE void setValue(const QString &name, const QString &value);
    QString value(const QString &name) const;
    // The provider chosen, which decides which settings apply.
    QString provider() const { return value(QStringLiteral("provider")); }
    QList<BackendCatalog::Option> missing() const;
    QStringList missingNames() const;
    // What to give rclone: for a new remote every setting filled in; for
    // one edited, each setting changed. In the form's order.
    RemoteConfig::Settings settings() const;

    // An option's examples as the sheets offer them: [{value, label}].
    static QVariantList choicesOf(const BackendCatalog::Option &option);
    // "access_key_id" as "Access key ID".
    static QString labelOf(const QString &name);

Q_SIGNALS:
    void formChanged();
    void valuesChanged();

private:
    void rebuild();

    BackendCatalog::Backend m_backend;
    QList<BackendCatalog::Option> m_options; // shown, in order
    QMap<QString, QString> m_current;        // the remote's, when editing
    QMap<QString, QString> m_values;         // typed here
};
