#pragma once

#include "engine/RcloneJob.h"
#include "ui/NimbrellApp.h"

#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

// The add-remote sheet: creates a remote with rclone, then runs its browser
// sign-in; a failed sign-in removes the half-made remote again.
class AddRemoteController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app MEMBER m_app NOTIFY appChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY stateChanged)
    Q_PROPERTY(QString type READ type WRITE setType NOTIFY stateChanged)
    Q_PROPERTY(bool isConfiguring READ isConfiguring NOTIFY stateChanged)
    Q_PROPERTY(ConfigStep configStep READ configStep NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    Q_PROPERTY(QString buttonText READ buttonText NOTIFY stateChanged)
    Q_PROPERTY(bool canSubmit READ canSubmit NOTIFY stateChanged)
    // A half-made remote is being removed again.
    Q_PROPERTY(bool isCleaningUp READ isCleaningUp NOTIFY stateChanged)
    Q_PROPERTY(QVariantList providers READ providers CONSTANT)

public:
    enum class ConfigStep { Idle, Creating, Authenticating };
    Q_ENUM(ConfigStep)

    explicit AddRemoteController(QObject *parent = nullptr);
    ~AddRemoteController() override;

    const QString &name() const { return m_name; }
    void setName(const QString &name);
    const QString &type() const { return m_type; }
    void setType(const QString &type);
    bool isConfiguring() const { return m_step != ConfigStep::Idle; }
    ConfigStep configStep() const { return m_step; }
    const QString &errorMessage() const { return m_errorMessage; }
    QString buttonText() const;
    bool isCleaningUp() const { return m_isCleaningUp; }
    bool canSubmit() const { return !m_name.isEmpty() && !isConfiguring() && !m_isCleaningUp; }

    // [{label, type, color}] in display order.
    static QVariantList providers();

    // "Add & Authenticate".
    Q_INVOKABLE void submit();
    // The sheet opens afresh: no name, the first provider, no error.
    Q_INVOKABLE void reset();
    // The sheet is closing: a run under way is stopped, and a remote it
    // created is removed again; the remote list is read once that is done.
    Q_INVOKABLE void abandon();

Q_SIGNALS:
    void appChanged();
    void stateChanged();
    // The remote is ready; the sheet closes.
    void finished();

private:
    void setStep(ConfigStep step);
    void create(const QString &name);
    void fail(const QString &message);
    // Removes the remote a failed or abandoned run made, then reads the
    // remote list and shows `message`, if any.
    static void removeHalfMade(const QPointer<AddRemoteController> &self, const QPointer<NimbrellApp> &app,
                               const QString &name, const QString &message);

    QPointer<NimbrellApp> m_app;
    QString m_name;
    QString m_type = QStringLiteral("drive");
    ConfigStep m_step = ConfigStep::Idle;
    QString m_errorMessage;
    bool m_isCleaningUp = false;
    QPointer<RcloneJob> m_job;
};
