#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// The per-user defaults store: one INI file read and written through QSettings, plus an in-memory set of
// registered defaults that answers for keys the file does not hold.
//
// INI keeps every value as text, so scalars are written as text too (booleans as "1"/"0", integers in
// decimal) and the typed getters convert text the way a property-list store would: "YES", "true" and
// non-zero numbers read as true, a number's leading digits read as an integer.
//
// The value getters (objectForKey and the typed ones built on it) look in the file first, then in the
// registered defaults; hasKey looks in the file only. Writes stay in memory until synchronize().
// Not thread-safe: use one instance from one thread.
class UserDefaults
{
public:
    // A store over the INI file at filePath; the file and its folder are created on the first write.
    explicit UserDefaults(const QString &filePath);
    ~UserDefaults();
    UserDefaults(const UserDefaults &) = delete;
    UserDefaults &operator=(const UserDefaults &) = delete;

    // The process-wide store over ~/.config/Brimvale/Brimvale.conf (the generic config location as it
    // is when this is first called). Main thread.
    static UserDefaults *standardUserDefaults();
    static QString standardFilePath();

    QString filePath() const;

    // The stored value, else the registered default, else an invalid QVariant.
    QVariant objectForKey(const QString &key) const;
    // Text values as they are, numbers in decimal, booleans as "1"/"0"; a null string when the key is
    // missing or holds something else (a date, for instance).
    QString stringForKey(const QString &key) const;
    // Numbers truncated, text by its leading decimal integer ("12abc" is 12), booleans as 1/0; 0 otherwise.
    qint64 integerForKey(const QString &key) const;
    // Text starting with Y, T or a non-zero digit (after sign and leading zeros) is true, as are non-zero
    // numbers; false otherwise, including a missing key.
    bool boolForKey(const QString &key) const;
    // Whether the file holds the key; registered defaults do not count.
    bool hasKey(const QString &key) const;

    // Stores the value; an invalid QVariant removes the key. Booleans and numbers are stored as text.
    void setObject(const QVariant &value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setBool(bool value, const QString &key);
    void removeObject(const QString &key);

    // Writes pending changes to the file (atomically) and reloads changes made by other processes.
    // False when the file cannot be read or written.
    bool synchronize();

    // Adds the values to the registered defaults, replacing those of the same keys. Never written to the file.
    void registerDefaults(const QVariantMap &defaults);
    QVariantMap registeredDefaults() const { return m_registered; }
    // Registers the JSON object in the given resource (by default the bundled ":/Brimvale-Defaults.json").
    // False, with a warning logged, when it is missing or not a JSON object.
    bool registerDefaultsFromResource(const QString &resourcePath = QStringLiteral(":/Brimvale-Defaults.json"));

private:
    QSettings m_settings;
    QVariantMap m_registered;
};
