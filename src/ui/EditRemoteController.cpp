#include "ui/EditRemoteController.h"

#include "sync/ConnectionFailure.h"
#include "ui/AddRemoteController.h"
#include "ui/RemoteListModel.h"

EditRemoteController::EditRemoteController(QObject *parent)
    : QObject(parent)
{
    connect(&m_form, &RemoteSettingsForm::valuesChanged, this, &EditRemoteController::stateChanged);
}

EditRemoteController::~EditRemoteController()
{
    cancel();
}

QVariantMap EditRemoteController::question() const
{
    return m_question ? AddRemoteController::questionMap(*m_question) : QVariantMap();
}

bool EditRemoteController::canSave() const
{
    if (m_state == State::Answering)
        return true;
    return (m_state == State::Editing || m_state == State::Failed) && !m_form.backend().isEmpty()
        && m_form.missing().isEmpty();
}

void EditRemoteController::setState(State state, const QString &error)
{
    m_state = state;
    m_errorMessage = error;
    Q_EMIT stateChanged();
}

void EditRemoteController::load()
{
    if (!m_app || m_remoteName.isEmpty())
        return;
    cancel();
    m_form.clear();
    setState(State::Loading);
    m_job = m_app->remoteConfig()->settings(m_remoteName, this, [this](const RcloneResult<QMap<QString, QString>> &settings) {
        if (!settings.ok())
            return setState(State::Failed, settings.error().description);
        m_app->remoteConfig()->catalog(this, [this, current = settings.value()](
                                                 const RcloneResult<QList<BackendCatalog::Backend>> &catalog) {
            if (!catalog.ok())
                return setState(State::Failed, catalog.error().description);
            const QString type = current.value(QStringLiteral("type"));
            for (const BackendCatalog::Backend &backend : catalog.value()) {
                if (backend.name == type) {
                    m_form.setBackend(backend, current);
                    return setState(State::Editing);
                }
            }
            setState(State::Failed, QStringLiteral("This rclone does not know the storage kind “%1”.").arg(type));
        });
    });
}

void EditRemoteController::save()
{
    if (!canSave() || !m_app)
        return;
    const auto done = [this](const RcloneResult<RemoteConfig::Answer> &answer) { answered(answer); };
    if (m_state == State::Answering) {
        const RemoteConfig::Question question = *std::exchange(m_question, std::nullopt);
        setState(State::Saving);
        m_job = m_app->remoteConfig()->answer(m_remoteName, question, m_answer, this, done);
        return;
    }
    setState(State::Saving);
    m_job = m_app->remoteConfig()->update(m_remoteName, m_form.settings(), this, done);
}

void EditRemoteController::answered(const RcloneResult<RemoteConfig::Answer> &answer)
{
    if (answer.isCancelled())
        return;
    if (!answer.ok())
        return setState(State::Failed, answer.error().description);
    if (answer.value() && !answer.value()->isSignIn()) {
        m_question = answer.value();
        m_answer = m_question->option.isPassword ? QString() : m_question->option.defaultText;
        return setState(State::Answering, m_question->error);
    }
    // Saved: the form now starts from what the remote has.
    setState(State::Testing);
    m_job = m_app->remoteConfig()->test(m_remoteName, this, [this](const RcloneStatus &listed) {
        if (listed.isCancelled())
            return;
        m_app->remotes()->reload();
        if (!listed.ok())
            return setState(State::Failed, QStringLiteral("Saved, but the remote did not answer.\n")
                                               + ConnectionFailure::read(m_remoteName, listed.error().description).text());
        setState(State::Editing);
        Q_EMIT finished();
    });
}

void EditRemoteController::cancel()
{
    if (m_job)
        m_job->cancel();
    m_question.reset();
}
