#include "support/journalgenerator.h"

namespace {

// A small linear congruential generator: the same journal on every machine and every run.
quint32 mix(quint32 x)
{
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

const char *const kWords[] = { "review", "mock-ups", "call", "planning", "fixes", "notes", "design", "research" };

} // namespace

JournalGenerator::JournalGenerator(int count, int years, int projects, int tasks)
    : m_count(count)
    , m_projects(projects)
    , m_tasks(tasks)
    , m_start(QDateTime(QDate(2015, 1, 1), QTime(8, 0)).toUTC())
    , m_stepSecs(qint64(years) * 365 * 86400 / qMax(1, count))
{ }

QString JournalGenerator::text(int i) const
{
    const quint32 r = mix(quint32(i) + 1);
    QString line = QStringLiteral("@Project%1").arg(r % quint32(m_projects), 2, 10, QLatin1Char('0'));
    const int taskCount = 1 + int((r >> 8) % 3);
    for (int t = 0; t < taskCount; ++t)
        line += QStringLiteral(" #task%1").arg(mix(r + quint32(t)) % quint32(m_tasks));
    line += QLatin1Char(' ') + QString::fromLatin1(kWords[(r >> 12) % 8]) + QLatin1Char(' ') + QString::number(i);
    return line;
}

QDateTime JournalGenerator::timeFrom(int i) const
{
    return m_start.addSecs(qint64(i) * m_stepSecs);
}

QDateTime JournalGenerator::timeTo(int i) const
{
    const qint64 length = 600 + qint64(mix(quint32(i) * 7 + 3) % quint32(qMax<qint64>(1, m_stepSecs - 600)));
    return timeFrom(i).addSecs(length);
}

void JournalGenerator::insertInto(StoreContext &context) const
{
    for (int i = 0; i < m_count; ++i) {
        ActivityPtr activity = context.insertActivity();
        activity->setText(text(i));
        activity->setTimeFrom(timeFrom(i));
        activity->setTimeTo(timeTo(i));
    }
}
