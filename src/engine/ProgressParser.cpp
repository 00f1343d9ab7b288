#include "engine/ProgressParser.h"

#include <charconv>
#include <cmath>

namespace ProgressParser {
namespace {

const QLatin1String kTransferred("Transferred:");

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}

// Trims spaces and tabs only.
QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && isBlank(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && isBlank(text.back()))
        text.chop(1);
    return text;
}

QString withoutTransferred(QStringView part)
{
    return trimBlanks(part.toString().remove(kTransferred)).toString();
}

// The whole text as a decimal number, or nothing ("-", "15 " and "" are not numbers).
std::optional<double> wholeNumber(const QString &text)
{
    const QByteArray latin1 = text.toLatin1();
    double value = 0;
    const auto [end, error] = std::from_chars(latin1.cbegin(), latin1.cend(), value);
    if (error != std::errc() || end != latin1.cend() || latin1.isEmpty() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

} // namespace

std::optional<SyncProgress> parseLine(QStringView line)
{
    if (!line.startsWith(kTransferred))
        return std::nullopt;

    SyncProgress progress;
    if (line.contains(u'/') && (line.contains(u"B /") || line.contains(u"Bytes"))) {
        // "Transferred:   1.500 MiB / 10 MiB, 15%, 2 MiB/s, ETA 4s"
        const QList<QStringView> parts = line.split(u',');
        if (parts.size() >= 3) {
            progress.sizeString = withoutTransferred(parts[0]);
            const QString percent = trimBlanks(parts[1]).toString().remove(u'%');
            if (const auto number = wholeNumber(percent))
                progress.percentage = *number / 100.0;
            QString rest = parts[2].toString();
            for (qsizetype i = 3; i < parts.size(); ++i) {
                rest += u',';
                rest += parts[i];
            }
            progress.speedAndETA = trimBlanks(rest).toString();
        }
    } else if (line.contains(u'/')) {
        // "Transferred:            3 / 10, 30%": the count; its percentage is not used.
        progress.fileString = withoutTransferred(line.split(u',').front());
    }
    return progress;
}

QList<QStringView> splitStatistics(QStringView line)
{
    QList<QStringView> pieces;
    qsizetype start = 0;
    for (qsizetype at = line.indexOf(kTransferred, 1); at > 0; at = line.indexOf(kTransferred, at + 1)) {
        if (!isBlank(line[at - 1])) {
            pieces.append(line.sliced(start, at - start));
            start = at;
        }
    }
    pieces.append(line.sliced(start));
    return pieces;
}

} // namespace ProgressParser
