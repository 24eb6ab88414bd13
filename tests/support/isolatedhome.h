#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QTemporaryDir>

// Points HOME and the XDG data, config, cache and runtime folders at fresh empty folders for as long as it
// lives, and restores the previous values afterwards. Use one per test function that writes files.
class IsolatedHome
{
public:
    IsolatedHome();
    ~IsolatedHome();
    IsolatedHome(const IsolatedHome &) = delete;
    IsolatedHome &operator=(const IsolatedHome &) = delete;

    QString root() const { return m_dir.path(); }
    QString dataHome() const { return m_dir.filePath(QStringLiteral("data")); }
    QString configHome() const { return m_dir.filePath(QStringLiteral("config")); }
    QString cacheHome() const { return m_dir.filePath(QStringLiteral("cache")); }
    // ~/.local/share/Brimvale as the application sees it.
    QString applicationFilesDirectory() const;

private:
    QTemporaryDir m_dir;
    QHash<QByteArray, QByteArray> m_saved;
};
