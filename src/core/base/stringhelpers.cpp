#include "base/stringhelpers.h"

#include <QCryptographicHash>
#include <QStringDecoder>
#include <QStringList>

#include "base/datahelpers.h"

QString StringHelpers::md5String(const QString &text)
{
    return DataHelpers::hexadecimalString(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Md5));
}

QHash<QString, QString> StringHelpers::queryItems(const QString &query)
{
    QHash<QString, QString> items;
    const QStringList pieces = query.split(QLatin1Char('&'));
    for (const QString &piece : pieces) {
        const QStringList parts = piece.split(QLatin1Char('='));
        if (parts.size() != 2)
            continue;
        const QString key = removingPercentEncoding(parts.at(0));
        const QString value = removingPercentEncoding(parts.at(1));
        if (key.isNull() || value.isNull())
            continue;
        items.insert(key, value);
    }
    return items;
}

QString StringHelpers::removingPercentEncoding(const QString &text)
{
    if (!text.contains(QLatin1Char('%')))
        return text.isNull() ? QStringLiteral("") : text;
    QByteArray bytes;
    const QByteArray utf8 = text.toUtf8();
    bytes.reserve(utf8.size());
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const char c = utf8.at(i);
        if (c != '%') {
            bytes.append(c);
            continue;
        }
        if (i + 2 >= utf8.size())
            return {};
        const int high = hexValue(utf8.at(i + 1));
        const int low = hexValue(utf8.at(i + 2));
        if (high < 0 || low < 0)
            return {};
        bytes.append(char(high * 16 + low));
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    // A decoded empty text is still a valid (non-null) result.
    return decoded.isNull() ? QStringLiteral("") : decoded;
}
