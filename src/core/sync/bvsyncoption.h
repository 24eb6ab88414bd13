#pragma once

#include <QList>
#include <QString>

// One way of syncing the journal between machines, as the preferences offer it: its method code and
// title. Any thread.
class BVSyncOption
{
public:
    BVSyncOption(int syncMethod, const QString &title);

    // "don't sync" (0), "Dropbox" (1) and "Folder" (2), in this order.
    static QList<BVSyncOption> syncMethods();
    // The title of a method code; a null string for a code that is not offered.
    static QString titleForSyncMethod(int syncMethod);
    // The title of the status menu's sync command ("Sync with Dropbox"); a null string for a method that
    // offers none (0, or a code that is not offered).
    static QString syncMenuTitle(int syncMethod);

    int syncMethod() const { return m_syncMethod; }
    QString title() const { return m_title; }

private:
    int m_syncMethod;
    QString m_title;
};
