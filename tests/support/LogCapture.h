#pragma once

#include <QStringList>
#include <QtGlobal>

// Keeps every log message while it lives (and passes them on as before).
class LogCapture
{
public:
    LogCapture() : m_previous(qInstallMessageHandler(&LogCapture::handle)) { s_current = this; }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }

    QStringList messages;

    int count(const QString &prefix) const
    {
        return int(std::count_if(messages.begin(), messages.end(), [&](const QString &m) { return m.startsWith(prefix); }));
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        s_current->messages.append(message);
        if (s_current->m_previous)
            s_current->m_previous(type, context, message);
    }

    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous;
};
