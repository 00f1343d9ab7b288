#pragma once

#include "engine/RcloneJob.h"
#include "engine/RemoteConfig.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteSettingsForm.h"

#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

// The add-remote sheet. Google Drive, Dropbox and OneDrive: the remote is
// made, then its browser sign-in runs; a failed sign-in removes it again.
// Every other backend (S3 and WebDAV, or any from "More…"): the sheet asks
// for its settings, makes the remote with them, answers the questions rclone
// asks back, and lists the remote once before it is kept. A failed listing
// leaves the choice to correct the settings, remove the remote or keep it.
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
    // The chosen backend takes settings, shown in `form`.
    Q_PROPERTY(bool needsSettings READ needsSettings NOTIFY stateChanged)
    // The backend is none of the five cards' own.
    Q_PROPERTY(bool isOtherBackend READ isOtherBackend NOTIFY stateChanged)
    Q_PROPERTY(RemoteSettingsForm *form READ form CONSTANT)
    // "More…": the list of every backend, filtered by `backendSearch`.
    Q_PROPERTY(bool choosingBackend READ choosingBackend NOTIFY stateChanged)
    Q_PROPERTY(QString backendSearch READ backendSearch WRITE setBackendSearch NOTIFY backendsChanged)
    Q_PROPERTY(QVariantList backends READ backends NOTIFY backendsChanged)
    // rclone's list of backends is being read, or why it could not be.
    Q_PROPERTY(bool catalogLoading READ catalogLoading NOTIFY backendsChanged)
    Q_PROPERTY(QString catalogError READ catalogError NOTIFY backendsChanged)
    // rclone's question while `configStep` is Answering: {name, label, help,
    // kind, choices, exclusive, placeholder}; and the answer typed.
    Q_PROPERTY(QVariantMap question READ question NOTIFY stateChanged)
    Q_PROPERTY(QString answer MEMBER m_answer NOTIFY stateChanged)
    // The new remote did not answer; it stays until the user decides.
    Q_PROPERTY(bool testFailed READ testFailed NOTIFY stateChanged)

public:
    enum class ConfigStep { Idle, Creating, Authenticating, Answering, Testing };
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
    bool canSubmit() const;
    bool needsSettings() const;
    bool isOtherBackend() const;
    RemoteSettingsForm *form() { return &m_form; }
    bool choosingBackend() const { return m_choosingBackend; }
    const QString &backendSearch() const { return m_backendSearch; }
    void setBackendSearch(const QString &search);
    QVariantList backends() const;
    bool catalogLoading() const { return m_catalogLoading; }
    const QString &catalogError() const { return m_catalogError; }
    QVariantMap question() const;
    bool testFailed() const { return m_testFailed; }

    // [{label, type, color, signIn, more}] in display order.
    static QVariantList providers();
    // A question of rclone's as the sheets show it.
    static QVariantMap questionMap(const RemoteConfig::Question &question);

    // The main button: add, answer, or try again.
    Q_INVOKABLE void submit();
    // The sheet opens afresh: no name, the first provider, no error.
    Q_INVOKABLE void reset();
    // The sheet is closing: a run under way is stopped, and a remote it
    // created is removed again; the remote list is read once that is done.
    Q_INVOKABLE void abandon();
    // "More…" opens the list of backends; choosing one closes it.
    Q_INVOKABLE void chooseOther();
    Q_INVOKABLE void chooseBackend(const QString &type);
    // After a failed connection test.
    Q_INVOKABLE void removeMadeRemote();
    Q_INVOKABLE void keepAnyway();

Q_SIGNALS:
    void appChanged();
    void stateChanged();
    void backendsChanged();
    // The remote is ready; the sheet closes.
    void finished();

private:
    void setStep(ConfigStep step);
    void create(const QString &name);
    void createWithSettings(const QString &name);
    void answered(const QString &name, const RcloneResult<RemoteConfig::Answer> &answer);
    void signIn(const QString &name, bool thenTest);
    void test(const QString &name);
    void loadBackend();
    void fail(const QString &message);
    // Removes the remote a failed or abandoned run made (`name` a copy: the
    // sheet forgets its own), then reads the
    // remote list and shows `message`, if any.
    static void removeHalfMade(const QPointer<AddRemoteController> &self, const QPointer<NimbrellApp> &app,
                               QString name, const QString &message);

    QPointer<NimbrellApp> m_app;
    QString m_name;
    QString m_type = QStringLiteral("drive");
    ConfigStep m_step = ConfigStep::Idle;
    QString m_errorMessage;
    bool m_isCleaningUp = false;
    QPointer<RcloneJob> m_job;
    RemoteSettingsForm m_form;
    bool m_choosingBackend = false;
    QString m_backendSearch;
    bool m_catalogLoading = false;
    QString m_catalogError;
    std::optional<RemoteConfig::Question> m_question;
    QString m_answer;
    QString m_made; // the remote this sheet made and has not finished
    bool m_testFailed = false;
};
