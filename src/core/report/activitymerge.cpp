#include "report/activitymerge.h"

#include <algorithm>

#include <QRegularExpression>
#include <QSet>

#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activityeditor.h"

ActivityMerge::ActivityMerge(Store &store, const QStringList &uids, const QString &runningUid)
    : m_context(store.newContext())
{
    if (!runningUid.isEmpty() && uids.contains(runningUid)) {
        m_loadError = QStringLiteral("The running activity cannot be merged; stop it first.");
        return;
    }
    std::expected<QHash<QString, ActivityPtr>, BvError> found = m_context->activitiesWithUids(uids);
    if (!found || found->isEmpty()) {
        m_loadError = QStringLiteral("Failed to load data ...");
        return;
    }
    m_originalActivities = found->values();
    std::sort(m_originalActivities.begin(), m_originalActivities.end(), [](const ActivityPtr &a, const ActivityPtr &b) {
        return a->timeFrom() != b->timeFrom() ? a->timeFrom() > b->timeFrom() : a->uid() < b->uid();
    });
    for (const ActivityPtr &activity : std::as_const(m_originalActivities))
        m_before.append(ActivitySnapshot::of(*activity));
    m_activity = m_originalActivities.constFirst();

    qint64 totalSecs = 0;
    QSet<QString> seen;
    QStringList texts;
    for (qsizetype i = 0; i < m_originalActivities.size(); ++i) {
        const ActivityPtr &activity = m_originalActivities.at(i);
        const int state = activity->isInvoiced() ? Invoiced : NotInvoiced;
        if (i == 0)
            m_invoicedState = state;
        else if (state != m_invoicedState)
            m_invoicedState = Mixed;
        totalSecs += activity->durationSecs();
        const QString hash = getTextHash(activity->text());
        if (!hash.isEmpty() && !seen.contains(hash)) {
            seen.insert(hash);
            texts.append(activity->text());
        }
    }
    m_offersMixedState = m_invoicedState == Mixed;
    // Gaps between the activities are dropped and overlaps count twice: the survivor lasts exactly as long
    // as all of them together, and keeps the latest end.
    m_activity->setTimeFrom(m_activity->timeTo().addSecs(-totalSecs));
    m_activity->setText(texts.join(QStringLiteral("\n\n")));
}

ActivityMerge::~ActivityMerge() = default;

void ActivityMerge::setText(const QString &text)
{
    if (m_activity)
        m_activity->setText(text);
}

ActivityMerge::Result ActivityMerge::save()
{
    if (!m_activity)
        return std::nullopt;
    if (m_invoicedState == Mixed)
        return std::unexpected(QStringLiteral("Please specify invoiced status"));
    m_activity->setIsInvoiced(m_invoicedState == Invoiced);
    m_activity->setModifiedAt(m_context->now());
    QList<ActivityChange::Entry> entries;
    entries.append({ m_activity->uid(), m_before.constFirst(), std::nullopt });
    for (qsizetype i = 1; i < m_originalActivities.size(); ++i) {
        const ActivityPtr &other = m_originalActivities.at(i);
        // One deleted elsewhere since the sheet opened stays out of the step: undoing the merge must not
        // bring it back. One a refused save already deleted here is in it.
        if (!other->isDeleted()) {
            const std::expected<bool, BvError> stillThere = m_context->refreshObject(other, false);
            if (!stillThere || !*stillThere)
                continue;
            DeletedActivity::deleteActivity(other, *m_context);
        }
        entries.append({ other->uid(), m_before.at(i), std::nullopt });
    }
    m_saveError.reset();
    std::expected<void, BvError> saved = m_context->save();
    if (!saved) {
        if (std::optional<QString> message = ActivityEditor::validationMessage(saved.error()))
            return std::unexpected(*message);
        m_saveError = saved.error();
        return std::nullopt;
    }
    entries.first().after = ActivitySnapshot::of(*m_activity);
    return ActivityChange(ActivityChange::Kind::Merge, entries);
}

void ActivityMerge::cancel()
{
    m_context->reset();
}

QString ActivityMerge::getTextHash(const QString &text)
{
    static const QRegularExpression whiteSpace(QStringLiteral("\\s+"));
    QString hash = text.trimmed().toLower();
    hash.replace(whiteSpace, QStringLiteral(" "));
    return hash;
}
