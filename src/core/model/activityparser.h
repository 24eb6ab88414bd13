#pragma once

#include <optional>

#include <QString>
#include <QStringView>

#include "model/activitycomponents.h"

// Splits an activity line into the project it names (the first counting "@" word) and its tasks (the "#" words).
// Pure: it reads no store and no settings and keeps no state, so the shared instance may be used from any thread
// at the same time. Every position and length is in UTF-16 code units, as QString counts them.
class ActivityParser
{
public:
    // A cursor over a text. Like the string scanner lines were first parsed with, every scan first skips white
    // space and line breaks; reading the current unit or moving the position skips nothing.
    class Scanner
    {
    public:
        explicit Scanner(QStringView text, qsizetype position = 0)
            : m_text(text)
            , m_position(position)
        {
            Q_ASSERT(position >= 0 && position <= text.size());
        }

        QStringView text() const { return m_text; }
        qsizetype position() const { return m_position; }
        // `position` must lie within 0 and the text's length, both included.
        void setPosition(qsizetype position)
        {
            Q_ASSERT(position >= 0 && position <= m_text.size());
            m_position = position;
        }
        bool isAtEnd() const { return m_position >= m_text.size(); }
        // The unit at the position; the scanner must not be at its end.
        char16_t current() const
        {
            Q_ASSERT(!isAtEnd());
            return m_text[m_position].unicode();
        }

        // Skips white space and line breaks, then moves on to the first unit for which `stopsAt(char16_t)` holds,
        // or to the end. Returns the units moved over after the skip: empty when the scanner already stood on such
        // a unit or at the end.
        template<typename Predicate> QStringView scanUpTo(Predicate stopsAt)
        {
            const qsizetype size = m_text.size();
            while (m_position < size && isWhiteSpaceOrLineBreak(m_text[m_position].unicode()))
                ++m_position;
            const qsizetype start = m_position;
            while (m_position < size && !stopsAt(m_text[m_position].unicode()))
                ++m_position;
            return m_text.sliced(start, m_position - start);
        }

    private:
        QStringView m_text;
        qsizetype m_position = 0;
    };

    // The one parser every caller uses; created on first use, safe to call from any thread.
    static const ActivityParser &defaultParser();

    // The project and tasks named in `text`; `text` itself is kept unchanged in the result, a null `text` giving a
    // null text, no project and no tasks. Never fails: a line that names nothing gives no project and no tasks.
    ActivityComponents componentsFromText(const QString &text) const;

    // Reads the name that starts where `scanner` stands (just after a "@" or "#"). Returns a null QString and leaves
    // the scanner where it was when the unit there ends a word (white space, a line break or one of ";:,?!") or
    // the scanner is at the end. Otherwise moves the scanner past the word and returns it with white space, line
    // breaks and ";:,.?!" trimmed from both ends; a word of only full stops gives the empty name "".
    QString scanWord(Scanner &scanner) const;

    // The "@" or "#" word the caret of a text field stands at the end of, for completion: the text from the word's
    // marker up to `caret` (an index between 0 and the text's length), marker included, such as "@ac". Null when the
    // caret is not at the end of such a word, including when `caret` lies outside the text.
    static QString findCurrentProjectOrTask(const QString &text, qsizetype caret);

    // Whether a UTF-16 unit counts as white space or a line break: the space separators of Unicode (category Zs),
    // the line and paragraph separators U+2028 and U+2029, the controls U+0009 to U+000D and NEL U+0085. This is
    // the white-space-and-newline set lines have always been parsed with, and the set QChar::isSpace() holds; it is
    // spelled out so the scanning loops need no Unicode table. Each unit is judged alone: every member is in the
    // Basic Multilingual Plane, so a surrogate is never one.
    static constexpr bool isWhiteSpaceOrLineBreak(char16_t unit) noexcept
    {
        if (unit > 0x20 && unit < 0x85)
            return false;
        switch (unit) {
        case 0x0009:
        case 0x000A:
        case 0x000B:
        case 0x000C:
        case 0x000D:
        case 0x0020:
        case 0x0085:
        case 0x00A0:
        case 0x1680:
        case 0x2000:
        case 0x2001:
        case 0x2002:
        case 0x2003:
        case 0x2004:
        case 0x2005:
        case 0x2006:
        case 0x2007:
        case 0x2008:
        case 0x2009:
        case 0x200A:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return false;
        }
    }

private:
    ActivityParser() = default;

    // scanWord() without building a string: nullopt for no word, else a view into the scanner's text.
    static std::optional<QStringView> scanName(Scanner &scanner);
};
