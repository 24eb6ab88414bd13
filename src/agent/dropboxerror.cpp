#include "agent/dropboxerror.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// Follows a union value down its members: a member carrying a union sits under a key named like its tag,
// a member carrying a struct has its fields inlined (upload's {"reason": WriteError}), and a rate-limit
// error is a struct whose "reason" is the union.
QStringList tagChain(QJsonObject value)
{
    QStringList tags;
    for (int depth = 0; depth < 8; ++depth) {
        const QString tag = value.value(u".tag"_s).toString();
        if (!tag.isEmpty())
            tags.append(tag);
        if (!tag.isEmpty() && value.value(tag).isObject())
            value = value.value(tag).toObject();
        else if (value.value(u"reason"_s).isObject())
            value = value.value(u"reason"_s).toObject();
        else
            break;
    }
    return tags;
}

QString trimmedSummary(QString summary)
{
    while (summary.endsWith(u'.') || summary.endsWith(u'/'))
        summary.chop(1);
    return summary;
}

QString firstLine(const QByteArray &body)
{
    QString text = QString::fromUtf8(body).section(u'\n', 0, 0).trimmed();
    if (text.size() > 300)
        text = text.left(300) + u"…"_s;
    return text;
}

} // namespace

DropboxError DropboxError::fromResponse(const QString &action, const DropboxHttpClient::Response &response)
{
    DropboxError error;
    error.m_status = response.status;
    const QJsonObject body = QJsonDocument::fromJson(response.body).object();
    QString summary;
    if (body.value(u"error"_s).isObject()) {
        error.m_tags = tagChain(body.value(u"error"_s).toObject());
        summary = trimmedSummary(body.value(u"error_summary"_s).toString());
    } else if (body.value(u"error"_s).isString()) {
        // The token endpoint answers in OAuth 2's own shape.
        error.m_tags = QStringList { body.value(u"error"_s).toString() };
        summary = body.value(u"error"_s).toString();
        const QString description = body.value(u"error_description"_s).toString();
        if (!description.isEmpty())
            summary += u": "_s + description;
    }
    if (summary.isEmpty())
        summary = error.m_tags.join(u'/');

    const QString tag = error.m_tags.value(0);
    const int status = response.status;
    if (status == 0) {
        error.m_text = u"%1 failed: could not reach Dropbox (%2), %3 attempts"_s.arg(action, response.transportError)
                           .arg(response.attempts);
    } else if (status == 401 || (status == 400 && tag == u"invalid_grant"_s)) {
        if (tag == u"expired_access_token"_s) {
            error.m_text = u"expired_access_token: %1 failed: the Dropbox access token has expired"_s.arg(action);
        } else if (tag == u"invalid_access_token"_s || tag == u"invalid_grant"_s || tag.isEmpty()) {
            error.m_tags = QStringList { u"invalid_access_token"_s };
            error.m_text = u"invalid_access_token: %1 failed: Dropbox no longer accepts this app's authorization "
                           "(%2); connect Dropbox again"_s.arg(action, summary.isEmpty() ? u"revoked"_s : summary);
        } else {
            error.m_text
                = u"%1: %2 failed: Dropbox refused the authorization (%3)"_s.arg(tag, action, meaning(error.m_tags));
        }
    } else if (status == 429) {
        error.m_text = u"%1 failed: Dropbox still asks to slow down after %2 waits (%3); try again later"_s.arg(action)
                           .arg(response.rateLimitWaits)
                           .arg(summary.isEmpty() ? u"too_many_requests"_s : summary);
    } else if (status >= 500) {
        error.m_text = u"%1 failed: Dropbox is unavailable (HTTP %2), %3 attempts; try again later"_s.arg(action)
                           .arg(status)
                           .arg(response.attempts);
    } else if (status == 400 || summary.isEmpty()) {
        error.m_text = u"%1 failed: Dropbox rejected the request (HTTP %2: %3)"_s.arg(action).arg(status).arg(
            summary.isEmpty() ? firstLine(response.body) : summary);
    } else {
        error.m_text = u"%1 failed: %2 (%3)"_s.arg(action, summary, meaning(error.m_tags));
    }
    return error;
}

bool DropboxError::is(const QStringList &prefix) const
{
    return m_tags.mid(0, prefix.size()) == prefix;
}

QString DropboxError::meaning(const QStringList &tags)
{
    // The most specific tag that has a meaning of its own wins.
    for (auto it = tags.crbegin(); it != tags.crend(); ++it) {
        const QString &tag = *it;
        if (tag == u"file"_s && tags.contains(u"conflict"_s))
            return u"a different version of the file is on Dropbox: another machine uploaded it after this one "
                   "last synced"_s;
        if (tag == u"folder"_s && tags.contains(u"conflict"_s))
            return u"a folder of that name is in the way"_s;
        if (tag == u"file_ancestor"_s)
            return u"a file is where a parent folder should be"_s;
        if (tag == u"not_found"_s)
            return u"there is no such file or folder on Dropbox"_s;
        if (tag == u"reset"_s)
            return u"Dropbox no longer accepts the change cursor; the folder must be listed again"_s;
        if (tag == u"malformed_path"_s)
            return u"the path is not valid on Dropbox"_s;
        if (tag == u"not_file"_s)
            return u"the path names a folder, not a file"_s;
        if (tag == u"not_folder"_s)
            return u"the path names a file, not a folder"_s;
        if (tag == u"restricted_content"_s)
            return u"Dropbox restricts access to this content"_s;
        if (tag == u"locked"_s)
            return u"the file is locked on Dropbox"_s;
        if (tag == u"insufficient_space"_s)
            return u"the Dropbox account is full"_s;
        if (tag == u"no_write_permission"_s)
            return u"this account may not write there"_s;
        if (tag == u"disallowed_name"_s)
            return u"Dropbox does not allow this file name"_s;
        if (tag == u"too_many_write_operations"_s)
            return u"too many writes to the Dropbox account at once; try again later"_s;
        if (tag == u"content_hash_mismatch"_s)
            return u"the file arrived damaged at Dropbox"_s;
        if (tag == u"payload_too_large"_s)
            return u"the file is too large for one upload"_s;
        if (tag == u"unsupported_file"_s)
            return u"Dropbox can only export this file, not download it"_s;
        if (tag == u"invalid_oauth1_token_info"_s)
            return u"the old authorization is no longer valid; connect Dropbox again"_s;
        if (tag == u"app_id_mismatch"_s)
            return u"the old authorization belongs to another app"_s;
        if (tag == u"missing_scope"_s)
            return u"the app lacks a permission it needs; connect Dropbox again"_s;
        if (tag == u"user_suspended"_s)
            return u"the Dropbox account is suspended"_s;
        if (tag == u"route_access_denied"_s || tag == u"no_permission"_s)
            return u"the account may not use this operation"_s;
    }
    return u"a Dropbox error"_s;
}
