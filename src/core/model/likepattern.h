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

private:
    QString m_folded;
};
