#include "model/bvsyncfile.h"

#include <QStringList>
#include <QtGlobal>

#include "model/storecontext.h"

void BVSyncFile::setName(const QString &name)
{
    m_name = name;
    // The cached year and month belong to the old name.
    m_yearMonthComputed = false;
    m_year.reset();
    m_month.reset();
    markChanged();
}

void BVSyncFile::setRevision(const QString &revision)
{
    m_revision = revision;
    markChanged();
}

void BVSyncFile::setActivityHash(const QString &activityHash)
{
    m_activityHash = activityHash;
    markChanged();
}

void BVSyncFile::calcYearMonth()
{
    if (m_yearMonthComputed)
        return;
    m_yearMonthComputed = true;
    const QStringList parts = m_name.split(QLatin1Char('-'));
    if (parts.size() != 2)
        return;
    // Like the integer value of a string: leading digits count, anything else gives 0.
    auto integerValue = [](const QString &text) {
        qsizetype end = 0;
        while (end < text.size() && text.at(end).isDigit())
            ++end;
        return text.left(end).toUInt();
    };
    m_year = integerValue(parts.at(0).trimmed());
    m_month = integerValue(parts.at(1).trimmed());
}

bool BVSyncFile::hasYearMonth()
{
    calcYearMonth();
    return m_year.has_value();
}

uint BVSyncFile::year()
{
    calcYearMonth();
    if (!m_year)
        qFatal("BVSyncFile: \"%s\" is not a month file name", qUtf8Printable(m_name));
    return *m_year;
}

uint BVSyncFile::month()
{
    calcYearMonth();
    if (!m_month)
        qFatal("BVSyncFile: \"%s\" is not a month file name", qUtf8Printable(m_name));
    return *m_month;
}

bool BVSyncFile::hasRevisionPrefix(const QString &prefix) const
{
    if (prefix.isNull())
        return false;
    const qsizetype colon = m_revision.indexOf(QLatin1Char(':'));
    if (colon < 0)
        return false;
    return QStringView(m_revision).left(colon) == prefix;
}

void BVSyncFile::markChanged()
{
    m_changed = true;
    if (m_context)
        m_context->syncFileChanged(this);
}
