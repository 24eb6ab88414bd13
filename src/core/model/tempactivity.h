#pragma once

#include <QDateTime>
#include <QString>

// An activity that is not in the store: a text with its two instants.
struct TempActivity
{
    QString text;
    QDateTime timeFrom;
    QDateTime timeTo;
};
