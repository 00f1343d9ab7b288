#pragma once

#include "engine/RcloneJob.h"
#include "engine/RemoteConfig.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteSettingsForm.h"

#include <QObject>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

// "Edit Settings…" of a remote's pane: its backend's form, filled with what
// the remote has (a password only as "set"), saved with `config update` and
// checked with one listing. The folders that sync with it are untouched.
class EditRemoteController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app MEMBER m_app NOTIFY stateChanged)
    Q_PROPERTY(QString remoteName MEMBER m_remoteName NOTIFY stateChanged)
    Q_PROPERTY(RemoteSettingsForm *form READ form CONSTANT)
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    // rclone's question, as the add sheet shows it; and the answer typed.
    Q_PROPERTY(QVariantMap question READ question NOTIFY stateChanged)
    Q_PROPERTY(QString answer MEMBER m_answer NOTIFY stateChanged)
    Q_PROPERTY(bool canSave READ canSave NOTIFY stateChanged)

public:
    enum class State { Loading, Editing, Saving, Answering, Testing, Failed };
    Q_ENUM(State)

    explicit EditRemoteController(QObject *parent = nullptr);
    ~EditRemoteController() override;

    RemoteSettingsForm *form() { return &m_form; }
    State state() const { return m_state; }
    const QString &errorMessage() const { return m_errorMessage; }
    QVariantMap question() const;
    bool canSave() const;

    // Reads the remote's settings and its backend's form.
    Q_INVOKABLE void load();
    // Saves what changed (or answers rclone's question), then lists the remote.
    Q_INVOKABLE void save();
    Q_INVOKABLE void cancel();

Q_SIGNALS:
    void stateChanged();
    // Saved, and the remote answered.
    void finished();

private:
    void setState(State state, const QString &error = {});
    void answered(const RcloneResult<RemoteConfig::Answer> &answer);

    QPointer<NimbrellApp> m_app;
    QString m_remoteName;
    RemoteSettingsForm m_form;
    State m_state = State::Loading;
    QString m_errorMessage;
    std::optional<RemoteConfig::Question> m_question;
    QString m_answer;
    QPointer<RcloneJob> m_job;
};
