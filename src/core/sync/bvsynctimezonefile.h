#pragma once

#include <expected>

#include <QByteArray>
#include <QString>

// "timezone.json" beside the month files: the time zone every machine of the journal reads and writes the
// sync files in, as {"timeZone":"Europe/Berlin"} (an IANA id). The first machine that syncs records its
// own zone; every later one adopts the recorded zone, so a machine on a trip shifts nothing and a month's
// content hash does not depend on where a machine is. Readers that predate the file ignore it like any
// other name that is not a sync file. Any thread.
class BVSyncTimeZoneFile
{
public:
    static constexpr auto FileName = "timezone.json";

    // The file's bytes for `zoneId`: compact UTF-8 JSON.
    static QByteArray json(const QByteArray &zoneId);

    // The zone id the file names; the reason when it is not a JSON object whose "timeZone" is a string
    // naming a zone this machine knows.
    static std::expected<QByteArray, QString> read(const QByteArray &content);

    // What this machine records when the folder holds no zone yet: the system zone when it has an IANA id
    // that the zone database holds (TZ=Europe/Berlin, /etc/localtime, links such as "US/Pacific"),
    // otherwise "UTC": a POSIX rule string ("CET-1CEST,M3.5.0...") is no name another machine can check.
    static QByteArray proposedZoneId();
};
