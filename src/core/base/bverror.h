#pragma once

#include <QList>
#include <QString>

// A recoverable failure carried as a value: the designed domain, code and text of the error, plus the
// reason and, for combined validation errors, the errors it stands for.
class BvError
{
public:
    BvError() = default;
    BvError(QString domain, int code, QString description, QString failureReason = {});

    QString domain() const { return m_domain; }
    int code() const { return m_code; }
    // The text shown to the user.
    QString description() const { return m_description; }
    QString failureReason() const { return m_failureReason; }
    QList<BvError> detailedErrors() const { return m_detailedErrors; }
    void setDetailedErrors(const QList<BvError> &errors) { m_detailedErrors = errors; }

    // The description, followed by the failure reason where there is one; for logs and the command line.
    QString message() const;

    // Out of line: a defaulted comparison over the list of BvErrors cannot be checked by Qt's meta types,
    // which signals carrying an error need.
    bool operator==(const BvError &other) const;

private:
    QString m_domain;
    int m_code = 0;
    QString m_description;
    QString m_failureReason;
    QList<BvError> m_detailedErrors;
};

namespace BvErrorDomain {
inline constexpr auto Cocoa = "NSCocoaErrorDomain";
inline constexpr auto Store = "YOUR_ERROR_DOMAIN";
inline constexpr auto ActivityDuration = "activity_duration";
} // namespace BvErrorDomain
