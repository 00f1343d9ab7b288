#include "ui/AddRemoteController.h"
#include "engine/RemoteCommands.h"

#include "engine/RcloneEngine.h"
#include "sync/ConnectionFailure.h"
#include "ui/RemoteListModel.h"

#include <QColor>
#include <QVariantMap>

#include <algorithm>

namespace {
// The refusal of a name that is already a remote's, or "". Names are
// case-sensitive in rclone's configuration.
QString existingNameRefusal(const QList<CloudRemote> &remotes, const QString &name)
{
    const bool taken = std::any_of(remotes.begin(), remotes.end(),
                                   [&name](const CloudRemote &remote) { return remote.name == name; });
    return taken ? QStringLiteral("A remote named “%1” already exists.").arg(name) : QString();
}

struct Provider
{
    const char *label;
    const char *type; // empty for "More…"
    QColor color;
    bool signIn; // made, then signed in through the browser
};
const Provider kProviders[] = {
    {"Google Drive", "drive", QColor(0x28, 0xA7, 0x45), true},
    {"Dropbox", "dropbox", QColor(0x00, 0x61, 0xFF), true},
    {"OneDrive", "onedrive", QColor(0x32, 0xAD, 0xE6), true},
    {"Amazon S3", "s3", QColor(0xFF, 0x95, 0x00), false},
    {"WebDAV", "webdav", QColor(0xAF, 0x52, 0xDE), false},
    {"More…", "", QColor(0x8E, 0x8E, 0x93), false},
};

const Provider *cardOf(const QString &type)
{
    for (const Provider &provider : kProviders) {
        if (!type.isEmpty() && type == QLatin1String(provider.type))
            return &provider;
    }
    return nullptr;
}
} // namespace

AddRemoteController::AddRemoteController(QObject *parent)
    : QObject(parent)
{
    // A required setting filled in or emptied decides whether Add can be pressed.
    connect(&m_form, &RemoteSettingsForm::valuesChanged, this, &AddRemoteController::stateChanged);
}

AddRemoteController::~AddRemoteController()
{
    abandon();
}

void AddRemoteController::setName(const QString &name)
{
    if (name == m_name)
        return;
    m_name = name;
    Q_EMIT stateChanged();
}

void AddRemoteController::setType(const QString &type)
{
    if (type == m_type || isConfiguring() || m_testFailed)
        return;
    m_type = type;
    m_choosingBackend = false;
    m_errorMessage.clear();
    loadBackend();
    Q_EMIT stateChanged();
}

bool AddRemoteController::needsSettings() const
{
    const Provider *card = cardOf(m_type);
    return !m_type.isEmpty() && !(card && card->signIn);
}

bool AddRemoteController::isOtherBackend() const
{
    return !m_type.isEmpty() && !cardOf(m_type);
}

bool AddRemoteController::canSubmit() const
{
    if (m_name.isEmpty() || m_isCleaningUp || m_choosingBackend)
        return false;
    if (m_step == ConfigStep::Answering)
        return true;
    if (isConfiguring())
        return false;
    return !needsSettings() || (m_form.backend() == m_type && m_form.missing().isEmpty());
}

void AddRemoteController::loadBackend()
{
    if (!needsSettings() || !m_app) {
        m_form.clear();
        return;
    }
    if (m_form.backend() == m_type)
        return;
    m_form.clear();
    m_catalogLoading = true;
    m_catalogError.clear();
    Q_EMIT backendsChanged();
    m_app->remoteConfig()->catalog(this, [this](const RcloneResult<QList<BackendCatalog::Backend>> &catalog) {
        m_catalogLoading = false;
        if (!catalog.ok()) {
            m_catalogError = catalog.error().description;
        } else {
            for (const BackendCatalog::Backend &backend : catalog.value()) {
                if (backend.name == m_type && needsSettings())
                    m_form.setBackend(backend);
            }
        }
        Q_EMIT backendsChanged();
        Q_EMIT stateChanged();
    });
}

void AddRemoteController::chooseOther()
{
    if (isConfiguring() || m_testFailed)
        return;
    m_choosingBackend = true;
    m_backendSearch.clear();
    Q_EMIT stateChanged();
    if (m_app && !m_app->remoteConfig()->cachedCatalog()) {
        m_catalogLoading = true;
        m_app->remoteConfig()->catalog(this, [this](const RcloneResult<QList<BackendCatalog::Backend>> &catalog) {
            m_catalogLoading = false;
            m_catalogError = catalog.errorDescription();
            Q_EMIT backendsChanged();
        });
    }
    Q_EMIT backendsChanged();
}

void AddRemoteController::chooseBackend(const QString &type)
{
    m_choosingBackend = false;
    if (type == m_type)
        return Q_EMIT stateChanged();
    setType(type);
}

void AddRemoteController::setBackendSearch(const QString &search)
{
    if (search == m_backendSearch)
        return;
    m_backendSearch = search;
    Q_EMIT backendsChanged();
}

