#include "settings/enumdescription.h"

#include <utility>

EnumDescription::EnumDescription(int enumValue, QString enumDescription)
    : m_enumValue(enumValue)
    , m_enumDescription(std::move(enumDescription))
{ }

size_t qHash(const EnumDescription &item, size_t seed) noexcept
{
    return qHash(item.enumValue(), seed);
}
