#pragma once

#include "platform/idlesource.h"

// No source works here: idle detection reports itself unavailable with the reason.
class IdleSourceNull : public IdleSource
{
    Q_OBJECT
public:
    explicit IdleSourceNull(QString reason, QObject *parent = nullptr)
        : IdleSource(parent)
        , m_reason(std::move(reason))
    { }

    QString name() const override { return QString(); }
    bool isAvailable() const override { return false; }
    QString unavailableReason() const override { return m_reason; }
    std::optional<QDateTime> idleSince(const QDateTime &) const override { return std::nullopt; }

private:
    QString m_reason;
};
