#include "export/csvtokenfield.h"

#include <climits>
#include <optional>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>
#include <QStringList>

#include "export/csvtokenfielddelegate.h"

namespace {

const auto kTokenMode = QStringLiteral("tokenMode");
const auto kTokenType = QStringLiteral("tokenType");
const auto kTokenValue = QStringLiteral("tokenValue");
const auto kXmlPropertyName = QStringLiteral("xmlPropertyName");

int initialValue(int tokenType)
{
    switch (tokenType) {
    case ActivityTokenType::DateType:
        return ActivityTokenValue::StartDateLocal;
    case ActivityTokenType::DurationType:
        return ActivityTokenValue::DurationFormatted;
    default:
        return ActivityTokenValue::Text;
    }
}

// A JSON number that is a whole number within int; anything else counts as missing.
std::optional<int> integerOf(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (number != double(qint64(number)) || number < INT_MIN || number > INT_MAX)
        return std::nullopt;
    return int(number);
}

} // namespace

CSVTokenField CSVTokenField::initWithActivityFieldMode(int activityFieldMode, int andTokenType)
{
    CSVTokenField field;
    field.m_mode = activityFieldMode == XMLMode ? XMLMode : CSVMode;
    const int type = andTokenType == ActivityTokenType::DateType || andTokenType == ActivityTokenType::DurationType
        ? andTokenType
        : ActivityTokenType::ActivityType;
    field.m_tokenType.setValueType(type);
    field.m_tokenValue.setValue(initialValue(type));
    return field;
}

CSVTokenField CSVTokenField::initWithActivityFieldMode(int activityFieldMode, int tokenType, int andValue)
{
    CSVTokenField field = initWithActivityFieldMode(activityFieldMode, tokenType);
    field.m_tokenValue.setValue(andValue);
    return field;
}

void CSVTokenField::setTokenType(const ActivityTokenType &tokenType)
{
    if (tokenType == m_tokenType)
        return;
    m_tokenType = tokenType;
    // The editor offers the project name first for the activity family; the text is already the
    // column a new layout starts with.
    switch (tokenType.valueType()) {
    case ActivityTokenType::ActivityType:
        m_tokenValue.setValue(ActivityTokenValue::ProjectName);
        break;
    case ActivityTokenType::DurationType:
        m_tokenValue.setValue(ActivityTokenValue::DurationFormatted);
        break;
    case ActivityTokenType::DateType:
        m_tokenValue.setValue(ActivityTokenValue::StartDateLocal);
        break;
    default:
        break;
    }
    didChange(kTokenType);
    didChange(kTokenValue);
}

void CSVTokenField::setTokenValue(const ActivityTokenValue &tokenValue)
{
    if (tokenValue.value() == m_tokenValue.value())
        return;
    m_tokenValue.setValue(tokenValue.value());
    didChange(kTokenValue);
}

void CSVTokenField::setTokenType(int tokenType, int andValue)
{
    m_tokenType.setValueType(tokenType);
    m_tokenValue.setValue(andValue);
}

void CSVTokenField::setXmlPropertyName(const QString &xmlPropertyName)
{
    // Every white space splits, line ends included: an attribute name can hold neither.
    const QStringList words = xmlPropertyName.simplified().split(u' ', Qt::SkipEmptyParts);
    const QString name = words.join(u'-');
    if (name.isEmpty())
        return;
    if (m_enabled && (name == QLatin1String("from") || name == QLatin1String("to") || name == QLatin1String("uid")))
        return;
    const QString stored = m_mode == XMLMode ? name : QString();
    if (stored == m_xmlPropertyName && stored.isNull() == m_xmlPropertyName.isNull())
        return;
    m_xmlPropertyName = stored;
    didChange(kXmlPropertyName);
}

CSVTokenField CSVTokenField::copy() const
{
    CSVTokenField field;
    field.m_mode = m_mode;
    field.m_tokenType = ActivityTokenType(m_tokenType.valueType());
    field.m_tokenValue = m_tokenValue.copy();
    field.m_delegate = m_delegate;
    return field;
}

QJsonObject CSVTokenField::toJson() const
{
    QJsonObject json {
        { kTokenMode, m_mode },
        { kTokenType, m_tokenType.valueType() },
        { kTokenValue, m_tokenValue.value() },
    };
    if (m_mode == XMLMode && !m_xmlPropertyName.isNull())
        json.insert(kXmlPropertyName, m_xmlPropertyName);
    return json;
}

CSVTokenField CSVTokenField::fromJson(const QJsonObject &json)
{
    CSVTokenField field;
    if (json.contains(kTokenMode))
        field.m_mode = integerOf(json.value(kTokenMode)) == XMLMode ? XMLMode : CSVMode;
    if (const std::optional<int> type = integerOf(json.value(kTokenType)))
        field.m_tokenType.setValueType(*type);
    if (const std::optional<int> value = integerOf(json.value(kTokenValue)))
        field.m_tokenValue.setValue(*value);
    if (json.value(kXmlPropertyName).isString())
        field.setXmlPropertyName(json.value(kXmlPropertyName).toString());
    return field;
}

QString CSVTokenField::archive(const QList<CSVTokenField> &fields)
{
    QJsonArray array;
    for (const CSVTokenField &field : fields)
        array.append(field.toJson());
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

QList<CSVTokenField> CSVTokenField::unarchive(const QString &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return {};
    const QJsonArray array = document.array();
    QList<CSVTokenField> fields;
    fields.reserve(array.size());
    for (const QJsonValue &element : array) {
        if (element.isObject())
            fields.append(fromJson(element.toObject()));
    }
    return fields;
}

bool CSVTokenField::operator==(const CSVTokenField &other) const
{
    return m_mode == other.m_mode && m_tokenType == other.m_tokenType && m_tokenValue == other.m_tokenValue
        && xmlPropertyName() == other.xmlPropertyName() && m_enabled == other.m_enabled;
}

void CSVTokenField::didChange(const QString &key)
{
    if (m_delegate)
        m_delegate->tokenFieldDidChange(*this, key);
}