QVariantList AddRemoteController::backends() const
{
    QVariantList list;
    if (!m_app || !m_app->remoteConfig()->cachedCatalog())
        return list;
    const QString search = m_backendSearch.trimmed();
    for (const BackendCatalog::Backend &backend : *m_app->remoteConfig()->cachedCatalog()) {
        if (!search.isEmpty() && !backend.name.contains(search, Qt::CaseInsensitive)
            && !backend.description.contains(search, Qt::CaseInsensitive))
            continue;
        list.append(QVariantMap{{QStringLiteral("type"), backend.name},
                                {QStringLiteral("description"), backend.description}});
    }
    return list;
}

QVariantMap AddRemoteController::question() const
{
    return m_question ? questionMap(*m_question) : QVariantMap();
}

QVariantMap AddRemoteController::questionMap(const RemoteConfig::Question &question)
{
    const BackendCatalog::Option &option = question.option;
    const QVariantList choices = RemoteSettingsForm::choicesOf(option);
    return {{QStringLiteral("name"), option.name},
            {QStringLiteral("label"), RemoteSettingsForm::labelOf(option.name)},
            {QStringLiteral("help"), option.help.trimmed()},
            {QStringLiteral("kind"), option.isPassword ? QStringLiteral("password")
                                     : choices.isEmpty() ? QStringLiteral("text")
                                                         : QStringLiteral("choice")},
            {QStringLiteral("choices"), choices},
            {QStringLiteral("exclusive"), option.exclusive},
            {QStringLiteral("placeholder"), option.defaultText}};
}

QString AddRemoteController::buttonText() const
{
    switch (m_step) {
    case ConfigStep::Creating:
        return QStringLiteral("Creating…");
    case ConfigStep::Authenticating:
        return QStringLiteral("Waiting for Browser…");
    case ConfigStep::Answering:
        return QStringLiteral("Continue");
    case ConfigStep::Testing:
        return QStringLiteral("Testing Connection…");
    case ConfigStep::Idle:
        break;
    }
    if (m_testFailed)
        return QStringLiteral("Try Again");
    return needsSettings() || m_choosingBackend ? QStringLiteral("Add") : QStringLiteral("Add & Authenticate");
}

QVariantList AddRemoteController::providers()
{
    QVariantList providers;
    for (const Provider &provider : kProviders)
        providers.append(QVariantMap{{QStringLiteral("label"), QString::fromUtf8(provider.label)},
                                     {QStringLiteral("type"), QString::fromLatin1(provider.type)},
                                     {QStringLiteral("color"), provider.color},
                                     {QStringLiteral("signIn"), provider.signIn},
                                     {QStringLiteral("more"), *provider.type == 0}});
    return providers;
}

void AddRemoteController::setStep(ConfigStep step)
{
    m_step = step;
    Q_EMIT stateChanged();
}

void AddRemoteController::fail(const QString &message)
{
    m_errorMessage = message;
    m_isCleaningUp = false;
    setStep(ConfigStep::Idle);
}

void AddRemoteController::reset()
{
    if (isConfiguring() || m_isCleaningUp)
        return; // the run's own end says how it went
    m_name.clear();
    m_type = QStringLiteral("drive");
    m_errorMessage.clear();
    m_choosingBackend = false;
    m_testFailed = false;
    m_made.clear();
    m_form.clear();
    Q_EMIT stateChanged();
}

void AddRemoteController::removeHalfMade(const QPointer<AddRemoteController> &self, const QPointer<NimbrellApp> &app,
                                         QString name, const QString &message)
{
    if (self && !self->m_isCleaningUp) {
        self->m_isCleaningUp = true;
        self->m_made.clear();
        self->m_testFailed = false;
        self->m_question.reset();
        Q_EMIT self->stateChanged();
    }
    // Whether the removal worked or not, the list then shows what rclone has.
    app->engine()->run({QStringLiteral("config"), QStringLiteral("delete"), name}, app,
                       [self, app, message](const RcloneResult<QString> &) {
                           app->remotes()->reload();
                           if (!self)
                               return;
                           if (!message.isEmpty())
                               return self->fail(message);
                           self->m_isCleaningUp = false;
                           Q_EMIT self->stateChanged();
                       });
}

