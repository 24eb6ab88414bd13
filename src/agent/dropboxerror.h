#pragma once

#include <QString>
#include <QStringList>

#include "agent/dropboxhttpclient.h"

// A final answer other than success, read the way Dropbox means it: the chain of union tags of its JSON
// error ({"path","conflict","file"}, {"reset"}, {"expired_access_token"}; never the error_summary, whose
// ending varies) and one text for the user that names what failed, Dropbox's summary and what it means.
// Texts of authorisation failures start with the tag ("expired_access_token: ...",
// "invalid_access_token: ...") so a client can refresh the token or ask to connect again.
class DropboxError
{
public:
    // `action` names what failed for the text, e.g. "Upload of 2024-03.json".
    static DropboxError fromResponse(const QString &action, const DropboxHttpClient::Response &response);

    const QStringList &tags() const { return m_tags; }
    // Whether the tag chain starts with `prefix`.
    bool is(const QStringList &prefix) const;
    int status() const { return m_status; }
    const QString &text() const { return m_text; }

private:
    static QString meaning(const QStringList &tags);

    QStringList m_tags;
    int m_status = 0;
    QString m_text;
};
