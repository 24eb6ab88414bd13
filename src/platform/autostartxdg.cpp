#include "platform/autostartxdg.h"

#include <algorithm>
#include <utility>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

// One argument of an Exec line. The Desktop Entry rules: an argument with a reserved character goes in
// double quotes, inside which ", `, $ and \ take a backslash; a literal % is written %%. The whole value is
// then a string value of the file, where every backslash is doubled once more.
QString execArgument(const QString &argument)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`=");
    QString text = argument;
    text.replace(u'%', QStringLiteral("%%"));
    const bool needsQuotes = argument.isEmpty()
        || std::any_of(argument.cbegin(), argument.cend(), [](QChar c) { return reserved.contains(c); });
    if (!needsQuotes)
        return text;
    QString quoted;
    for (const QChar c : std::as_const(text)) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
    }
    quoted.replace(u'\\', QStringLiteral("\\\\"));
    return u'"' + quoted + u'"';
}

} // namespace

AutostartXdg::AutostartXdg(QString program)
    : m_program(std::move(program))
    , m_filePath(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
          + QStringLiteral("/autostart/brimvale.desktop"))
{ }

QString AutostartXdg::desktopEntry() const
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Brimvale\n"
                          "Comment=Start the Brimvale time tracker at login\n"
                          "Exec=")
        + execArgument(m_program)
        + QStringLiteral(" launchFromHelper\n"
                         "Icon=brimvale\n"
                         "Terminal=false\n"
                         "X-GNOME-Autostart-enabled=true\n");
}

std::expected<void, QString> AutostartXdg::setEnabled(bool enabled)
{
    if (!enabled) {
        QFile file(m_filePath);
        if (!file.exists() || file.remove())
            return {};
        return std::unexpected(QStringLiteral("Cannot remove %1: %2").arg(m_filePath, file.errorString()));
    }

    const QString folder = QFileInfo(m_filePath).absolutePath();
    if (!QDir().mkpath(folder))
        return std::unexpected(QStringLiteral("Cannot create the folder %1").arg(folder));
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly))
        return std::unexpected(QStringLiteral("Cannot write %1: %2").arg(m_filePath, file.errorString()));
    file.write(desktopEntry().toUtf8());
    if (!file.commit())
        return std::unexpected(QStringLiteral("Cannot write %1: %2").arg(m_filePath, file.errorString()));
    return {};
}

bool AutostartXdg::isEnabled() const
{
    return QFileInfo::exists(m_filePath);
}
