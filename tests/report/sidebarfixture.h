#pragma once

#include <memory>

#include <QDateTime>
#include <QString>

#include "model/store.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

// A fresh store and settings for one sidebar test, with shortcuts to write the journal as the app would.
class SidebarFixture
{
public:
    SidebarFixture();
    ~SidebarFixture();

    Store &store() { return *m_store; }
    BvSettings &settings() { return *m_settings; }
    QString applicationFilesDirectory() const { return m_home.applicationFilesDirectory(); }

    // Stores an activity with this text (its "@" and "#" words name the project and tasks) and returns its uid.
    QString add(const QString &text, const QDateTime &from, const QDateTime &to);
    // Changes a stored activity and saves it.
    void setText(const QString &uid, const QString &text);
    void setTimes(const QString &uid, const QDateTime &from, const QDateTime &to);
    void remove(const QString &uid);
    // The stored visibility and position of the project (task) named so.
    bool storedVisible(const QString &name, bool task);
    std::optional<qint64> storedPosition(const QString &name, bool task);
    void setStoredVisible(const QString &name, bool task, bool visible);

private:
    IsolatedHome m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
};
