#pragma once

#include <optional>

#include <QString>
#include <QtGlobal>

// Qt::Key values as the keyboard layer of the desktop names them: the X keysym an X11 grab looks up and
// the keysym name the shortcuts portal reads in a trigger ("CTRL+ALT+t").
class KeySymTable
{
public:
    // The keysym of `qtKey`; letters give the lower-case one. None for a key without a keysym here.
    static std::optional<quint32> keysym(int qtKey);
    // The keysym's name ("t", "F5", "space", "Prior"); empty when it has none here.
    static QString name(int qtKey);
    // "CTRL+ALT+t" from BvHotKey modifier flags and a key; empty when the key has no name.
    static QString trigger(int qtKey, quint32 modifierFlags);
};
