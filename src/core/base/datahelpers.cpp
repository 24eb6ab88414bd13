#include "base/datahelpers.h"

QString DataHelpers::hexadecimalString(const QByteArray &data)
{
    return QString::fromLatin1(data.toHex());
}
