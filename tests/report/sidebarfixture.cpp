#include "sidebarfixture.h"

#include <QtTest>

#include "model/storecontext.h"

using namespace Qt::StringLiterals;

namespace {

std::shared_ptr<SidebarItem> named(StoreContext &context, const QString &name, bool task)
{
    if (task) {
        const QList<TaskPtr> tasks = *context.tasks();
        for (const TaskPtr &item : tasks)
            if (item->name() == name)
                return item;
    } else {
        const QList<ProjectPtr> projects = *context.projects();
        for (const ProjectPtr &item : projects)
            if (item->name() == name)
                return item;
    }
    qFatal("no item named %s", qPrintable(name));
}

} // namespace

SidebarFixture::SidebarFixture()
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home.applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        qFatal("store: %s", qPrintable(store.error().message()));
    m_store = std::move(*store);
    m_defaults = std::make_unique<UserDefaults>(m_home.configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

SidebarFixture::~SidebarFixture()
{
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
}

QString SidebarFixture::add(const QString &text, const QDateTime &from, const QDateTime &to)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(to);
    if (auto saved = context->save(); !saved)
        qFatal("save: %s", qPrintable(saved.error().message()));
    return activity->uid();
}

void SidebarFixture::setText(const QString &uid, const QString &text)
{
    auto context = m_store->newContext();
    (*context->activityWithUid(uid))->setText(text);
    QVERIFY(context->save());
}

void SidebarFixture::setTimes(const QString &uid, const QDateTime &from, const QDateTime &to)
{
    auto context = m_store->newContext();
    ActivityPtr activity = *context->activityWithUid(uid);
    activity->setTimeFrom(from);
    activity->setTimeTo(to);
    QVERIFY(context->save());
}

void SidebarFixture::remove(const QString &uid)
{
    auto context = m_store->newContext();
    context->deleteObject(*context->activityWithUid(uid));
    QVERIFY(context->save());
}

bool SidebarFixture::storedVisible(const QString &name, bool task)
{
    auto context = m_store->newContext();
    return named(*context, name, task)->visible();
}

std::optional<qint64> SidebarFixture::storedPosition(const QString &name, bool task)
{
    auto context = m_store->newContext();
    return named(*context, name, task)->position();
}

void SidebarFixture::setStoredVisible(const QString &name, bool task, bool visible)
{
    auto context = m_store->newContext();
    named(*context, name, task)->setVisible(visible);
    QVERIFY(context->save());
}
