#include "model/activitymanager.h"

#include <algorithm>

#include "base/datehelpers.h"
#include "base/localzone.h"
#include "base/logging.h"
#include "export/activityexport.h"
#include "model/likepattern.h"
#include "model/store.h"
#include "model/storechanges.h"
#include "model/storecontext.h"

ActivityManager::ActivityManager(Store &store, const RecentItemsOptions &recentItems, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_recentItems(recentItems)
    , m_context(store.newContext())
{
    connect(&store, &Store::changed, this, &ActivityManager::onStoreChanged);
}

ActivityManager::~ActivityManager() = default;

QString ActivityManager::startTrack(const QString &text)
{
    const QDateTime start = m_context->now();
    QString message;
    if (!saveActivity(QString(text), start, start.addSecs(1), &message))
        return message;
    Q_EMIT activityManagerStarted(this);
    return {};
}

QString ActivityManager::updateTrack(const QString &text)
{
    if (!isTracking())
        return QStringLiteral("Not tracking!");
    if (isEmpty(text))
        return QStringLiteral("Activity can not be empty!");
    m_currentActivity->setText(text);
    return {};
}

void ActivityManager::stopCurrentActivityAt(const QDateTime &at, bool andContinueTracking)
{
    const ActivityPtr activity = std::exchange(m_currentActivity, nullptr);
    if (activity) {
        if (at > activity->timeFrom()) {
            activity->setTimeTo(at);
            activity->setModifiedAt(m_context->now());
        }
        if (activity->timeFrom().msecsTo(activity->timeTo()) < 1000)
            activity->setTimeTo(activity->timeFrom().addSecs(1));
    }
    saveRunning("the stopped activity");
    Q_EMIT activityManagerStopped(this);
    if (activity && andContinueTracking)
        startTrack(activity->text());
}

void ActivityManager::stopTrack()
{
    stopCurrentActivityAt(m_context->now(), false);
}

void ActivityManager::touchCurrentActivity()
{
    if (!m_currentActivity)
        return;
    const QDateTime now = m_context->now();
    m_currentActivity->setModifiedAt(now);
    // A touch within the first second (an update right after a start) keeps the one-second minimum that
    // every stored activity has.
    m_currentActivity->setTimeTo(std::max(now, m_currentActivity->timeFrom().addSecs(1)));
    saveRunning("the running activity");
    if (runningActivityVanished()) {
        m_currentActivity.reset();
        Q_EMIT activityManagerStopped(this);
    }
}

void ActivityManager::saveRunning(const char *what)
{
    // A failed save keeps the changes in the main context; the next save writes them.
    if (auto saved = m_context->save(); !saved) {
        qCWarning(lcModel).noquote()
            << QStringLiteral("Could not save %1: %2").arg(QLatin1String(what), saved.error().message());
        Q_EMIT saveFailed(saved.error());
    }
}

bool ActivityManager::runningActivityVanished()
{
    // A context lets go of an activity it found deleted in the store.
    return m_currentActivity && m_currentActivity->context() != m_context.get();
}

void ActivityManager::onStoreChanged(const StoreChanges &changes)
{
    if (!m_currentActivity || !changes.mayHaveChanged(m_currentActivity->uid()))
        return;
    // Unsaved changes of the running activity (a new text not yet touched) stay; every other column
    // takes what the other context or process stored, so the next touch writes nothing stale.
    const std::expected<bool, BvError> present = m_context->refreshObject(m_currentActivity, true);
    if (!present) {
        qCWarning(lcModel).noquote()
            << QStringLiteral("Could not re-read the running activity: %1").arg(present.error().message());
        return;
    }
    if (!*present) {
        qCInfo(lcModel) << "the running activity was deleted elsewhere; tracking stops";
        m_currentActivity.reset();
        Q_EMIT activityManagerStopped(this);
    }
}

bool ActivityManager::saveActivity(const QString &text, const QDateTime &from, const QDateTime &to, QString *error)
{
    if (isEmpty(text)) {
        if (error)
            *error = QStringLiteral("Activity can not be empty!");
        return false;
    }
    // A context of its own, so that the insert and the projects and tasks it creates are saved apart from
    // any unsaved edits of the main context.
    std::unique_ptr<StoreContext> scratch = m_store.newContext();
    ActivityPtr inserted = scratch->insertActivity();
    inserted->setText(text);
    inserted->setTimeFrom(from);
    inserted->setTimeTo(to);
    inserted->setModifiedAt(scratch->now());
    if (auto saved = scratch->save(); !saved) {
        qCInfo(lcModel).noquote() << QStringLiteral("Activity not saved: %1").arg(saved.error().message());
        if (error)
            *error = QStringLiteral("Some kind of error!");
        return false;
    }
    auto current = m_context->activityWithUid(inserted->uid());
    if (!current || !*current) {
        if (error)
            *error = QStringLiteral("Some kind of error!");
        return false;
    }
    m_currentActivity = *current;
    return true;
}

bool ActivityManager::update(
    const QString &uid, const QString &activity, const QDateTime &from, const QDateTime &to, QString *error)
{
    auto found = m_context->activityWithUid(uid);
    if (!found || !*found) {
        if (error)
            *error = QStringLiteral("Activity not found!");
        return false;
    }
    const ActivityPtr stored = *found;
    stored->setText(activity);
    stored->setTimeFrom(from);
    stored->setTimeTo(to);
    stored->setModifiedAt(m_context->now());
    const std::expected<void, BvError> saved = m_context->save();
    if (saved)
        return true;
    if (saved.error().code() == ActivityErrors::NotFoundCode) {
        if (error)
            *error = QString::fromLatin1(ActivityErrors::NotFoundText);
    } else if (stored->context() == m_context.get()) {
        // The refused edit must not stay pending in the main context, or every later touch of the running
        // activity would fail with it.
        m_context->refreshObject(stored, false);
    }
    if (runningActivityVanished()) {
        m_currentActivity.reset();
        Q_EMIT activityManagerStopped(this);
    }
    return false;
}

ProjectPtr ActivityManager::findProject(const QString &name, StoreContext &inManagedObjectContext)
{
    return inManagedObjectContext.findProject(name);
}

TaskPtr ActivityManager::findTask(const QString &name, StoreContext &inManagedObjectContext)
{
    return inManagedObjectContext.findTask(name);
}

QStringList ActivityManager::findProjectNames(const QString &prefix, bool andChangeCase)
{
    Q_UNUSED(andChangeCase)
    return completionNames(prefix, false);
}

QStringList ActivityManager::findTaskNames(const QString &prefix, bool andChangeCase)
{
    Q_UNUSED(andChangeCase)
    return completionNames(prefix, true);
}

QStringList ActivityManager::completionNames(const QString &prefix, bool tasks)
{
    QStringList names;
    if (tasks) {
        if (auto all = m_context->tasks())
            for (const TaskPtr &task : std::as_const(*all))
                names.append(task->name());
    } else if (auto all = m_context->projects()) {
        for (const ProjectPtr &project : std::as_const(*all))
            names.append(project->name());
    }
    const LikePattern pattern(prefix + QLatin1Char('*'));
    names.removeIf([&](const QString &name) { return !pattern.matches(name); });
    if (tasks) {
        std::sort(names.begin(), names.end());
    } else {
        std::sort(names.begin(), names.end(),
            [](const QString &a, const QString &b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    }
    // The typed part keeps the user's capitalisation; the rest comes from the stored name.
    for (QString &name : names)
        name = prefix + name.mid(prefix.size());
    return names;
}

bool ActivityManager::isEmpty(const QString &text)
{
    if (text.isNull())
        return true;
    return std::all_of(
        text.cbegin(), text.cend(), [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); });
}

QList<RecentActivityItem> ActivityManager::recentActivities() const
{
    const int count = m_recentItems.count;
    const bool byDate = m_recentItems.orderedByDate;
    const bool excludeInvoiced = m_recentItems.excludeInvoiced;
    QList<RecentActivityItem> items;
    if (count <= 0)
        return items;
    auto texts = m_context->fetchDistinctTexts(
        byDate ? StoreContext::TextOrder::NewestFirst : StoreContext::TextOrder::TextDescending, excludeInvoiced,
        count);
    if (!texts)
        return items;
    const QString running = m_currentActivity ? m_currentActivity->text() : QString();
    items.reserve(texts->size());
    for (const QString &text : std::as_const(*texts))
        items.append(RecentActivityItem(text, m_currentActivity && text == running));
    return items;
}

QList<ActivityPtr> ActivityManager::todaysActivities() const
{
    const QDate today = LocalZone::toLocal(m_context->now()).date();
    ActivityQuery query;
    query.startsFrom = DateHelpers::instantFromLocal(today, QTime(0, 0, 0));
    query.startsUntil = DateHelpers::instantFromLocal(today, QTime(23, 59, 59));
    query.order = ActivityQuery::Order::TimeFromDescending;
    auto activities = m_context->fetchActivities(query);
    return activities ? *activities : QList<ActivityPtr>();
}

QString ActivityManager::exportActivities(const QList<ActivityPtr> &activities, const QString &toUrl, int withFormat)
{
    return ActivityExport::exportActivities(activities, toUrl, withFormat);
}
