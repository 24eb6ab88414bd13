#pragma once

#include <optional>

#include <QString>

// The names of the sync files and the recognition of remote paths. A month file's name is "<year>-<mm>"
// ("2024-03", the month with at least two digits) and its file "2024-03.json"; the deletion file's name is
// "deleted" and its file "deleted.json". Any thread.
class BVSyncFileName
{
public:
    static constexpr auto DeletedName = "deleted";
    static constexpr auto DeletedFileName = "deleted.json";

    // "%lu-%.2lu": 2024-03, 2024-13, 987-01.
    static QString monthName(uint year, uint month);
    // "%@.json" of a name.
    static QString fileName(const QString &name);

    struct Match
    {
        bool isDeletedIndexFile = false;
        uint year = 0; // 0 for the deletion file
        uint month = 0;
    };

    // Recognises a remote path as a month file ("<folder>/2024-03.json": four digits, a dash, two digits,
    // ".json", case-sensitive; any month number 00-99 counts) or, failing that, the deletion file
    // ("<folder>/deleted.json"). The folder part is optional and may start with "/". With a prefix the
    // folder part must be present and equal to it exactly; without one any folder part is accepted.
    // Anything else gives nothing. Digits are ASCII only and the whole path must match (a trailing line
    // break does not).
    static std::optional<Match> match(const QString &path, const std::optional<QString> &pathPrefix);
};
