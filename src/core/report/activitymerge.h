#pragma once

#include <expected>
#include <memory>
#include <optional>

#include <QList>
#include <QString>
#include <QStringList>

#include "model/activity.h"
#include "report/activitychange.h"

class Store;
class StoreContext;

// The merge sheet's unit of work: two or more stored activities joined into the one that started last (the
// survivor, which keeps its uid), in a private StoreContext, so nothing reaches the store until save().
// The survivor lasts as long as all of them together and ends where it ended; its text is the distinct
// texts joined newest first. Main thread.
class ActivityMerge
{
public:
    // As ActivityEditor::Result.
    using Result = std::expected<std::optional<ActivityChange>, QString>;

    // invoicedState(): all invoiced, none, or some.
    static constexpr int Invoiced = 1;
    static constexpr int NotInvoiced = 0;
    static constexpr int Mixed = -1;

    // Reads the activities with these uids (ones no longer stored are left out) and prepares the survivor.
    // The activity being tracked (`runningUid`) is never merged: its end moves while it runs, and merging
    // it would end it or delete it under the tracker.
    ActivityMerge(Store &store, const QStringList &uids, const QString &runningUid = {});
    ~ActivityMerge();
    ActivityMerge(const ActivityMerge &) = delete;
    ActivityMerge &operator=(const ActivityMerge &) = delete;

    // "Failed to load data ..." when the activities could not be read (or none is stored any more), or
    // "The running activity cannot be merged; stop it first." when it is among them; nothing else is then
    // set up.
    std::optional<QString> loadError() const { return m_loadError; }
    // The survivor, already changed (not saved); null after a load error.
    const ActivityPtr &activity() const { return m_activity; }
    // The activities read, newest start first; the survivor is the first.
    const QList<ActivityPtr> &originalActivities() const { return m_originalActivities; }

    // Mixed until the user decides, when the activities disagree.
    int invoicedState() const { return m_invoicedState; }
    void setInvoicedState(int state) { m_invoicedState = state; }
    // Whether the activities disagreed when read, so that the mixed state is offered at all.
    bool offersMixedState() const { return m_offersMixedState; }
    // The joined text, which the user may still change; the project and tasks follow it when saved.
    void setText(const QString &text);

    // "Please specify invoiced status" while the state is mixed; a refusal of the survivor as in the edit
    // sheet. Otherwise marks the survivor, deletes the others with deletion records, saves, and gives the step.
    Result save();
    // Why the last save failed when it was not a refusal (the store could not be written, an activity was
    // deleted elsewhere meanwhile); the sheet closes regardless, the command line reports it.
    std::optional<BvError> saveError() const { return m_saveError; }
    void cancel();

    // The text with white space trimmed at both ends, lower-cased, and every run of white space made one
    // blank: two texts that differ only in case or spacing have the same hash.
    static QString getTextHash(const QString &text);

private:
    std::unique_ptr<StoreContext> m_context;
    QList<ActivityPtr> m_originalActivities;
    QList<ActivitySnapshot> m_before;
    ActivityPtr m_activity;
    std::optional<QString> m_loadError;
    std::optional<BvError> m_saveError;
    int m_invoicedState = NotInvoiced;
    bool m_offersMixedState = false;
};
