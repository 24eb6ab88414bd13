#pragma once

#include <QString>

// A "like" pattern compared regardless of case: "*" stands for any run of characters and "?" for one
// character, everything else for itself. The whole text must match. Users type these characters into
// searches and completions, and they act as wildcards there on purpose.
class LikePattern
{
public:
    explicit LikePattern(QString pattern);

    bool matches(QStringView text) const;
    // The same for a text already folded with fold(): a caller matching many patterns against the same
    // texts (a search as one types) folds each text once.
    bool matchesFolded(QStringView foldedText) const;
    static QString fold(QStringView text) { return text.toString().toCaseFolded(); }

private:
    QString m_folded;
};
