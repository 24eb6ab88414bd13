#pragma once

#include <expected>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QString>

#include "base/bverror.h"
#include "model/activity.h"
#include "report/activitychange.h"
#include "report/activitysnapshot.h"

class Store;
class StoreContext;

// The edit sheet's unit of work: one finished activity, or a new earlier one, in a private StoreContext of
// its own, so nothing reaches the store until save() and cancel() leaves the store as it was. Main thread.
class ActivityEditor
{
public:
    // What a save or deletion ended with: a message for the sheet's error line (the sheet stays open and the
    // changes stay here to be corrected), or the sheet closes, with the step taken when one was stored. A
    // store failure other than a refusal of this activity closes the sheet too, with no step (the store has
    // logged it).
    using Result = std::expected<std::optional<ActivityChange>, QString>;

    // Edits the stored activity with `uid`; without one a new activity starting and ending now, as
    // isNewActivity() says. A uid no longer stored gives a load error and nothing to edit.
    ActivityEditor(Store &store, const std::optional<QString> &uid);
    ~ActivityEditor();
    ActivityEditor(const ActivityEditor &) = delete;
    ActivityEditor &operator=(const ActivityEditor &) = delete;

    bool isNewActivity() const { return m_newActivity; }
    // "Failed to load data ..." when the uid named no stored activity (or the store could not be read);
    // the activity is null then, and saving or deleting does nothing.
    std::optional<QString> loadError() const { return m_loadError; }
    const ActivityPtr &activity() const { return m_activity; }

    // The project and tasks follow the text when saved.
    void setText(const QString &text);
    void setTimeFrom(const QDateTime &timeFrom);
    void setTimeTo(const QDateTime &timeTo);

    // Stamps the activity modified now and saves. A refusal of the activity (a duration under one second)
    // comes back as its reason, "Duration must be atleast one second long".
    Result save();
    // Drops the unsaved changes.
    void cancel();
    // Forgets the unsaved changes and deletes the stored activity with a deletion record for
    // synchronisation. Nothing to delete for a new activity: the sheet just closes.
    Result deleteActivity();

    // The text for the error line of a save refused with `error`: the reason of the first refusal of an
    // activity (a combined error's details included), or its description; nothing for errors that are not
    // refusals of an activity.
    static std::optional<QString> validationMessage(const BvError &error);

private:
    Store &m_store;
    std::unique_ptr<StoreContext> m_context;
    ActivityPtr m_activity;
    std::optional<ActivitySnapshot> m_before;
    std::optional<QString> m_loadError;
    bool m_newActivity = false;
};
