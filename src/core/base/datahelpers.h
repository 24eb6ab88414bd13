#pragma once

#include <QByteArray>
#include <QString>

// Text forms of raw bytes.
class DataHelpers
{
public:
    // Two lower-case hexadecimal digits per byte, in order ("%02lx" each); empty for empty data.
    static QString hexadecimalString(const QByteArray &data);
};
