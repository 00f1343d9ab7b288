#include "engine/RcloneOutput.h"

#include <QRegularExpression>
#include <QStringDecoder>

namespace RcloneOutput {

QString stripAnsi(QString text)
{
    static const QRegularExpression ansi(QStringLiteral("\x1b\\[[0-9;]*[A-Za-z]"));
    return text.remove(ansi);
}

QStringList nonEmptyLines(const QString &text)
{
    static const QRegularExpression lineBreak(QStringLiteral("[\\n\\r\\x{2028}\\x{2029}\\x{85}\\v\\f]"));
    return text.split(lineBreak, Qt::SkipEmptyParts);
}

QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && (text.front() == u' ' || text.front() == u'\t'))
        text = text.sliced(1);
    while (!text.isEmpty() && (text.back() == u' ' || text.back() == u'\t'))
        text.chop(1);
    return text;
}

QString decodeUtf8OrEmpty(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

QString describeArguments(const QStringList &arguments)
{
    const bool configures = arguments.size() > 2 && arguments.first() == u"config"
        && (arguments.at(1) == u"create" || arguments.at(1) == u"update");
    QStringList quoted;
    quoted.reserve(arguments.size());
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString argument = arguments.at(i);
        if (configures && i > 2 && argument.contains(u'=') && !argument.startsWith(u'-'))
            argument = argument.first(argument.indexOf(u'=') + 1) + u'…';
        else if (configures && i > 0 && arguments.at(i - 1) == u"--result")
            argument = QStringLiteral("…");
        argument.replace(u'\\', QStringLiteral("\\\\")).replace(u'"', QStringLiteral("\\\""));
        quoted.append(u'"' + argument + u'"');
    }
    return u'[' + quoted.join(QStringLiteral(", ")) + u']';
}

} // namespace RcloneOutput
