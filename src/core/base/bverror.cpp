#include "base/bverror.h"

BvError::BvError(QString domain, int code, QString description, QString failureReason)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_description(std::move(description))
    , m_failureReason(std::move(failureReason))
{ }

QString BvError::message() const
{
    if (!m_description.isEmpty())
        return m_description;
    if (!m_failureReason.isEmpty())
        return m_failureReason;
    if (!m_detailedErrors.isEmpty())
        return m_detailedErrors.constFirst().message();
    return QStringLiteral("%1 error %2").arg(m_domain).arg(m_code);
}

bool BvError::operator==(const BvError &other) const
{
    return m_domain == other.m_domain && m_code == other.m_code && m_description == other.m_description
        && m_failureReason == other.m_failureReason && m_detailedErrors == other.m_detailedErrors;
}
