#pragma once

#include <QCoreApplication>
#include <QString>
#include <QVariant>

// Labels a count of minutes for the preferences ("1 minute", "5 minutes"). The singular goes with every
// count whose last digit is 1 except 11 itself, so 21 and 111 read "minute"; the rule is kept as it was.
class BvMinutesTransformer
{
    Q_DECLARE_TR_FUNCTIONS(BvMinutesTransformer)

public:
    // "%ld minute(s)" for a number (fractions are cut off); the empty string for anything else.
    QString transformedValue(const QVariant &value) const;
    QString transformedValue(qint64 minutes) const;
};
