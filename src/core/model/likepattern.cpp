#include "model/likepattern.h"

LikePattern::LikePattern(QString pattern)
    : m_folded(pattern.toCaseFolded())
{ }

bool LikePattern::matches(QStringView text) const
{
    return matchesFolded(fold(text));
}

bool LikePattern::matchesFolded(QStringView folded) const
{
    // Iterative matching with one backtrack point per "*": linear in practice, and never recursive, so a
    // long pattern full of stars cannot exhaust the stack.
    qsizetype p = 0;
    qsizetype t = 0;
    qsizetype starAt = -1;
    qsizetype resumeAt = 0;
    const qsizetype pn = m_folded.size();
    const qsizetype tn = folded.size();
    while (t < tn) {
        if (p < pn && m_folded.at(p) == QLatin1Char('*')) {
            starAt = p++;
            resumeAt = t;
        } else if (p < pn && (m_folded.at(p) == QLatin1Char('?') || m_folded.at(p) == folded.at(t))) {
            ++p;
            ++t;
        } else if (starAt >= 0) {
            p = starAt + 1;
            t = ++resumeAt;
        } else {
            return false;
        }
    }
    while (p < pn && m_folded.at(p) == QLatin1Char('*'))
        ++p;
    return p == pn;
}
