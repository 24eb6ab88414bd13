#include "settings/userdefaults.h"

#include <limits>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLocale>
#include <QStandardPaths>

#include "base/logging.h"
#include "base/variantnumber.h"

namespace {

QString numberText(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

// A hand-edited INI line such as "a=1, 2" comes back from QSettings as a list, because an unquoted comma
// separates list items in that format; joining restores the text the user wrote.
QString textOf(const QVariant &value)
{
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QStringLiteral(", "));
    if (value.typeId() == QMetaType::QByteArray)
        return QString::fromUtf8(value.toByteArray());
    return value.toString();
}

bool isText(const QVariant &value)
{
    const int type = value.typeId();
    return type == QMetaType::QString || type == QMetaType::QStringList || type == QMetaType::QByteArray;
}

qsizetype skipSpace(QStringView text, qsizetype i)
{
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    return i;
}

// The leading decimal integer of the text, as a property-list store reads text asked for as a number:
// white space and a sign first, digits until the first other character, 0 when there are none.
qint64 leadingInteger(QStringView text)
{
    qsizetype i = skipSpace(text, 0);
    bool negative = false;
    if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+')) {
        negative = text.at(i) == u'-';
        ++i;
    }
    qint64 result = 0;
    constexpr qint64 limit = std::numeric_limits<qint64>::max();
    for (; i < text.size() && text.at(i) >= u'0' && text.at(i) <= u'9'; ++i) {
        const int digit = text.at(i).unicode() - u'0';
        if (result > (limit - digit) / 10)
            return negative ? std::numeric_limits<qint64>::min() : limit;
        result = result * 10 + digit;
    }
    return negative ? -result : result;
}

bool textIsTrue(QStringView text)
{
    qsizetype i = skipSpace(text, 0);
    if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+'))
        ++i;
    while (i < text.size() && text.at(i) == u'0')
        ++i;
    if (i >= text.size())
        return false;
    const QChar c = text.at(i);
    return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
}

} // namespace

UserDefaults::UserDefaults(const QString &filePath)
    : m_settings(filePath, QSettings::IniFormat)
{ }

UserDefaults::~UserDefaults() = default;

UserDefaults *UserDefaults::standardUserDefaults()
{
    static UserDefaults standard(standardFilePath());
    return &standard;
}

QString UserDefaults::standardFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/Brimvale/Brimvale.conf");
}

QString UserDefaults::filePath() const
{
    return m_settings.fileName();
}

QVariant UserDefaults::objectForKey(const QString &key) const
{
    const QVariant stored = m_settings.value(key);
    if (stored.isValid())
        return stored;
    return m_registered.value(key);
}

QString UserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (isText(value))
        return textOf(value);
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (VariantNumber::isInteger(value))
        return value.toString();
    if (VariantNumber::isFloating(value))
        return numberText(value.toDouble());
    return {};
}

qint64 UserDefaults::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (isText(value))
        return leadingInteger(textOf(value));
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? 1 : 0;
    if (VariantNumber::isInteger(value))
        return value.toLongLong();
    if (VariantNumber::isFloating(value))
        return VariantNumber::truncated(value.toDouble());
    return 0;
}

bool UserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (isText(value))
        return textIsTrue(textOf(value));
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (VariantNumber::isInteger(value))
        return value.toLongLong() != 0;
    if (VariantNumber::isFloating(value))
        return value.toDouble() != 0.0;
    return false;
}

bool UserDefaults::hasKey(const QString &key) const
{
    return m_settings.contains(key);
}

void UserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObject(key);
        return;
    }
    // Store scalars as the text the file will hold anyway, so that a value reads the same before and after
    // the file is reloaded.
    if (value.typeId() == QMetaType::Bool)
        m_settings.setValue(key, value.toBool() ? QStringLiteral("1") : QStringLiteral("0"));
    else if (VariantNumber::isInteger(value))
        m_settings.setValue(key, value.toString());
    else if (VariantNumber::isFloating(value))
        m_settings.setValue(key, numberText(value.toDouble()));
    else
        m_settings.setValue(key, value);
}

void UserDefaults::setInteger(qint64 value, const QString &key)
{
    m_settings.setValue(key, QString::number(value));
}

void UserDefaults::setBool(bool value, const QString &key)
{
    m_settings.setValue(key, value ? QStringLiteral("1") : QStringLiteral("0"));
}

void UserDefaults::removeObject(const QString &key)
{
    m_settings.remove(key);
}

bool UserDefaults::synchronize()
{
    m_settings.sync();
    if (m_settings.status() == QSettings::NoError)
        return true;
    qCWarning(lcSettings) << "Could not synchronise the settings file" << m_settings.fileName() << "status"
                          << m_settings.status();
    return false;
}

void UserDefaults::registerDefaults(const QVariantMap &defaults)
{
    m_registered.insert(defaults);
}

bool UserDefaults::registerDefaultsFromResource(const QString &resourcePath)
{
    QFile file(resourcePath);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcSettings) << "Could not open the registered defaults" << resourcePath << file.errorString();
        return false;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        qCWarning(lcSettings) << "The registered defaults" << resourcePath
                              << "are not a JSON object:" << error.errorString();
        return false;
    }
    registerDefaults(document.object().toVariantMap());
    return true;
}