void AddRemoteController::submit()
{
    if (!canSubmit() || !m_app)
        return;
    const QString name = m_name; // as typed: rclone's own rules apply
    // The callbacks live as long as the application, not the sheet: a run the
    // closed sheet cancelled still removes the remote it made.
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    if (m_step == ConfigStep::Answering) {
        const RemoteConfig::Question question = *std::exchange(m_question, std::nullopt);
        m_errorMessage.clear();
        setStep(ConfigStep::Creating);
        m_job = app->remoteConfig()->answer(
            m_made, question, m_answer, app, [self, app, made = m_made](const RcloneResult<RemoteConfig::Answer> &answer) {
                if (!self)
                    return removeHalfMade(self, app, made, {});
                self->answered(made, answer);
            });
        return;
    }
    m_errorMessage.clear();
    setStep(ConfigStep::Creating);
    if (m_testFailed) {
        // Corrected settings: the remote this sheet made is made afresh.
        m_testFailed = false;
        m_job = app->remoteConfig()->remove(m_made, app, [self, name](const RcloneStatus &removed) {
            if (!self)
                return;
            self->m_made.clear();
            if (!removed.ok())
                return self->fail(removed.error().description);
            self->createWithSettings(name);
        });
        return;
    }
    // rclone's "config create" replaces a remote of the same name, keys and
    // all, so the name is checked against what rclone has now. Nothing made
    // yet: a failure or a cancel here has nothing to undo.
    m_job = RemoteCommands::listRemotes(*app->engine(), app, [self, app, name](const RcloneResult<QList<CloudRemote>> &remotes) {
        if (!self)
            return;
        if (remotes.isCancelled()) { // the sheet closed
            self->m_isCleaningUp = false;
            return Q_EMIT self->stateChanged();
        }
        if (!remotes.ok())
            return self->fail(remotes.error().description);
        if (const QString refusal = existingNameRefusal(remotes.value(), name); !refusal.isEmpty())
            return self->fail(refusal);
        if (self->needsSettings())
            return self->createWithSettings(name);
        self->create(name);
    });
}

void AddRemoteController::createWithSettings(const QString &name)
{
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    m_made = name; // from here on the remote is this attempt's own
    m_job = app->remoteConfig()->create(name, m_type, m_form.settings(), app,
                                        [self, app, name](const RcloneResult<RemoteConfig::Answer> &answer) {
                                            if (answer.isCancelled() || !self)
                                                return removeHalfMade(self, app, name, {});
                                            self->answered(name, answer);
                                        });
}

void AddRemoteController::answered(const QString &name, const RcloneResult<RemoteConfig::Answer> &answer)
{
    if (!answer.ok())
        return removeHalfMade(this, m_app, name, answer.isCancelled() ? QString() : answer.error().description);
    if (!answer.value())
        return test(name);
    if (answer.value()->isSignIn())
        return signIn(name, true);
    m_question = answer.value();
    m_answer = m_question->option.isPassword ? QString() : m_question->option.defaultText;
    m_errorMessage = m_question->error;
    setStep(ConfigStep::Answering);
}

void AddRemoteController::signIn(const QString &name, bool thenTest)
{
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    setStep(ConfigStep::Authenticating);
    m_job = RemoteCommands::reconnectRemote(*app->engine(), name, app, [self, app, name, thenTest](const RcloneStatus &signedIn) {
        if (signedIn.ok()) {
            if (self && thenTest)
                return self->test(name);
            if (self) {
                self->m_made.clear();
                self->setStep(ConfigStep::Idle);
                Q_EMIT self->finished();
            }
            return;
        }
        // Refused, failed, or abandoned with the sheet: the remote goes
        // again, and only then is the failure shown.
        removeHalfMade(self, app, name, signedIn.isCancelled() ? QString() : signedIn.error().description);
    });
}

void AddRemoteController::test(const QString &name)
{
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    setStep(ConfigStep::Testing);
    m_job = app->remoteConfig()->test(name, app, [self, app, name](const RcloneStatus &listed) {
        if (listed.isCancelled() || !self)
            return removeHalfMade(self, app, name, {});
        if (listed.ok()) {
            self->m_made.clear();
            self->setStep(ConfigStep::Idle);
            app->remotes()->reload();
            return Q_EMIT self->finished();
        }
        self->m_testFailed = true;
        self->m_errorMessage = ConnectionFailure::read(name, listed.error().description).text();
        self->setStep(ConfigStep::Idle);
    });
}

void AddRemoteController::removeMadeRemote()
{
    if (!m_testFailed || isConfiguring())
        return;
    m_errorMessage.clear();
    removeHalfMade(this, m_app, m_made, {});
}

void AddRemoteController::keepAnyway()
{
    if (!m_testFailed || isConfiguring())
        return;
    m_testFailed = false;
    m_made.clear();
    m_errorMessage.clear();
    if (m_app)
        m_app->remotes()->reload();
    Q_EMIT stateChanged();
    Q_EMIT finished();
}

void AddRemoteController::create(const QString &name)
{
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    // From here on the remote is this attempt's own: only it is ever removed again.
    m_job = RemoteCommands::createRemote(*app->engine(), name, m_type, app, [self, app, name](const RcloneStatus &created) {
        if (created.isCancelled())
            return removeHalfMade(self, app, name, {});
        if (!self)
            return;
        if (!created.ok())
            return self->fail(created.error().description);
        self->signIn(name, false);
    });
}

void AddRemoteController::abandon()
{
    if (!m_made.isEmpty() && (m_testFailed || m_step == ConfigStep::Answering)) {
        // Made, and left untested or unfinished: it goes again.
        m_step = ConfigStep::Idle;
        return removeHalfMade(this, m_app, m_made, {});
    }
    if (!isConfiguring())
        return;
    if (m_job) {
        m_job->cancel(); // its end removes the half-made remote
        m_isCleaningUp = true;
    }
    m_step = ConfigStep::Idle;
    Q_EMIT stateChanged();
}
