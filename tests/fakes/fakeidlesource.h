#pragma once

#include "attention/idlesource.h"

// An idle source whose user last touched the keyboard when the test says.
class FakeIdleSource : public IdleSource
{
    Q_OBJECT
public:
    using IdleSource::IdleSource;

    QString name() const override { return QStringLiteral("fake"); }
    bool isAvailable() const override { return true; }
    QString unavailableReason() const override { return QString(); }
    std::optional<QDateTime> idleSince(const QDateTime &now) const override
    {
        if (!m_lastInput.isValid() || m_lastInput >= now)
            return std::nullopt;
        return m_lastInput;
    }
    void setThresholdSeconds(int seconds) override { m_threshold = seconds; }

    // The user's last input.
    void touch(const QDateTime &at) { m_lastInput = at; }
    int threshold() const { return m_threshold; }

private:
    QDateTime m_lastInput;
    int m_threshold = 0;
};
