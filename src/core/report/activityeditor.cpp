#include "report/activityeditor.h"

#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"

ActivityEditor::ActivityEditor(Store &store, const std::optional<QString> &uid)
    : m_store(store)
    , m_context(store.newContext())
{
    if (uid) {
        // Deleted by a sync or in a terminal since the report listed it: there is nothing to edit, and a new
        // activity in its place would not be what the user asked for.
        std::expected<ActivityPtr, BvError> found = m_context->activityWithUid(*uid);
        if (!found || !*found) {
            m_loadError = QStringLiteral("Failed to load data ...");
            return;
        }
        m_activity = *found;
        m_before = ActivitySnapshot::of(*m_activity);
        return;
    }
    m_newActivity = true;
    m_activity = m_context->insertActivity();
    const QDateTime now = m_context->now();
    m_activity->setTimeFrom(now);
    m_activity->setTimeTo(now);
}

ActivityEditor::~ActivityEditor() = default;

void ActivityEditor::setText(const QString &text)
{
    if (m_activity)
        m_activity->setText(text);
}

void ActivityEditor::setTimeFrom(const QDateTime &timeFrom)
{
    if (m_activity)
        m_activity->setTimeFrom(timeFrom);
}

void ActivityEditor::setTimeTo(const QDateTime &timeTo)
{
    if (m_activity)
        m_activity->setTimeTo(timeTo);
}

ActivityEditor::Result ActivityEditor::save()
{
    if (!m_activity)
        return std::nullopt;
    m_activity->setModifiedAt(m_context->now());
    std::expected<void, BvError> saved = m_context->save();
    if (!saved) {
        if (std::optional<QString> message = validationMessage(saved.error()))
            return std::unexpected(*message);
        return std::nullopt;
    }
    const ActivityChange::Entry entry { m_activity->uid(), m_before, ActivitySnapshot::of(*m_activity) };
    m_before = entry.after;
    m_newActivity = false;
    return ActivityChange(entry.before ? ActivityChange::Kind::Edit : ActivityChange::Kind::New, { entry });
}

void ActivityEditor::cancel()
{
    m_context->reset();
}

ActivityEditor::Result ActivityEditor::deleteActivity()
{
    if (m_newActivity || !m_before) {
        m_context->reset();
        return std::nullopt;
    }
    // Edits made before deciding to delete are not stored first: the deletion record is all that remains.
    if (std::expected<bool, BvError> stillThere = m_context->refreshObject(m_activity, false);
        !stillThere || !*stillThere)
        return std::nullopt;
    const ActivitySnapshot stored = ActivitySnapshot::of(*m_activity);
    DeletedActivity::deleteActivity(m_activity, *m_context);
    if (!m_context->save())
        return std::nullopt;
    return ActivityChange(ActivityChange::Kind::Delete, { { stored.uid, stored, std::nullopt } });
}

std::optional<QString> ActivityEditor::validationMessage(const BvError &error)
{
    const QList<BvError> details = error.detailedErrors().isEmpty() ? QList<BvError> { error } : error.detailedErrors();
    for (const BvError &detail : details) {
        if (detail.domain() != QLatin1String(BvErrorDomain::ActivityDuration))
            continue;
        return detail.failureReason().isEmpty() ? detail.description() : detail.failureReason();
    }
    return std::nullopt;
}
