#include "model/activityparser.h"

#include <algorithm>

#include <QStringList>
#include <QVarLengthArray>

namespace {

constexpr bool isProjectTaskChar(char16_t unit) noexcept
{
    return unit == u'@' || unit == u'#';
}

// A marker counts only after one of these (or at the start of the line), so "me@home" names no project; they are
// also trimmed from both ends of a name.
constexpr bool isTrimEndChar(char16_t unit) noexcept
{
    switch (unit) {
    case u';':
    case u':':
    case u',':
    case u'.':
    case u'?':
    case u'!':
        return true;
    default:
        return ActivityParser::isWhiteSpaceOrLineBreak(unit);
    }
}

// The units that end a name. The full stop is not among them so that a name may hold dots, a domain name as
// project for instance; trimming still drops a full stop that ends the sentence.
constexpr bool isNotWordChar(char16_t unit) noexcept
{
    switch (unit) {
    case u';':
    case u':':
    case u',':
    case u'?':
    case u'!':
        return true;
    default:
        return ActivityParser::isWhiteSpaceOrLineBreak(unit);
    }
}

// The completion word search also stops at a full stop, unlike the parser: a dotted name such as "@acme.co" is not
// completed past its dot.
constexpr bool isCompletionSeparator(char16_t unit) noexcept
{
    switch (unit) {
    case u';':
    case u':':
    case u',':
    case u'.':
    case u'?':
    case u'!':
    case u' ':
        return true;
    default:
        return ActivityParser::isWhiteSpaceOrLineBreak(unit);
    }
}

QStringView trimmedName(QStringView word)
{
    qsizetype begin = 0;
    qsizetype end = word.size();
    while (begin < end && isTrimEndChar(word[begin].unicode()))
        ++begin;
    while (end > begin && isTrimEndChar(word[end - 1].unicode()))
        --end;
    return word.sliced(begin, end - begin);
}

// A name that trimmed down to nothing is still a name, so it must come out empty and never null.
QString nameString(QStringView name)
{
    if (name.isEmpty())
        return QStringLiteral("");
    return name.toString();
}

} // namespace

const ActivityParser &ActivityParser::defaultParser()
{
    static const ActivityParser parser;
    return parser;
}

ActivityComponents ActivityParser::componentsFromText(const QString &text) const
{
    const qsizetype length = text.size();
    if (text.isNull() || length < 2)
        return ActivityComponents::componentsWithText(text, QString(), QStringList());

    // Names stay views into the line until the end, so a duplicate task or a later "@" word costs no allocation.
    std::optional<QStringView> project;
    QVarLengthArray<QStringView, 8> tasks;

    // Nothing at or after length - 2 is read as a marker: a name at the very end of a line needs two units, and a
    // line of two units names nothing at all. Emoji count as two units here.
    const qsizetype limit = length - 2;
    Scanner scanner(text);
    while (scanner.position() < limit) {
        scanner.scanUpTo(isProjectTaskChar);
        const qsizetype markerPosition = scanner.position();
        if (markerPosition >= limit)
            continue;

        const bool counts = markerPosition == 0 || isTrimEndChar(text[markerPosition - 1].unicode());
        scanner.setPosition(markerPosition + 1);
        if (!counts)
            continue;

        if (text[markerPosition] == u'@') {
            // Only the first "@" word that yields a name is the project; later ones are walked over as plain text.
            if (!project)
                project = scanName(scanner);
        } else if (const std::optional<QStringView> name = scanName(scanner)) {
            // The first spelling of a task wins; later spellings differing only in case are the same task.
            const bool known = std::any_of(tasks.cbegin(), tasks.cend(),
                [&name](QStringView task) { return task.compare(*name, Qt::CaseInsensitive) == 0; });
            if (!known)
                tasks.append(*name);
        }
    }

    QStringList taskNames;
    if (!tasks.isEmpty()) {
        taskNames.reserve(tasks.size());
        for (const QStringView task : tasks)
            taskNames.append(nameString(task));
    }
    return ActivityComponents::componentsWithText(
        text, project ? nameString(*project) : QString(), std::move(taskNames));
}

QString ActivityParser::scanWord(Scanner &scanner) const
{
    const std::optional<QStringView> name = scanName(scanner);
    return name ? nameString(*name) : QString();
}

std::optional<QStringView> ActivityParser::scanName(Scanner &scanner)
{
    // Checked here rather than left to the scan, which would skip a blank and take the next word: "@ work" names
    // no project.
    if (scanner.isAtEnd() || isNotWordChar(scanner.current()))
        return std::nullopt;
    return trimmedName(scanner.scanUpTo(isNotWordChar));
}

QString ActivityParser::findCurrentProjectOrTask(const QString &text, qsizetype caret)
{
    const qsizetype length = text.size();
    if (caret <= 0 || caret > length)
        return QString();

    // The word starts one past the last separator before the caret, or at 0 when there is none. A separator at
    // index 0 also gives 0, so a line that begins with a blank never offers completion for its first word.
    qsizetype start = 0;
    for (qsizetype i = caret - 1; i > 0; --i) {
        if (isCompletionSeparator(text[i].unicode())) {
            start = i + 1;
            break;
        }
    }
    if (start >= length - 1)
        return QString();
    if (!isProjectTaskChar(text[start].unicode()))
        return QString();

    // The caret must end the word: it stands on the next separator, or at the end of the text when none follows.
    qsizetype end = start;
    while (end < length && !isCompletionSeparator(text[end].unicode()))
        ++end;
    if (end != caret)
        return QString();
    return text.sliced(start, caret - start);
}
