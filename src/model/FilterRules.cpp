#include "model/FilterRules.h"

std::optional<QString> FilterRules::regexOf(const QString &glob)
{
    QString re;
    QStringView rest(glob);
    if (rest.startsWith(u'/')) {
        rest = rest.mid(1);
        re += u'^';
    } else {
        re += QStringLiteral("(^|/)");
    }
    int stars = 0;
    const auto insertStars = [&] {
        if (stars == 1)
            re += QStringLiteral("[^/]*");
        else if (stars == 2)
            re += QStringLiteral(".*");
        const bool ok = stars <= 2;
        stars = 0;
        return ok;
    };
    int brackets = 0;
    bool braces = false, escaped = false;
    for (const QChar c : rest) {
        if (escaped) {
            re += QRegularExpression::escape(QString(c));
            escaped = false;
            continue;
        }
        if (c != u'*' && !insertStars())
            return std::nullopt;
        if (brackets > 0) {
            re += c;
            brackets += c == u'[' ? 1 : c == u']' ? -1 : 0;
            continue;
        }
        switch (c.unicode()) {
        case u'\\': escaped = true; break;
        case u'*': ++stars; break;
        case u'?': re += QStringLiteral("[^/]"); break;
        case u'[': re += c; ++brackets; break;
        case u']': return std::nullopt;
        case u'{':
            if (braces)
                return std::nullopt;
            braces = true;
            re += u'(';
            break;
        case u'}':
            if (!braces)
                return std::nullopt;
            braces = false;
            re += u')';
            break;
        case u',': re += braces ? QChar(u'|') : c; break;
        case u'.': case u'+': case u'(': case u')': case u'|': case u'^': case u'$':
            re += u'\\';
            re += c;
            break;
        default: re += c;
        }
    }
    if (!insertStars() || brackets > 0 || braces || escaped)
        return std::nullopt;
    return re + u'$';
}

FilterRules FilterRules::fromArguments(const QStringList &arguments)
{
    FilterRules rules;
    for (qsizetype i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments.at(i) != u"--exclude")
            continue;
        QString glob = arguments.at(++i);
        // Excluding "dir/" is excluding "dir/**": the directory and all it holds.
        const bool directoryOnly = glob.endsWith(u'/');
        if (directoryOnly)
            glob += QStringLiteral("**");
        const std::optional<QString> re = regexOf(glob);
        if (!re)
            continue;
        const QRegularExpression expression(*re);
        if (!expression.isValid())
            continue;
        if (!directoryOnly)
            rules.m_fileRules.append(expression);
        if (directoryOnly || glob.contains(QLatin1String("**")))
            rules.m_directoryRules.append(expression);
    }
    return rules;
}

bool FilterRules::excludes(const QString &path, bool isDirectory) const
{
    const auto any = [](const QList<QRegularExpression> &rules, const QString &subject) {
        return std::any_of(rules.begin(), rules.end(),
                           [&subject](const QRegularExpression &rule) { return rule.match(subject).hasMatch(); });
    };
    if (isDirectory ? any(m_directoryRules, path + u'/') : any(m_fileRules, path))
        return true;
    // The directories above it, each as "dir/".
    for (qsizetype slash = path.indexOf(u'/'); slash >= 0; slash = path.indexOf(u'/', slash + 1)) {
        if (any(m_directoryRules, path.left(slash + 1)))
            return true;
    }
    return false;
}
