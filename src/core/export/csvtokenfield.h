#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include "export/activitytokentype.h"
#include "export/activitytokenvalue.h"

class CSVTokenFieldDelegate;

// One column of the CSV layout (mode 0) or one attribute of the XML layout (mode 1): a token type and
// value from the catalogue, and in mode 1 the attribute's name. Columns made by the user are enabled;
// the four fixed XML attributes are not, which keeps them out of the stored layout.
//
// The C++ copy constructor copies everything, so that layouts can be passed around; copy() is the
// designed copy used when a column is duplicated in the editor.
class CSVTokenField
{
public:
    static constexpr int CSVMode = 0;
    static constexpr int XMLMode = 1;

    // A CSV column showing the text (mode 0, type 400, value 400).
    CSVTokenField() = default;
    // Mode 1 stays 1 and any other mode becomes 0; type 100 and 200 stay, any other becomes 400. The
    // value starts at the type's first choice: 111 for dates, 300 for durations, 400 for the activity.
    static CSVTokenField initWithActivityFieldMode(int activityFieldMode, int andTokenType);
    // The same, then the value number as given.
    static CSVTokenField initWithActivityFieldMode(int activityFieldMode, int tokenType, int andValue);

    int mode() const { return m_mode; }
    const ActivityTokenType &tokenType() const { return m_tokenType; }
    const ActivityTokenValue &tokenValue() const { return m_tokenValue; }
    // The value object itself, for its short-description flag.
    ActivityTokenValue &tokenValue() { return m_tokenValue; }

    // A change of type resets the value to the type's default choice (401 for the activity, which is not
    // the construction default; 300 for durations; 111 for dates) and tells the delegate about both. The
    // same type again changes nothing.
    void setTokenType(const ActivityTokenType &tokenType);
    void setTokenType(int tokenType) { setTokenType(ActivityTokenType(tokenType)); }
    // Takes the number only.
    void setTokenValue(const ActivityTokenValue &tokenValue);
    void setTokenValue(int tokenValue) { setTokenValue(ActivityTokenValue(tokenValue)); }
    // Both numbers, without the reset.
    void setTokenType(int tokenType, int andValue);

    // The attribute name, a null string in mode 0.
    QString xmlPropertyName() const { return m_mode == XMLMode ? m_xmlPropertyName : QString(); }
    // Trims the name, splits it at white space and joins the words with "-" ("  my  field " gives
    // "my-field"). Nothing changes when no word is left, or when an enabled column is to be named "from",
    // "to" or "uid" (the fixed attributes). In mode 0 the name is cleared instead.
    void setXmlPropertyName(const QString &xmlPropertyName);

    bool enabled() const { return m_enabled; }
    void setEnabled(bool enabled) { m_enabled = enabled; }

    // The layout editor; not owned, may be null.
    CSVTokenFieldDelegate *delegate() const { return m_delegate; }
    void setDelegate(CSVTokenFieldDelegate *delegate) { m_delegate = delegate; }

    // Same mode, type and value numbers and delegate; enabled, without attribute name, long titles.
    CSVTokenField copy() const;

    // The type's title, and the value's short title.
    QString displayStringTemplate() const { return m_tokenType.description(); }
    QString displayStringField() const { return m_tokenValue.descriptionShort(); }

    // The persisted form: {"tokenMode", "tokenType", "tokenValue"} and "xmlPropertyName" in mode 1.
    QJsonObject toJson() const;
    // Starts from mode 0 type 400 value 400 and takes each key that holds a number ("tokenMode" other
    // than 1 gives 0), then the name through setXmlPropertyName. The result is enabled.
    static CSVTokenField fromJson(const QJsonObject &json);
    // A layout as JSON text (an array of the objects above), and back. Text that is not a JSON array
    // gives an empty layout; elements that are not objects are left out.
    static QString archive(const QList<CSVTokenField> &fields);
    static QList<CSVTokenField> unarchive(const QString &text);

    // Mode, numbers, name and enabled state; the delegate does not count.
    bool operator==(const CSVTokenField &other) const;

private:
    void didChange(const QString &key);

    int m_mode = CSVMode;
    ActivityTokenType m_tokenType;
    ActivityTokenValue m_tokenValue;
    QString m_xmlPropertyName;
    bool m_enabled = true;
    CSVTokenFieldDelegate *m_delegate = nullptr;
};
