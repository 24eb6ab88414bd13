#pragma once

#include <expected>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVarLengthArray>

#include "base/bverror.h"
#include "model/project.h"
#include "model/task.h"

class StoreContext;

// One tracked stretch of time. Instants are held in UTC; the month key and the display texts use the
// local calendar and time zone. An activity lives in one StoreContext and reaches the store when that
// context saves, which first re-derives the project and tasks from the text and then validates it.
class Activity : public std::enable_shared_from_this<Activity>
{
public:
    // Identity across machines: a canonical upper-case UUID, set once at insertion.
    QString uid() const { return m_uid; }
    // For synchronisation only, which inserts activities that were made on another machine.
    void setUid(const QString &uid);

    QString text() const { return m_text; }
    void setText(const QString &text);

    QDateTime timeFrom() const { return m_timeFrom; }
    // Also moves the month key, so that both always agree.
    void setTimeFrom(const QDateTime &timeFrom);
    QDateTime timeTo() const { return m_timeTo; }
    void setTimeTo(const QDateTime &timeTo);
    QDateTime createdAt() const { return m_createdAt; }
    void setCreatedAt(const QDateTime &createdAt);
    QDateTime modifiedAt() const { return m_modifiedAt; }
    void setModifiedAt(const QDateTime &modifiedAt);
    bool isInvoiced() const { return m_isInvoiced; }
    void setIsInvoiced(bool isInvoiced);

    // year * 100 + month of timeFrom in the local calendar, e.g. 202403; 0 without a start.
    int yearMonth() const { return m_yearMonth; }
    static int yearMonthOf(const QDateTime &instant);

    ProjectPtr project() const { return m_project; }
    void setProject(const ProjectPtr &project);
    QList<TaskPtr> tasks() const { return QList<TaskPtr>(m_tasks.cbegin(), m_tasks.cend()); }
    void setTasks(const QList<TaskPtr> &tasks);

    // Whole seconds between the two instants, each truncated to the second first; 0 if either is absent.
    qint64 durationSecs() const { return m_durationSecs; }
    // Every started minute counts: 61 s gives 2.
    qint64 durationMins() const { return m_durationMins; }
    void calculateDuration();

    // The instants in the user's locale, short date and short time.
    QString timeFromStr() const { return dateStr(m_timeFrom); }
    QString timeToStr() const { return dateStr(m_timeTo); }
    static QString dateStr(const QDateTime &instant);
    // The distinct task names sorted case-sensitively and joined by ", "; null without tasks.
    QString tasksStr() const;

    // Refuses an activity shorter than one second ("activity_duration", 1550). An error already found
    // for this object is combined with the new one into one error of code 1560.
    std::expected<void, BvError> validateActivity(const std::optional<BvError> &earlier = std::nullopt) const;
    static BvError errorFromOriginalError(const BvError &original, const BvError &error);

    // Keeps project and tasks in step with the text; runs before each save of a changed activity.
    void willSave(StoreContext &context);
    // Clears text, tasks and project before the object leaves the store.
    void prepareForDeletion();

    qint64 objectId() const { return m_id; }
    bool isInserted() const { return m_id == 0 && !m_deleted; }
    bool isDeleted() const { return m_deleted; }
    bool hasChanges() const { return m_changedFields.toInt() != 0 || m_tasksChanged || m_deleted; }
    StoreContext *context() const { return m_context; }

    // The stored columns, for telling which of them an unsaved change touches. A save writes only these:
    // a concurrent change of another column by another process survives.
    enum class Field : quint16 {
        Uid = 0x1,
        Text = 0x2,
        TimeFrom = 0x4, // with the month key
        TimeTo = 0x8,
        CreatedAt = 0x10,
        ModifiedAt = 0x20,
        IsInvoiced = 0x40,
        Project = 0x80,
    };
    Q_DECLARE_FLAGS(Fields, Field)
    Fields changedFields() const { return m_changedFields; }

private:
    friend class StoreContext;
    friend class StoreWriter;
    void markChanged(Field field);
    void markTasksChanged();

    qint64 m_id = 0;
    QString m_uid;
    QString m_text;
    QDateTime m_timeFrom;
    QDateTime m_timeTo;
    QDateTime m_createdAt;
    QDateTime m_modifiedAt;
    bool m_isInvoiced = false;
    int m_yearMonth = 0;
    ProjectPtr m_project;
    // Inline for the usual one to three tasks: a whole journal is loaded without an allocation per list.
    QVarLengthArray<TaskPtr, 3> m_tasks;
    qint64 m_durationSecs = 0;
    qint64 m_durationMins = 0;

    Fields m_changedFields;
    bool m_tasksChanged = false;
    bool m_deleted = false;
    bool m_pending = false;
    StoreContext *m_context = nullptr;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Activity::Fields)

using ActivityPtr = std::shared_ptr<Activity>;

namespace ActivityErrors {
// An update or deletion found no row: another context or process deleted the activity meanwhile.
inline constexpr int NotFoundCode = 133000;
inline constexpr auto NotFoundText = "Activity not found!";
inline constexpr int DurationCode = 1550;
inline constexpr int MultipleErrorsCode = 1560;
inline constexpr auto DurationReason = "Duration must be atleast one second long";
} // namespace ActivityErrors
