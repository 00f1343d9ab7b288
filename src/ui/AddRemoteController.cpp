#include "ui/AddRemoteController.h"

#include "engine/RcloneEngine.h"
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
} // namespace

AddRemoteController::AddRemoteController(QObject *parent)
    : QObject(parent)
{
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
    if (type == m_type)
        return;
    m_type = type;
    Q_EMIT stateChanged();
}

QString AddRemoteController::buttonText() const
{
    switch (m_step) {
    case ConfigStep::Creating:
        return QStringLiteral("Creating…");
    case ConfigStep::Authenticating:
        return QStringLiteral("Waiting for Browser…");
    case ConfigStep::Idle:
        break;
    }
    return QStringLiteral("Add & Authenticate");
}

QVariantList AddRemoteController::providers()
{
    struct Provider
    {
        const char *label;
        const char *type;
        QColor color;
    };
    static const Provider kProviders[] = {
        {"Google Drive", "drive", QColor(0x28, 0xA7, 0x45)}, {"Dropbox", "dropbox", QColor(0x00, 0x61, 0xFF)},
        {"OneDrive", "onedrive", QColor(0x32, 0xAD, 0xE6)},  {"Amazon S3", "s3", QColor(0xFF, 0x95, 0x00)},
        {"WebDAV", "webdav", QColor(0xAF, 0x52, 0xDE)},
    };
    QVariantList providers;
    for (const Provider &provider : kProviders)
        providers.append(QVariantMap{{QStringLiteral("label"), QString::fromLatin1(provider.label)},
                                     {QStringLiteral("type"), QString::fromLatin1(provider.type)},
                                     {QStringLiteral("color"), provider.color}});
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
    Q_EMIT stateChanged();
}

void AddRemoteController::removeHalfMade(const QPointer<AddRemoteController> &self, const QPointer<NimbrellApp> &app,
                                         const QString &name, const QString &message)
{
    if (self && !self->m_isCleaningUp) {
        self->m_isCleaningUp = true;
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
    m_errorMessage.clear();
    setStep(ConfigStep::Creating);
    // The callbacks live as long as the application, not the sheet: a run the
    // closed sheet cancelled still removes the remote it made.
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    // rclone's "config create" replaces a remote of the same name, keys and
    // all, so the name is checked against what rclone has now. Nothing made
    // yet: a failure or a cancel here has nothing to undo.
    m_job = app->engine()->listRemotes(app, [self, app, name](const RcloneResult<QList<CloudRemote>> &remotes) {
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
        self->create(name);
    });
}

void AddRemoteController::create(const QString &name)
{
    const QPointer<AddRemoteController> self(this);
    const QPointer<NimbrellApp> app = m_app;
    // From here on the remote is this attempt's own: only it is ever removed again.
    m_job = app->engine()->createRemote(name, m_type, app, [self, app, name](const RcloneStatus &created) {
        if (created.isCancelled())
            return removeHalfMade(self, app, name, {});
        if (!self)
            return;
        if (!created.ok())
            return self->fail(created.error().description);
        self->setStep(ConfigStep::Authenticating);
        self->m_job = app->engine()->reconnectRemote(name, app, [self, app, name](const RcloneStatus &signedIn) {
            if (signedIn.ok()) {
                if (self) {
                    self->setStep(ConfigStep::Idle);
                    Q_EMIT self->finished();
                }
                return;
            }
            // Refused, failed, or abandoned with the sheet: the remote goes
            // again, and only then is the failure shown.
            removeHalfMade(self, app, name, signedIn.isCancelled() ? QString() : signedIn.error().description);
        });
    });
}

void AddRemoteController::abandon()
{
    if (!isConfiguring())
        return;
    if (m_job) {
        m_job->cancel(); // its end removes the half-made remote
        m_isCleaningUp = true;
    }
    m_step = ConfigStep::Idle;
    Q_EMIT stateChanged();
}
