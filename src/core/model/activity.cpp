#include "model/activity.h"

#include <algorithm>

#include <QLocale>
#include <QStringList>

#include "base/localzone.h"
#include "model/activityparser.h"
#include "model/namekey.h"
#include "model/storecontext.h"

namespace {

// Seconds since the epoch rounded towards minus infinity, so that instants before 1970 truncate the same
// way as later ones.
qint64 floorSeconds(const QDateTime &instant)
{
    const qint64 ms = instant.toMSecsSinceEpoch();
    return ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
}

QDateTime utc(const QDateTime &instant)
{
    return instant.isValid() ? instant.toUTC() : QDateTime();
}

} // namespace

void Activity::setUid(const QString &uid)
{
    if (uid == m_uid)
        return;
    m_uid = uid;
    markChanged(Field::Uid);
}

void Activity::setText(const QString &text)
{
    if (text == m_text && text.isNull() == m_text.isNull())
        return;
    m_text = text;
    markChanged(Field::Text);
}

void Activity::setTimeFrom(const QDateTime &timeFrom)
{
    m_timeFrom = utc(timeFrom);
    m_yearMonth = yearMonthOf(m_timeFrom);
    calculateDuration();
    markChanged(Field::TimeFrom);
}

void Activity::setTimeTo(const QDateTime &timeTo)
{
    m_timeTo = utc(timeTo);
    calculateDuration();
    markChanged(Field::TimeTo);
}

void Activity::setCreatedAt(const QDateTime &createdAt)
{
    m_createdAt = utc(createdAt);
    markChanged(Field::CreatedAt);
}

void Activity::setModifiedAt(const QDateTime &modifiedAt)
{
    m_modifiedAt = utc(modifiedAt);
    markChanged(Field::ModifiedAt);
}

void Activity::setIsInvoiced(bool isInvoiced)
{
    if (isInvoiced == m_isInvoiced)
        return;
    m_isInvoiced = isInvoiced;
    markChanged(Field::IsInvoiced);
}

int Activity::yearMonthOf(const QDateTime &instant)
{
    if (!instant.isValid())
        return 0;
    const QDate day = LocalZone::toLocal(instant).date();
    return day.year() * 100 + day.month();
}

void Activity::setProject(const ProjectPtr &project)
{
    if (project == m_project)
        return;
    m_project = project;
    markChanged(Field::Project);
}

void Activity::setTasks(const QList<TaskPtr> &tasks)
{
    QVarLengthArray<TaskPtr, 3> distinct;
    distinct.reserve(tasks.size());
    for (const TaskPtr &task : tasks) {
        if (task && !distinct.contains(task))
            distinct.append(task);
    }
    if (distinct == m_tasks)
        return;
    m_tasks = std::move(distinct);
    markTasksChanged();
}

void Activity::calculateDuration()
{
    if (!m_timeFrom.isValid() || !m_timeTo.isValid()) {
        m_durationSecs = 0;
        m_durationMins = 0;
        return;
    }
    m_durationSecs = floorSeconds(m_timeTo) - floorSeconds(m_timeFrom);
    // Ceiling for positive durations only: a refused (negative) one keeps its sign.
    m_durationMins = m_durationSecs > 0 ? (m_durationSecs + 59) / 60 : m_durationSecs / 60;
}

QString Activity::dateStr(const QDateTime &instant)
{
    if (!instant.isValid())
        return {};
    return QLocale::system().toString(instant.toLocalTime(), QLocale::ShortFormat);
}

QString Activity::tasksStr() const
{
    if (m_tasks.isEmpty())
        return {};
    QStringList names;
    names.reserve(m_tasks.size());
    for (const TaskPtr &task : m_tasks) {
        if (!names.contains(task->name()))
            names.append(task->name());
    }
    std::sort(names.begin(), names.end());
    return names.join(QStringLiteral(", "));
}

std::expected<void, BvError> Activity::validateActivity(const std::optional<BvError> &earlier) const
{
    if (m_durationSecs > 0) {
        if (earlier)
            return std::unexpected(*earlier);
        return {};
    }
    BvError error(QString::fromLatin1(BvErrorDomain::ActivityDuration), ActivityErrors::DurationCode,
        QString::fromLatin1(ActivityErrors::DurationReason), QString::fromLatin1(ActivityErrors::DurationReason));
    if (earlier)
        return std::unexpected(errorFromOriginalError(*earlier, error));
    return std::unexpected(error);
}

BvError Activity::errorFromOriginalError(const BvError &original, const BvError &error)
{
    QList<BvError> details;
    BvError combined(QString::fromLatin1(BvErrorDomain::Cocoa), ActivityErrors::MultipleErrorsCode,
        QStringLiteral("Multiple validation errors occurred."));
    if (original.code() == ActivityErrors::MultipleErrorsCode
        && original.domain() == QLatin1String(BvErrorDomain::Cocoa)) {
        details = original.detailedErrors();
        combined = BvError(original.domain(), original.code(), original.description(), original.failureReason());
    } else {
        details.append(original);
    }
    details.append(error);
    combined.setDetailedErrors(details);
    return combined;
}

void Activity::willSave(StoreContext &context)
{
    if (m_text.isNull())
        return;
    const ActivityComponents components = ActivityParser::defaultParser().componentsFromText(m_text);

    const QString projectName = components.project();
    if (!projectName.isNull()) {
        if (!m_project || NameKey::fromName(m_project->name()) != NameKey::fromName(projectName))
            setProject(context.findProject(projectName));
    } else if (m_project) {
        setProject(nullptr);
    }

    const QStringList taskNames = components.tasks();
    if (taskNames.isEmpty()) {
        if (!m_tasks.isEmpty())
            setTasks({});
        return;
    }
    if (!m_tasks.isEmpty() && m_tasks.size() == taskNames.size()) {
        QStringList folded;
        folded.reserve(taskNames.size());
        for (const QString &name : taskNames)
            folded.append(NameKey::fromName(name));
        const bool same = std::all_of(m_tasks.cbegin(), m_tasks.cend(),
            [&](const TaskPtr &task) { return folded.contains(NameKey::fromName(task->name())); });
        if (same)
            return;
    }
    QList<TaskPtr> tasks;
    tasks.reserve(taskNames.size());
    for (const QString &name : taskNames)
        tasks.append(context.findTask(name));
    setTasks(tasks);
}

void Activity::prepareForDeletion()
{
    m_text = QString();
    m_project.reset();
    if (!m_tasks.isEmpty()) {
        m_tasks.clear();
        m_tasksChanged = true;
    }
}

void Activity::markChanged(Field field)
{
    m_changedFields |= field;
    if (m_context)
        m_context->activityChanged(this);
}

void Activity::markTasksChanged()
{
    m_tasksChanged = true;
    if (m_context)
        m_context->activityChanged(this);
}
