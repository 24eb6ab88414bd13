#include "sync/bvsyncoption.h"

#include <QCoreApplication>

#include "settings/bvsettings.h"

BVSyncOption::BVSyncOption(int syncMethod, const QString &title)
    : m_syncMethod(syncMethod)
    , m_title(title)
{ }

QList<BVSyncOption> BVSyncOption::syncMethods()
{
    // The settings own the list of codes and their titles; the options only present them.
    QList<BVSyncOption> options;
    for (const EnumDescription &method : BvSettings::syncMethodValues())
        options.append(BVSyncOption(method.enumValue(), method.description()));
    return options;
}

QString BVSyncOption::titleForSyncMethod(int syncMethod)
{
    for (const BVSyncOption &option : syncMethods()) {
        if (option.syncMethod() == syncMethod)
            return option.title();
    }
    return {};
}

QString BVSyncOption::syncMenuTitle(int syncMethod)
{
    const QString title = syncMethod == 0 ? QString() : titleForSyncMethod(syncMethod);
    return title.isNull() ? QString() : QCoreApplication::translate("BVSyncOption", "Sync with %1").arg(title);
}
