#pragma once

#include <QtGlobal>

// The system-wide hot key that shows the main window: a key code and modifier flags, stored as they are
// under "globalHotKeyCode" and "globalHotKeyFlags". The recorder and the grabbing backend agree on their
// meaning; the settings only keep the two numbers.
struct BvHotKey
{
    int keyCode = 0;
    quint32 modifierFlags = 0;

    bool operator==(const BvHotKey &other) const = default;
};
