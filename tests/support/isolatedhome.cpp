#include "support/isolatedhome.h"

#include <QDir>
#include <QStandardPaths>

namespace {
const char *const kVariables[] = { "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR" };
}

IsolatedHome::IsolatedHome()
{
    Q_ASSERT(m_dir.isValid());
    for (const char *name : kVariables)
        m_saved.insert(name, qgetenv(name));
    const QDir root(m_dir.path());
    const QString home = root.filePath(QStringLiteral("home"));
    const QString runtime = root.filePath(QStringLiteral("runtime"));
    for (const QString &sub : { home, dataHome(), configHome(), cacheHome(), runtime })
        QDir().mkpath(sub);
    QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome()));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(cacheHome()));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
}

IsolatedHome::~IsolatedHome()
{
    for (auto it = m_saved.cbegin(); it != m_saved.cend(); ++it) {
        if (it.value().isNull())
            qunsetenv(it.key().constData());
        else
            qputenv(it.key().constData(), it.value());
    }
}

QString IsolatedHome::applicationFilesDirectory() const
{
    return QDir(dataHome()).filePath(QStringLiteral("Brimvale"));
}
