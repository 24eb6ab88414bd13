#pragma once

#include <QHash>
#include <QString>

// Small text utilities shared by synchronisation and the account connection. Any thread.
class StringHelpers
{
public:
    // The MD5 digest of the text's UTF-8 bytes as 32 lower-case hexadecimal digits.
    static QString md5String(const QString &text);

    // The key and value pairs of a URL query such as "code=abc&state=x%20y". The text is split at "&",
    // each piece at "="; only pieces of exactly two parts count ("a=" gives an empty value, "a" and
    // "a=b=c" are dropped). Percent escapes are removed after splitting, so "%26" and "%3D" stay content;
    // "+" stays "+". A piece with a malformed escape or one that does not decode to UTF-8 is dropped. For a
    // key given twice the later value wins.
    static QHash<QString, QString> queryItems(const QString &query);

    // The text with every "%XX" escape replaced by its byte, read as UTF-8; a null QString
    // when an escape is malformed or the bytes are not UTF-8.
    static QString removingPercentEncoding(const QString &text);
};
