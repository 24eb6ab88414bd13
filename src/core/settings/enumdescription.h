#pragma once

#include <QHashFunctions>
#include <QString>

// One entry of a pop-up list: an integer value (the menu item's tag) and the title shown for it. Two
// entries are the same entry when their values are equal, whatever their titles.
class EnumDescription
{
public:
    // Value 0 and an empty title.
    EnumDescription() = default;
    EnumDescription(int enumValue, QString enumDescription);

    int enumValue() const { return m_enumValue; }
    QString enumDescription() const { return m_enumDescription; }
    // The title, as shown in the pop-up list.
    QString description() const { return m_enumDescription; }

    bool operator==(const EnumDescription &other) const { return m_enumValue == other.m_enumValue; }

private:
    int m_enumValue = 0;
    QString m_enumDescription;
};

size_t qHash(const EnumDescription &item, size_t seed = 0) noexcept;
